// The steps of a sync pass that move records: taking in the zone's changes,
// sending dirty texts, categories, images and deletions, fetching image
// bytes, and keeping the chip order in step.
#include <filesystem>
#include <map>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/Clock.h"
#include "platform/Defaults.h"
#include "platform/Log.h"
#include "store/ClipPrefs.h"
#include "store/ClipboardStore.h"
#include "store/ImageClipStore.h"
#include "store/PrefKeys.h"
#include "sync/ClipCloudSync.h"
#include "sync/ClipRecords.h"

namespace zettly {

namespace {

// Deleting a record the server does not have any more is done as well.
bool deletionDone(const CloudResult<>& result) {
    return result || result.error().code == CloudErrorCode::unknownItem;
}

// Where a too large image is reduced on its way up.
std::filesystem::path scratchFolder() {
    std::error_code error;
    auto folder = std::filesystem::temp_directory_path(error);
    return error ? std::filesystem::path("/tmp") : folder;
}

// One request's worth of saves and deletions, with what each record stands
// for locally.
template <typename Sent>
struct Batch {
    std::vector<CloudRecord> saves;
    std::map<std::string, Sent> sent;  // by record name
    std::vector<CloudRecordID> deletes;
    std::map<std::string, std::string> tombstoneOf;  // record name to tombstone key
    // Deleted and then copied again: the new copy's save answers for the
    // deletion, so the two never meet in one request.
    std::map<std::string, std::string> supersededTombstone;

    void save(CloudRecord record, Sent what) {
        sent.emplace(record.recordName, std::move(what));
        saves.push_back(std::move(record));
    }
    void remove(const std::string& recordName, const std::string& tombstone) {
        if (sent.contains(recordName))
            supersededTombstone.emplace(recordName, tombstone);
        else if (tombstoneOf.emplace(recordName, tombstone).second)
            deletes.push_back(ClipRecords::id(recordName));
    }
    bool empty() const { return saves.empty() && deletes.empty(); }
};

}  // namespace

CloudResult<> ClipCloudSync::fetchChanges(CloudDatabase& db) {
    if (auto retried = retrySetAside(db); !retried)
        return retried;
    const std::string zone(zoneName);
    Bytes token = defaults_.data(prefkey::syncToken).value_or(Bytes{});
    for (;;) {
        auto page = db.zoneChanges(zone, token, ClipRecords::changeKeys());
        if (!page)
            return page.error();
        const CloudZoneChanges& changes = page.value();
        auto applied = applyRecords(changes.modified, changes.deleted);
        if (!applied)
            return applied.error();
        // The token moves only past what was taken in: a page this device
        // could not store is fetched again, not lost.
        if (!applied.value().failed.empty() && !setAsideIfStuck(applied.value())) {
            applyHeld_ = true;
            return {};
        }
        noteMoved(applied.value().taken);
        defaults_.setData(prefkey::syncToken, changes.token);
        // A server that promises more without moving on would keep the
        // pass here forever; the next pass asks again.
        if (!changes.moreComing || changes.token == token)
            return {};
        token = changes.token;
    }
}

CloudResult<ClipCloudSync::Applied> ClipCloudSync::applyRecords(
    const std::vector<CloudPerRecord<CloudRecord>>& modified,
    const std::vector<CloudDeletion>& deleted) {
    Applied applied;
    auto note = [&](const std::string& name, bool failed, bool changed) {
        if (failed) {
            applied.failed.push_back(name);
            return;
        }
        ++applied.taken;
        applyFailures_.erase(name);
        noteChange(changed);
    };
    // Runs of texts are taken in together (one commit for a whole page of a
    // first download); any other record first lets the texts before it
    // land, so the page's order still holds.
    std::vector<ClipboardStore::SyncItem> items;
    auto applyItems = [&] {
        if (items.empty())
            return;
        auto results = texts_.syncApplyItems(items);
        for (std::size_t i = 0; i < items.size(); ++i)
            note(items[i].rid, results[i] == ClipboardStore::SyncApplied::failed,
                 results[i] == ClipboardStore::SyncApplied::changed);
        items.clear();
    };
    for (const auto& [id, result] : modified) {
        if (!result) {
            if (result.error().code == CloudErrorCode::unauthenticRecord)
                distrust(id, result.error().serverRecord);
            continue;
        }
        const CloudRecord& record = result.value();
        const std::string& type = record.recordType;
        if (type == ClipRecords::itemType) {
            if (auto item = ClipRecords::item(record))
                items.push_back(std::move(*item));
            continue;
        }
        applyItems();
        if (type == ClipRecords::categoryType) {
            if (auto category = ClipRecords::category(record)) {
                auto outcome = texts_.syncApply(*category);
                note(id.recordName, outcome == ClipboardStore::SyncApplied::failed,
                     outcome == ClipboardStore::SyncApplied::changed);
            }
        } else if (type == ClipRecords::imageType) {
            if (auto image = ClipRecords::image(record)) {
                auto outcome = images_.syncApply(*image);
                note(id.recordName, outcome == ImageClipStore::ApplyResult::failed,
                     outcome == ImageClipStore::ApplyResult::changed);
            }
        } else if (type == ClipRecords::prefsType) {
            noteChange(applyPrefs(record));
        } else if (type == ClipRecords::keyType) {
            if (auto taken = takeRemoteKey(record); !taken)
                return taken.error();
        }
    }
    applyItems();
    for (const auto& deletion : deleted) {
        const std::string& name = deletion.id.recordName;
        std::optional<ClipboardStore::SyncApplied> outcome;
        if (deletion.recordType == ClipRecords::itemType) {
            outcome = texts_.syncApplyDeletion(name, false);
        } else if (deletion.recordType == ClipRecords::categoryType &&
                   name.starts_with(ClipRecords::categoryPrefix)) {
            outcome =
                texts_.syncApplyDeletion(name.substr(ClipRecords::categoryPrefix.size()), true);
        } else if (deletion.recordType == ClipRecords::imageType) {
            note(name, false, images_.syncApplyDeletion(name));
        }
        if (outcome)
            note(name, *outcome == ClipboardStore::SyncApplied::failed,
                 *outcome == ClipboardStore::SyncApplied::changed);
    }
    return applied;
}

CloudResult<> ClipCloudSync::takeRemoteKey(const CloudRecord& record) {
    auto remote = ClipRecords::key(record);
    auto local = defaults_.data(prefkey::clipSyncKey);
    if (!remote || !local || *local == *remote)
        return {};
    // Another device replaced the key (it re-created the zone): its key
    // names the records now, and the chip order record is a new one too.
    forgetPrefsServerState();
    return adoptKey(*remote);
}

CloudResult<ClipCloudSync::SendOutcome> ClipCloudSync::sendChanges(CloudDatabase& db) {
    struct Sent {
        bool isCategory = false;
        std::string key;  // the item's rid or the category's id
        double modified = 0;
    };
    auto pending = texts_.syncPending(textBatch);
    if (pending.empty())
        return SendOutcome{};

    Batch<Sent> batch;
    for (const auto& item : pending.items)
        batch.save(ClipRecords::record(item), Sent{false, item.rid, item.modified});
    for (const auto& category : pending.categories)
        batch.save(ClipRecords::record(category), Sent{true, category.id, category.modified});
    // Deletions wait while this computer's clock disagrees with the
    // server's: they may come from expiry by that clock. One dated after
    // the server's now came from a clock that ran ahead, and is dropped.
    const bool sendDeletions = clockAgrees();
    for (const auto& tombstone : pending.tombstones) {
        if (!sendDeletions)
            break;
        if (tombstone.at > clock_.now() + maxClockSkew) {
            log_.line(std::string(logPrefix) + "dropped a deletion dated ahead of the server");
            texts_.syncRemoveTombstone(tombstone.key);
            continue;
        }
        batch.remove(tombstone.kind == "category" ? ClipRecords::categoryRecordName(tombstone.key)
                                                  : tombstone.key,
                     tombstone.key);
    }

    SendOutcome outcome;
    outcome.more =
        pending.items.size() >= static_cast<std::size_t>(textBatch) ||
        (sendDeletions && pending.tombstones.size() >= static_cast<std::size_t>(textBatch));
    if (batch.empty())
        return outcome;
    auto answer = db.modifyRecords(batch.saves, batch.deletes,
                                   CloudSavePolicy::ifServerRecordUnchanged, false);
    if (!answer)
        return answer.error();
    // Confirmed together, in one commit, before anything below can change
    // the rows again.
    std::vector<ClipboardStore::SyncSent> sentItems;
    for (const auto& [id, result] : answer.value().saved) {
        auto found = batch.sent.find(id.recordName);
        if (result && found != batch.sent.end() && !found->second.isCategory)
            sentItems.push_back(
                ClipboardStore::SyncSent{found->second.key, found->second.modified,
                                         ClipRecords::systemFields(result.value())});
    }
    texts_.syncMarkSentItems(sentItems);
    for (const auto& [id, result] : answer.value().saved) {
        auto found = batch.sent.find(id.recordName);
        if (found == batch.sent.end())
            continue;
        const Sent& sent = found->second;
        if (result) {
            noteMoved(1);
            if (sent.isCategory)
                texts_.syncMarkSentCategory(sent.key, sent.modified,
                                            ClipRecords::systemFields(result.value()));
            if (auto superseded = batch.supersededTombstone.find(id.recordName);
                superseded != batch.supersededTombstone.end())
                texts_.syncRemoveTombstone(superseded->second);
            continue;
        }
        const CloudError& error = result.error();
        if (error.code == CloudErrorCode::unknownItem) {
            // The saved copy was deleted on the server: save a new one.
            if (sent.isCategory)
                texts_.syncForgetCategoryTag(sent.key);
            else
                texts_.syncForgetItemTag(sent.key);
            outcome.more = true;
        } else if (error.code == CloudErrorCode::unauthenticRecord) {
            // Our copy goes over whatever the server holds in its place.
            distrust(id, error.serverRecord);
            outcome.more = true;
        } else if (error.code == CloudErrorCode::serverRecordChanged) {
            // Another device saved first: merge its copy; what stays dirty
            // goes up again in the next pass, over the server's version.
            if (error.serverRecord) {
                if (sent.isCategory) {
                    if (auto category = ClipRecords::category(*error.serverRecord))
                        noteChange(texts_.syncApply(*category) ==
                                   ClipboardStore::SyncApplied::changed);
                } else if (auto item = ClipRecords::item(*error.serverRecord)) {
                    noteChange(texts_.syncApply(*item));
                }
            }
            outcome.more = true;
        } else if (!outcome.failure) {
            log_.line(std::string(logPrefix) + "save failed " + id.recordName.substr(0, 10) + ": " +
                      error.description);
            outcome.failure = statusText(error);
        }
    }
    // Other failures keep the tombstone for the next pass.
    for (const auto& [id, result] : answer.value().deleted) {
        auto tombstone = batch.tombstoneOf.find(id.recordName);
        if (tombstone != batch.tombstoneOf.end() && deletionDone(result)) {
            texts_.syncRemoveTombstone(tombstone->second);
            noteMoved(1);
        }
    }
    return outcome;
}

CloudResult<ClipCloudSync::SendOutcome> ClipCloudSync::sendImages(CloudDatabase& db) {
    struct Sent {
        double modified = 0;
    };
    const int limit = imageBatch();
    auto pending = images_.syncPending(limit);
    if (pending.images.empty() && pending.tombstones.empty())
        return SendOutcome{};

    Batch<Sent> batch;
    const auto scratch = scratchFolder();
    for (const auto& image : pending.images) {
        auto built = ClipRecords::record(image, images_, scratch);
        if (built.record) {
            batch.save(std::move(*built.record), Sent{image.modified});
        } else if (built.tooLarge) {
            // It will never fit; taken off the queue so that it is not
            // reduced again on every pass, until the user changes it.
            images_.syncMarkSent(image.rid, image.modified, std::nullopt);
        }
        // Otherwise the file could not be read now: it stays dirty.
    }
    const bool sendDeletions = clockAgrees();
    if (sendDeletions) {
        for (const auto& tombstone : pending.tombstones)
            batch.remove(tombstone, tombstone);
    }

    SendOutcome outcome;
    outcome.more = pending.images.size() >= static_cast<std::size_t>(limit) ||
                   (sendDeletions && pending.tombstones.size() >= static_cast<std::size_t>(limit));
    if (batch.empty())
        return outcome;
    auto answer = db.modifyRecords(batch.saves, batch.deletes,
                                   CloudSavePolicy::ifServerRecordUnchanged, false);
    if (!answer)
        return answer.error();

    for (const auto& [id, result] : answer.value().saved) {
        auto found = batch.sent.find(id.recordName);
        if (found == batch.sent.end())
            continue;
        const std::string& rid = id.recordName;
        if (result) {
            noteMoved(1);
            images_.syncMarkSent(rid, found->second.modified,
                                 ClipRecords::systemFields(result.value()));
            if (auto superseded = batch.supersededTombstone.find(rid);
                superseded != batch.supersededTombstone.end())
                images_.syncRemoveTombstone(superseded->second);
            continue;
        }
        const CloudError& error = result.error();
        if (error.code == CloudErrorCode::unknownItem) {
            images_.syncForgetTag(rid);
            outcome.more = true;
        } else if (error.code == CloudErrorCode::unauthenticRecord) {
            distrust(id, error.serverRecord);
            outcome.more = true;
        } else if (error.code == CloudErrorCode::serverRecordChanged) {
            if (error.serverRecord) {
                if (auto image = ClipRecords::image(*error.serverRecord))
                    noteChange(images_.syncApply(*image) == ImageClipStore::ApplyResult::changed);
            }
            outcome.more = true;
        } else if (!outcome.failure) {
            log_.line(std::string(logPrefix) + "image save failed: " + error.description);
            outcome.failure = statusText(error);
        }
    }
    for (const auto& [id, result] : answer.value().deleted) {
        auto tombstone = batch.tombstoneOf.find(id.recordName);
        if (tombstone != batch.tombstoneOf.end() && deletionDone(result)) {
            images_.syncRemoveTombstone(tombstone->second);
            noteMoved(1);
        }
    }
    return outcome;
}

CloudResult<bool> ClipCloudSync::downloadImages(CloudDatabase& db) {
    // Pictures waiting out a failure are passed over, so they neither take
    // the batch's places nor cost a download on every pass. One more than a
    // batch is asked for, to know whether another pass has some to fetch.
    const std::size_t batch = static_cast<std::size_t>(downloadBatch());
    std::vector<CloudRecordID> ids;
    bool more = false;
    for (const auto& rid : images_.syncPendingDownloads(
             downloadBatch() + 1 + static_cast<int>(downloadBackoff_.size()))) {
        if (downloadWaiting(rid))
            continue;
        if (ids.size() < batch)
            ids.push_back(ClipRecords::id(rid));
        else
            more = true;
    }
    if (ids.empty())
        return false;
    auto fetched = db.fetchRecords(ids, std::vector<std::string>{"data"});
    if (!fetched)
        return fetched.error();
    for (const auto& [id, result] : fetched.value()) {
        const std::string& rid = id.recordName;
        if (result) {
            auto data = ClipRecords::imageData(result.value());
            if (!data) {
                images_.syncDropPending(rid);  // a record without a picture
                downloadBackoff_.erase(rid);
                noteMoved(1);
            } else if (images_.syncStoreDownloaded(rid, *data)) {
                downloadBackoff_.erase(rid);
                noteChange(true);
                noteMoved(1);
            } else {
                downloadFailed(rid);
            }
        } else if (result.error().code == CloudErrorCode::unknownItem) {
            images_.syncDropPending(rid);
            downloadBackoff_.erase(rid);
            noteMoved(1);
        } else {
            if (result.error().code == CloudErrorCode::unauthenticRecord)
                ++untrusted_;
            downloadFailed(rid);
        }
    }
    return more;
}

CloudResult<ClipCloudSync::SendOutcome> ClipCloudSync::sendPrefs(CloudDatabase& db) {
    if (!KeyboardSettings(defaults_).clipboardChipOrderSync())
        return SendOutcome{};
    if (adoptRemoteOrderIfNewer()) {
        noteChange(true);
        return SendOutcome{};
    }
    if (!defaults_.boolValue(prefkey::syncOrderDirty))
        return SendOutcome{};

    ClipRecords::ChipOrder order{
        defaults_.stringArray(prefkey::clipboardChipOrder).value_or(std::vector<std::string>{}),
        defaults_.doubleValue(prefkey::syncOrderModified)};
    CloudRecord record = ClipRecords::prefsRecord(order, defaults_.data(prefkey::syncOrderCK));
    auto answer = db.modifyRecords({record}, {}, CloudSavePolicy::ifServerRecordUnchanged, true);
    if (!answer)
        return answer.error();
    if (answer.value().saved.size() != 1)
        return CloudError(CloudErrorCode::serverRejectedRequest,
                          "The server answered for another number of records than sent");
    const auto& result = answer.value().saved.front().result;
    if (result) {
        noteMoved(1);
        defaults_.setData(prefkey::syncOrderCK, result.value().systemFields);
        defaults_.setStringArray(prefkey::syncOrderRemote, order.order);
        defaults_.setDouble(prefkey::syncOrderRemoteModified, order.modified);
        // The user may have arranged the chips again during the save.
        if (defaults_.doubleValue(prefkey::syncOrderModified) == order.modified)
            defaults_.setBool(prefkey::syncOrderDirty, false);
        return SendOutcome{};
    }

    const CloudError& error = result.error();
    log_.line(std::string(logPrefix) + "order save failed: " + error.description);
    SendOutcome outcome;
    if (error.code == CloudErrorCode::serverRecordChanged && error.serverRecord) {
        // The newer order wins; when ours is, it goes up over theirs next pass.
        noteChange(applyPrefs(*error.serverRecord));
        outcome.more = true;
    } else if (error.code == CloudErrorCode::unknownItem ||
               error.code == CloudErrorCode::unauthenticRecord) {
        if (error.code == CloudErrorCode::unauthenticRecord)
            distrust(record.id(), error.serverRecord);
        else
            defaults_.remove(prefkey::syncOrderCK);
        outcome.more = true;
    } else {
        outcome.failure = statusText(error);
    }
    return outcome;
}

bool ClipCloudSync::applyPrefs(const CloudRecord& record) {
    // The server's version is what the next save must replace, even when
    // its order cannot be read.
    if (auto ck = ClipRecords::systemFields(record))
        defaults_.setData(prefkey::syncOrderCK, *ck);
    auto order = ClipRecords::chipOrder(record);
    if (!order)
        return false;
    defaults_.setStringArray(prefkey::syncOrderRemote, order->order);
    defaults_.setDouble(prefkey::syncOrderRemoteModified, order->modified);
    return adoptRemoteOrderIfNewer();
}

bool ClipCloudSync::adoptRemoteOrderIfNewer() {
    if (!KeyboardSettings(defaults_).clipboardChipOrderSync())
        return false;
    auto remote = defaults_.stringArray(prefkey::syncOrderRemote);
    if (!remote)
        return false;
    double remoteModified = defaults_.doubleValue(prefkey::syncOrderRemoteModified);
    // On equal times the local order stays.
    if (!(defaults_.doubleValue(prefkey::syncOrderModified) < remoteModified))
        return false;
    defaults_.setStringArray(prefkey::clipboardChipOrder, *remote);
    defaults_.setDouble(prefkey::syncOrderModified, remoteModified);
    defaults_.setBool(prefkey::syncOrderDirty, false);
    return true;
}

}  // namespace zettly
