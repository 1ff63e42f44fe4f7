#include "app/SyncBackend.h"

#include <QByteArray>
#include <QCoreApplication>

#include "platform/Defaults.h"
#include "platform/Log.h"
#include "store/PrefKeys.h"

namespace zettly {
namespace {

CloudError notSetUp() {
    return CloudError(CloudErrorCode::notAuthenticated, "no sync server is set up");
}

QByteArray bytes(std::span<const std::uint8_t> data) {
    return QByteArray(reinterpret_cast<const char*>(data.data()), qsizetype(data.size()));
}

std::vector<std::uint8_t> vector(const QByteArray& data) {
    return {data.begin(), data.end()};
}

// The translation context of what the settings show about the server.
class SyncServerTexts {
    Q_DECLARE_TR_FUNCTIONS(SyncServerTexts)
};

}  // namespace

SyncBackend::SyncBackend(Defaults& defaults,
                         std::function<std::unique_ptr<SecretStore>()> openSecrets, Log& log)
    : defaults_(defaults), openSecrets_(std::move(openSecrets)), log_(log) {}

SyncBackend::~SyncBackend() = default;

std::string SyncBackend::secretName(Secret which) const {
    // Per server and user, so switching servers does not send one server's
    // password to another.
    std::string url = defaults_.string(prefkey::syncServerURL).value_or("");
    std::string user = defaults_.string(prefkey::syncServerUser).value_or("");
    return std::string(which == Secret::password ? "password " : "passphrase ") + url + " " + user;
}

std::string SyncBackend::keyName() const {
    return "key " + defaults_.string(prefkey::syncServerURL).value_or("");
}

SecretStore& SyncBackend::secretsLocked() {
    if (!secrets_)
        secrets_ = openSecrets_();
    return *secrets_;
}

std::string SyncBackend::secretsWhere() {
    std::lock_guard lock(secretsMutex_);
    return secretsLocked().where();
}

std::optional<std::string> SyncBackend::secret(Secret which) {
    std::lock_guard lock(secretsMutex_);
    SecretStore& store = secretsLocked();
    return which == Secret::password ? syncPassword(store, secretName(which))
                                     : syncPassphrase(store, secretName(which));
}

bool SyncBackend::setSecret(Secret which, const std::string& value) {
    const std::string name = secretName(which);
    std::lock_guard lock(secretsMutex_);
    SecretStore& store = secretsLocked();
    bool ok = value.empty() ? store.remove(name) : store.write(name, value);
    // A new passphrase makes the key derived from the old one useless.
    if (ok && which == Secret::passphrase)
        store.remove(keyName());
    return ok;
}

bool SyncBackend::configured() const {
    return current() != nullptr;
}

void SyncBackend::reconfigure() {
    CouchSettings settings;
    settings.databaseUrl = defaults_.string(prefkey::syncServerURL).value_or("");
    settings.user = defaults_.string(prefkey::syncServerUser).value_or("");
    settings.password = secret(Secret::password).value_or("");
    settings.passphrase = secret(Secret::passphrase).value_or("");
    // The key is kept as "<salt base64> <key base64>", so a start skips the
    // second or so that deriving it takes, until the server's salt changes.
    std::optional<std::string> stored;
    {
        std::lock_guard lock(secretsMutex_);
        stored = secretsLocked().read(keyName());
    }
    if (stored) {
        QList<QByteArray> parts = QByteArray::fromStdString(*stored).split(' ');
        if (parts.size() == 2) {
            QByteArray key = QByteArray::fromBase64(parts[1]);
            if (key.size() == qsizetype(synccrypto::MasterKey::size)) {
                settings.cachedKeySalt = vector(QByteArray::fromBase64(parts[0]));
                settings.cachedKey = synccrypto::MasterKey(vector(key));
            }
        }
    }
    const std::string keyName = this->keyName();
    settings.keyDerived = [this, keyName](const synccrypto::Bytes& salt,
                                          const synccrypto::MasterKey& key) {
        std::string value =
            (bytes(salt).toBase64() + ' ' + bytes(key.bytes()).toBase64()).toStdString();
        std::lock_guard lock(secretsMutex_);
        if (!secretsLocked().write(keyName, value))
            log_.line("[Zettly] the sync key could not be kept; it is derived again next time");
    };

    std::shared_ptr<CouchContainer> next;
    if (!settings.databaseUrl.empty() && !settings.user.empty() && !settings.passphrase.empty())
        next = std::make_shared<CouchContainer>(std::move(settings), log_);
    std::shared_ptr<CouchContainer> previous;
    {
        std::lock_guard lock(mutex_);
        previous = std::exchange(couch_, next);
        if (next && push_)
            next->setPushHandler(push_);
    }
    // The old server's long-poll ends here, outside the lock; a pass still
    // using it keeps it alive until that pass is done.
    if (previous)
        previous->setPushHandler(nullptr);
}

std::shared_ptr<CouchContainer> SyncBackend::current() const {
    std::lock_guard lock(mutex_);
    return couch_;
}

CouchContainer::ConnectionReport SyncBackend::testConnection() {
    if (auto couch = current())
        return couch->testConnection();
    CouchContainer::ConnectionReport missing;
    missing.message = "Fill in the database address, user name and passphrase first.";
    return missing;
}

SyncBackend::PassphraseChange SyncBackend::changePassphrase(const std::string& newPassphrase) {
    PassphraseChange outcome;
    auto couch = current();
    if (!couch) {
        //: Settings › Sync: answer of "Test connection" when fields are missing.
        outcome.problem =
            SyncServerTexts::tr("Fill in the database address, user name and passphrase first.")
                .toStdString();
        return outcome;
    }
    if (auto changed = couch->changePassphrase(newPassphrase); !changed) {
        log_.line("[Zettly] the passphrase was not changed: " + changed.error().description);
        outcome.problem = explain(changed.error());
        return outcome;
    }
    outcome.serverChanged = true;
    bool stored = false;
    {
        // Not setSecret(): the key derived for the new passphrase is kept
        // already and stays.
        std::lock_guard lock(secretsMutex_);
        stored = secretsLocked().write(secretName(Secret::passphrase), newPassphrase);
    }
    if (!stored) {
        // The container goes on with the new passphrase until the app quits.
        log_.line("[Zettly] the new passphrase could not be kept in " + secretsWhere());
        //: Settings › Sync › Change Passphrase: the server was re-encrypted but the keyring
        //: refused the new passphrase.
        outcome.problem = SyncServerTexts::tr(
                              "The passphrase was changed on the server, but Zettly could not "
                              "store it on this computer. Check that your keyring is unlocked "
                              "and enter the new passphrase in the Passphrase field.")
                              .toStdString();
        return outcome;
    }
    reconfigure();
    return outcome;
}

std::string SyncBackend::explain(const CloudError& error) {
    const std::string message = error.userMessage.value_or(error.description);
    if (message == CouchContainer::wrongPassphraseMessage)
        //: Settings › Sync: the passphrase cannot open what the server holds.
        return SyncServerTexts::tr("The passphrase does not match the data on the sync server")
            .toStdString();
    if (message == CouchContainer::passphraseChangedMessage)
        //: Settings › Sync: another device changed the passphrase; this one has the old one.
        return SyncServerTexts::tr(
                   "The passphrase was changed on another device. Enter the new passphrase in "
                   "the Sync settings.")
            .toStdString();
    if (message == CouchContainer::markerTamperedMessage)
        //: Settings › Sync: the server's set-up record fails its check under this device's key.
        return SyncServerTexts::tr(
                   "The set-up record on the sync server was changed by something other than "
                   "Zettly, so the data there cannot be trusted. Delete the cloud copy in the "
                   "Sync settings to start it afresh; the history on your devices stays.")
            .toStdString();
    return message;
}

std::string SyncBackend::explain(const CouchContainer::ConnectionReport& report) {
    using Outcome = CouchContainer::ConnectionReport::Outcome;
    const QString detail = QString::fromStdString(report.detail);
    switch (report.outcome) {
        case Outcome::incomplete:
            //: Settings › Sync: answer of "Test connection" when fields are missing.
            return SyncServerTexts::tr(
                       "Fill in the database address, user name and passphrase first.")
                .toStdString();
        case Outcome::badAddress:
            return explain(report.urlProblem.value_or(CouchUrlProblem::notAnAddress));
        case Outcome::unreachable:
            //: Settings › Sync, "Test connection": %1 is the network error, e.g. "Couldn't
            //: connect to server".
            return SyncServerTexts::tr("The server cannot be reached: %1")
                .arg(detail)
                .toStdString();
        case Outcome::credentialsRefused:
            //: Settings › Sync, "Test connection".
            return SyncServerTexts::tr("The server does not accept this user name and password.")
                .toStdString();
        case Outcome::serverError:
            //: Settings › Sync, "Test connection": %1 is the server's own reason, in English.
            return SyncServerTexts::tr("The server answered with an error: %1")
                .arg(detail)
                .toStdString();
        case Outcome::databaseMissing:
            //: Settings › Sync, "Test connection": the login works but the database is missing.
            return SyncServerTexts::tr(
                       "Signed in. The database does not exist yet; the first sync creates it if "
                       "this user may (otherwise ask the server's administrator).")
                .toStdString();
        case Outcome::databaseForbidden:
            //: Settings › Sync, "Test connection".
            return SyncServerTexts::tr("Signed in, but this user may not open the database.")
                .toStdString();
        case Outcome::databaseError:
            //: Settings › Sync, "Test connection": %1 is the server's own reason, in English.
            return SyncServerTexts::tr("The database cannot be opened: %1")
                .arg(detail)
                .toStdString();
        case Outcome::dataUnreadable: {
            CloudError error;
            error.userMessage = report.detail;
            return explain(error);
        }
        case Outcome::connectedEmpty:
            //: Settings › Sync, "Test connection": everything works; nothing is synced yet.
            return SyncServerTexts::tr(
                       "Connected. The database is empty; the first sync sets it up.")
                .toStdString();
        case Outcome::connected:
            //: Settings › Sync, "Test connection": everything works.
            return SyncServerTexts::tr(
                       "Connected, and the passphrase opens the data on the server.")
                .toStdString();
    }
    return report.message;
}

std::string SyncBackend::explain(CouchUrlProblem problem) {
    switch (problem) {
        case CouchUrlProblem::missing:
            //: Settings › Sync: the database address field is empty.
            return SyncServerTexts::tr(
                       "Enter the address of the sync database, e.g. "
                       "https://couch.example.org:6984/zettly.")
                .toStdString();
        case CouchUrlProblem::notAnAddress:
            //: Settings › Sync: what was typed is not a URL.
            return SyncServerTexts::tr(
                       "This is not a web address; enter one like "
                       "https://couch.example.org:6984/zettly.")
                .toStdString();
        case CouchUrlProblem::wrongScheme:
            return SyncServerTexts::tr("The address must start with https://.").toStdString();
        case CouchUrlProblem::noHost:
            return SyncServerTexts::tr("The address lacks the server's name.").toStdString();
        case CouchUrlProblem::credentialsInAddress:
            //: Settings › Sync: the URL contains user:password@.
            return SyncServerTexts::tr(
                       "Enter the user name and password in their own fields, not in the "
                       "address.")
                .toStdString();
        case CouchUrlProblem::queryOrFragment:
            return SyncServerTexts::tr(
                       "The address must end with the database's name, without \u201c?\u201d or "
                       "\u201c#\u201d.")
                .toStdString();
        case CouchUrlProblem::noDatabaseName:
            //: Settings › Sync: the URL names the server but not the database.
            return SyncServerTexts::tr(
                       "Add the database's name to the address, e.g. "
                       "https://couch.example.org:6984/zettly.")
                .toStdString();
        case CouchUrlProblem::plainHttpToAnotherMachine:
            //: Settings › Sync: http:// is only accepted for localhost.
            return SyncServerTexts::tr(
                       "Use https:// for a server on another machine; plain http:// is only "
                       "allowed for this computer (localhost).")
                .toStdString();
    }
    return describe(problem);
}

CloudResult<CloudAccountStatus> SyncBackend::accountStatus() {
    if (auto couch = current())
        return couch->accountStatus();
    return CloudAccountStatus::noAccount;
}

CloudResult<std::string> SyncBackend::userRecordName() {
    if (auto couch = current())
        return couch->userRecordName();
    return notSetUp();
}

void SyncBackend::setPushHandler(std::function<void(const std::string&)> handler) {
    std::shared_ptr<CouchContainer> couch;
    {
        std::lock_guard lock(mutex_);
        push_ = handler;
        couch = couch_;
    }
    if (couch)
        couch->setPushHandler(std::move(handler));
}

std::optional<double> SyncBackend::clockSkew() {
    if (auto couch = current())
        return couch->clockSkew();
    return std::nullopt;
}

void SyncBackend::passBegins() {
    auto couch = current();
    if (couch)
        couch->passBegins();
    std::lock_guard lock(mutex_);
    inPass_ = std::move(couch);
}

void SyncBackend::passEnds() {
    std::shared_ptr<CouchContainer> couch;
    {
        std::lock_guard lock(mutex_);
        couch = std::move(inPass_);
    }
    if (couch)
        couch->passEnds();
}

CloudResult<> SyncBackend::saveZones(const std::vector<std::string>& names) {
    if (auto couch = current())
        return couch->privateDatabase().saveZones(names);
    return notSetUp();
}

CloudResult<> SyncBackend::deleteZones(const std::vector<std::string>& names) {
    if (auto couch = current())
        return couch->privateDatabase().deleteZones(names);
    return notSetUp();
}

CloudResult<> SyncBackend::saveSubscription(const CloudSubscription& subscription) {
    if (auto couch = current())
        return couch->privateDatabase().saveSubscription(subscription);
    return notSetUp();
}

CloudResult<std::vector<CloudPerRecord<CloudRecord>>> SyncBackend::fetchRecords(
    const std::vector<CloudRecordID>& ids, const CloudDesiredKeys& keys) {
    if (auto couch = current())
        return couch->privateDatabase().fetchRecords(ids, keys);
    return notSetUp();
}

CloudResult<CloudModifyResults> SyncBackend::modifyRecords(
    const std::vector<CloudRecord>& saves, const std::vector<CloudRecordID>& deletes,
    CloudSavePolicy policy, bool atomic) {
    if (auto couch = current())
        return couch->privateDatabase().modifyRecords(saves, deletes, policy, atomic);
    return notSetUp();
}

CloudResult<CloudZoneChanges> SyncBackend::zoneChanges(const std::string& zone,
                                                       const CloudBytes& since,
                                                       const CloudDesiredKeys& keys,
                                                       std::size_t limit) {
    if (auto couch = current())
        return couch->privateDatabase().zoneChanges(zone, since, keys, limit);
    return notSetUp();
}

}  // namespace zettly
