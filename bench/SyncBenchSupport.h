#pragma once

// The runs that sync_bench (in-memory server) and couch_sync_bench (a local
// pouchdb-server) share: a large history on device A, its first upload, and
// device B taking it in, timed call by call.
#include <chrono>
#include <cstdio>
#include <ctime>
#include <stdexcept>
#include <string>

#include <sys/resource.h>

#include "store/PrefKeys.h"
#include "tests/fakes/TestImages.h"
#include "tests/sync/SyncDevice.h"

namespace zettly::bench {

using test::SyncDevice;

constexpr int textCount = 10'000;
constexpr int imageCount = 15;
// A run that has not converged after this many calls is reported, not waited for.
constexpr int maxCalls = 200;

inline double cpuSeconds() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    auto seconds = [](const timeval& t) { return double(t.tv_sec) + double(t.tv_usec) / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// Counts the device's saves (modifyRecords calls) by re-arming the one-shot
// hook the container offers before each save.
struct SaveCounter {
    explicit SaveCounter(SyncDevice& device) : device(device) { arm(); }
    void arm() {
        device.cloud.beforeNextSave = [this] {
            ++saves;
            arm();
        };
    }
    SyncDevice& device;
    int saves = 0;
};

struct Run {
    int calls = 0;
    int passes = 0;
    int saves = 0;
    double wall = 0;
    double cpu = 0;
    bool converged = false;
};

// Calls sync() until `done` holds, timing only the calls themselves and
// printing one line per call so a slow figure shows where the time went.
template <typename Done>
Run syncUntil(SyncDevice& device, const char* name, Done done) {
    SaveCounter counter(device);
    Run run;
    int passesBefore = device.cloud.passes;
    while (!(run.converged = done()) && run.calls < maxCalls) {
        int passes = device.cloud.passes;
        int saves = counter.saves;
        auto wallStart = std::chrono::steady_clock::now();
        double cpuStart = cpuSeconds();
        device.sync();
        double cpu = cpuSeconds() - cpuStart;
        double wall =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - wallStart).count();
        ++run.calls;
        run.wall += wall;
        run.cpu += cpu;
        std::printf("  %s sync() #%d: %d passes, %d saves, %8.1f ms wall, %8.1f ms CPU\n", name,
                    run.calls, device.cloud.passes - passes, counter.saves - saves, wall * 1e3,
                    cpu * 1e3);
    }
    run.passes = device.cloud.passes - passesBefore;
    run.saves = counter.saves;
    device.cloud.beforeNextSave = nullptr;
    return run;
}

inline void report(const char* what, const Run& run, double targetSeconds, const char* cpuNote) {
    std::printf("%s\n", what);
    std::printf("  converged:    %s\n", run.converged ? "yes" : "NO (gave up)");
    std::printf("  sync() calls: %d (%d passes, %d saves)\n", run.calls, run.passes, run.saves);
    std::printf("  wall time:    %8.3f s   target <= %.1f s  %s\n", run.wall, targetSeconds,
                run.wall <= targetSeconds ? "ok" : "MISSED");
    std::printf("  CPU time:     %8.3f s   (%s)\n", run.cpu, cpuNote);
}

inline void keepWholeHistory(SyncDevice& device) {
    // Every text must stay: the default limit would trim the history to 200.
    device.env.defaults.setInteger(prefkey::clipboardLimit, textCount);
}

inline bool nothingPending(SyncDevice& device) {
    return device.texts.syncPending(1).empty() && device.images.syncPending(1).images.empty() &&
           device.images.syncPending(1).tombstones.empty();
}

// A's history: 10,000 texts and 15 screenshots-sized images.
inline void fillHistory(SyncDevice& a) {
    // Copies a tenth of a second apart, like a long working week squeezed
    // together; all of them well inside the retention period.
    for (int i = 0; i < textCount; ++i) {
        std::string text = "Clipboard entry " + std::to_string(i) +
                           ": meeting notes, invoice numbers and a link https://example.com/" +
                           std::to_string(i * 7919);
        if (a.texts.insert(text) != ClipboardStore::InsertResult::inserted)
            throw std::runtime_error("insert failed at " + std::to_string(i));
        a.env.clock.advance(0.1);
    }
    for (int i = 0; i < imageCount; ++i) {
        auto png = test::png(640, 480, test::noise(static_cast<std::uint32_t>(i + 1)));
        if (a.images.save(png) != ImageClipStore::SaveResult::saved)
            throw std::runtime_error("image save failed at " + std::to_string(i));
        a.env.clock.advance(1);
    }
    if (a.texts.fetch(textCount + 1, 0).size() != std::size_t(textCount) ||
        a.images.fetchAll().size() != std::size_t(imageCount))
        throw std::runtime_error("device A's history is not complete");
    std::printf("device A: %d texts, %d images\n", textCount, imageCount);
}

struct Runs {
    Run upload;
    Run apply;
};

// A sends everything; B, its clock caught up with A's, takes it all in.
inline Runs uploadThenApply(SyncDevice& a, SyncDevice& b) {
    Runs runs;
    runs.upload = syncUntil(a, "A", [&] { return nothingPending(a); });

    // B's clock catches up with A's, so nothing arrives from its future.
    b.env.clock.set(a.env.clock.now());
    runs.apply = syncUntil(b, "B", [&] {
        return b.texts.fetch(textCount + 1, 0).size() == std::size_t(textCount) &&
               b.images.fetchAll().size() == std::size_t(imageCount) &&
               b.images.syncPendingDownloads(1).empty();
    });

    return runs;
}

// `cpuNote` says what the CPU figure covers.
inline int finish(SyncDevice& a, SyncDevice& b, const Runs& runs, double targetSeconds,
                  const char* cpuNote) {
    std::printf("\n");
    report("first upload, device A (10,000 texts + 15 images):", runs.upload, targetSeconds,
           cpuNote);
    report("taking it in, device B (10,000 texts + 15 image records and downloads):", runs.apply,
           targetSeconds, cpuNote);
    if (auto error = a.lastError())
        std::printf("device A's last sync error: %s\n", error->c_str());
    if (auto error = b.lastError())
        std::printf("device B's last sync error: %s\n", error->c_str());
    return runs.upload.converged && runs.apply.converged ? 0 : 1;
}

}  // namespace zettly::bench
