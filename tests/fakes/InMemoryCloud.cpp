#include "tests/fakes/InMemoryCloud.h"

#include <algorithm>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string_view>
#include <utility>

namespace zettly {

namespace {

// The service refuses records above 1 MB of field data; images are reduced
// before upload so that they stay under it, and this keeps that honest.
constexpr std::size_t maxRecordBytes = std::size_t{1} << 20;

// "ZCT1", the zone's epoch and the change sequence, each 64-bit little-endian.
constexpr std::string_view tokenMagic = "ZCT1";

struct Token {
    std::uint64_t epoch = 0;
    std::uint64_t sequence = 0;
};

CloudBytes encodeToken(Token token) {
    CloudBytes out(tokenMagic.begin(), tokenMagic.end());
    for (std::uint64_t part : {token.epoch, token.sequence}) {
        for (int shift = 0; shift < 64; shift += 8)
            out.push_back(static_cast<std::uint8_t>(part >> shift));
    }
    return out;
}

std::optional<Token> decodeToken(const CloudBytes& bytes) {
    if (bytes.size() != tokenMagic.size() + 16 ||
        !std::equal(tokenMagic.begin(), tokenMagic.end(), bytes.begin()))
        return std::nullopt;
    auto read = [&](std::size_t at) {
        std::uint64_t value = 0;
        for (int i = 0; i < 8; ++i)
            value |= std::uint64_t{bytes[at + i]} << (8 * i);
        return value;
    };
    return Token{read(tokenMagic.size()), read(tokenMagic.size() + 8)};
}

std::size_t fieldsSize(const CloudFields& fields) {
    std::size_t size = 0;
    for (const auto& [key, value] : fields) {
        size += key.size();
        if (auto* text = std::get_if<std::string>(&value))
            size += text->size();
        else if (auto* bytes = std::get_if<CloudBytes>(&value))
            size += bytes->size();
        else
            size += 8;
    }
    return size;
}

CloudFields onlyDesired(const CloudFields& fields, const CloudDesiredKeys& keys) {
    if (!keys)
        return fields;
    CloudFields kept;
    for (const auto& key : *keys) {
        if (auto found = fields.find(key); found != fields.end())
            kept.insert(*found);
    }
    return kept;
}

CloudRecord withDesiredKeys(const CloudRecord& record, const CloudDesiredKeys& keys) {
    CloudRecord copy = record;
    copy.fields = onlyDesired(record.fields, keys);
    copy.encryptedFields = onlyDesired(record.encryptedFields, keys);
    return copy;
}

CloudError invalid(std::string text) {
    return CloudError(CloudErrorCode::invalidArguments, std::move(text));
}

}  // namespace

class InMemoryServer {
public:
    using PushHandler = std::function<void(const std::string&)>;

    // A record, or the tombstone of a deleted one (kept so that the change
    // feed can report the deletion with its type).
    struct Stored {
        CloudRecord record;
        std::string changeTag;
        std::uint64_t sequence = 0;
        bool deleted = false;
        // Fails the end-to-end check (tamper(), forgeDeletion()).
        bool unauthentic = false;
        std::optional<CloudRecord> previous;  // the version before, for replay()
    };
    struct Zone {
        std::uint64_t epoch = 0;
        std::uint64_t lastSequence = 0;
        std::map<std::string, Stored> records;
        // Each record appears once, at the sequence of its latest change.
        std::map<std::uint64_t, std::string> log;
    };
    struct Account {
        std::map<std::string, Zone> zones;
        std::set<std::string> deletedByUser;
        std::map<std::string, std::string> subscriptions;  // id to zone name
    };
    struct Device {
        std::string user;
        CloudAccountStatus status = CloudAccountStatus::available;
        bool networkDown = false;
        std::deque<std::pair<CloudOperation, CloudError>> failures;
        std::map<std::string, CloudError> failingRecords;
        std::shared_ptr<const PushHandler> push;
        std::optional<double> clockSkew;
    };
    using Delivery = std::pair<std::shared_ptr<const PushHandler>, std::string>;

    mutable std::mutex mutex;
    std::map<std::string, Account> accounts;
    std::map<std::uint64_t, Device> devices;
    std::uint64_t nextDevice = 1;
    // Epochs and change tags are unique across the server, so a token or
    // tag from a zone's earlier life can never match its new one.
    std::uint64_t nextEpoch = 1;
    std::uint64_t nextTag = 1;
    std::size_t pageSize = 200;

    // The failure this call meets before reaching any data, if any.
    std::optional<CloudError> refuse(Device& device, CloudOperation operation) {
        auto queued =
            std::find_if(device.failures.begin(), device.failures.end(), [&](const auto& failure) {
                return failure.first == operation || failure.first == CloudOperation::any;
            });
        if (queued != device.failures.end()) {
            CloudError error = std::move(queued->second);
            device.failures.erase(queued);
            return error;
        }
        if (operation == CloudOperation::accountStatus)
            return std::nullopt;
        if (device.networkDown)
            return CloudError(CloudErrorCode::networkFailure);
        if (device.status != CloudAccountStatus::available)
            return CloudError(CloudErrorCode::notAuthenticated);
        return std::nullopt;
    }

    static CloudResult<Zone*> zone(Account& account, const std::string& name) {
        if (auto found = account.zones.find(name); found != account.zones.end())
            return &found->second;
        if (account.deletedByUser.contains(name))
            return CloudError(CloudErrorCode::userDeletedZone,
                              "The user deleted the record zone " + name);
        return CloudError(CloudErrorCode::zoneNotFound, "No record zone " + name);
    }

    static void touch(Zone& zone, Stored& stored) {
        if (stored.sequence != 0)
            zone.log.erase(stored.sequence);
        stored.sequence = ++zone.lastSequence;
        zone.log[stored.sequence] = stored.record.recordName;
    }

    // The record as a save would store it, or why it may not.
    static CloudResult<CloudRecord> planSave(const Zone& zone, const Device& device,
                                             const CloudRecord& sent, CloudSavePolicy policy) {
        if (sent.recordType.empty())
            return invalid("A record without a type cannot be saved");
        if (auto failing = device.failingRecords.find(sent.recordName);
            failing != device.failingRecords.end())
            return failing->second;
        std::optional<std::string> sentTag;
        if (!sent.systemFields.empty()) {
            auto system = decodeSystemFields(sent.systemFields);
            if (!system || system->zoneName != sent.zoneName ||
                system->recordName != sent.recordName || system->recordType != sent.recordType)
                return invalid("The system fields of " + sent.recordName +
                               " belong to another record");
            sentTag = system->changeTag;
        }
        auto found = zone.records.find(sent.recordName);
        const Stored* current =
            found != zone.records.end() && !found->second.deleted ? &found->second : nullptr;
        // Whatever the server holds in place of a record that fails the
        // check can be saved over, given its system fields.
        if (current && current->unauthentic) {
            if (sentTag != current->changeTag)
                return unauthentic(*current);
            return sent;
        }
        if (current && current->record.recordType != sent.recordType)
            return invalid("The record " + sent.recordName + " has another type on the server");

        CloudRecord result = sent;
        switch (policy) {
            case CloudSavePolicy::ifServerRecordUnchanged:
                if (current && sentTag != current->changeTag)
                    return CloudError(CloudErrorCode::serverRecordChanged, {}, current->record);
                if (!current && sentTag)
                    return CloudError(CloudErrorCode::unknownItem);
                break;
            case CloudSavePolicy::changedKeys:
                if (current) {
                    result.fields = current->record.fields;
                    result.encryptedFields = current->record.encryptedFields;
                    for (const auto& [key, value] : sent.fields)
                        result.fields.insert_or_assign(key, value);
                    for (const auto& [key, value] : sent.encryptedFields)
                        result.encryptedFields.insert_or_assign(key, value);
                }
                break;
            case CloudSavePolicy::allKeys:
                break;
        }
        if (fieldsSize(result.fields) + fieldsSize(result.encryptedFields) > maxRecordBytes)
            return CloudError(CloudErrorCode::limitExceeded,
                              "The record " + sent.recordName + " is larger than 1 MB");
        return result;
    }

    // What a reader gets for a version that fails the check.
    static CloudError unauthentic(const Stored& stored) {
        CloudRecord claimed{.recordType = stored.record.recordType,
                            .zoneName = stored.record.zoneName,
                            .recordName = stored.record.recordName};
        if (!stored.deleted)
            claimed.systemFields = stored.record.systemFields;
        return CloudError(CloudErrorCode::unauthenticRecord,
                          "The record " + claimed.recordName + " fails the end-to-end check",
                          std::move(claimed));
    }

    CloudRecord commitSave(Zone& zone, CloudRecord record) {
        Stored& stored = zone.records[record.recordName];
        if (!stored.deleted && !stored.unauthentic)
            stored.previous = stored.record;
        stored.deleted = false;
        stored.unauthentic = false;
        stored.changeTag = std::to_string(nextTag++);
        record.systemFields = encodeSystemFields(
            {record.zoneName, record.recordType, record.recordName, stored.changeTag});
        stored.record = std::move(record);
        touch(zone, stored);
        return stored.record;
    }

    static void commitDelete(Zone& zone, Stored& stored) {
        stored.deleted = true;
        stored.changeTag.clear();
        stored.record.fields.clear();
        stored.record.encryptedFields.clear();
        stored.record.systemFields.clear();
        touch(zone, stored);
    }

    // The other devices of `user` to tell that `zones` changed.
    std::vector<Delivery> pushesFor(std::uint64_t from, const std::string& user,
                                    const std::set<std::string>& zones) {
        std::vector<Delivery> deliveries;
        for (const auto& [id, zoneName] : accounts[user].subscriptions) {
            if (!zones.contains(zoneName))
                continue;
            for (const auto& [deviceID, device] : devices) {
                if (deviceID != from && device.user == user && device.push && !device.networkDown &&
                    device.status == CloudAccountStatus::available)
                    deliveries.emplace_back(device.push, id);
            }
        }
        return deliveries;
    }

    CloudResult<CloudModifyResults> modify(std::uint64_t deviceID,
                                           const std::vector<CloudRecord>& saves,
                                           const std::vector<CloudRecordID>& deletes,
                                           CloudSavePolicy policy, bool atomic) {
        std::vector<Delivery> deliveries;
        CloudModifyResults results;
        {
            std::lock_guard lock(mutex);
            Device& device = devices.at(deviceID);
            if (auto refused = refuse(device, CloudOperation::modifyRecords))
                return *refused;
            Account& account = accounts[device.user];

            std::vector<CloudRecordID> ids;
            for (const auto& record : saves)
                ids.push_back(record.id());
            ids.insert(ids.end(), deletes.begin(), deletes.end());
            std::set<CloudRecordID> seen;
            for (const auto& id : ids) {
                if (id.zoneName.empty() || id.recordName.empty())
                    return invalid("A record needs a zone and a name");
                if (!seen.insert(id).second)
                    return invalid("The record " + id.recordName + " appears twice in one request");
                if (auto found = zone(account, id.zoneName); !found)
                    return found.error();
            }

            std::vector<CloudResult<CloudRecord>> planned;
            for (const auto& record : saves)
                planned.push_back(
                    planSave(*zone(account, record.zoneName).value(), device, record, policy));
            std::vector<std::optional<CloudError>> deleteErrors;
            for (const auto& id : deletes) {
                const Zone& z = *zone(account, id.zoneName).value();
                auto found = z.records.find(id.recordName);
                if (auto failing = device.failingRecords.find(id.recordName);
                    failing != device.failingRecords.end())
                    deleteErrors.emplace_back(failing->second);
                else if (found == z.records.end() || found->second.deleted)
                    deleteErrors.emplace_back(CloudError(CloudErrorCode::unknownItem));
                else
                    deleteErrors.emplace_back();
            }

            const bool anyFailed =
                std::any_of(planned.begin(), planned.end(), [](auto& r) { return !r.ok(); }) ||
                std::any_of(deleteErrors.begin(), deleteErrors.end(),
                            [](auto& e) { return e.has_value(); });
            const bool commit = !(atomic && anyFailed);
            const CloudError batchFailed(CloudErrorCode::batchRequestFailed);
            std::set<std::string> changedZones;

            for (std::size_t i = 0; i < saves.size(); ++i) {
                const CloudRecordID id = saves[i].id();
                if (!planned[i].ok()) {
                    results.saved.push_back({id, planned[i].error()});
                } else if (!commit) {
                    results.saved.push_back({id, batchFailed});
                } else {
                    Zone& z = *zone(account, id.zoneName).value();
                    results.saved.push_back({id, commitSave(z, std::move(planned[i]).value())});
                    changedZones.insert(id.zoneName);
                }
            }
            for (std::size_t i = 0; i < deletes.size(); ++i) {
                const CloudRecordID& id = deletes[i];
                if (deleteErrors[i]) {
                    results.deleted.push_back({id, *deleteErrors[i]});
                } else if (!commit) {
                    results.deleted.push_back({id, batchFailed});
                } else {
                    Zone& z = *zone(account, id.zoneName).value();
                    commitDelete(z, z.records.at(id.recordName));
                    results.deleted.push_back({id, CloudResult<>()});
                    changedZones.insert(id.zoneName);
                }
            }
            if (!changedZones.empty())
                deliveries = pushesFor(deviceID, device.user, changedZones);
        }
        for (const auto& [handler, subscriptionID] : deliveries)
            (*handler)(subscriptionID);
        return results;
    }

    CloudResult<CloudZoneChanges> changes(std::uint64_t deviceID, const std::string& zoneName,
                                          const CloudBytes& since, const CloudDesiredKeys& keys,
                                          std::size_t resultsLimit) {
        std::lock_guard lock(mutex);
        Device& device = devices.at(deviceID);
        if (auto refused = refuse(device, CloudOperation::zoneChanges))
            return *refused;
        auto found = zone(accounts[device.user], zoneName);
        if (!found)
            return found.error();
        const Zone& z = *found.value();

        std::uint64_t after = 0;
        if (!since.empty()) {
            auto token = decodeToken(since);
            if (!token || token->epoch != z.epoch || token->sequence > z.lastSequence)
                return CloudError(CloudErrorCode::changeTokenExpired);
            after = token->sequence;
        }
        std::size_t limit = pageSize;
        if (resultsLimit != 0)
            limit = std::min(limit, resultsLimit);

        CloudZoneChanges changes;
        auto entry = z.log.upper_bound(after);
        std::uint64_t reached = after;
        for (std::size_t taken = 0; entry != z.log.end() && taken < limit; ++entry, ++taken) {
            const Stored& stored = z.records.at(entry->second);
            const CloudRecordID id = stored.record.id();
            if (stored.unauthentic)
                changes.modified.push_back({id, unauthentic(stored)});
            else if (stored.deleted)
                changes.deleted.push_back({id, stored.record.recordType});
            else
                changes.modified.push_back({id, withDesiredKeys(stored.record, keys)});
            reached = entry->first;
        }
        changes.moreComing = entry != z.log.end();
        changes.token = encodeToken({z.epoch, changes.moreComing ? reached : z.lastSequence});
        return changes;
    }
};

namespace {

class InMemoryDatabase final : public CloudDatabase {
public:
    InMemoryDatabase(std::shared_ptr<InMemoryServer> server, std::uint64_t device)
        : server_(std::move(server)), device_(device) {}

    CloudResult<> saveZones(const std::vector<std::string>& zoneNames) override {
        std::lock_guard lock(server_->mutex);
        auto entered = enter(CloudOperation::saveZones);
        if (!entered)
            return entered.error();
        auto* account = entered.value();
        if (std::find(zoneNames.begin(), zoneNames.end(), "") != zoneNames.end())
            return invalid("A record zone needs a name");
        for (const auto& name : zoneNames) {
            if (!account->zones.contains(name))
                account->zones[name].epoch = server_->nextEpoch++;
            account->deletedByUser.erase(name);
        }
        return {};
    }

    CloudResult<> deleteZones(const std::vector<std::string>& zoneNames) override {
        std::lock_guard lock(server_->mutex);
        auto entered = enter(CloudOperation::deleteZones);
        if (!entered)
            return entered.error();
        auto* account = entered.value();
        for (const auto& name : zoneNames) {
            if (auto found = InMemoryServer::zone(*account, name); !found)
                return found.error();
        }
        for (const auto& name : zoneNames) {
            account->zones.erase(name);
            std::erase_if(account->subscriptions,
                          [&](const auto& subscription) { return subscription.second == name; });
        }
        return {};
    }

    CloudResult<> saveSubscription(const CloudSubscription& subscription) override {
        std::lock_guard lock(server_->mutex);
        auto entered = enter(CloudOperation::saveSubscription);
        if (!entered)
            return entered.error();
        auto* account = entered.value();
        if (subscription.subscriptionID.empty())
            return invalid("A subscription needs an id");
        if (auto found = InMemoryServer::zone(*account, subscription.zoneName); !found)
            return found.error();
        account->subscriptions[subscription.subscriptionID] = subscription.zoneName;
        return {};
    }

    CloudResult<std::vector<CloudPerRecord<CloudRecord>>> fetchRecords(
        const std::vector<CloudRecordID>& ids, const CloudDesiredKeys& desiredKeys) override {
        std::lock_guard lock(server_->mutex);
        auto entered = enter(CloudOperation::fetchRecords);
        if (!entered)
            return entered.error();
        auto* account = entered.value();
        std::vector<CloudPerRecord<CloudRecord>> results;
        for (const auto& id : ids) {
            auto found = InMemoryServer::zone(*account, id.zoneName);
            if (!found)
                return found.error();
            const auto& records = found.value()->records;
            auto record = records.find(id.recordName);
            if (record != records.end() && record->second.unauthentic)
                results.push_back({id, InMemoryServer::unauthentic(record->second)});
            else if (record == records.end() || record->second.deleted)
                results.push_back({id, CloudError(CloudErrorCode::unknownItem)});
            else
                results.push_back({id, withDesiredKeys(record->second.record, desiredKeys)});
        }
        return results;
    }

    CloudResult<CloudModifyResults> modifyRecords(const std::vector<CloudRecord>& saves,
                                                  const std::vector<CloudRecordID>& deletes,
                                                  CloudSavePolicy policy, bool atomic) override {
        return server_->modify(device_, saves, deletes, policy, atomic);
    }

    CloudResult<CloudZoneChanges> zoneChanges(const std::string& zoneName, const CloudBytes& since,
                                              const CloudDesiredKeys& desiredKeys,
                                              std::size_t resultsLimit) override {
        return server_->changes(device_, zoneName, since, desiredKeys, resultsLimit);
    }

private:
    // The caller's account, unless the call is refused. Under the lock.
    CloudResult<InMemoryServer::Account*> enter(CloudOperation operation) {
        auto& device = server_->devices.at(device_);
        if (auto refused = server_->refuse(device, operation))
            return std::move(*refused);
        return &server_->accounts[device.user];
    }

    std::shared_ptr<InMemoryServer> server_;
    std::uint64_t device_;
};

}  // namespace

InMemoryCloud::InMemoryCloud() : server_(std::make_shared<InMemoryServer>()) {}

InMemoryCloud::~InMemoryCloud() = default;

std::unique_ptr<InMemoryContainer> InMemoryCloud::container(const std::string& userName) {
    std::uint64_t device = 0;
    {
        std::lock_guard lock(server_->mutex);
        device = server_->nextDevice++;
        server_->devices[device].user = userName;
    }
    return std::unique_ptr<InMemoryContainer>(new InMemoryContainer(server_, device));
}

void InMemoryCloud::setPageSize(std::size_t records) {
    std::lock_guard lock(server_->mutex);
    server_->pageSize = std::max<std::size_t>(records, 1);
}

bool InMemoryCloud::deleteZoneByUser(const std::string& userName, const std::string& zoneName) {
    std::lock_guard lock(server_->mutex);
    auto& account = server_->accounts[userName];
    if (account.zones.erase(zoneName) == 0)
        return false;
    account.deletedByUser.insert(zoneName);
    std::erase_if(account.subscriptions,
                  [&](const auto& subscription) { return subscription.second == zoneName; });
    return true;
}

namespace {

// The stored record `name` of the user's zone, under the server's lock.
template <typename Change>
bool changeStored(InMemoryServer& server, const std::string& user, const std::string& zoneName,
                  const std::string& name, Change change) {
    std::lock_guard lock(server.mutex);
    auto account = server.accounts.find(user);
    if (account == server.accounts.end())
        return false;
    auto zone = account->second.zones.find(zoneName);
    if (zone == account->second.zones.end())
        return false;
    auto stored = zone->second.records.find(name);
    if (stored == zone->second.records.end() || !change(stored->second))
        return false;
    stored->second.changeTag = std::to_string(server.nextTag++);
    CloudRecord& record = stored->second.record;
    record.systemFields = encodeSystemFields(
        {record.zoneName, record.recordType, record.recordName, stored->second.changeTag});
    InMemoryServer::touch(zone->second, stored->second);
    return true;
}

}  // namespace

bool InMemoryCloud::tamper(const std::string& userName, const std::string& zoneName,
                           const std::string& recordName) {
    return changeStored(*server_, userName, zoneName, recordName, [](auto& stored) {
        stored.unauthentic = true;
        return !stored.deleted;
    });
}

bool InMemoryCloud::forgeDeletion(const std::string& userName, const std::string& zoneName,
                                  const std::string& recordName) {
    return changeStored(*server_, userName, zoneName, recordName, [](auto& stored) {
        stored.unauthentic = true;
        stored.deleted = true;
        return true;
    });
}

bool InMemoryCloud::replay(const std::string& userName, const std::string& zoneName,
                           const std::string& recordName) {
    return changeStored(*server_, userName, zoneName, recordName, [](auto& stored) {
        if (!stored.previous)
            return false;
        stored.record = *stored.previous;
        stored.deleted = false;
        stored.unauthentic = false;
        return true;
    });
}

std::vector<CloudRecord> InMemoryCloud::records(const std::string& userName,
                                                const std::string& zoneName) const {
    std::lock_guard lock(server_->mutex);
    std::vector<CloudRecord> live;
    auto account = server_->accounts.find(userName);
    if (account == server_->accounts.end())
        return live;
    auto zone = account->second.zones.find(zoneName);
    if (zone == account->second.zones.end())
        return live;
    for (const auto& [name, stored] : zone->second.records) {
        if (!stored.deleted)
            live.push_back(stored.record);
    }
    return live;
}

InMemoryContainer::InMemoryContainer(std::shared_ptr<InMemoryServer> server, std::uint64_t device)
    : server_(std::move(server)),
      device_(device),
      database_(std::make_unique<InMemoryDatabase>(server_, device)) {}

InMemoryContainer::~InMemoryContainer() {
    std::lock_guard lock(server_->mutex);
    server_->devices.erase(device_);
}

CloudResult<CloudAccountStatus> InMemoryContainer::accountStatus() {
    std::lock_guard lock(server_->mutex);
    auto& device = server_->devices.at(device_);
    if (auto refused = server_->refuse(device, CloudOperation::accountStatus))
        return *refused;
    return device.status;
}

CloudResult<std::string> InMemoryContainer::userRecordName() {
    std::lock_guard lock(server_->mutex);
    auto& device = server_->devices.at(device_);
    if (auto refused = server_->refuse(device, CloudOperation::userRecordName))
        return *refused;
    return device.user;
}

CloudDatabase& InMemoryContainer::privateDatabase() {
    return *database_;
}

void InMemoryContainer::setPushHandler(std::function<void(const std::string&)> handler) {
    std::lock_guard lock(server_->mutex);
    auto& device = server_->devices.at(device_);
    device.push =
        handler ? std::make_shared<const InMemoryServer::PushHandler>(std::move(handler)) : nullptr;
}

void InMemoryContainer::failNext(CloudOperation operation, CloudError error) {
    std::lock_guard lock(server_->mutex);
    server_->devices.at(device_).failures.emplace_back(operation, std::move(error));
}

void InMemoryContainer::setNetworkDown(bool down) {
    std::lock_guard lock(server_->mutex);
    server_->devices.at(device_).networkDown = down;
}

void InMemoryContainer::failRecord(const std::string& recordName, std::optional<CloudError> error) {
    std::lock_guard lock(server_->mutex);
    auto& failing = server_->devices.at(device_).failingRecords;
    if (error)
        failing.insert_or_assign(recordName, std::move(*error));
    else
        failing.erase(recordName);
}

void InMemoryContainer::setAccountStatus(CloudAccountStatus status) {
    std::lock_guard lock(server_->mutex);
    server_->devices.at(device_).status = status;
}

void InMemoryContainer::setClockSkew(std::optional<double> seconds) {
    std::lock_guard lock(server_->mutex);
    server_->devices.at(device_).clockSkew = seconds;
}

std::optional<double> InMemoryContainer::clockSkew() {
    std::lock_guard lock(server_->mutex);
    return server_->devices.at(device_).clockSkew;
}

void InMemoryContainer::signIn(const std::string& userName) {
    std::lock_guard lock(server_->mutex);
    server_->devices.at(device_).user = userName;
}

}  // namespace zettly
