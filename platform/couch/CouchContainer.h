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

    // The user messages of the errors that say why the passphrase does not
    // open the server's data; fixed English, the settings translate them.
    // A device that never opened the zone cannot tell a wrong passphrase
    // from a changed marker, and says the first.
    static constexpr std::string_view wrongPassphraseMessage =
        "The passphrase does not match the data on the sync server";
    // The marker has a new salt, was written by a passphrase change, and
    // this device holds a key that opened an earlier one.
    static constexpr std::string_view passphraseChangedMessage =
        "The passphrase was changed on another device. Enter the new passphrase in the Sync "
        "settings.";
    // The key this device holds for the marker's salt no longer opens it,
    // or its fields changed since the key check was made.
    static constexpr std::string_view markerTamperedMessage =
        "The set-up record on the sync server was changed by something other than Zettly, so "
        "the data there cannot be trusted. Delete the cloud copy in the Sync settings to start "
        "it afresh; the history on your devices stays.";

    // noAccount while the settings lack a URL, user or passphrase; an error
    // for an unreachable server, refused credentials (notAuthenticated) and
    // a passphrase that does not open this server's data (notAuthenticated
    // or, for a changed marker, serverRejectedRequest, with one of the user
    // messages above). The first device with the right passphrase to open
    // a zone of an older format starts it afresh in the current one: the
    // records go, and every device uploads its history again.
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
    // During a pass the marker is read once, by accountStatus(); the calls
    // after it trust that reading until the pass ends, unless the change
    // feed shows the marker changed meanwhile.
    void passBegins() override;
    void passEnds() override;

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

    // Blocking. Checks that the current passphrase opens the server's data,
    // derives a key from `newPassphrase` with a new salt, deletes every
    // record and writes a marker for the new key (with a new epoch, marked
    // as re-keyed) and hands the key to `keyDerived`. This container goes on
    // with the new passphrase; the caller keeps it, and has its sync engine
    // upload everything again. Other devices stop with
    // passphraseChangedMessage until they are given the new passphrase.
    CloudResult<> changePassphrase(const std::string& newPassphrase);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace zettly
