// Text history costs: a new copy and a re-copy into histories of several
// sizes, and the history window's fetch of 500 rows. Each case runs with the
// database on tmpfs (/dev/shm: CPU cost only) and on disk (with the journal's
// fsyncs), and reports the fsync calls per operation.
//
// `store_bench --scale` instead prints what a large history costs, on tmpfs:
// 100,000 texts of 50 to 2,000 bytes, and 10,000 of 100 KB. Per capture the
// process's CPU time over 2,000 copies (whatever work they leave for later
// done by them too) and the slowest single copy; the window's fetch of 500;
// a search for a text found nowhere (every candidate read), and for a common
// word until its first 50 matches; the search index's purge after a
// deletion.
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <dlfcn.h>
#include <sys/statfs.h>
#include <time.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include "bench/BenchSupport.h"
#include "platform/Clock.h"
#include "platform/Crypto.h"
#include "platform/Defaults.h"
#include "platform/Log.h"
#include "platform/TextSearch.h"
#include "store/ClipboardStore.h"
#include "store/PrefKeys.h"
#include "store/Sql.h"

namespace fs = std::filesystem;
using namespace zettly;

// SQLite is a shared library, so its calls to fsync and fdatasync bind to
// these definitions in the executable; they count and pass through.
using namespace zettly::bench;

namespace {
std::atomic<long> syncCalls{0};
}

extern "C" int fsync(int fd) {
    static auto real = reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "fsync"));
    ++syncCalls;
    return real(fd);
}

extern "C" int fdatasync(int fd) {
    static auto real = reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "fdatasync"));
    ++syncCalls;
    return real(fd);
}

namespace {

std::string sampleText(long n) {
    return "Meeting notes #" + std::to_string(n) +
           ": ship the build on Thursday, review https://example.com/pr/" + std::to_string(n * 7) +
           " and reply to Anna.";
}

// A store over a fresh folder, filled with `rows` unpinned texts whose
// history limit is `rows` (filled directly, in one transaction, so that a
// 5,000-row history on disk takes seconds rather than minutes).
struct History {
    fs::path dir;
    SteppingClock clock;
    QuietLog log;
    std::unique_ptr<Defaults> defaults;
    std::unique_ptr<ClipboardStore> store;

    History(const fs::path& base, long rows) {
        std::string pattern = (base / "zettly-bench-XXXXXX");
        if (!::mkdtemp(pattern.data()))
            throw std::runtime_error("mkdtemp failed in " + base.string());
        dir = pattern;
        defaults = std::make_unique<Defaults>(dir / "defaults.json", clock, log);
        defaults->setInteger(prefkey::clipboardLimit, rows);
        defaults->setData(prefkey::clipSyncKey, crypto::randomBytes(32));
        fs::path container = dir / "container";
        store = std::make_unique<ClipboardStore>(
            StoreContext{*defaults, [container] { return std::optional(container); }, clock, log});
        store->fetch(1, 0);  // opens and creates the schema

        sql::Database db;
        db.open(container / "Library" / "clipboard.sqlite");
        db.exec("BEGIN");
        auto key = defaults->data(prefkey::clipSyncKey);
        for (long i = 0; i < rows; ++i) {
            std::string text = sampleText(-1 - i);
            sql::Statement st = db.prepare(
                "INSERT INTO items(id, text, hash, type, created, pinned, modified, dirty, rid) "
                "VALUES(?,?,?,?,?,0,?,1,?)");
            st.bind(1, crypto::newUUID());
            st.bind(2, text);
            st.bind(3, ClipboardStore::hash(text));
            st.bind(4, ClipboardStore::detectType(text));
            st.bind(5, clock.now());
            st.bind(6, clock.now());
            st.bind(7, ClipboardStore::recordName(text, key));
            st.run();
        }
        db.exec("COMMIT");
    }
    ~History() {
        store.reset();
        std::error_code ec;
        fs::remove_all(dir, ec);
    }
};

struct Medium {
    const char* name;
    fs::path base;
};

void reportSyncs(benchmark::State& state, long before) {
    state.counters["fsync/op"] = benchmark::Counter(static_cast<double>(syncCalls - before) /
                                                    static_cast<double>(state.iterations()));
}

void insertNew(benchmark::State& state, const Medium* medium, long rows) {
    History history(medium->base, rows);
    long n = 0;
    long before = syncCalls;
    for (auto _ : state) {
        auto result = history.store->insert(sampleText(++n));
        if (result != ClipboardStore::InsertResult::inserted)
            state.SkipWithError("insert failed");
    }
    reportSyncs(state, before);
}

void insertRecopy(benchmark::State& state, const Medium* medium, long rows) {
    History history(medium->base, rows);
    long n = 0;
    long before = syncCalls;
    for (auto _ : state) {
        // Texts from all over the history, as a user re-copies old snippets.
        auto result = history.store->insert(sampleText(-1 - (n++ * 37) % rows));
        if (result != ClipboardStore::InsertResult::movedToTop)
            state.SkipWithError("re-copy was not recognised");
    }
    reportSyncs(state, before);
}

void fetch500(benchmark::State& state, const Medium* medium) {
    History history(medium->base, 500);
    long before = syncCalls;
    for (auto _ : state) {
        auto items = history.store->fetch(500, 0);
        if (items.size() != 500)
            state.SkipWithError("fetch returned the wrong count");
        benchmark::DoNotOptimize(items);
    }
    reportSyncs(state, before);
}

// Opening the history at start-up, first statement included: the file is
// checked then. 500 texts of 100 KB, the largest history the limits allow.
void openLargeHistory(benchmark::State& state, const Medium* medium) {
    History history(medium->base, 500);
    fs::path container = history.dir / "container";
    {
        sql::Database db;
        db.open(container / "Library" / "clipboard.sqlite");
        db.exec("UPDATE items SET text = text || printf('%.*c', 100000 - length(text), 'x')");
    }
    state.counters["MB"] =
        static_cast<double>(fs::file_size(container / "Library" / "clipboard.sqlite")) / 1e6;
    for (auto _ : state) {
        ClipboardStore store(StoreContext{*history.defaults,
                                          [container] { return std::optional(container); },
                                          history.clock, history.log});
        if (store.fetch(1, 0).size() != 1)
            state.SkipWithError("the history did not open");
    }
}

std::string fsType(const fs::path& p) {
    struct statfs s {};
    if (::statfs(p.c_str(), &s) != 0)
        return "?";
    return s.f_type == 0x01021994 ? "tmpfs" : "disk";
}

// ---- --scale ---------------------------------------------------------------

double cpuSeconds() {
    timespec t{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

double wallSeconds() {
    timespec t{};
    ::clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

// Texts of words, so that trigrams repeat as in real prose; "notes" is in
// about one text in ten, "zq7xw" in none.
class TextMaker {
public:
    std::string make(std::size_t minBytes, std::size_t maxBytes) {
        static const char* words[] = {
            "the",    "build",   "ship",    "review",  "Thursday", "Anna",    "café",
            "deploy", "server",  "config",  "release", "branch",   "merge",   "commit",
            "ticket", "invoice", "address", "phone",   "password", "weather", "report",
            "draft",  "budget",  "summary", "agenda",  "Straße",   "naïve",   "résumé",
            "kernel", "module",  "vector",  "string",  "buffer",   "socket",  "thread"};
        std::uniform_int_distribution<std::size_t> size(minBytes, maxBytes);
        std::uniform_int_distribution<std::size_t> pick(0, std::size(words) - 1);
        std::uniform_int_distribution<int> rare(0, 399);
        std::uniform_int_distribution<int> number(0, 999999);
        const std::size_t target = size(random_);
        std::string text = std::to_string(++serial_) + " ";
        while (text.size() < target) {
            text += rare(random_) == 0 ? "notes" : words[pick(random_)];
            text += ' ';
            text += std::to_string(number(random_));
            text += ' ';
        }
        // Cut at the limit, and back to the last ASCII byte so that no
        // character is left broken.
        text.resize(std::min(text.size(), maxBytes));
        while (!text.empty() && static_cast<unsigned char>(text.back()) >= 0x80)
            text.pop_back();
        return text;
    }

private:
    std::mt19937 random_{42};
    long serial_ = 0;
};

void scaleCase(const char* name, long rows, std::size_t minBytes, std::size_t maxBytes,
               long copies) {
    fs::path base = "/dev/shm";
    std::string pattern = (base / "zettly-scale-XXXXXX");
    if (!::mkdtemp(pattern.data()))
        return;
    fs::path dir = pattern;
    SteppingClock clock;
    QuietLog log;
    Defaults defaults(dir / "defaults.json", clock, log);
    defaults.setInteger(prefkey::clipboardLimit, rows);
    defaults.setData(prefkey::clipSyncKey, crypto::randomBytes(32));
    fs::path container = dir / "container";
    auto context = [&] {
        return StoreContext{defaults, [container] { return std::optional(container); }, clock, log};
    };
    TextMaker maker;
    {
        ClipboardStore store(context());
        store.open();
        sql::Database db;
        db.open(container / "Library" / "clipboard.sqlite");
        db.exec("BEGIN");
        auto key = defaults.data(prefkey::clipSyncKey);
        sql::Statement st = db.prepare(
            "INSERT INTO items(id, text, hash, type, created, pinned, modified, dirty, rid) "
            "VALUES(?,?,?,?,?,0,?,1,?)");
        for (long i = 0; i < rows; ++i) {
            std::string text = maker.make(minBytes, maxBytes);
            st.reset();
            st.bind(1, crypto::newUUID());
            st.bind(2, text);
            st.bind(3, ClipboardStore::hash(text));
            st.bind(4, std::string("text"));
            st.bind(5, clock.now());
            st.bind(6, clock.now());
            st.bind(7, ClipboardStore::recordName(text, key));
            st.run();
        }
        db.exec("COMMIT");
    }
    std::printf("%s: %ld texts of %zu-%zu bytes\n", name, rows, minBytes, maxBytes);
    double t0 = wallSeconds();
    ClipboardStore store(context());
    store.open();
    std::printf("  first open after the fill: %.2f s\n", wallSeconds() - t0);
    std::printf(
        "  file: %.1f MB\n",
        static_cast<double>(fs::file_size(container / "Library" / "clipboard.sqlite")) / 1e6);

    std::vector<std::string> texts;
    for (long i = 0; i < copies; ++i)
        texts.push_back(maker.make(minBytes, maxBytes));
    std::vector<double> times;
    long failed = 0;
    double cpu0 = cpuSeconds();
    for (const std::string& text : texts) {
        double w0 = wallSeconds();
        if (store.insert(text) != ClipboardStore::InsertResult::inserted)
            ++failed;
        times.push_back(wallSeconds() - w0);
    }
    std::sort(times.begin(), times.end());
    const double worst = times.back();
    const double p99 = times[times.size() * 99 / 100];
    if (failed > 0)
        std::printf("  %ld captures failed\n", failed);
    double perCopy = (cpuSeconds() - cpu0) / static_cast<double>(copies);
    std::printf(
        "  capture: %.3f ms CPU per copy over %ld copies; slowest copy %.2f ms, 99th "
        "percentile %.2f ms\n",
        perCopy * 1e3, copies, worst * 1e3, p99 * 1e3);

    constexpr int fetches = 20;
    t0 = wallSeconds();
    for (int i = 0; i < fetches; ++i)
        if (store.fetch(500, 0).size() != 500)
            std::printf("  fetch(500) came back short\n");
    std::printf("  fetch(500): %.2f ms\n", (wallSeconds() - t0) / fetches * 1e3);

    auto search = [&](const char* typed, std::size_t wanted) {
        const std::string folded = search::foldQuery(typed);
        double s0 = wallSeconds();
        auto rows = store.searchCandidates(folded, {.pinned = false, .link = {}, .category = {}});
        double candidatesAt = wallSeconds() - s0;
        std::size_t found = 0;
        for (std::size_t at = 0; at < rows.size() && found < wanted; at += 500) {
            std::vector<std::int64_t> slice(
                rows.begin() + static_cast<long>(at),
                rows.begin() + static_cast<long>(std::min(rows.size(), at + 500)));
            found += store.searchMatches(folded, slice).size();
        }
        std::printf("  search \"%s\": %zu candidates in %.2f ms, %zu matches after %.2f ms\n",
                    typed, rows.size(), candidatesAt * 1e3, found, (wallSeconds() - s0) * 1e3);
    };
    search("zq7xw", SIZE_MAX);
    search("notes", 50);

    // A deletion the user makes calls for a purge of the search index.
    store.deleteItem(store.fetch(1, 0).at(0).id);
    t0 = wallSeconds();
    if (!store.purgeSearchIndex())
        std::printf("  the purge failed\n");
    std::printf("  purge after a deletion: %.2f s\n", wallSeconds() - t0);
    std::error_code ec;
    fs::remove_all(dir, ec);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && std::string_view(argv[1]) == "--scale") {
        scaleCase("small texts", 100000, 50, 2000, 2000);
        scaleCase("long texts", 10000, 100000, 100000, 1000);
        return 0;
    }
    static Medium media[] = {
        {"tmpfs", "/dev/shm"},
        {"disk", fs::current_path()},
    };
    for (const Medium& medium : media) {
        if (!fs::is_directory(medium.base))
            continue;
        std::printf("%s: %s (%s)\n", medium.name, medium.base.c_str(), fsType(medium.base).c_str());
        for (long rows : {200L, 500L, 5000L}) {
            std::string suffix = "/rows:" + std::to_string(rows) + "/" + medium.name;
            benchmark::RegisterBenchmark(("insert_new" + suffix).c_str(), insertNew, &medium, rows)
                ->Unit(benchmark::kMicrosecond);
            benchmark::RegisterBenchmark(("insert_recopy" + suffix).c_str(), insertRecopy, &medium,
                                         rows)
                ->Unit(benchmark::kMicrosecond);
        }
        benchmark::RegisterBenchmark((std::string("fetch_500/") + medium.name).c_str(), fetch500,
                                     &medium)
            ->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark((std::string("open_50MB/") + medium.name).c_str(),
                                     openLargeHistory, &medium)
            ->Unit(benchmark::kMillisecond);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
