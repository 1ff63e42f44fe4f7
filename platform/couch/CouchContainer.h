#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/CloudDatabase.h"
#include "platform/couch/SyncCrypto.h"

namespace zettly {

class Log;

// Where and as whom to sync, and the passphrase the records are sealed with.
struct CouchSettings {
    // The database URL, e.g. "https://couch.example.org:6984/zettly". The
    // zone "Clipboard" is this one database.
    std::string databaseUrl;
    std::string user;
    std::string password;
    std::string passphrase;
    // A key derived earlier from this passphrase and `cachedKeySalt` (kept
    // in the secret store), so a start does not pay for Argon2 again. Used
    // only while the server's salt is the same.
    std::optional<synccrypto::MasterKey> cachedKey = std::nullopt;
    synccrypto::Bytes cachedKeySalt = {};
    // Called (on a sync thread) whenever a key was derived, to be kept.
    std::function<void(const synccrypto::Bytes& salt, const synccrypto::MasterKey& key)>
        keyDerived = {};
    synccrypto::KdfStrength kdf = synccrypto::KdfStrength::moderate;
    double requestTimeoutSeconds = 30;
    // The push long-poll: the server is asked to hold a _changes request
    // this long; the client gives up a little later (pouchdb-server ignores
    // the server-side timeout).
    double longPollSeconds = 50;
};

// None when the URL can be used; otherwise why not, for the user. Plain
// http is accepted only for loopback addresses, where nothing crosses a
// network.
std::optional<std::string> couchUrlProblem(std::string_view databaseUrl);

// The cloud record database over Apache CouchDB 3 (or a compatible server
// such as pouchdb-server) with client-side encryption. See CouchContainer.cpp
// for the mapping of zones, records, change tags and tokens.
class CouchContainer final : public CloudContainer {
public:
    CouchContainer(CouchSettings settings, Log& log);
    ~CouchContainer() override;  // ends the push long-poll and waits for it

    // noAccount while the settings lack a URL, user or passphrase; an error
    // for an unreachable server, refused credentials (notAuthenticated) and
    // a passphrase that does not open this server's data (notAuthenticated
    // with the user message "The passphrase does not match the data on the
    // sync server").
    CloudResult<CloudAccountStatus> accountStatus() override;
    // The session's user name.
    CloudResult<std::string> userRecordName() override;
    CloudDatabase& privateDatabase() override;
    // A non-empty handler starts the long-poll on _changes (a thread of its
    // own); each change another device made calls it with "clipboard-zone".
    void setPushHandler(std::function<void(const std::string& subscriptionID)> handler) override;

    // The Sync tab's "Test connection": reaches the server, logs in, finds
    // the database and checks the passphrase. One plain-language sentence.
    struct ConnectionReport {
        bool ok = false;
        std::string message;
    };
    ConnectionReport testConnection();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace zettly
