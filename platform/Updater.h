#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace zettly {

class Clock;
class Log;
class MainQueue;
class Timer;

// Orders two version strings the way Sparkle does, so that a feed written for
// it means the same here. Each string is split into runs of digits, runs of
// other characters, and single separators ('.', '-', '_', '+', white space);
// numbers compare by value ("1.10" > "1.9", arbitrarily long), words by their
// bytes ("1.0a" < "1.0b"). Where the kinds differ a number beats a separator
// and both beat a word, so "1.0.1" > "1.0b". Trailing zero parts do not count
// ("1.0" == "1.0.0"), and a word after the common part marks a pre-release
// ("1.0b2" < "1.0", "1.0.0rc1" < "1.0").
// Returns a negative number, 0 or a positive number as a is older, the same
// or newer than b.
int compareVersions(std::string_view a, std::string_view b);

// What one check found.
struct UpdateCheckResult {
    enum class Kind {
        newer,          // a newer release is offered
        upToDate,       // the running version is the newest (or newer)
        failed,         // the feed could not be fetched or read; see `error`
        notConfigured,  // this build has no update feed
    };
    Kind kind = Kind::failed;
    std::string version{};          // newer: the version to show, e.g. "1.2.3"
    std::string releaseNotesUrl{};  // newer: http(s) link or empty
    std::string downloadUrl{};      // newer: http(s) link or empty
    std::string error{};            // failed: one sentence for the user, translated
};

// The version of an update that a background check found, or none. The tray
// icon shows a red dot and the tool tip "Zettly <version> is available." while
// it is set, and the history window shows its update row.
class UpdateNotice {
public:
    const std::optional<std::string>& version() const { return version_; }
    // Calls onChange only when the value actually changes.
    void setVersion(std::optional<std::string> version);

    std::function<void()> onChange;

private:
    std::optional<std::string> version_;
};

// Update checks: when they run and what their result does; subclasses only
// fetch and compare. Everything here runs on the main thread.
//
// A check started in the background (at launch, then daily) that finds a newer
// release sets the notice as a gentle reminder and shows nothing else. A check
// the user asked for ("Check for Updates…", the update row) never sets the
// notice; its result goes to onUserCheckResult for a dialog. When the user is
// done with that dialog, whatever it said, the app calls
// finishUpdateSession(), which clears the notice: the user has seen the update.
class Updater {
public:
    static constexpr double launchDelay = 5;
    // A laptop that sleeps overnight stops a monotonic timer, so the daily
    // check is a wall-clock test made every hour rather than a 24 h timer.
    static constexpr double recheckInterval = 24 * 60 * 60;
    static constexpr double recheckTick = 60 * 60;

    Updater(MainQueue& queue, const Clock& clock, Log& log);
    virtual ~Updater();
    Updater(const Updater&) = delete;
    Updater& operator=(const Updater&) = delete;

    // Whether this build has somewhere to look for updates. Without it the
    // updater does nothing at all.
    virtual bool configured() const = 0;
    // The user's choice (preference "SUEnableAutomaticChecks", default on).
    virtual bool automaticallyChecks() const = 0;
    virtual void setAutomaticallyChecks(bool on) = 0;

    // Configured and no check running.
    bool canCheckForUpdates() const { return configured() && !checking_; }
    bool checking() const { return checking_; }

    // The launch check after launchDelay seconds and the daily one, each only
    // when checking automatically and able to. Call once, at launch.
    void start();

    // Does nothing when it cannot check now.
    void checkInBackground();
    // The user asked. While a background check runs, its result is taken
    // over for the user instead of starting a second one.
    void checkForUpdates();
    // The user closed the result of a check they asked for.
    void finishUpdateSession();

    UpdateNotice& notice() { return notice_; }
    const UpdateNotice& notice() const { return notice_; }

    // The outcome of a check the user asked for; on the main thread.
    std::function<void(const UpdateCheckResult&)> onUserCheckResult;

protected:
    // Fetches the feed and compares it with the running version; calls
    // `done` exactly once, on the main thread, with newer, upToDate or failed
    // (possibly before returning). Called only when configured.
    virtual void fetch(std::function<void(UpdateCheckResult)> done) = 0;

private:
    void begin(bool userInitiated);
    void finished(const UpdateCheckResult& result);
    void scheduledCheck();

    MainQueue& queue_;
    const Clock& clock_;
    Log& log_;
    UpdateNotice notice_;
    bool checking_ = false;
    bool userInitiated_ = false;
    double lastCheck_ = 0;
    std::unique_ptr<Timer> recheck_;
    // Delayed work and a late fetch result may outlive the updater.
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace zettly
