// Cost of sync through a real server: the first upload of 10,000 texts and
// 15 images to a local pouchdb-server (in memory, on loopback), and a second
// device pulling all of it. Wall time includes the server's own work and
// HTTP; CPU time is this process only (engine, stores, sealing, libcurl).
#include "bench/SyncBenchSupport.h"
#include "platform/couch/CouchContainer.h"
#include "tests/fakes/PouchServer.h"

using namespace zettly;
using namespace zettly::bench;

namespace {

std::unique_ptr<CouchContainer> backend(const test::PouchServer& server, Log& log) {
    CouchSettings settings;
    settings.databaseUrl = server.url() + "/zettly";
    settings.user = test::PouchServer::user;
    settings.password = test::PouchServer::password;
    settings.passphrase = "correct horse battery staple";
    return std::make_unique<CouchContainer>(std::move(settings), log);
}

}  // namespace

int main() {
    test::PouchServer server(ZETTLY_POUCHDB_SERVER);
    if (!server.start()) {
        std::fprintf(stderr, "pouchdb-server did not start:\n%s\n", server.output().c_str());
        return 1;
    }
    test::RecordingLog log;
    SyncDevice a(backend(server, log));
    SyncDevice b(backend(server, log));
    keepWholeHistory(a);
    keepWholeHistory(b);
    fillHistory(a);
    Runs runs = uploadThenApply(a, b);
    for (const auto& line : log.lines())
        std::printf("log: %s\n", line.c_str());
    return finish(a, b, runs, 15.0, "this process: engine, stores, sealing, HTTP client");
}
