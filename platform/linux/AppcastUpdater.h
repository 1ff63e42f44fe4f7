#pragma once

#include <QByteArray>
#include <QString>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Updater.h"

class QNetworkAccessManager;

namespace zettly {

class Defaults;

// One release as an appcast item describes it.
struct AppcastRelease {
    // Compared with the running version: sparkle:version, else the short one.
    // A Linux feed writes the same dotted version the program reports.
    std::string version;
    // Shown to the user: sparkle:shortVersionString, else the version.
    std::string displayVersion;
    std::string releaseNotesUrl;  // http(s) only, else empty
    std::string downloadUrl;      // the enclosure, else the item's link; http(s) only
};

// What a feed offers: its newest release, or why there is none (a sentence
// for the user).
struct AppcastReading {
    std::optional<AppcastRelease> newest;
    QString error;
};

// Reads a Sparkle appcast (RSS 2.0 with the sparkle namespace). Versions may
// sit on the enclosure or in elements of their own; items on a named channel
// (betas) and delta enclosures are passed over; minimum system versions are
// ignored.
AppcastReading readAppcast(const QByteArray& xml);

// Update checks against a Sparkle appcast fetched over HTTPS. Plain http is
// accepted only for a loopback host (a feed served by a test or a local
// mirror). Without a feed address it does nothing.
class AppcastUpdater final : public Updater {
public:
    static constexpr std::string_view feedUrlKey = "SUFeedURL";
    static constexpr std::string_view automaticChecksKey = "SUEnableAutomaticChecks";
    // Set, even to nothing, it replaces the preference: packagers and tests
    // point the program elsewhere or turn checks off.
    static constexpr const char* feedEnvironment = "ZETTLY_UPDATE_FEED";

    static constexpr int timeoutMilliseconds = 15'000;
    static constexpr int maximumRedirects = 5;
    static constexpr qint64 maximumFeedBytes = 1 << 20;

    // `runningVersion` is the program's own, e.g. "0.1.0".
    AppcastUpdater(std::string runningVersion, Defaults& defaults, MainQueue& queue,
                   const Clock& clock, Log& log);
    ~AppcastUpdater() override;

    bool configured() const override;
    bool automaticallyChecks() const override;
    void setAutomaticallyChecks(bool on) override;

    // The feed address in use, trimmed; empty when there is none.
    std::string feedUrl() const;

protected:
    void fetch(std::function<void(UpdateCheckResult)> done) override;

private:
    std::string runningVersion_;
    Defaults& defaults_;
    std::unique_ptr<QNetworkAccessManager> network_;  // made on the first check
};

}  // namespace zettly
