// What sync does about a server it cannot trust with integrity, and about
// a computer whose clock it cannot trust: records that fail the end-to-end
// check are written over with our copy, pages this device cannot store are
// fetched again (or their stuck records set aside), pictures that cannot be
// had wait before they are fetched again, and a clock far from the server's
// holds back every deletion. Each leaves a status the user can act on.
#include <algorithm>
#include <cmath>
#include <set>
#include <utility>

#include "platform/Clock.h"
#include "platform/Defaults.h"
#include "platform/Log.h"
#include "store/ClipboardStore.h"
#include "store/ImageClipStore.h"
#include "store/PrefKeys.h"
#include "sync/ClipCloudSync.h"
#include "sync/ClipRecords.h"

namespace zettly {

namespace {

constexpr double firstDownloadWait = 60;
constexpr double longestDownloadWait = 3600;
// Set-aside records fetched again per pass.
constexpr std::size_t setAsideBatch = 24;

}  // namespace

std::string ClipCloudSync::clockStatus(double skewSeconds) {
    const double off = std::fabs(skewSeconds);
    if (off < 2 * 3600)
        return "Your computer's clock is " + std::to_string(std::lround(off / 60)) + " minutes off";
    return "Your computer's clock is " + std::to_string(std::lround(off / 3600)) + " hours off";
}

void ClipCloudSync::checkClock(CloudContainer& container) {
    const auto skew = container.clockSkew();
    const double measured = skew && std::isfinite(*skew) ? *skew : 0;
    const double previous = clockSkew_;
    clockSkew_ = std::fabs(measured) > maxClockSkew ? measured : 0;
    if ((previous == 0) != (clockSkew_ == 0))
        log_.line(std::string(logPrefix) +
                  (clockSkew_ == 0 ? "the clock agrees with the server's again"
                                   : clockStatus(clockSkew_) + "; deletions are held back"));
    texts_.syncSetClockTrusted(clockAgrees());
    images_.syncSetClockTrusted(clockAgrees());
}

void ClipCloudSync::distrust(const CloudRecordID& id, const std::optional<CloudRecord>& server) {
    ++untrusted_;
    // The server's system fields let our save replace its version; without
    // them (it holds the record as deleted) ours goes up as a new record.
    std::optional<Bytes> ck = server ? ClipRecords::systemFields(*server) : std::nullopt;
    // The record's type is the server's word too: its name says what it is.
    const std::string& name = id.recordName;
    bool ours = false;
    if (name == ClipRecords::keyRecordName) {
        keyToRepair_ = ck.value_or(Bytes{});
        return;
    }
    if (name == ClipRecords::prefsRecordName) {
        if (ck)
            defaults_.setData(prefkey::syncOrderCK, *ck);
        else
            defaults_.remove(prefkey::syncOrderCK);
        auto order = defaults_.stringArray(prefkey::clipboardChipOrder);
        ours = order && !order->empty();
        if (ours)
            defaults_.setBool(prefkey::syncOrderDirty, true);
    } else if (name.starts_with(ClipRecords::categoryPrefix)) {
        ours = texts_.syncReuploadCategory(name.substr(ClipRecords::categoryPrefix.size()), ck);
    } else if (name.starts_with(ImageClipStore::recordPrefix)) {
        ours = images_.syncReupload(name, ck);
    } else {
        ours = texts_.syncReuploadItem(name, ck);
    }
    log_.line(std::string(logPrefix) + "the server's copy of " + name.substr(0, 10) +
              " fails the check; " + (ours ? "ours goes up over it" : "there is no copy here"));
}

CloudResult<> ClipCloudSync::repairKeyRecord(CloudDatabase& db) {
    auto repair = std::exchange(keyToRepair_, std::nullopt);
    auto key = defaults_.data(prefkey::clipSyncKey);
    if (!repair || !key || key->size() != ClipRecords::keyBytes)
        return {};
    CloudRecord record = ClipRecords::keyRecord(*key);
    record.systemFields = *repair;
    auto saved = db.modifyRecords({record}, {}, CloudSavePolicy::ifServerRecordUnchanged, true);
    if (!saved)
        return saved.error();
    // A conflict means another device wrote the record meanwhile; the next
    // fetch brings it in and checks it like any other.
    return {};
}

bool ClipCloudSync::setAsideIfStuck(const Applied& applied) {
    // Nothing of the page went in: the database refuses, not the records.
    // The page waits for it rather than being scattered into a list.
    if (applied.taken == 0 && applied.failed.size() > 1)
        return false;
    bool stuck = true;
    for (const auto& name : applied.failed)
        stuck = ++applyFailures_[name] >= maxApplyAttempts && stuck;
    if (!stuck)
        return false;
    auto list = defaults_.stringArray(prefkey::syncSetAside).value_or(std::vector<std::string>{});
    std::set<std::string> known(list.begin(), list.end());
    for (const auto& name : applied.failed) {
        applyFailures_.erase(name);
        if (known.insert(name).second)
            list.push_back(name);
    }
    defaults_.setStringArray(prefkey::syncSetAside, list);
    log_.line(std::string(logPrefix) + std::to_string(applied.failed.size()) +
              " records could not be stored here and are set aside");
    return true;
}

CloudResult<> ClipCloudSync::retrySetAside(CloudDatabase& db) {
    auto list = defaults_.stringArray(prefkey::syncSetAside);
    if (!list || list->empty())
        return {};
    std::vector<CloudRecordID> ids;
    for (std::size_t i = 0; i < list->size() && i < setAsideBatch; ++i)
        ids.push_back(ClipRecords::id((*list)[i]));
    auto fetched = db.fetchRecords(ids, ClipRecords::changeKeys());
    if (!fetched)
        return fetched.error();
    std::vector<CloudPerRecord<CloudRecord>> found;
    std::set<std::string> done;
    for (auto& one : fetched.value()) {
        // Gone from the server, or no longer to be believed: nothing to wait for.
        if (one.result || one.result.error().code == CloudErrorCode::unauthenticRecord)
            found.push_back(one);
        else if (one.result.error().code == CloudErrorCode::unknownItem)
            done.insert(one.id.recordName);
    }
    auto applied = applyRecords(found, {});
    if (!applied)
        return applied.error();
    const auto& failed = applied.value().failed;
    for (const auto& one : found) {
        if (std::find(failed.begin(), failed.end(), one.id.recordName) == failed.end())
            done.insert(one.id.recordName);
    }
    std::erase_if(*list, [&](const std::string& name) { return done.contains(name); });
    defaults_.setStringArray(prefkey::syncSetAside, *list);
    return {};
}

void ClipCloudSync::downloadFailed(const std::string& rid) {
    Backoff& backoff = downloadBackoff_[rid];
    const double wait =
        std::min(firstDownloadWait * std::pow(2.0, backoff.failures), longestDownloadWait);
    ++backoff.failures;
    backoff.notBefore = clock_.now() + wait;
    if (backoff.failures == 2)
        log_.line(std::string(logPrefix) + "the picture " + rid.substr(0, 10) +
                  " could not be downloaded and kept twice; trying again later");
}

bool ClipCloudSync::downloadWaiting(const std::string& rid) const {
    auto found = downloadBackoff_.find(rid);
    return found != downloadBackoff_.end() && found->second.notBefore > clock_.now();
}

std::optional<std::string> ClipCloudSync::troubleText() const {
    if (!clockAgrees())
        return clockStatus(clockSkew_);
    if (untrusted_ > 0)
        return std::string(untrustedStatus);
    if (applyHeld_)
        return std::string(applyHeldStatus);
    if (auto list = defaults_.stringArray(prefkey::syncSetAside); list && !list->empty())
        return std::string(setAsideStatus);
    const bool pictures = std::any_of(downloadBackoff_.begin(), downloadBackoff_.end(),
                                      [](const auto& entry) { return entry.second.failures >= 2; });
    if (pictures)
        return std::string(downloadsStatus);
    return std::nullopt;
}

}  // namespace zettly
