// History window costs: opening it (reset) over a typical history, and a
// search keystroke and a reload over the worst case the store allows, 500
// texts of 100 KB each. Run from any folder; the stores live in /dev/shm
// when it exists, so the figures are CPU cost rather than disk.
#include <atomic>
#include <filesystem>
#include <iterator>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include <unistd.h>

#include <benchmark/benchmark.h>

#include "bench/BenchSupport.h"
#include "platform/Clock.h"
#include "platform/Defaults.h"
#include "platform/Log.h"
#include "popup/PopupModel.h"
#include "store/ChipOrder.h"
#include "store/ClipboardStore.h"
#include "store/ImageClipStore.h"
#include "store/PrefKeys.h"
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

// Both stores over a fresh folder with `count` texts of about `bytes` each
// (a few pinned) and `pictures` images.
struct History {
    fs::path dir;
    SteppingClock clock;
    QuietLog log;
    std::unique_ptr<Defaults> defaults;
    std::unique_ptr<ClipboardStore> texts;
    std::unique_ptr<ImageClipStore> images;
    std::unique_ptr<ChipOrder> order;
    std::unique_ptr<PopupModel> model;

    History(int count, std::size_t bytes, int pictures) {
        fs::path base =
            fs::is_directory("/dev/shm") ? fs::path("/dev/shm") : fs::temp_directory_path();
        std::string pattern = (base / "zettly-popup-bench-XXXXXX");
        if (!::mkdtemp(pattern.data()))
            throw std::runtime_error("mkdtemp failed in " + base.string());
        dir = pattern;
        defaults = std::make_unique<Defaults>(dir / "defaults.json", clock, log);
        defaults->setInteger(prefkey::clipboardLimit, 1000);
        fs::path container = dir / "container";
        StoreContext context{*defaults, [container] { return std::optional(container); }, clock,
                             log};
        texts = std::make_unique<ClipboardStore>(context);
        images = std::make_unique<ImageClipStore>(context);
        order = std::make_unique<ChipOrder>(*defaults, *texts);
        model = std::make_unique<PopupModel>(*texts, *images, *order);

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
    ~History() {
        model.reset();
        order.reset();
        images.reset();
        texts.reset();
        std::error_code ec;
        fs::remove_all(dir, ec);
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
    }
    history.model->setQuery("");
}

// Emptying the search after a query found nowhere: every entry comes back.
void clearSearch(benchmark::State& state) {
    History& history = huge();
    for (auto _ : state) {
        state.PauseTiming();
        history.model->setQuery("qzxv");
        state.ResumeTiming();
        history.model->setQuery("");
    }
}

void reloadHuge(benchmark::State& state) {
    History& history = huge();
    for (auto _ : state)
        history.model->reload();
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
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
