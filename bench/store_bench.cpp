// Text history costs: a new copy and a re-copy into histories of several
// sizes, and the history window's fetch of 500 rows. Each case runs with the
// database on tmpfs (/dev/shm: CPU cost only) and on disk (with the journal's
// fsyncs), and reports the fsync calls per operation.
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include <dlfcn.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include "bench/BenchSupport.h"
#include "platform/Clock.h"
#include "platform/Crypto.h"
#include "platform/Defaults.h"
#include "platform/Log.h"
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

}  // namespace

int main(int argc, char** argv) {
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
