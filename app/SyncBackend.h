#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/CloudDatabase.h"
#include "platform/SecretStore.h"
#include "platform/couch/CouchContainer.h"

namespace zettly {

class Defaults;
class Log;

// The cloud the sync engine talks to: the CouchDB server the settings name,
// or none while they name none (the account then reads as unavailable and
// sync reports that it is not set up). When the settings change, the next
// call goes to the new server; a call under way finishes on the old one,
// which it keeps alive until then.
//
// Opening the secret store can wait on the session bus, and replacing a
// server waits for its long-poll to end, so reconfigure() belongs on the
// sync thread, not the main one; until its first run there is no server.
class SyncBackend final : public CloudContainer, private CloudDatabase {
public:
    enum class Secret { password, passphrase };

    SyncBackend(Defaults& defaults, std::function<std::unique_ptr<SecretStore>()> openSecrets,
                Log& log);
    ~SyncBackend() override;

    // Reads the server's URL, user and secrets again and starts over with them.
    void reconfigure();
    bool configured() const;

    std::optional<std::string> secret(Secret which);
    bool setSecret(Secret which, const std::string& value);
    std::string secretsWhere();

    // Blocking: the settings' "Test connection".
    CouchContainer::ConnectionReport testConnection();

    // Blocking: the server's copy is encrypted under `newPassphrase` (see
    // CouchContainer::changePassphrase), which is then kept and used from
    // here on. The caller has the engine upload everything again whenever
    // the server changed, also when the new passphrase could not be kept.
    struct PassphraseChange {
        bool serverChanged = false;
        std::optional<std::string> problem;  // for the user, in their language
    };
    PassphraseChange changePassphrase(const std::string& newPassphrase);

    // What the settings show, in the user's language.
    static std::string explain(const CouchContainer::ConnectionReport& report);
    static std::string explain(CouchUrlProblem problem);
    // The backend's user message of a sync error, translated where it is
    // one of the passphrase's.
    static std::string explain(const CloudError& error);

    // CloudContainer
    CloudResult<CloudAccountStatus> accountStatus() override;
    CloudResult<std::string> userRecordName() override;
    CloudDatabase& privateDatabase() override { return *this; }
    void setPushHandler(std::function<void(const std::string&)> handler) override;
    std::optional<double> clockSkew() override;
    // The pass ends on the server it began on, also when the settings
    // changed meanwhile.
    void passBegins() override;
    void passEnds() override;

private:
    // CloudDatabase, each call on the server that is current when it starts.
    CloudResult<> saveZones(const std::vector<std::string>& names) override;
    CloudResult<> deleteZones(const std::vector<std::string>& names) override;
    CloudResult<> saveSubscription(const CloudSubscription& subscription) override;
    CloudResult<std::vector<CloudPerRecord<CloudRecord>>> fetchRecords(
        const std::vector<CloudRecordID>& ids, const CloudDesiredKeys& keys) override;
    CloudResult<CloudModifyResults> modifyRecords(const std::vector<CloudRecord>& saves,
                                                  const std::vector<CloudRecordID>& deletes,
                                                  CloudSavePolicy policy, bool atomic) override;
    CloudResult<CloudZoneChanges> zoneChanges(const std::string& zone, const CloudBytes& since,
                                              const CloudDesiredKeys& keys,
                                              std::size_t limit) override;

    std::shared_ptr<CouchContainer> current() const;
    std::string secretName(Secret which) const;
    std::string keyName() const;
    // Opened on first use; secretsMutex_ held. The file store reads and
    // rewrites the whole file, so the sync thread (keeping a derived key)
    // and the settings (a new password) take turns.
    SecretStore& secretsLocked();

    Defaults& defaults_;
    std::function<std::unique_ptr<SecretStore>()> openSecrets_;
    std::mutex secretsMutex_;
    std::unique_ptr<SecretStore> secrets_;
    Log& log_;
    mutable std::mutex mutex_;
    std::shared_ptr<CouchContainer> couch_;
    std::shared_ptr<CouchContainer> inPass_;
    std::function<void(const std::string&)> push_;
};

}  // namespace zettly
