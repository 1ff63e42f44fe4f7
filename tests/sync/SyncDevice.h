#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "store/ClipboardStore.h"
#include "store/ImageClipStore.h"
#include "store/PrefKeys.h"
#include "sync/ClipCloudSync.h"
#include "tests/fakes/InMemoryCloud.h"
#include "tests/fakes/ManualMainQueue.h"
#include "tests/fakes/SqlRows.h"
#include "tests/fakes/StoreFixture.h"

namespace zettly::test {

// A device's view of the server that counts passes (each starts with the
// account status) and user checks, records each change fetch's token, and can
// run something before a save (another device's save landing mid-pass) or
// fail a chosen change fetch.
class HookedContainer final : public CloudContainer, private CloudDatabase {
public:
    explicit HookedContainer(std::unique_ptr<InMemoryContainer> device)
        : inner(device.get()), base_(std::move(device)) {}
    // Any other backend (CouchDB); `inner` is then null.
    explicit HookedContainer(std::unique_ptr<CloudContainer> backend) : base_(std::move(backend)) {}

    CloudResult<CloudAccountStatus> accountStatus() override {
        ++passes;
        return base_->accountStatus();
    }
    CloudResult<std::string> userRecordName() override {
        ++userChecks;
        return base_->userRecordName();
    }
    CloudDatabase& privateDatabase() override { return *this; }
    void setPushHandler(std::function<void(const std::string&)> handler) override {
        base_->setPushHandler(std::move(handler));
    }
    std::optional<double> clockSkew() override { return base_->clockSkew(); }
    void passBegins() override { base_->passBegins(); }
    void passEnds() override { base_->passEnds(); }
    // The device is given other settings (a new passphrase): its next call
    // goes to this backend.
    void replaceBackend(std::unique_ptr<CloudContainer> backend) {
        inner = nullptr;
        base_ = std::move(backend);
    }

    InMemoryContainer* inner = nullptr;  // fault injection on the in-memory server
    int passes = 0;
    int userChecks = 0;
    std::vector<CloudBytes> fetchedSince;
    std::vector<std::string> fetchedRecords;  // names asked for by fetchRecords
    std::function<void()> beforeNextSave;     // used up by the save it precedes
    std::function<std::optional<CloudError>()> beforeFetch;

private:
    CloudDatabase& db() { return base_->privateDatabase(); }
    CloudResult<> saveZones(const std::vector<std::string>& names) override {
        return db().saveZones(names);
    }
    CloudResult<> deleteZones(const std::vector<std::string>& names) override {
        return db().deleteZones(names);
    }
    CloudResult<> saveSubscription(const CloudSubscription& subscription) override {
        return db().saveSubscription(subscription);
    }
    CloudResult<std::vector<CloudPerRecord<CloudRecord>>> fetchRecords(
        const std::vector<CloudRecordID>& ids, const CloudDesiredKeys& keys) override {
        for (const auto& id : ids)
            fetchedRecords.push_back(id.recordName);
        return db().fetchRecords(ids, keys);
    }
    CloudResult<CloudModifyResults> modifyRecords(const std::vector<CloudRecord>& saves,
                                                  const std::vector<CloudRecordID>& deletes,
                                                  CloudSavePolicy policy, bool atomic) override {
        if (auto hook = std::exchange(beforeNextSave, nullptr))
            hook();
        return db().modifyRecords(saves, deletes, policy, atomic);
    }
    CloudResult<CloudZoneChanges> zoneChanges(const std::string& zone, const CloudBytes& since,
                                              const CloudDesiredKeys& keys,
                                              std::size_t limit) override {
        fetchedSince.push_back(since);
        if (auto failure = beforeFetch ? beforeFetch() : std::nullopt)
            return *failure;
        return db().zoneChanges(zone, since, keys, limit);
    }

    std::unique_ptr<CloudContainer> base_;
};

// One device with its own folder, defaults, clock, stores and queues, and a
// sync engine (role mac, sync on) over the shared server.
struct SyncDevice {
    using Role = ClipCloudSync::Role;

    SyncDevice(InMemoryCloud& server, const std::string& user, Role role = Role::mac)
        : SyncDevice(std::unique_ptr<InMemoryContainer>(server.container(user)), role) {}
    template <typename Backend>
    explicit SyncDevice(std::unique_ptr<Backend> backend, Role role = Role::mac)
        : cloud(std::move(backend)) {
        env.defaults.setBool(prefkey::clipboardCloudSync, true);
        env.defaults.setInteger(prefkey::clipboardLimit, 1000);
        engine.setRole(role);
        engine.didChange = [this] { ++changesPosted; };
    }

    std::string copy(const std::string& text) {
        texts.insert(text);
        return idOf(text);
    }
    std::string idOf(const std::string& text) {
        for (const auto& item : texts.fetch(1000, 0))
            if (item.text == text)
                return item.id;
        return {};
    }
    bool sync() { return engine.sync("test"); }
    int posted() {  // didChange calls that reached the main queue
        main.runPending();
        return changesPosted;
    }

    // The history in a form two devices can compare, sorted, then the
    // categories in order: "text [pinned] #category @label" and
    // "image <record name, as ids differ per device> WxH [pinned] @label".
    std::vector<std::string> contents() {
        std::vector<std::string> lines;
        for (const auto& item : texts.fetch(1000, 0)) {
            std::string line = item.text + (item.pinned ? " [pinned]" : "");
            for (const auto& category : texts.categories())
                if (item.category == category.id)
                    line += " #" + category.name;
            if (item.label)
                line += " @" + *item.label;
            lines.push_back(line);
        }
        images.fetchAll();  // opens the store, which a device may not have used yet
        for (const auto& row :
             rows(env.library() / "clipmedia.sqlite",
                  "SELECT rid, w || 'x' || h, pinned, ifnull(label, '') FROM media"))
            lines.push_back("image " + row[0] + " " + row[1] + (row[2] == "1" ? " [pinned]" : "") +
                            (row[3].empty() ? "" : " @" + row[3]));
        std::sort(lines.begin(), lines.end());
        for (const auto& category : texts.categories())
            lines.push_back("category " + category.name);
        return lines;
    }
    std::optional<std::vector<std::uint8_t>> key() {
        return env.defaults.data(prefkey::clipSyncKey);
    }
    std::optional<std::string> lastError() {
        return env.defaults.string(prefkey::clipSyncLastError);
    }

    StoreEnvironment env;
    ClipboardStore texts{env.context()};
    ImageClipStore images{env.context()};
    ManualMainQueue main{env.clock};
    ManualExecutor background;
    HookedContainer cloud;
    ClipCloudSync engine{
        {&cloud, texts, images, env.defaults, env.clock, env.log, main, background}};
    int changesPosted = 0;
};

}  // namespace zettly::test
