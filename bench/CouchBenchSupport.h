#pragma once

// What the benches through a local pouchdb-server share: the server, up,
// and a device's backend on it.
#include <cstdio>
#include <memory>
#include <utility>

#include "platform/couch/CouchContainer.h"
#include "tests/fakes/PouchServer.h"

namespace zettly::bench {

// False (and why, on stderr) when the server did not come up.
inline bool startServer(test::PouchServer& server) {
    if (server.start())
        return true;
    std::fprintf(stderr, "pouchdb-server did not start:\n%s\n", server.output().c_str());
    return false;
}

inline std::unique_ptr<CouchContainer> couchBackend(const test::PouchServer& server, Log& log) {
    CouchSettings settings;
    settings.databaseUrl = server.url() + "/zettly";
    settings.user = test::PouchServer::user;
    settings.password = test::PouchServer::password;
    settings.passphrase = "correct horse battery staple";
    return std::make_unique<CouchContainer>(std::move(settings), log);
}

}  // namespace zettly::bench
