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

// Why a database URL cannot be used. Plain http is accepted only for
// loopback addresses, where nothing crosses a network.
enum class CouchUrlProblem {
    missing,
    notAnAddress,
    wrongScheme,
    noHost,
    credentialsInAddress,
    queryOrFragment,
    noDatabaseName,
    plainHttpToAnotherMachine,
};
// None when the URL can be used.
std::optional<CouchUrlProblem> couchUrlProblem(std::string_view databaseUrl);
// The problem in English, for the log and the stored status; the settings
// show their own translated words for it.
std::string describe(CouchUrlProblem problem);

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
    // From the Date header of the latest answer (the sync calls, the
    // connection test and the long-poll alike); 1-second resolution.
    std::optional<double> clockSkew() override;

    // The Sync tab's "Test connection": reaches the server, logs in, finds
    // the database and checks the passphrase.
    struct ConnectionReport {
        enum class Outcome {
            incomplete,          // address, user or passphrase missing
            badAddress,          // see urlProblem
            unreachable,         // detail: the transport error
            credentialsRefused,  // 401/403 on signing in
            serverError,         // detail: the server's reason
            databaseMissing,     // signed in; the first sync creates it if allowed
            databaseForbidden,   // signed in, but not a member of the database
            databaseError,       // detail: the server's reason
            dataUnreadable,      // detail: why (wrong passphrase, damaged or newer set-up)
            connectedEmpty,      // the database has no Zettly data yet
            connected,           // and the passphrase opens the data
        };
        bool ok = false;
        Outcome outcome = Outcome::incomplete;
        std::string detail;
        std::optional<CouchUrlProblem> urlProblem;
        std::string message;  // in English, for the log
    };
    ConnectionReport testConnection();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace zettly
