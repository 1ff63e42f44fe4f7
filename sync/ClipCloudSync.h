#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/CloudDatabase.h"

namespace zettly {

class Clock;
class ClipboardStore;
class Defaults;
class Executor;
class ImageClipStore;
class Log;
class MainQueue;

// Keeps the text history, its categories, the image history and the chip
// order in step with the user's other devices through one record zone of
// their private cloud database. The companion keyboard app's clients use
// the same zone and records, so layouts and names are shared with them.
//
// A pass ensures the zone and the shared sync key, takes in what the other
// devices changed, sends what changed here, and leaves its outcome in the
// defaults for the settings ("clipSyncLastError" or "clipSyncLastAt"). Only
// one pass runs at a time; requests that arrive meanwhile, and batches that
// left work behind, make the running call go round again, at most four times.
// A call that still leaves work behind queues the next call on the background
// executor at once (draining), so a large history does not wait for the
// cadence timer; a pass that failed or moved nothing ends the draining until
// the next trigger.
//
//   ClipCloudSync sync({&container, texts, images, defaults, clock, log, main, background},
//                      ClipCloudSync::Role::mac);
//   texts.didChangeLocally = [&] { main.post([&] { sync.syncSoon("local", 1.5); }); };
//   sync.didChange = [&] { window.reload(); };
class ClipCloudSync {
public:
    enum class Role { app, keyboard, mac };  // raw values "app", "keyboard", "mac"

    struct Dependencies {
        CloudContainer*
            container;  // none: no backend configured; the account counts as unavailable
        ClipboardStore& texts;
        ImageClipStore& images;
        Defaults& defaults;
        const Clock& clock;
        Log& log;
        MainQueue& mainQueue;  // debounce timers and the didChange callback
        Executor& background;  // where debounced and background syncs run (blocking cloud calls)
    };

    static constexpr std::string_view zoneName = "Clipboard";
    static constexpr std::string_view subscriptionID = "clipboard-zone";
    // "clipSyncLastError" while no account (or no backend) is available: on
    // Linux that means no sync server has been set up.
    static constexpr std::string_view syncOffStatus = "Sync is not set up";
    static constexpr int maxPasses = 4;
    // Calls that follow one another at once while work is left: enough for
    // a first sync of the largest history (100,000 entries, 150 per pass).
    static constexpr int maxDrainedCalls = 200;
    static constexpr double accountCheckInterval = 600;
    // Further apart than this, this computer's clock and the server's
    // disagree: nothing destructive is synced until they agree again.
    static constexpr double maxClockSkew = 300;
    // A record that could not be taken in this many times, while others of
    // its page could, is set aside (retried each pass) so the rest can go on.
    static constexpr int maxApplyAttempts = 3;
    // Status texts (stored in "clipSyncLastError"; the settings translate them).
    static constexpr std::string_view untrustedStatus =
        "The sync server holds records Zettly did not write";
    static constexpr std::string_view applyHeldStatus =
        "Changes from other devices could not be saved on this computer";
    static constexpr std::string_view setAsideStatus =
        "Some entries from other devices could not be saved on this computer";
    static constexpr std::string_view downloadsStatus =
        "Some pictures from other devices could not be saved on this computer";
    // "Your computer's clock is 744 hours off" (or minutes, under two hours).
    static std::string clockStatus(double skewSeconds);

    explicit ClipCloudSync(Dependencies dependencies, Role role = Role::app);
    ClipCloudSync(const ClipCloudSync&) = delete;
    ClipCloudSync& operator=(const ClipCloudSync&) = delete;

    void setRole(Role role);
    Role role() const;
    static std::string_view rawValue(Role role);

    // Debounced: after `delay` seconds on the main queue, the newest request
    // runs sync() on the background executor. A negative or non-finite delay
    // counts as none.
    void syncSoon(std::string reason, double delay);
    // Runs sync() on the background executor now.
    void syncInBackground(std::string reason);
    // Blocking; single flight, at most four passes; true when local data
    // changed. Any thread but the main one. The reason is for the caller's
    // own diagnostics only. When work is left, the next call is already
    // queued on the background executor when this one returns.
    bool sync(const std::string& reason);
    // Blocking; deletes the zone and resets server state (key dropped); the
    // error when the zone could not be deleted (nothing local changes then).
    CloudResult<> deleteCloudCopy();

    // The server's data was replaced on purpose from this device (a new
    // passphrase re-keyed it): everything here goes up again, under a new
    // sync key, with the next pass.
    void serverStartedAfresh() { resetServerState(true); }

    // The backend now talks to another server or as another user: the next
    // pass asks who the user is instead of waiting for the periodic check.
    void accountMayHaveChanged() { forceUserCheck_ = true; }

    // Called on the main queue after a sync changed local data (the app
    // reloads an open window). Set before the first sync.
    std::function<void()> didChange;

private:
    using Bytes = std::vector<std::uint8_t>;

    // What an upload step left behind.
    struct SendOutcome {
        bool more = false;                   // a batch was full, or a record asks to be sent again
        std::optional<std::string> failure;  // "CloudKit <code>" of the first record that failed
    };

    // The engine is shared with the companion keyboard app, and so is the
    // prefix its lines are found by.
    static constexpr std::string_view logPrefix = "[Ovrin] ClipSync: ";
    // How a cloud error reads in "clipSyncLastError": "CloudKit 4", or the
    // backend's own words for the user when it has them.
    static std::string statusText(const CloudError& error);

    static constexpr std::int64_t textBatch = 150;
    int imageBatch() const;
    int downloadBatch() const;

    bool enabled() const;
    // One pass of every step; true when local data changed, also when a
    // later step failed. It leaves passFailed_ and moved_ for the draining.
    bool runOnce();
    // Ends a pass that met `error`: decides between a reset, a re-run and a
    // reported failure.
    void handleFailure(const CloudError& error);
    void requestRerun();
    void noteChange(bool changed);
    // Records sent, taken in or downloaded: what tells a pass that asks for
    // more from one that goes round without getting anywhere.
    void noteMoved(std::size_t count) { moved_ += count; }
    CloudResult<> checkAccount(CloudContainer& container);

    // Zone, key and server state (ClipCloudSync.cpp).
    CloudResult<> ensureZone(CloudDatabase& db);
    CloudResult<> ensureKey(CloudDatabase& db);
    CloudResult<std::optional<Bytes>> fetchKeyRecord(CloudDatabase& db);
    CloudResult<> adoptKey(const Bytes& key);
    void resetServerState(bool dropKey);
    void forgetPrefsServerState();

    // The exchange of changes (ClipExchange.cpp). The steps record what they
    // changed locally through noteChange().
    CloudResult<> fetchChanges(CloudDatabase& db);
    // What taking in a page of records (or set-aside ones) left behind.
    struct Applied {
        std::vector<std::string> failed;  // record names the stores refused
        std::size_t taken = 0;            // records and deletions taken in (or left out on purpose)
    };
    CloudResult<Applied> applyRecords(const std::vector<CloudPerRecord<CloudRecord>>& modified,
                                      const std::vector<CloudDeletion>& deleted);
    CloudResult<> takeRemoteKey(const CloudRecord& record);
    CloudResult<SendOutcome> sendChanges(CloudDatabase& db);
    CloudResult<SendOutcome> sendImages(CloudDatabase& db);
    // True when more pictures wait than one batch takes.
    CloudResult<bool> downloadImages(CloudDatabase& db);
    CloudResult<SendOutcome> sendPrefs(CloudDatabase& db);
    bool applyPrefs(const CloudRecord& record);
    bool adoptRemoteOrderIfNewer();

    // What the server cannot be trusted with (ClipDistrust.cpp).
    // Measures the clock against the server's and tells the stores.
    void checkClock(CloudContainer& container);
    bool clockAgrees() const { return clockSkew_ == 0; }
    // A record the server holds fails the end-to-end check: our copy, if
    // any, goes up again over it.
    void distrust(const CloudRecordID& id, const std::optional<CloudRecord>& server);
    // Saves our key over a key record that failed the check.
    CloudResult<> repairKeyRecord(CloudDatabase& db);
    // Decides whether a page whose `applied.failed` records were refused may
    // be passed (they are set aside); false holds the change token.
    bool setAsideIfStuck(const Applied& applied);
    CloudResult<> retrySetAside(CloudDatabase& db);
    // A picture whose bytes could not be had or kept waits before it is
    // fetched again: a minute, doubling up to an hour.
    void downloadFailed(const std::string& rid);
    bool downloadWaiting(const std::string& rid) const;
    // The first thing the user should hear of this pass, if any.
    std::optional<std::string> troubleText() const;

    CloudContainer* container_;
    ClipboardStore& texts_;
    ImageClipStore& images_;
    Defaults& defaults_;
    const Clock& clock_;
    Log& log_;
    MainQueue& mainQueue_;
    Executor& background_;
    std::atomic<Role> role_;

    std::mutex lock_;  // guards the three fields below; never held across a cloud call
    bool running_ = false;
    bool rerun_ = false;
    std::uint64_t debounceGeneration_ = 0;

    // Only touched by the pass in flight. The distant past at first, so the
    // first pass after launch always asks who is signed in.
    double userCheckedAt_;
    std::atomic<bool> forceUserCheck_{false};
    bool localChanged_ = false;

    // What this pass met; reset when it starts.
    bool passFailed_ = false;  // it ended on an error
    std::size_t moved_ = 0;
    int drainedCalls_ = 0;  // under lock_: calls chained one after another so far
    double clockSkew_ = 0;  // 0 while the clocks agree
    int untrusted_ = 0;
    bool applyHeld_ = false;
    std::optional<Bytes> keyToRepair_;  // system fields of a forged key record
    // Kept between passes of this process.
    std::map<std::string, int> applyFailures_;
    struct Backoff {
        int failures = 0;
        double notBefore = 0;
    };
    std::map<std::string, Backoff> downloadBackoff_;
};

}  // namespace zettly
