#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/CloudDatabase.h"

namespace zettly {

class InMemoryContainer;
class InMemoryServer;

// A cloud server held in memory, with the behaviour sync has to cope with on
// the real service: change tags and save conflicts, change feeds in pages
// with tokens that expire when a zone is re-created, zones that disappear,
// pushes to the user's other devices. Several devices (containers), signed
// in as the same or different users, share one server, so a test can run
// two sync engines against each other in one process. Safe to use from any
// thread; a container may outlive the InMemoryCloud it came from.
//
//   InMemoryCloud cloud;
//   auto laptop = cloud.container("ann");
//   auto desktop = cloud.container("ann");
//   desktop->setPushHandler([&](const std::string&) { desktopSync.syncSoon(); });
//   laptop->setNetworkDown(true);   // the laptop's next calls fail with networkFailure
class InMemoryCloud {
public:
    InMemoryCloud();
    ~InMemoryCloud();
    InMemoryCloud(const InMemoryCloud&) = delete;
    InMemoryCloud& operator=(const InMemoryCloud&) = delete;

    // A new device signed in as `userName`, which is also its user record
    // name.
    std::unique_ptr<InMemoryContainer> container(const std::string& userName);

    // Records and deletions per change-feed answer (at least 1; 200 at first).
    void setPageSize(std::size_t records);

    // The user removed the zone's data from their account settings: the
    // zone is gone, and until a device saves it again every call about it
    // fails with userDeletedZone. False when there was no such zone.
    bool deleteZoneByUser(const std::string& userName, const std::string& zoneName);

    // A server that is not trusted with integrity, as the end-to-end check
    // of a real backend sees it. The record's stored version now fails the
    // check (changed or written without the key): every device reads it as
    // unauthenticRecord until one saves over it.
    bool tamper(const std::string& userName, const std::string& zoneName,
                const std::string& recordName);
    // The record is deleted by something without the key (a bare deletion):
    // devices read it as unauthenticRecord, never as a deletion.
    bool forgeDeletion(const std::string& userName, const std::string& zoneName,
                       const std::string& recordName);
    // The record's previous version comes back (authentic, but old), as a
    // new change.
    bool replay(const std::string& userName, const std::string& zoneName,
                const std::string& recordName);

    // The zone's records as stored, all fields, sorted by name; for checking
    // what reached the server.
    std::vector<CloudRecord> records(const std::string& userName,
                                     const std::string& zoneName) const;

private:
    std::shared_ptr<InMemoryServer> server_;
};

// The calls of a device, to aim an injected failure at.
enum class CloudOperation {
    any,
    accountStatus,
    userRecordName,
    saveZones,
    deleteZones,
    saveSubscription,
    fetchRecords,
    modifyRecords,
    zoneChanges,
};

// One device. Besides the CloudContainer calls it offers fault injection,
// which affects this device only. The account status is the device's own
// knowledge and is answered even with the network down.
class InMemoryContainer final : public CloudContainer {
public:
    ~InMemoryContainer() override;

    CloudResult<CloudAccountStatus> accountStatus() override;
    CloudResult<std::string> userRecordName() override;
    CloudDatabase& privateDatabase() override;
    // Runs on the thread of the other device's save, after the server has
    // released its lock, so the handler may call the server. Pushes are
    // lost while this device is offline or has no available account.
    void setPushHandler(std::function<void(const std::string& subscriptionID)> handler) override;

    // The next call of `operation` (any call for `any`) fails with `error`.
    // Queued failures are used up in the order they were added; this is
    // also how an expired change token is simulated.
    void failNext(CloudOperation operation, CloudError error);
    // Every server call fails with networkFailure until switched back.
    void setNetworkDown(bool down);
    // Saves and deletions of records of this name fail with `error`, each
    // record alone, until cleared with none.
    void failRecord(const std::string& recordName, std::optional<CloudError> error);
    // noAccount and the like: the user and database calls fail with
    // notAuthenticated.
    void setAccountStatus(CloudAccountStatus status);
    // Another user signs in on this device: from now on it sees that user's
    // zones and record name.
    void signIn(const std::string& userName);
    // What clockSkew() answers: this device's clock against the server's.
    void setClockSkew(std::optional<double> seconds);
    std::optional<double> clockSkew() override;

private:
    friend class InMemoryCloud;
    InMemoryContainer(std::shared_ptr<InMemoryServer> server, std::uint64_t device);

    std::shared_ptr<InMemoryServer> server_;
    std::uint64_t device_;
    std::unique_ptr<CloudDatabase> database_;
};

}  // namespace zettly
