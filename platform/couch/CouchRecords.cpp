// Records: fetching them, saving and deleting them (modifyRecords), and
// wiping them all when the zone starts afresh. How a record looks as a
// document is CouchDocuments' business.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <utility>

#include "platform/Log.h"
#include "platform/couch/CouchBackend.h"

namespace zettly::couch {

namespace {

constexpr std::string_view logPrefix = "[Zettly] CouchDB: ";
constexpr std::size_t wipePage = 500;
const std::string replayed =
    "it is older than a version already seen (the server handed back an old copy)";

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
        results.push_back({id, open(zone.value(), found->second, id, desiredKeys)});
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

CloudResult<CloudRecord> Backend::open(const Zone& zone, const Json& document,
                                       const CloudRecordID& id, const CloudDesiredKeys& desiredKeys,
                                       const std::string& savedType) {
    auto opened = openDocument(zone.key, zone.marker.epoch, document, id.zoneName, desiredKeys);
    if (opened.problem.empty() && !noteVersion(id.recordName, opened.version))
        opened.problem = replayed;
    if (!opened.problem.empty())
        return unauthentic(document, id, opened.problem, savedType);
    return std::move(*opened.record);
}

CloudResult<std::optional<CloudDeletion>> Backend::openDeletion(const Zone& zone,
                                                                const Json& document,
                                                                const CloudRecordID& id) {
    auto opened = couch::openDeletion(zone.key, zone.marker.epoch, document);
    // A stub of an earlier epoch is history: no version of this one to check.
    const bool earlier = opened.wiped && opened.version == 0;
    if (opened.problem.empty() && !earlier && !noteVersion(id.recordName, opened.version))
        opened.problem = replayed;
    if (!opened.problem.empty())
        return unauthentic(document, id, opened.problem);
    // A wiped record was not deleted by the user: other devices keep their
    // copies and upload them again.
    if (opened.wiped)
        return std::optional<CloudDeletion>();
    return std::optional<CloudDeletion>(CloudDeletion{id, opened.recordType});
}

// Logged once per stored version: the same record comes back with every
// fetch until someone replaces it.
CloudError Backend::unauthentic(const Json& document, const CloudRecordID& id,
                                const std::string& problem, const std::string& savedType) {
    const std::string version = id.recordName + " " + stringMember(document, "_rev").value_or("");
    bool first = false;
    {
        std::lock_guard lock(reportedMutex_);
        first = reported_.insert(version).second;
    }
    if (first)
        log_.line(std::string(logPrefix) + "skipped record " + id.recordName.substr(0, 10) + ": " +
                  problem);
    return CloudError(
        CloudErrorCode::unauthenticRecord,
        "The server's copy of " + id.recordName + " fails the end-to-end check: " + problem,
        claimedIdentity(document, id.zoneName, savedType));
}

bool Backend::noteVersion(const std::string& name, std::uint64_t version) {
    std::lock_guard lock(versionsMutex_);
    auto [seen, fresh] = versions_.try_emplace(name, version);
    if (fresh || seen->second <= version) {
        seen->second = version;
        return true;
    }
    return false;
}

bool Backend::hasVersion(const std::string& name) {
    std::lock_guard lock(versionsMutex_);
    return versions_.contains(name);
}

std::uint64_t Backend::nextVersion(const std::string& name) {
    const auto now = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    std::uint64_t next = static_cast<std::uint64_t>(std::max<std::int64_t>(now.count(), 1));
    std::lock_guard lock(versionsMutex_);
    if (auto seen = versions_.find(name); seen != versions_.end())
        next = std::max(next, seen->second + 1);
    return next;
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
    const std::string& epoch = zone.value().marker.epoch;

    struct Op {
        CloudRecordID id;
        const CloudRecord* record = nullptr;  // none for a deletion
        std::optional<std::string> sentRev;
        // System fields of another type: those of a copy that failed the
        // check name the type it claimed.
        bool otherType = false;
        std::uint64_t version = 0;
        CloudRecord stored;
        std::optional<CloudResult<CloudRecord>> outcome;
    };
    std::vector<Op> ops;
    for (const auto& record : saves) {
        Op op;
        op.id = record.id();
        op.record = &record;
        if (record.recordType.empty()) {
            op.outcome = CloudError(CloudErrorCode::invalidArguments,
                                    "A record without a type cannot be saved");
        } else if (!isRecordName(record.recordName)) {
            op.outcome = CloudError(CloudErrorCode::invalidArguments,
                                    "No record can be stored as " + record.recordName);
        } else if (!record.systemFields.empty()) {
            auto system = decodeSystemFields(record.systemFields);
            if (!system || system->zoneName != record.zoneName ||
                system->recordName != record.recordName || system->changeTag.empty()) {
                op.outcome = CloudError(
                    CloudErrorCode::invalidArguments,
                    "The system fields of " + record.recordName + " belong to another record");
            } else {
                op.sentRev = system->changeTag;
                op.otherType = system->recordType != record.recordType;
            }
        }
        ops.push_back(std::move(op));
    }
    for (const auto& id : deletes) {
        Op op;
        op.id = id;
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
            // One that fails the check comes with the system fields it
            // takes to save over it, and nothing else.
            auto server =
                open(zone.value(), found->second, op->id, std::nullopt, op->record->recordType);
            if (!server)
                op->outcome = server.error();
            else if (server.value().recordType != op->record->recordType)
                op->outcome = CloudError(
                    CloudErrorCode::invalidArguments,
                    "The record " + op->id.recordName + " has another type on the server");
            else
                op->outcome =
                    CloudError(CloudErrorCode::serverRecordChanged, {}, std::move(server.value()));
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
        // Also a record whose version this process does not know yet: a
        // new version must be above the one it replaces.
        std::vector<std::string> names;
        for (Op* op : pending) {
            if (!op->record || policy != CloudSavePolicy::ifServerRecordUnchanged || check ||
                op->otherType || !hasVersion(op->id.recordName))
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
            // Opening it also teaches this process its version.
            std::optional<CloudResult<CloudRecord>> server;
            if (live)
                server = open(zone.value(), *live, op->id, std::nullopt,
                              op->record ? op->record->recordType : std::string());
            if (!op->record) {
                if (!live || !liveRev) {
                    op->outcome = CloudError(CloudErrorCode::unknownItem);
                    continue;
                }
                // The type stays, so that other devices learn which store
                // the deletion concerns (for a copy that failed the check,
                // the type it claims).
                op->version = nextVersion(op->id.recordName);
                auto tombstone =
                    deletionDocument(key, epoch, stringMember(*live, "recordType").value_or(""),
                                     op->id.recordName, op->version, *liveRev);
                if (!tombstone) {
                    op->outcome =
                        CloudError(CloudErrorCode::internalError,
                                   "The deletion of " + op->id.recordName + " could not be sealed");
                    continue;
                }
                documents.push_back(std::move(*tombstone));
                sending.push_back(op);
                continue;
            }
            const CloudRecord& record = *op->record;
            if (server && server->ok() && server->value().recordType != record.recordType) {
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
                if (policy == CloudSavePolicy::changedKeys && server) {
                    // Fields that fail the check are not kept.
                    if (!server->ok()) {
                        op->outcome = std::move(*server);
                        continue;
                    }
                    op->stored.fields = std::move(server->value().fields);
                    op->stored.encryptedFields = std::move(server->value().encryptedFields);
                    for (const auto& [name, value] : record.fields)
                        op->stored.fields.insert_or_assign(name, value);
                    for (const auto& [name, value] : record.encryptedFields)
                        op->stored.encryptedFields.insert_or_assign(name, value);
                }
            }
            op->version = nextVersion(record.recordName);
            auto document = recordDocument(key, epoch, op->stored, op->version, rev);
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
                    noteVersion(op->id.recordName, op->version);
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

// The stubs are sealed like deletions, with the epoch they end (the marker
// gets a new one afterwards, so readers cannot check it against theirs) and
// a version, and only a stub that opens is passed over in silence; anything
// else deleted reads as unauthentic, so the devices upload their copies
// again. The seal keeps the server from forging a wipe; handing back a
// genuine stub of an earlier wipe over a record uploaded since fails the
// version check of a device that saw the record, and to one that did not it
// does no more than a server keeping the record back, which no check
// prevents.
CloudResult<> Backend::wipeDocuments(const std::string& endingEpoch, const MasterKey* key) {
    for (;;) {
        auto page = call("GET", databaseUrl_ + "/_all_docs?limit=" + std::to_string(wipePage), {},
                         "Listing the records");
        if (!page)
            return page.error();
        const Json* rows = member(page.value(), "rows");
        if (!rows || !rows->is_array())
            return unexpectedAnswer("Listing the records");
        Json docs = Json::array();
        std::vector<std::pair<std::string, std::uint64_t>> versions;
        for (const auto& row : *rows) {
            auto id = stringMember(row, "id");
            const Json* value = member(row, "value");
            auto rev = value ? stringMember(*value, "rev") : std::nullopt;
            if (!id || !rev || !isRecordName(*id))
                continue;
            const auto version = nextVersion(*id);
            auto stub = wipedDocument(key, endingEpoch, *id, version, *rev);
            if (!stub)
                return CloudError(CloudErrorCode::internalError, "The records could not be sealed");
            docs.push_back(std::move(*stub));
            versions.emplace_back(*id, version);
        }
        if (docs.empty())
            return {};
        auto answer = call("POST", databaseUrl_ + "/_bulk_docs", Json{{"docs", docs}}.dump(),
                           "Deleting the records");
        if (!answer)
            return answer.error();
        if (!answer.value().is_array())
            return unexpectedAnswer("Deleting the records");
        if (answer.value().size() != versions.size())
            return unexpectedAnswer("Deleting the records");
        std::size_t deleted = 0;
        for (std::size_t i = 0; i < versions.size(); ++i) {
            const Json& result = answer.value()[i];
            if (auto rev = stringMember(result, "rev"); rev && !member(result, "error")) {
                noteOwn(*rev);
                noteVersion(versions[i].first, versions[i].second);
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
