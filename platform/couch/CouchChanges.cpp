// The change feed: what changed since a change token. A token holds the
// zone's epoch and the server's _changes sequence, so that a token from
// before the zone started afresh is recognised as such.
#include "platform/couch/CouchBackend.h"

namespace zettly::couch {

std::string sequenceText(const Json& sequence) {
    return sequence.is_string() ? sequence.get<std::string>() : sequence.dump();
}

namespace {

// The marker's revision when the page shows it changed after `since`.
std::optional<std::string> markerRevision(const Json& rows) {
    for (const auto& row : rows) {
        if (stringMember(row, "id") != markerID)
            continue;
        if (const Json* document = member(row, "doc"); document && document->is_object())
            if (auto rev = stringMember(*document, "_rev"))
                return rev;
        const Json* changes = member(row, "changes");
        if (changes && changes->is_array() && !changes->empty())
            return stringMember(changes->front(), "rev");
    }
    return std::nullopt;
}

}  // namespace

CloudResult<CloudZoneChanges> Backend::zoneChanges(const std::string& zoneName,
                                                   const CloudBytes& since,
                                                   const CloudDesiredKeys& desiredKeys,
                                                   std::size_t resultsLimit) {
    if (auto ready = usable(); !ready)
        return ready.error();
    const std::size_t limit = resultsLimit == 0 ? changesPage : resultsLimit;
    // A page that shows the marker in another revision than the one its
    // records were opened with is read again under the marker as it is now:
    // records sealed for a new epoch or key must not read as forged.
    std::optional<Zone> opened;
    std::optional<Json> json;
    for (int attempt = 0; attempt < 2; ++attempt) {
        auto zone = openZone();
        if (!zone)
            return zone.error();
        const Marker& marker = zone.value().marker;
        Json sequence = 0;
        if (!since.empty()) {
            auto token = decodeToken(since);
            if (!token)
                return CloudError(CloudErrorCode::changeTokenExpired);
            if (token->epoch != marker.epoch)
                return CloudError(CloudErrorCode::userDeletedZone,
                                  "The records on the sync server were deleted and started afresh");
            sequence = token->sequence;
        }
        std::string url = databaseUrl_ + "/_changes?style=main_only&include_docs=true&limit=" +
                          std::to_string(limit) + "&since=" + escape(sequenceText(sequence));
        if (wantsData(desiredKeys))
            url += "&attachments=true";
        auto response = send("GET", url);
        // CouchDB refuses a sequence it cannot read.
        if (response.status == 400)
            return CloudError(CloudErrorCode::changeTokenExpired, reasonOf(response));
        if (!response.success())
            return requestFailure(response, "Fetching changes");
        json = parse(response.body);
        const Json* rows = json ? member(*json, "results") : nullptr;
        if (!rows || !rows->is_array())
            return unexpectedAnswer("Fetching changes");
        auto shown = markerRevision(*rows);
        const bool current = !shown || *shown == marker.rev;
        opened = std::move(zone.value());
        if (current)
            break;
        forgetForPass();
    }
    const Zone& zone = *opened;
    const Marker& marker = zone.marker;
    const Json& rows = *member(*json, "results");

    CloudZoneChanges changes;
    for (const auto& row : rows) {
        auto name = stringMember(row, "id");
        const Json* document = member(row, "doc");
        if (!name || !isRecordName(*name) || !document || !document->is_object())
            continue;
        const CloudRecordID id{zoneName, *name};
        const Json* deleted = member(row, "deleted");
        if ((deleted && deleted->is_boolean() && deleted->get<bool>()) ||
            member(*document, "_deleted")) {
            // A deletion that fails the check is not believed: it comes as
            // an unauthentic record, which the engine uploads again.
            auto deletion = openDeletion(zone, *document, id);
            if (!deletion)
                changes.modified.push_back({id, deletion.error()});
            else if (deletion.value())
                changes.deleted.push_back(std::move(*deletion.value()));
            continue;
        }
        changes.modified.push_back({id, open(zone, *document, id, desiredKeys)});
    }
    const Json* last = member(*json, "last_seq");
    if (!last || !(last->is_string() || last->is_number_unsigned()))
        return unexpectedAnswer("Fetching changes");
    // CouchDB says how many remain; pouchdb-server does not, and a full
    // page then means there may be more.
    const Json* pending = member(*json, "pending");
    if (pending && pending->is_number())
        changes.moreComing = pending->get<double>() > 0;
    else
        changes.moreComing = rows.size() >= limit;
    changes.token = encodeToken({marker.epoch, *last});
    return changes;
}

}  // namespace zettly::couch
