// The app's first sync through a local pouchdb-server, timed as the user
// sees it: from the sync switch turned on (the settings' debounced request,
// the serial sync thread and the cadence timer, all in real time, as
// AppDelegate sets them up) until device A's last text is sent, and then
// until device B, switched on after it, holds all of them. Prints the
// requests and marker reads each pass costs. A figure, never a test.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>

#include "bench/CouchBenchSupport.h"
#include "bench/RealTimeMainQueue.h"
#include "bench/SyncBenchSupport.h"
#include "platform/SerialExecutor.h"
#include "store/PrefKeys.h"
#include "sync/SyncPace.h"

using namespace zettly;
using namespace zettly::bench;
using Steady = std::chrono::steady_clock;

namespace {

constexpr auto giveUpAfter = std::chrono::minutes(12);

// The sync thread; after each piece of work it runs `check` on that same
// thread, where the stores may be read without racing the engine.
class CheckedExecutor final : public Executor {
public:
    void run(std::function<void()> work) override {
        inner_.run([this, work = std::move(work)] {
            work();
            if (check)
                check();
        });
    }
    std::function<void()> check;

private:
    SerialExecutor inner_;
};

// A device as the app runs it. Sync is off until switchOn().
struct AppDevice {
    // Every text must stay: the default limit would trim the history to 200.
    explicit AppDevice(std::unique_ptr<CouchContainer> couch) : cloud(std::move(couch)) {
        env.defaults.setInteger(prefkey::clipboardLimit, textCount);
    }

    // What the settings do when the user turns sync on: the cadence timer
    // starts and a sync is asked for half a second later.
    void switchOn() {
        env.defaults.setBool(prefkey::clipboardCloudSync, true);
        cadenceTimer =
            main.repeating(SyncCadence::tickInterval, SyncCadence::tickTolerance, [this] {
                double now =
                    std::chrono::duration<double>(Steady::now().time_since_epoch()).count();
                if (cadence.due(pace, now))
                    engine.syncInBackground("timer");
            });
        engine.syncSoon("settings", 0.5);
    }

    test::StoreEnvironment env;
    ClipboardStore texts{env.context()};
    ImageClipStore images{env.context()};
    RealTimeMainQueue main;
    CheckedExecutor background;
    test::HookedContainer cloud;
    ClipCloudSync engine{
        {&cloud, texts, images, env.defaults, env.clock, env.log, main, background},
        ClipCloudSync::Role::mac};
    SyncPace pace;
    SyncCadence cadence;
    std::unique_ptr<Timer> cadenceTimer;
};

struct Timed {
    bool finished = false;
    double seconds = 0;
    int passes = 0;
    std::size_t requests = 0;
    std::size_t markerReads = 0;
};

// Switches `device` on and waits until `done` holds after a piece of sync work.
template <typename Done>
Timed timeFromSwitchOn(AppDevice& device, const test::PouchServer& server, Done done) {
    server.settle();
    const auto before = server.requests();
    std::atomic<bool> finished{false};
    std::atomic<double> at{0};
    const auto start = Steady::now();
    device.background.check = [&] {
        if (!finished && done()) {
            at = std::chrono::duration<double>(Steady::now() - start).count();
            finished = true;
        }
    };
    device.switchOn();
    Timed timed;
    timed.finished = device.main.runUntil([&] { return finished.load(); }, giveUpAfter);
    timed.seconds =
        timed.finished ? at.load() : std::chrono::duration<double>(Steady::now() - start).count();
    device.cadenceTimer.reset();
    device.env.defaults.setBool(prefkey::clipboardCloudSync, false);
    // Work already queued finishes before the figures are read.
    std::atomic<bool> idle{false};
    device.background.run([&] { idle = true; });
    device.main.runUntil([&] { return idle.load(); }, std::chrono::minutes(2));
    device.background.check = nullptr;
    timed.passes = device.cloud.passes;
    server.settle();
    const auto after = server.requests();
    for (auto it = after.begin() + static_cast<std::ptrdiff_t>(before.size()); it != after.end();
         ++it) {
        if (*it == "GET /")
            continue;  // settle()'s own
        ++timed.requests;
        if (*it == "GET /zettly/zettly-marker")
            ++timed.markerReads;
    }
    return timed;
}

void report(const char* what, const Timed& timed, double target) {
    std::printf("%s\n", what);
    std::printf("  finished:      %s\n", timed.finished ? "yes" : "NO (gave up)");
    std::printf("  from switch-on: %8.2f s   target < %.0f s  %s\n", timed.seconds, target,
                timed.finished && timed.seconds < target ? "ok" : "MISSED");
    std::printf("  passes:        %d\n", timed.passes);
    if (timed.passes > 0)
        std::printf("  per pass:      %.1f requests, %.2f marker reads (%zu and %zu in all)\n",
                    double(timed.requests) / timed.passes, double(timed.markerReads) / timed.passes,
                    timed.requests, timed.markerReads);
}

}  // namespace

int main() {
    test::PouchServer server(ZETTLY_POUCHDB_SERVER);
    if (!startServer(server))
        return 1;
    test::RecordingLog log;
    AppDevice a(couchBackend(server, log));
    for (int i = 0; i < textCount; ++i) {
        a.texts.insert("Clipboard entry " + std::to_string(i) +
                       ": meeting notes, invoice numbers and a link https://example.com/" +
                       std::to_string(i * 7919));
        a.env.clock.advance(0.1);
    }
    std::printf("device A: %zu texts\n", a.texts.fetch(textCount + 1, 0).size());

    Timed upload = timeFromSwitchOn(a, server, [&] { return a.texts.syncPending(1).empty(); });
    AppDevice b(couchBackend(server, log));
    b.env.clock.set(a.env.clock.now());
    Timed download = timeFromSwitchOn(b, server, [&] {
        return b.texts.fetch(textCount + 1, 0).size() == std::size_t(textCount);
    });

    std::printf("\n");
    report("device A, first upload of 10,000 texts:", upload, 15);
    report("device B, first download of them:", download, 10);
    for (const auto& line : log.lines())
        std::printf("log: %s\n", line.c_str());
    return upload.finished && download.finished ? 0 : 1;
}
