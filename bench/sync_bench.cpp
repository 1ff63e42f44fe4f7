// Cost of cloud sync at the size of a large history: the first upload of
// 10,000 texts and 15 images from one device to an empty account, and a
// second device taking all of it in (metadata, then the image bytes). The
// server is the in-memory one, so the figures are the engine's and the
// stores' own work, without network latency. Run from any folder.
#include "bench/SyncBenchSupport.h"

using namespace zettly;
using namespace zettly::bench;

int main() {
    InMemoryCloud server;
    SyncDevice a(server, "ann");
    SyncDevice b(server, "ann");
    keepWholeHistory(a);
    keepWholeHistory(b);
    fillHistory(a);
    Runs runs = uploadThenApply(a, b);
    return finish(a, b, runs, 2.0, "engine, stores and the in-memory server");
}
