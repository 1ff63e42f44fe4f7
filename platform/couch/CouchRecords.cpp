// Records: fetching them, saving and deleting them (modifyRecords), and
// wiping them all when the zone starts afresh. How a record looks as a
// document is CouchDocuments' business.
#include <algorithm>
#include <utility>

#include "platform/Log.h"
#include "platform/couch/CouchBackend.h"

namespace zettly::couch {

namespace {

constexpr std::string_view logPrefix = "[Zettly] CouchDB: ";
constexpr std::size_t wipePage = 500;

// A record the server refused in _bulk_docs.
CloudError recordFailure(const Json& result, const std::string& name) {
    const std::string error = stringMember(result, "error").value_or("unknown");
    const std::string reason =
        name + ": " + error + " " + stringMember(result, "reason").value_or("");
    if (error == "unauthorized")
        return CloudError(CloudErrorCode::notAuthenticated, reason);
    if (error == "too_large" || error == "document_too_large" || error == "attachment_too_large")
        return CloudError(CloudErrorCode::limitExceeded, reason);
    return CloudError(CloudErrorCode::serverRejectedRequest, reason);
}

}  // namespace

bool Backend::wantsData(const CloudDesiredKeys& keys) {
    return !keys || std::find(keys->begin(), keys->end(), "data") != keys->end();
}

CloudResult<std::vector<CloudPerRecord<CloudRecord>>> Backend::fetchRecords(
    const std::vector<CloudRecordID>& ids, const CloudDesiredKeys& desiredKeys) {
    if (auto ready = usable(); !ready)
        return ready.error();
    std::vector<CloudPerRecord<CloudRecord>> results;
    if (ids.empty())
        return results;
    auto zone = openZone();
    if (!zone)
        return zone.error();
    std::vector<std::string> names;
    for (const auto& id : ids) {
        if (isRecordName(id.recordName))
            names.push_back(id.recordName);
    }
    auto documents = liveDocuments(names, wantsData(desiredKeys));
    if (!documents)
        return documents.error();
    for (const auto& id : ids) {
        auto found = documents.value().find(id.recordName);
        if (found == documents.value().end() || !isRecordName(id.recordName)) {
            results.push_back({id, CloudError(CloudErrorCode::unknownItem)});
            continue;
        }
        results.push_back({id, open(zone.value().key, found->second, id, desiredKeys)});
    }
    return results;
}

CloudResult<std::map<std::string, Json>> Backend::liveDocuments(
    const std::vector<std::string>& names, bool withData) {
    std::map<std::string, Json> documents;
    if (names.empty())
        return documents;
    std::string url = databaseUrl_ + "/_all_docs?include_docs=true";
    if (withData)
        url += "&attachments=true";
    auto answer = call("POST", url, Json{{"keys", names}}.dump(), "Fetching records");
    if (!answer)
        return answer.error();
    const Json* rows = member(answer.value(), "rows");
    if (!rows || !rows->is_array())
        return unexpectedAnswer("Fetching records");
    for (const auto& row : *rows) {
        const Json* document = member(row, "doc");
        auto key = stringMember(row, "key");
        if (key && document && document->is_object() && !member(*document, "_deleted"))
            documents.emplace(*key, *document);
    }
    return documents;
}

CloudResult<CloudRecord> Backend::open(const MasterKey& key, const Json& document,
                                       const CloudRecordID& id,
                                       const CloudDesiredKeys& desiredKeys) {
    auto opened = openDocument(key, document, id.zoneName, desiredKeys);
    if (!opened.problem.empty())
        reportUnreadable(document, opened.problem);
    if (!opened.record)
        return CloudError(CloudErrorCode::internalError,
                          "The record " + id.recordName + " cannot be read: " + opened.problem);
    return std::move(*opened.record);
}

// Logged once per stored version: the same damaged record comes back
// with every fetch until someone replaces it.
void Backend::reportUnreadable(const Json& document, const std::string& problem) {
    const std::string name = stringMember(document, "_id").value_or("?");
    const std::string version = name + " " + stringMember(document, "_rev").value_or("");
    {
        std::lock_guard lock(reportedMutex_);
        if (!reported_.insert(version).second)
            return;
    }
    log_.line(std::string(logPrefix) + "skipped record " + name.substr(0, 10) + ": " + problem);
}

CloudResult<CloudModifyResults> Backend::modifyRecords(const std::vector<CloudRecord>& saves,
                                                       const std::vector<CloudRecordID>& deletes,
                                                       CloudSavePolicy policy, bool atomic) {
    if (auto ready = usable(); !ready)
        return ready.error();
    CloudModifyResults results;
    if (saves.empty() && deletes.empty())
        return results;
    auto zone = openZone();
    if (!zone)
        return zone.error();
    const MasterKey& key = zone.value().key;

    struct Op {
        CloudRecordID id;
        const CloudRecord* record = nullptr;  // none for a deletion
        std::optional<std::string> sentRev;
        CloudRecord stored;
        std::optional<CloudResult<CloudRecord>> outcome;
    };
    std::vector<Op> ops;
    for (const auto& record : saves) {
        Op op{record.id(), &record, std::nullopt, {}, std::nullopt};
        if (record.recordType.empty()) {
            op.outcome = CloudError(CloudErrorCode::invalidArguments,
                                    "A record without a type cannot be saved");
        } else if (!isRecordName(record.recordName)) {
            op.outcome = CloudError(CloudErrorCode::invalidArguments,
                                    "No record can be stored as " + record.recordName);
        } else if (!record.systemFields.empty()) {
            auto system = decodeSystemFields(record.systemFields);
            if (!system || system->zoneName != record.zoneName ||
                system->recordName != record.recordName ||
                system->recordType != record.recordType || system->changeTag.empty())
                op.outcome = CloudError(
                    CloudErrorCode::invalidArguments,
                    "The system fields of " + record.recordName + " belong to another record");
            else
                op.sentRev = system->changeTag;
        }
        ops.push_back(std::move(op));
    }
    for (const auto& id : deletes) {
        Op op{id, nullptr, std::nullopt, {}, std::nullopt};
        if (!isRecordName(id.recordName))
            op.outcome = CloudError(CloudErrorCode::unknownItem);
        ops.push_back(std::move(op));
    }

    // A save that named a revision the server no longer has as its current
    // one: the server's copy (all fields) or the news that it is gone.
    auto resolveConflicts = [&](const std::vector<Op*>& conflicts) -> CloudResult<> {
        std::vector<std::string> names;
        for (Op* op : conflicts)
            names.push_back(op->id.recordName);
        auto current = liveDocuments(names, true);
        if (!current)
            return current.error();
        for (Op* op : conflicts) {
            auto found = current.value().find(op->id.recordName);
            if (found == current.value().end()) {
                // Deleted meanwhile: a new record may now go through.
                if (op->sentRev)
                    op->outcome = CloudError(CloudErrorCode::unknownItem);
                continue;
            }
            auto opened = openDocument(key, found->second, op->id.zoneName, std::nullopt);
            if (!opened.problem.empty())
                reportUnreadable(found->second, opened.problem);
            // A copy that does not open still lets the caller save over it.
            auto server = opened.record ? std::move(opened.record)
                                        : plainPart(found->second, op->id.zoneName);
            if (server && server->recordType != op->record->recordType)
                op->outcome = CloudError(
                    CloudErrorCode::invalidArguments,
                    "The record " + op->id.recordName + " has another type on the server");
            else
                op->outcome =
                    CloudError(CloudErrorCode::serverRecordChanged, {}, std::move(server));
        }
        return {};
    };

    for (int round = 0; round < writeRounds; ++round) {
        std::vector<Op*> pending;
        for (auto& op : ops) {
            if (!op.outcome)
                pending.push_back(&op);
        }
        if (pending.empty())
            break;
        // CouchDB has no transactions. An atomic batch is checked against
        // the server's revisions first, which catches the usual case (a
        // stale copy); a save racing it between check and write can still
        // leave the others stored.
        const bool check = atomic && ops.size() > 1 && round == 0;
        std::vector<std::string> names;
        for (Op* op : pending) {
            if (!op->record || policy != CloudSavePolicy::ifServerRecordUnchanged || check)
                names.push_back(op->id.recordName);
        }
        auto current = liveDocuments(names, policy == CloudSavePolicy::changedKeys);
        if (!current)
            return current.error();

        std::vector<Op*> conflicts;
        std::vector<Op*> sending;
        Json documents = Json::array();
        for (Op* op : pending) {
            auto found = current.value().find(op->id.recordName);
            const Json* live = found == current.value().end() ? nullptr : &found->second;
            const auto liveRev = live ? stringMember(*live, "_rev") : std::nullopt;
            const auto liveType = live ? stringMember(*live, "recordType") : std::nullopt;
            if (!op->record) {
                if (!live || !liveRev) {
                    op->outcome = CloudError(CloudErrorCode::unknownItem);
                    continue;
                }
                // The type stays, so that other devices learn which store
                // the deletion concerns.
                documents.push_back({{"_id", op->id.recordName},
                                     {"_rev", *liveRev},
                                     {"_deleted", true},
                                     {"recordType", liveType.value_or("")}});
                sending.push_back(op);
                continue;
            }
            const CloudRecord& record = *op->record;
            if (live && liveType != record.recordType) {
                op->outcome = CloudError(
                    CloudErrorCode::invalidArguments,
                    "The record " + record.recordName + " has another type on the server");
                continue;
            }
            op->stored = record;
            std::optional<std::string> rev = op->sentRev;
            if (policy == CloudSavePolicy::ifServerRecordUnchanged) {
                if (check && live && op->sentRev != liveRev) {
                    conflicts.push_back(op);
                    continue;
                }
                if (check && !live && op->sentRev) {
                    op->outcome = CloudError(CloudErrorCode::unknownItem);
                    continue;
                }
            } else {
                rev = liveRev;
                if (policy == CloudSavePolicy::changedKeys && live) {
                    auto opened = openDocument(key, *live, record.zoneName, std::nullopt);
                    if (!opened.record || !opened.problem.empty()) {
                        reportUnreadable(*live, opened.problem);
                        op->outcome = CloudError(CloudErrorCode::internalError,
                                                 "The server's copy of " + record.recordName +
                                                     " cannot be read, so its fields cannot "
                                                     "be kept: " +
                                                     opened.problem);
                        continue;
                    }
                    op->stored.fields = std::move(opened.record->fields);
                    op->stored.encryptedFields = std::move(opened.record->encryptedFields);
                    for (const auto& [name, value] : record.fields)
                        op->stored.fields.insert_or_assign(name, value);
                    for (const auto& [name, value] : record.encryptedFields)
                        op->stored.encryptedFields.insert_or_assign(name, value);
                }
            }
            auto document = recordDocument(key, op->stored, rev);
            if (!document) {
                op->outcome =
                    CloudError(CloudErrorCode::internalError,
                               "The record " + record.recordName + " could not be sealed");
                continue;
            }
            documents.push_back(std::move(*document));
            sending.push_back(op);
        }

        if (check) {
            bool failed = !conflicts.empty();
            for (const auto& op : ops)
                failed = failed || (op.outcome && !op.outcome->ok());
            if (failed) {
                if (auto resolved = resolveConflicts(conflicts); !resolved)
                    return resolved.error();
                for (auto& op : ops) {
                    if (!op.outcome || op.outcome->ok())
                        op.outcome = CloudError(CloudErrorCode::batchRequestFailed);
                }
                break;
            }
        }

        if (!sending.empty()) {
            auto answer = call("POST", databaseUrl_ + "/_bulk_docs",
                               Json{{"docs", documents}}.dump(), "Saving records");
            if (!answer)
                return answer.error();
            // Matched by position: pouchdb-server leaves the id out of some
            // errors.
            if (!answer.value().is_array() || answer.value().size() != sending.size())
                return unexpectedAnswer("Saving records");
            for (std::size_t i = 0; i < sending.size(); ++i) {
                Op* op = sending[i];
                const Json& result = answer.value()[i];
                auto rev = stringMember(result, "rev");
                if (rev && !member(result, "error")) {
                    noteOwn(*rev);
                    if (op->record)
                        op->stored.systemFields = encodeSystemFields(
                            {op->id.zoneName, op->stored.recordType, op->id.recordName, *rev});
                    op->outcome = std::move(op->stored);
                } else if (stringMember(result, "error") == "conflict") {
                    // Overwrites and deletions fetch the new revision and try
                    // again; a checked save meets the server's copy.
                    if (op->record && policy == CloudSavePolicy::ifServerRecordUnchanged)
                        conflicts.push_back(op);
                } else {
                    op->outcome = recordFailure(result, op->id.recordName);
                }
            }
        }
        if (!conflicts.empty()) {
            if (auto resolved = resolveConflicts(conflicts); !resolved)
                return resolved.error();
        }
    }

    for (std::size_t i = 0; i < ops.size(); ++i) {
        Op& op = ops[i];
        if (!op.outcome)
            op.outcome =
                CloudError(CloudErrorCode::serverRecordChanged,
                           "The record " + op.id.recordName + " kept changing on the server");
        if (i < saves.size()) {
            results.saved.push_back({op.id, std::move(*op.outcome)});
        } else if (op.outcome->ok()) {
            results.deleted.push_back({op.id, CloudResult<>()});
        } else {
            results.deleted.push_back({op.id, op.outcome->error()});
        }
    }
    return results;
}

CloudResult<> Backend::wipeDocuments() {
    for (;;) {
        auto page = call("GET", databaseUrl_ + "/_all_docs?limit=" + std::to_string(wipePage), {},
                         "Listing the records");
        if (!page)
            return page.error();
        const Json* rows = member(page.value(), "rows");
        if (!rows || !rows->is_array())
            return unexpectedAnswer("Listing the records");
        Json docs = Json::array();
        for (const auto& row : *rows) {
            auto id = stringMember(row, "id");
            const Json* value = member(row, "value");
            auto rev = value ? stringMember(*value, "rev") : std::nullopt;
            if (!id || !rev || !isRecordName(*id))
                continue;
            docs.push_back({{"_id", *id}, {"_rev", *rev}, {"_deleted", true}, {"wiped", true}});
        }
        if (docs.empty())
            return {};
        auto answer = call("POST", databaseUrl_ + "/_bulk_docs", Json{{"docs", docs}}.dump(),
                           "Deleting the records");
        if (!answer)
            return answer.error();
        if (!answer.value().is_array())
            return unexpectedAnswer("Deleting the records");
        std::size_t deleted = 0;
        for (const auto& result : answer.value()) {
            if (auto rev = stringMember(result, "rev"); rev && !member(result, "error")) {
                noteOwn(*rev);
                ++deleted;
            }
        }
        // Conflicts are listed again with their new revision; a server
        // that refuses every deletion would keep this loop going.
        if (deleted == 0)
            return CloudError(CloudErrorCode::serverRejectedRequest,
                              "The server refused to delete the records");
    }
}

}  // namespace zettly::couch
