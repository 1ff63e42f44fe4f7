// The cloud record database over CouchDB. The mapping:
//
// - The one zone is the database at the configured URL. Only server admins
//   may create databases, so saving the zone accepts a database that exists
//   and that the user may merely open.
// - The document "zettly-marker" sets the zone up: the salt of the key
//   derivation, the Argon2 strength, the zone's epoch (a random id) and a
//   key check that vouches for them (CouchMarker.cpp). Every call reads it
//   first, so a wrong passphrase, one changed on another device and a
//   marker changed behind Zettly's back are found before anything else is
//   read or written. A sync pass reads it once, with the account status,
//   and its calls share that reading; a marker that changes during the pass
//   is found by the next one, or sooner when the change feed shows it. A
//   missing marker reads as a missing zone; setting it up again deletes the
//   records left without it.
// - Changing the passphrase deletes every record and writes a marker with
//   a new salt and epoch, marked as re-keyed; every device uploads again
//   once it has the new passphrase.
// - A record is a document (see CouchDocuments.h); its system fields carry
//   the document's revision as the change tag. Saves go through _bulk_docs.
//   Every seal binds the zone's epoch and the record's type, name and
//   version (which each save raises), and the plain fields; a deletion is
//   sealed too. The backend remembers the highest version it saw of each
//   record while it runs. A document that fails any of this (changed,
//   moved, older than one seen, from another epoch, deleted without the
//   key) is never content nor a deletion: it comes back as
//   unauthenticRecord with what it takes to save over it.
// - Change tokens hold the epoch and the _changes sequence. Deleting the
//   zone deletes every document, with sealed stubs marked "wiped" so that no
//   feed reports them as the user's deletions, and then gives the marker a
//   new epoch: another device's token then names an old epoch and gets
//   userDeletedZone, and its engine uploads again, as it does for a zone
//   deleted in CloudKit. The
//   database itself stays: deleting it would also drop its members list,
//   and a user who is not an admin could not create it again.
// - Pushes come from a long-poll on _changes on a thread of its own.
//
// This file holds the container itself, its account status and connection
// test, and the checks of the URL. The rest has a file each: CouchSession
// (signing in, requests, errors), CouchMarker (the marker and the key),
// CouchRecords, CouchChanges and CouchPush; CouchBackend.h declares what
// they share.
#include "platform/couch/CouchContainer.h"

#include <utility>

#include "platform/couch/CouchBackend.h"

namespace zettly {

namespace couch {

CloudResult<CloudAccountStatus> Backend::accountStatus() {
    if (!configured())
        return CloudAccountStatus::noAccount;
    if (auto problem = couchUrlProblem(settings_.databaseUrl)) {
        CloudError error(CloudErrorCode::invalidArguments, describe(*problem));
        error.userMessage = error.description;
        return error;
    }
    if (auto session = call("GET", serverUrl_ + "/_session", {}, "Signing in", smallAnswer);
        !session)
        return session.error();
    // Not set up yet (no marker) is available too: saving the zone does that.
    // Read afresh even during a pass: this is the pass's check.
    auto zone = openMarker(true);
    if (!zone)
        return zone.error();
    rememberForPass(zone.value());
    return CloudAccountStatus::available;
}

CouchContainer::ConnectionReport Backend::testConnection() {
    using Report = CouchContainer::ConnectionReport;
    using Outcome = Report::Outcome;
    auto report = [](Outcome outcome, std::string message, std::string detail = {}) {
        bool ok = outcome == Outcome::databaseMissing || outcome == Outcome::connectedEmpty ||
                  outcome == Outcome::connected;
        return Report{ok, outcome, std::move(detail), std::nullopt, std::move(message)};
    };
    if (!configured())
        return report(Outcome::incomplete,
                      "Enter the database address, the user name and the passphrase.");
    if (auto problem = couchUrlProblem(settings_.databaseUrl)) {
        Report bad = report(Outcome::badAddress, describe(*problem));
        bad.urlProblem = problem;
        return bad;
    }
    // Bounded like every other request: a huge or endless answer is not
    // what CouchDB sends, and says so as the server's error.
    auto session = send("GET", serverUrl_ + "/_session", {}, smallAnswer);
    if (session.tooLarge)
        return report(Outcome::serverError,
                      "The server answered with an error: " + session.transportError,
                      session.transportError);
    if (!session.answered())
        return report(Outcome::unreachable,
                      "The server cannot be reached: " + session.transportError,
                      session.transportError);
    if (session.status == 401 || session.status == 403)
        return report(Outcome::credentialsRefused,
                      "The server does not accept this user name and password.");
    if (!session.success())
        return report(Outcome::serverError,
                      "The server answered with an error: " + reasonOf(session), reasonOf(session));
    auto database = send("GET", databaseUrl_, {}, smallAnswer);
    if (!database.answered())
        return report(Outcome::databaseError,
                      "The database cannot be opened: " + database.transportError,
                      database.transportError);
    if (database.status == 404)
        return report(Outcome::databaseMissing,
                      "Signed in. The database does not exist yet; the first sync creates it "
                      "if this user may (otherwise ask the server's administrator).");
    if (database.status == 401 || database.status == 403)
        return report(Outcome::databaseForbidden,
                      "Signed in, but this user may not open the database.");
    if (!database.success())
        return report(Outcome::databaseError,
                      "The database cannot be opened: " + reasonOf(database), reasonOf(database));
    auto unreadable = [&](const CloudError& error) {
        std::string why = error.userMessage.value_or(error.description);
        return report(Outcome::dataUnreadable, why, why);
    };
    // A test changes nothing on the server, not even an older format.
    auto zone = openMarker(false);
    if (!zone)
        return unreadable(zone.error());
    if (!zone.value())
        return report(Outcome::connectedEmpty,
                      "Connected. The database is empty; the first sync sets it up.");
    return report(Outcome::connected,
                  "Connected, and the passphrase opens the data on the server.");
}

}  // namespace couch

namespace {

using couch::Backend;

class Database final : public CloudDatabase {
public:
    explicit Database(Backend& backend) : backend_(backend) {}

    CloudResult<> saveZones(const std::vector<std::string>& zoneNames) override {
        return backend_.saveZones(zoneNames);
    }
    CloudResult<> deleteZones(const std::vector<std::string>& zoneNames) override {
        return backend_.deleteZones(zoneNames);
    }
    CloudResult<> saveSubscription(const CloudSubscription& subscription) override {
        return backend_.saveSubscription(subscription);
    }
    CloudResult<std::vector<CloudPerRecord<CloudRecord>>> fetchRecords(
        const std::vector<CloudRecordID>& ids, const CloudDesiredKeys& desiredKeys) override {
        return backend_.fetchRecords(ids, desiredKeys);
    }
    CloudResult<CloudModifyResults> modifyRecords(const std::vector<CloudRecord>& saves,
                                                  const std::vector<CloudRecordID>& deletes,
                                                  CloudSavePolicy policy, bool atomic) override {
        return backend_.modifyRecords(saves, deletes, policy, atomic);
    }
    CloudResult<CloudZoneChanges> zoneChanges(const std::string& zoneName, const CloudBytes& since,
                                              const CloudDesiredKeys& desiredKeys,
                                              std::size_t resultsLimit) override {
        return backend_.zoneChanges(zoneName, since, desiredKeys, resultsLimit);
    }

private:
    Backend& backend_;
};

}  // namespace

std::optional<CouchUrlProblem> couchUrlProblem(std::string_view databaseUrl) {
    using Problem = CouchUrlProblem;
    if (databaseUrl.empty())
        return Problem::missing;
    const auto url = couch::parseUrl(std::string(databaseUrl));
    if (!url)
        return Problem::notAnAddress;
    if (url->scheme != "http" && url->scheme != "https")
        return Problem::wrongScheme;
    if (url->host.empty())
        return Problem::noHost;
    if (url->credentials)
        return Problem::credentialsInAddress;
    if (url->queryOrFragment)
        return Problem::queryOrFragment;
    std::string path = url->path;
    while (path.ends_with('/'))
        path.pop_back();
    if (path.empty())
        return Problem::noDatabaseName;
    if (url->scheme == "http" && !couch::isLoopback(url->host))
        return Problem::plainHttpToAnotherMachine;
    return std::nullopt;
}

std::string describe(CouchUrlProblem problem) {
    const std::string example = "e.g. https://couch.example.org:6984/zettly";
    switch (problem) {
        case CouchUrlProblem::missing:
            return "Enter the address of the sync database, " + example + ".";
        case CouchUrlProblem::notAnAddress:
            return "This is not a web address; enter one like " + example.substr(5) + ".";
        case CouchUrlProblem::wrongScheme:
            return "The address must start with https://.";
        case CouchUrlProblem::noHost:
            return "The address lacks the server's name.";
        case CouchUrlProblem::credentialsInAddress:
            return "Enter the user name and password in their own fields, not in the address.";
        case CouchUrlProblem::queryOrFragment:
            return "The address must end with the database's name, without \"?\" or \"#\".";
        case CouchUrlProblem::noDatabaseName:
            return "Add the database's name to the address, " + example + ".";
        case CouchUrlProblem::plainHttpToAnotherMachine:
            return "Use https:// for a server on another machine; plain http:// is only allowed "
                   "for this computer (localhost).";
    }
    return "The address cannot be used.";
}

struct CouchContainer::Impl {
    Impl(CouchSettings settings, Log& log) : backend(std::move(settings), log), database(backend) {}
    Backend backend;
    Database database;
};

CouchContainer::CouchContainer(CouchSettings settings, Log& log)
    : impl_(std::make_unique<Impl>(std::move(settings), log)) {}

CouchContainer::~CouchContainer() = default;

CloudResult<CloudAccountStatus> CouchContainer::accountStatus() {
    return impl_->backend.accountStatus();
}

CloudResult<std::string> CouchContainer::userRecordName() {
    return impl_->backend.userRecordName();
}

CloudDatabase& CouchContainer::privateDatabase() {
    return impl_->database;
}

void CouchContainer::setPushHandler(std::function<void(const std::string&)> handler) {
    impl_->backend.setPushHandler(std::move(handler));
}

CouchContainer::ConnectionReport CouchContainer::testConnection() {
    return impl_->backend.testConnection();
}

std::optional<double> CouchContainer::clockSkew() {
    return impl_->backend.clockSkew();
}

void CouchContainer::passBegins() {
    impl_->backend.passBegins();
}

void CouchContainer::passEnds() {
    impl_->backend.passEnds();
}

CloudResult<> CouchContainer::changePassphrase(const std::string& newPassphrase) {
    return impl_->backend.changePassphrase(newPassphrase);
}

}  // namespace zettly
