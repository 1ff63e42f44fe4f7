#include "app/SyncBackend.h"

#include <QByteArray>
#include <QCoreApplication>

#include "platform/Log.h"
#include "store/Defaults.h"
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

}  // namespace

SyncBackend::SyncBackend(Defaults& defaults, std::unique_ptr<SecretStore> secrets, Log& log)
    : defaults_(defaults), secrets_(std::move(secrets)), log_(log) {
    reconfigure();
}

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

std::optional<std::string> SyncBackend::secret(Secret which) {
    return which == Secret::password ? syncPassword(*secrets_, secretName(which))
                                     : syncPassphrase(*secrets_, secretName(which));
}

bool SyncBackend::setSecret(Secret which, const std::string& value) {
    const std::string name = secretName(which);
    bool ok = value.empty() ? secrets_->remove(name) : secrets_->write(name, value);
    // A new passphrase makes the key derived from the old one useless.
    if (ok && which == Secret::passphrase)
        secrets_->remove(keyName());
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
    if (auto stored = secrets_->read(keyName())) {
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
        if (!secrets_->write(keyName, value))
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
    return {false, QCoreApplication::translate(
                       "zettly::SyncBackend",
                       //: Settings › Sync: answer of "Test connection" when fields are missing.
                       "Fill in the database address, user name and passphrase first.")
                       .toStdString()};
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
