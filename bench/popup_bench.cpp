// History window costs: opening it (reset) over a typical history, and a
// search keystroke and a reload over the worst case the window loads, 500
// texts of 100 KB each; then the search of the whole history over 100,000
// texts of 50-2,000 bytes and over 10,000 of 100 KB. Run from any folder;
// the stores live in /dev/shm when it exists, so the figures are CPU cost
// rather than disk.
#include <atomic>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <iterator>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

#include <unistd.h>

#include <benchmark/benchmark.h>

#include "bench/BenchSupport.h"
#include "platform/Clock.h"
#include "platform/Defaults.h"
#include "platform/Log.h"
#include "platform/SerialExecutor.h"
#include "popup/PopupModel.h"
#include "store/ChipOrder.h"
#include "store/ClipboardStore.h"
#include "store/ImageClipStore.h"
#include "store/PrefKeys.h"
#include "store/Sql.h"
#include "tests/fakes/ManualMainQueue.h"
#include "tests/fakes/TestImages.h"

namespace fs = std::filesystem;
using namespace zettly;

using namespace zettly::bench;

namespace {

// A deterministic stream of words: mostly plain English, some capitalised,
// and in every fourth text some accented and Cyrillic words, so that the
// folding takes both of its paths.
class Prose {
public:
    explicit Prose(std::uint32_t seed) : state_(seed * 2654435761u + 1) {}

    std::string text(std::size_t bytes, bool foreign) {
        static const char* const plain[] = {
            "the",      "meeting", "notes",  "build",  "review",   "deploy",  "server", "and",
            "Thursday", "with",    "please", "report", "customer", "invoice", "London", "of",
            "function", "return",  "value",  "a",      "to",       "in",      "Anna",   "draft"};
        static const char* const accented[] = {"Café", "Müller", "naïve", "façade",
                                               "Ærø",  "привет", "Straße"};
        std::string out;
        out.reserve(bytes + 16);
        while (out.size() < bytes) {
            std::uint32_t r = next();
            if (foreign && r % 9 == 0)
                out += accented[(r >> 8) % std::size(accented)];
            else
                out += plain[(r >> 8) % std::size(plain)];
            out += (r >> 20) % 11 == 0 ? ".\n" : " ";
        }
        out.resize(bytes);
        // Never cut a multi-byte character in half.
        while (!out.empty() && (static_cast<unsigned char>(out.back()) & 0xC0) == 0x80)
            out.pop_back();
        if (!out.empty() && static_cast<unsigned char>(out.back()) >= 0xC0)
            out.pop_back();
        return out;
    }

private:
    std::uint32_t next() {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 17;
        state_ ^= state_ << 5;
        return state_;
    }
    std::uint32_t state_;
};

// A main queue the benchmark's thread empties when it chooses, for work
// posted by a real background thread.
class PumpedQueue final : public MainQueue {
public:
    void post(std::function<void()> work) override {
        std::lock_guard lock(mutex_);
        work_.push_back(std::move(work));
        ready_.notify_one();
    }
    void postAfter(double, std::function<void()> work) override { post(std::move(work)); }
    std::unique_ptr<Timer> repeating(double, double, std::function<void()>) override {
        throw std::logic_error("the history window sets no timers");
    }
    // Waits for the next posted work and runs it.
    void runNext() {
        std::function<void()> next;
        {
            std::unique_lock lock(mutex_);
            ready_.wait(lock, [this] { return !work_.empty(); });
            next = std::move(work_.front());
            work_.pop_front();
        }
        next();
    }
    void drop() {
        std::lock_guard lock(mutex_);
        work_.clear();
    }

private:
    std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<std::function<void()>> work_;
};

// Both stores over a fresh folder in memory-backed storage.
struct Stores {
    fs::path dir;
    SteppingClock clock;
    QuietLog log;
    std::unique_ptr<Defaults> defaults;
    std::unique_ptr<ClipboardStore> texts;
    std::unique_ptr<ImageClipStore> images;
    std::unique_ptr<ChipOrder> order;

    explicit Stores(std::int64_t limit) {
        fs::path base =
            fs::is_directory("/dev/shm") ? fs::path("/dev/shm") : fs::temp_directory_path();
        std::string pattern = (base / "zettly-popup-bench-XXXXXX");
        if (!::mkdtemp(pattern.data()))
            throw std::runtime_error("mkdtemp failed in " + base.string());
        dir = pattern;
        defaults = std::make_unique<Defaults>(dir / "defaults.json", clock, log);
        defaults->setInteger(prefkey::clipboardLimit, limit);
        fs::path container = dir / "container";
        StoreContext context{*defaults, [container] { return std::optional(container); }, clock,
                             log};
        texts = std::make_unique<ClipboardStore>(context);
        images = std::make_unique<ImageClipStore>(context);
        order = std::make_unique<ChipOrder>(*defaults, *texts);
    }
    ~Stores() {
        order.reset();
        images.reset();
        texts.reset();
        std::error_code ec;
        fs::remove_all(dir, ec);
    }
};

// `count` texts of about `bytes` each (a few pinned) and `pictures` images,
// copied one by one.
struct History : Stores {
    test::FakeClock queueClock;
    test::ManualMainQueue queue{queueClock};
    test::ManualExecutor searches;
    std::unique_ptr<PopupModel> model;

    History(int count, std::size_t bytes, int pictures) : Stores(1000) {
        model = std::make_unique<PopupModel>(*texts, *images, *order, searches, queue);

        Prose prose(static_cast<std::uint32_t>(count));
        for (int i = 0; i < count; ++i) {
            // Leading words make every text distinct and give the early match.
            std::string text = "Report " + std::to_string(i) + ": " +
                               prose.text(bytes - 20 + (i * 37) % 40, i % 4 == 0);
            if (texts->insert(text) != ClipboardStore::InsertResult::inserted)
                throw std::runtime_error("insert failed");
            if (i % 50 == 0)
                texts->setPinned(texts
                                     ->fetch(1, 0, std::nullopt, false,
                                             ClipboardStore::CategoryFilter::any(), true)
                                     .at(0)
                                     .id,
                                 true);
        }
        for (int i = 0; i < pictures; ++i) {
            auto png = test::png(40 + i, 30, test::noise(static_cast<std::uint32_t>(i)));
            if (images->save(png) != ImageClipStore::SaveResult::saved)
                throw std::runtime_error("image save failed");
        }
        model->reset();
        if (model->allCount() != static_cast<std::size_t>(count + pictures))
            throw std::runtime_error("the history is not complete");
    }
    ~History() { model.reset(); }
    // These figures are the keystroke's work on the main thread; the search
    // of the whole history it starts is stopped untimed.
    void dropSearch() {
        model->stopSearching();
        searches.runAll();
    }
};

// `count` texts whose sizes spread over [minBytes, maxBytes], written in one
// transaction (copying them one by one would take most of an hour), plus
// a few images; one text in 500 pinned. Each model has the executor it is
// timed with: a manual one run to the end, or a real thread.
struct LongHistory : Stores {
    test::FakeClock queueClock;
    test::ManualMainQueue manualQueue{queueClock};
    test::ManualExecutor manual;
    std::unique_ptr<PopupModel> stepped;  // over `manual` and `manualQueue`
    PumpedQueue pumped;
    SerialExecutor thread;
    std::unique_ptr<PopupModel> threaded;  // over `thread` and `pumped`

    LongHistory(int count, std::size_t minBytes, std::size_t maxBytes) : Stores(count) {
        texts->fetch(1, 0);  // creates the file
        double start = 0;
        {
            sql::Database db;
            db.open(dir / "container" / "Library" / "clipboard.sqlite");
            db.exec("BEGIN");
            sql::Statement st = db.prepare(
                "INSERT INTO items(id, text, hash, type, created, pinned) VALUES(?,?,?,?,?,?)");
            Prose prose(static_cast<std::uint32_t>(count));
            start = clock.now();
            for (int i = 0; i < count; ++i) {
                const std::size_t bytes =
                    minBytes + (std::size_t(i) * 7919u) % (maxBytes - minBytes + 1);
                std::string text =
                    "Report " + std::to_string(i) + ": " + prose.text(bytes, i % 4 == 0);
                st.reset();
                st.bind(1, "bench-" + std::to_string(i));
                st.bind(2, text);
                st.bind(3, ClipboardStore::hash(text));
                st.bind(4, ClipboardStore::detectType(text));
                st.bind(5, start + i * 0.001);
                st.bind(6, i % 500 == 7);
                if (st.step() != SQLITE_DONE)
                    throw std::runtime_error("insert failed");
            }
            db.exec("COMMIT");
        }
        // As the app's start-up does: what was written behind the store's
        // back goes into the search index before anyone searches.
        if (!texts->purgeSearchIndex())
            throw std::runtime_error("indexing failed");
        // Past the written times, as the clock of a later session.
        const double end = start + count * 0.001 + 1;
        while (clock.now() < end) {
        }
        for (int i = 0; i < 15; ++i) {
            auto png = test::png(40 + i, 30, test::noise(static_cast<std::uint32_t>(i)));
            if (images->save(png) != ImageClipStore::SaveResult::saved)
                throw std::runtime_error("image save failed");
        }
        stepped = std::make_unique<PopupModel>(*texts, *images, *order, manual, manualQueue);
        threaded = std::make_unique<PopupModel>(*texts, *images, *order, thread, pumped);
        stepped->reset();
        threaded->reset();
        if (stepped->allCount() != PopupModel::textLimit + 15)
            throw std::runtime_error("the history is not complete");
    }
    ~LongHistory() {
        stepped.reset();
        threaded.reset();
    }
    // Runs the stepped model's search until it finishes or pauses.
    void settle() {
        do {
            manual.runAll();
            manualQueue.runPending();
        } while (manual.pendingCount() > 0);
    }
};

History& typical() {
    static History history(500, 200, 15);
    return history;
}

History& huge() {
    static History history(500, ClipboardStore::maxTextBytes - 60, 0);
    return history;
}

void openWindow(benchmark::State& state) {
    History& history = typical();
    for (auto _ : state)
        history.model->reset();
}

// Alternating two queries keeps each iteration a real keystroke.
void keystroke(benchmark::State& state, const char* a, const char* b, std::size_t expected) {
    History& history = huge();
    bool flip = false;
    for (auto _ : state) {
        history.model->setQuery((flip = !flip) ? a : b);
        if (history.model->entries().size() != expected)
            state.SkipWithError("unexpected number of matches");
        state.PauseTiming();
        history.dropSearch();
        state.ResumeTiming();
    }
    history.model->setQuery("");
}

// Emptying the search after a query found nowhere: every entry comes back.
void clearSearch(benchmark::State& state) {
    History& history = huge();
    for (auto _ : state) {
        state.PauseTiming();
        history.model->setQuery("qzxv");
        history.dropSearch();
        state.ResumeTiming();
        history.model->setQuery("");
    }
}

void reloadHuge(benchmark::State& state) {
    History& history = huge();
    for (auto _ : state)
        history.model->reload();
}

LongHistory& manySmall() {
    static LongHistory history(100'000, 50, 2'000);
    return history;
}

LongHistory& manyLarge() {
    static LongHistory history(10'000, ClipboardStore::maxTextBytes - 200,
                               ClipboardStore::maxTextBytes - 60);
    return history;
}

// A query found nowhere, from the keystroke until the search of the whole
// history has read its last row: the in-memory filter, the candidates and
// every slice of matches.
void searchNowhere(benchmark::State& state, LongHistory& (*history)()) {
    LongHistory& h = history();
    bool flip = false;
    for (auto _ : state) {
        h.stepped->setQuery((flip = !flip) ? "qzxv" : "qzxvw");
        h.settle();
        if (!h.stepped->entries().empty() || h.stepped->searching())
            state.SkipWithError("found something");
    }
    h.stepped->setQuery("");
}

// The same keystroke's share on the main thread: the in-memory filter.
void keystrokeInMemory(benchmark::State& state, LongHistory& (*history)(), const char* a,
                       const char* b) {
    LongHistory& h = history();
    bool flip = false;
    for (auto _ : state) {
        h.stepped->setQuery((flip = !flip) ? a : b);
        state.PauseTiming();
        h.stepped->stopSearching();
        h.manual.runAll();  // the stopped search ends at once
        state.ResumeTiming();
    }
    h.stepped->setQuery("");
}

// A common word: the first screen comes from memory at the keystroke
// (keystroke_in_memory); this is the time until the first slice of finds
// beyond the loaded texts has arrived from the search thread.
void firstDeepResults(benchmark::State& state, LongHistory& (*history)()) {
    LongHistory& h = history();
    bool flip = false;
    for (auto _ : state) {
        h.threaded->setQuery((flip = !flip) ? "meeting" : "meetin");
        const std::size_t loaded = h.threaded->entries().size();
        while (h.threaded->entries().size() == loaded && h.threaded->searching())
            h.pumped.runNext();
        state.PauseTiming();
        if (h.threaded->entries().size() == loaded)
            state.SkipWithError("nothing found beyond the loaded texts");
        h.threaded->stopSearching();
        // The thread finishes its slice; then nothing more is posted.
        std::atomic<bool> idle = false;
        h.thread.run([&idle] { idle = true; });
        while (!idle)
            std::this_thread::yield();
        h.pumped.drop();
        state.ResumeTiming();
    }
    h.threaded->setQuery("");
}

// Opening the window over the long history: the store's newest 500 and the
// images, as with any history.
void openLong(benchmark::State& state, LongHistory& (*history)()) {
    LongHistory& h = history();
    for (auto _ : state)
        h.stepped->reset();
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::RegisterBenchmark("reset/500x200B+15img", openWindow)->Unit(benchmark::kMillisecond);
    // All pinned texts are off the All chip, so under it 490 of 500 show.
    benchmark::RegisterBenchmark("keystroke_nowhere_rare/500x100KB", keystroke, "qzxv", "qzxvw",
                                 std::size_t{0})
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("keystroke_nowhere_common/500x100KB", keystroke, "then the ",
                                 "then the t", std::size_t{0})
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("keystroke_early_match/500x100KB", keystroke, "report", "report ",
                                 std::size_t{490})
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("clear_search/500x100KB", clearSearch)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("reload/500x100KB", reloadHuge)->Unit(benchmark::kMillisecond);
    struct Long {
        const char* name;
        LongHistory& (*history)();
    };
    for (const Long& l : {Long{"100000x50-2000B", &manySmall}, Long{"10000x100KB", &manyLarge}}) {
        const std::string n = l.name;
        benchmark::RegisterBenchmark(("reset/" + n).c_str(), openLong, l.history)
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("keystroke_in_memory_nowhere/" + n).c_str(),
                                     keystrokeInMemory, l.history, "qzxv", "qzxvw")
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("keystroke_in_memory_common/" + n).c_str(), keystrokeInMemory,
                                     l.history, "meeting", "meetin")
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("search_nowhere_to_finished/" + n).c_str(), searchNowhere,
                                     l.history)
            ->Unit(benchmark::kMillisecond)
            ->Iterations(3);
        benchmark::RegisterBenchmark(("first_deep_results_common/" + n).c_str(), firstDeepResults,
                                     l.history)
            ->Unit(benchmark::kMillisecond)
            ->Iterations(5);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
