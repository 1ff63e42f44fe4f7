// Cost of sync through a real server: the first upload of 10,000 texts and
// 15 images to a local pouchdb-server (in memory, on loopback), and a second
// device pulling all of it. Wall time includes the server's own work and
// HTTP; CPU time is this process only (engine, stores, sealing, libcurl).
#include "bench/CouchBenchSupport.h"
#include "bench/SyncBenchSupport.h"

using namespace zettly;
using namespace zettly::bench;

int main() {
    test::PouchServer server(ZETTLY_POUCHDB_SERVER);
    if (!startServer(server))
        return 1;
    test::RecordingLog log;
    SyncDevice a(couchBackend(server, log));
    SyncDevice b(couchBackend(server, log));
    keepWholeHistory(a);
    keepWholeHistory(b);
    fillHistory(a);
    Runs runs = uploadThenApply(a, b);
    for (const auto& line : log.lines())
        std::printf("log: %s\n", line.c_str());
    return finish(a, b, runs, 15.0, "this process: engine, stores, sealing, HTTP client");
}
