// The sync engine's scheduling, its pass, the account check and the
// zone, key and server-state bookkeeping. The exchange of records is in
// ClipExchange.cpp.
#include "sync/ClipCloudSync.h"

#include <cmath>
#include <exception>
#include <limits>
#include <utility>

#include "platform/Clock.h"
#include "platform/Crypto.h"
#include "platform/Defaults.h"
#include "platform/Log.h"
#include "platform/MainQueue.h"
#include "store/ClipPrefs.h"
#include "store/ClipboardStore.h"
#include "store/ImageClipStore.h"
#include "store/PrefKeys.h"
#include "sync/ClipRecords.h"

namespace zettly {

ClipCloudSync::ClipCloudSync(Dependencies dependencies, Role role)
    : container_(dependencies.container),
      texts_(dependencies.texts),
      images_(dependencies.images),
      defaults_(dependencies.defaults),
      clock_(dependencies.clock),
      log_(dependencies.log),
      mainQueue_(dependencies.mainQueue),
      background_(dependencies.background),
      role_(role),
      userCheckedAt_(-std::numeric_limits<double>::infinity()) {}

std::string ClipCloudSync::statusText(const CloudError& error) {
    if (error.userMessage && !error.userMessage->empty())
        return *error.userMessage;
    return "CloudKit " + std::to_string(error.number());
}

void ClipCloudSync::setRole(Role role) {
    role_.store(role);
}

ClipCloudSync::Role ClipCloudSync::role() const {
    return role_.load();
}

std::string_view ClipCloudSync::rawValue(Role role) {
    switch (role) {
        case Role::app:
            return "app";
        case Role::keyboard:
            return "keyboard";
        case Role::mac:
            return "mac";
    }
    return "app";
}

// A keyboard extension runs with a few megabytes to spare: it moves
// images a couple at a time.
int ClipCloudSync::imageBatch() const {
    return role() == Role::keyboard ? 2 : 8;
}

int ClipCloudSync::downloadBatch() const {
    return role() == Role::keyboard ? 3 : 24;
}

bool ClipCloudSync::enabled() const {
    return ClipPrefs(defaults_).clipboardCloudSync();
}

void ClipCloudSync::syncSoon(std::string reason, double delay) {
    if (!enabled())
        return;
    std::uint64_t generation = 0;
    {
        std::lock_guard guard(lock_);
        generation = ++debounceGeneration_;
    }
    if (!std::isfinite(delay) || delay < 0)
        delay = 0;
    mainQueue_.postAfter(delay, [this, generation, reason = std::move(reason)]() mutable {
        {
            std::lock_guard guard(lock_);
            if (generation != debounceGeneration_)
                return;  // a newer request will start the sync
        }
        syncInBackground(std::move(reason));
    });
}

void ClipCloudSync::syncInBackground(std::string reason) {
    background_.run([this, reason = std::move(reason)] { sync(reason); });
}

bool ClipCloudSync::sync(const std::string&) {
    if (!enabled())
        return false;
    {
        std::lock_guard guard(lock_);
        if (running_) {
            rerun_ = true;  // the pass in flight goes round once more
            return false;
        }
        running_ = true;
    }
    bool changed = false;
    bool drain = false;
    for (int passes = 0;;) {
        changed = runOnce() || changed;
        std::lock_guard guard(lock_);
        bool again = rerun_;
        rerun_ = false;
        if (again && ++passes < maxPasses)
            continue;
        // Work left after the last pass goes on in a call of its own, so
        // that a trigger arriving meanwhile finds the engine free. A failure
        // waits for the next trigger rather than being retried at once, and
        // a pass that moved nothing would only go round again.
        drain = again && !passFailed_ && moved_ > 0;
        // A server that keeps handing back records to repair would keep the
        // chain going for ever; past the largest history's worth of calls
        // the cadence takes over again.
        drainedCalls_ = drain ? drainedCalls_ + 1 : 0;
        if (drainedCalls_ > maxDrainedCalls) {
            drain = false;
            drainedCalls_ = 0;
            log_.line(std::string(logPrefix) +
                      "still more to exchange after a long run of passes; going on at the usual "
                      "pace");
        }
        running_ = false;
        break;
    }
    if (changed)
        mainQueue_.post([this] {
            if (didChange)
                didChange();
        });
    if (drain)
        syncInBackground("more");
    return changed;
}

void ClipCloudSync::requestRerun() {
    std::lock_guard guard(lock_);
    rerun_ = true;
}

void ClipCloudSync::noteChange(bool changed) {
    localChanged_ = localChanged_ || changed;
}

namespace {

// The backend may check the zone's set-up once for all the calls between.
class PassScope {
public:
    explicit PassScope(CloudContainer* container) : container_(container) {
        if (container_)
            container_->passBegins();
    }
    ~PassScope() {
        if (container_)
            container_->passEnds();
    }
    PassScope(const PassScope&) = delete;
    PassScope& operator=(const PassScope&) = delete;

private:
    CloudContainer* container_;
};

}  // namespace

bool ClipCloudSync::runOnce() {
    localChanged_ = false;
    untrusted_ = 0;
    applyHeld_ = false;
    passFailed_ = false;
    moved_ = 0;
    PassScope pass(container_);
    try {
        auto status = container_ ? container_->accountStatus()
                                 : CloudResult<CloudAccountStatus>(CloudAccountStatus::noAccount);
        if (!status) {
            handleFailure(status.error());
            return false;
        }
        if (status.value() != CloudAccountStatus::available) {
            defaults_.setString(prefkey::clipSyncLastError, syncOffStatus);
            return false;
        }
        CloudDatabase& db = container_->privateDatabase();
        checkClock(*container_);

        auto failed = [this](const CloudError& error) {
            handleFailure(error);
            return localChanged_;
        };
        if (auto checked = checkAccount(*container_); !checked)
            return failed(checked.error());
        if (auto zone = ensureZone(db); !zone)
            return failed(zone.error());
        if (auto key = ensureKey(db); !key)
            return failed(key.error());
        if (auto fetched = fetchChanges(db); !fetched)
            return failed(fetched.error());
        if (auto repaired = repairKeyRecord(db); !repaired)
            return failed(repaired.error());
        auto items = sendChanges(db);
        if (!items)
            return failed(items.error());
        auto images = sendImages(db);
        if (!images)
            return failed(images.error());
        auto downloads = downloadImages(db);
        if (!downloads)
            return failed(downloads.error());
        auto prefs = sendPrefs(db);
        if (!prefs)
            return failed(prefs.error());

        if (items.value().more || images.value().more || downloads.value() || prefs.value().more)
            requestRerun();
        std::optional<std::string> failure = items.value().failure;
        if (!failure)
            failure = images.value().failure;
        if (!failure)
            failure = prefs.value().failure;
        // What the user can act on comes before a record's error code.
        if (auto trouble = troubleText())
            failure = trouble;
        if (failure) {
            defaults_.setString(prefkey::clipSyncLastError, *failure);
        } else {
            defaults_.setDouble(prefkey::clipSyncLastAt, clock_.now());
            defaults_.remove(prefkey::clipSyncLastError);
        }
        return localChanged_;
    } catch (const std::exception& error) {
        // Nothing the cloud said: the system ran out of something (memory,
        // randomness). Reported like any failure; the next trigger retries.
        log_.line(std::string(logPrefix) + "sync failed (" + std::string(rawValue(role())) +
                  "): " + error.what());
        defaults_.setString(prefkey::clipSyncLastError, error.what());
        passFailed_ = true;
        return localChanged_;
    }
}

void ClipCloudSync::handleFailure(const CloudError& error) {
    switch (error.code) {
        case CloudErrorCode::zoneNotFound:
        case CloudErrorCode::userDeletedZone:
            log_.line(std::string(logPrefix) + "zone missing (" +
                      (error.code == CloudErrorCode::zoneNotFound ? "not found" : "user deleted") +
                      "), recreating");
            resetServerState(true);
            requestRerun();
            return;
        case CloudErrorCode::changeTokenExpired:
            defaults_.remove(prefkey::syncToken);
            requestRerun();
            return;
        default:
            log_.line(std::string(logPrefix) + "sync failed (" + std::string(rawValue(role())) +
                      "): " + error.description);
            defaults_.setString(prefkey::clipSyncLastError, statusText(error));
            passFailed_ = true;
            return;
    }
}

CloudResult<> ClipCloudSync::checkAccount(CloudContainer& container) {
    double now = clock_.now();
    bool forced = forceUserCheck_.exchange(false);
    if (!forced && !(now - userCheckedAt_ > accountCheckInterval))
        return {};
    auto user = container.userRecordName();
    if (!user) {
        if (forced)
            forceUserCheck_ = true;  // still owed once the server answers
        return user.error();
    }
    userCheckedAt_ = now;
    auto known = defaults_.string(prefkey::clipSyncUser);
    if (known && *known != user.value()) {
        // The zone of the new account knows nothing of this history, and the
        // old account's key must not name its records.
        log_.line(std::string(logPrefix) + "iCloud account changed, re-uploading history");
        resetServerState(true);
    }
    defaults_.setString(prefkey::clipSyncUser, user.value());
    return {};
}

CloudResult<> ClipCloudSync::ensureZone(CloudDatabase& db) {
    if (defaults_.boolValue(prefkey::syncZoneReady))
        return {};
    // Saving a zone or subscription that exists changes nothing, so after a
    // reset this simply runs again.
    if (auto saved = db.saveZones({std::string(zoneName)}); !saved)
        return saved;
    // The keyboard's clients cannot take pushes; they sync when opened.
    if (role() != Role::keyboard) {
        if (auto saved = db.saveSubscription({std::string(subscriptionID), std::string(zoneName)});
            !saved)
            return saved;
    }
    defaults_.setBool(prefkey::syncZoneReady, true);
    return {};
}

CloudResult<std::optional<ClipCloudSync::Bytes>> ClipCloudSync::fetchKeyRecord(CloudDatabase& db) {
    auto fetched =
        db.fetchRecord(ClipRecords::id(ClipRecords::keyRecordName), std::vector<std::string>{"k"});
    if (!fetched) {
        if (fetched.error().code == CloudErrorCode::unknownItem)
            return std::optional<Bytes>();
        // A key no device holding the passphrase wrote names nothing: a new
        // one replaces it.
        if (fetched.error().code == CloudErrorCode::unauthenticRecord) {
            distrust(ClipRecords::id(ClipRecords::keyRecordName), fetched.error().serverRecord);
            return std::optional<Bytes>();
        }
        return fetched.error();
    }
    return ClipRecords::key(fetched.value());
}

CloudResult<> ClipCloudSync::ensureKey(CloudDatabase& db) {
    if (auto known = defaults_.data(prefkey::clipSyncKey);
        known && known->size() == ClipRecords::keyBytes)
        return {};
    auto remote = fetchKeyRecord(db);
    if (!remote)
        return remote.error();
    if (remote.value())
        return adoptKey(*remote.value());

    Bytes key;
    try {
        key = crypto::randomBytes(ClipRecords::keyBytes);
    } catch (const std::exception& error) {
        return CloudError(CloudErrorCode::internalError, error.what());
    }
    // The first device to get here creates the key. Two devices doing so at
    // once both save a new record; the later save meets the earlier one as
    // a conflict and takes its key instead.
    CloudRecord record = ClipRecords::keyRecord(key);
    record.systemFields = std::exchange(keyToRepair_, std::nullopt).value_or(Bytes{});
    for (int attempt = 0; attempt < 2; ++attempt) {
        auto saved = db.modifyRecords({record}, {}, CloudSavePolicy::ifServerRecordUnchanged, true);
        if (!saved)
            return saved.error();
        if (saved.value().saved.size() != 1)
            return CloudError(CloudErrorCode::serverRejectedRequest,
                              "The server answered for another number of records than sent");
        const auto& result = saved.value().saved.front().result;
        if (result)
            return adoptKey(key);
        const CloudError& error = result.error();
        if (error.code == CloudErrorCode::unauthenticRecord) {
            ++untrusted_;
            record.systemFields = error.serverRecord ? error.serverRecord->systemFields : Bytes{};
            continue;
        }
        if (error.code != CloudErrorCode::serverRecordChanged || !error.serverRecord)
            return error;
        if (auto theirs = ClipRecords::key(*error.serverRecord))
            return adoptKey(*theirs);
        // A key record without a usable key (a damaged client wrote it)
        // names nothing: replace it with ours.
        record.systemFields = error.serverRecord->systemFields;
    }
    return CloudError(CloudErrorCode::serverRecordChanged,
                      "The sync key record keeps changing on the server");
}

CloudResult<> ClipCloudSync::adoptKey(const Bytes& key) {
    auto previous = defaults_.data(prefkey::clipSyncKey);
    defaults_.setData(prefkey::clipSyncKey, key);
    // Every record name changes with the key, so everything goes up again
    // under its new name.
    if (!texts_.syncPrepareFullUpload(key)) {
        // Rows keeping names under another key would never meet the other
        // devices' copies; keep the old state and try again next pass.
        if (previous)
            defaults_.setData(prefkey::clipSyncKey, *previous);
        else
            defaults_.remove(prefkey::clipSyncKey);
        CloudError error(CloudErrorCode::internalError,
                         "The text history could not take the sync key");
        error.userMessage = std::string(applyHeldStatus);
        return error;
    }
    images_.syncPrepareFullUpload();
    return {};
}

void ClipCloudSync::resetServerState(bool dropKey) {
    defaults_.remove(prefkey::syncToken);
    defaults_.setBool(prefkey::syncZoneReady, false);
    if (dropKey)
        defaults_.remove(prefkey::clipSyncKey);
    forgetPrefsServerState();
    texts_.syncForgetServerState();
    images_.syncForgetServerState();
}

void ClipCloudSync::forgetPrefsServerState() {
    defaults_.remove(prefkey::syncOrderCK);
    defaults_.remove(prefkey::syncOrderRemote);
    defaults_.remove(prefkey::syncOrderRemoteModified);
    // An order the user never arranged is not worth a record.
    auto order = defaults_.stringArray(prefkey::clipboardChipOrder);
    if (order && !order->empty())
        defaults_.setBool(prefkey::syncOrderDirty, true);
}

CloudResult<> ClipCloudSync::deleteCloudCopy() {
    if (!container_)
        return CloudError(CloudErrorCode::notAuthenticated, "No sync service is set up");
    auto deleted = container_->privateDatabase().deleteZones({std::string(zoneName)});
    // A zone that is already gone is what the user asked for.
    if (!deleted && deleted.error().code != CloudErrorCode::zoneNotFound &&
        deleted.error().code != CloudErrorCode::userDeletedZone)
        return deleted;
    resetServerState(true);
    return {};
}

}  // namespace zettly
