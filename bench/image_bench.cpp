// Image history costs: saving a 12-megapixel camera JPEG, a 4K PNG
// screenshot and an input just under the 16 MiB limit (both files, the
// fingerprint and the row), with the process's peak memory growth during
// one save, and listing a history of 15 unpinned and 100 pinned images.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <unistd.h>
#include <vips/vips.h>

#include <benchmark/benchmark.h>

#include "bench/BenchSupport.h"
#include "platform/Clock.h"
#include "platform/Crypto.h"
#include "platform/Defaults.h"
#include "platform/Log.h"
#include "store/ImageClipStore.h"
#include "store/Sql.h"

namespace fs = std::filesystem;
using namespace zettly;
using Bytes = std::vector<std::uint8_t>;

using namespace zettly::bench;

namespace {

// ---- inputs -------------------------------------------------------------

struct Vips {
    VipsImage* image = nullptr;
    explicit Vips(VipsImage* i = nullptr) : image(i) {}
    ~Vips() {
        if (image)
            g_object_unref(image);
    }
    VipsImage** out() { return &image; }
};

Bytes encode(VipsImage* image, const char* suffix) {
    void* buffer = nullptr;
    std::size_t length = 0;
    if (vips_image_write_to_buffer(image, suffix, &buffer, &length, nullptr) != 0)
        throw std::runtime_error(vips_error_buffer());
    Bytes out(static_cast<std::uint8_t*>(buffer), static_cast<std::uint8_t*>(buffer) + length);
    g_free(buffer);
    return out;
}

// Three independent noise bands over a gradient: a photo's worth of detail.
Vips photoLike(int width, int height, double sigma) {
    Vips bands[3];
    for (Vips& band : bands) {
        Vips noise, xy, x, ramp;
        vips_gaussnoise(noise.out(), width, height, "sigma", sigma, "mean", 0.0, nullptr);
        vips_xyz(xy.out(), width, height, nullptr);
        vips_extract_band(xy.image, x.out(), 0, nullptr);
        vips_linear1(x.image, ramp.out(), 200.0 / width, 30.0, nullptr);
        vips_add(ramp.image, noise.image, band.out(), nullptr);
    }
    VipsImage* in[] = {bands[0].image, bands[1].image, bands[2].image};
    Vips joined, cast, rgb;
    vips_bandjoin(in, joined.out(), 3, nullptr);
    vips_cast_uchar(joined.image, cast.out(), nullptr);
    vips_copy(cast.image, rgb.out(), "interpretation", VIPS_INTERPRETATION_sRGB, nullptr);
    return Vips(static_cast<VipsImage*>(g_object_ref(rgb.image)));
}

Bytes cameraJpeg() {
    Vips photo = photoLike(4000, 3000, 5.0);
    return encode(photo.image, ".jpg[Q=92]");
}

// Flat panels and lines of text, as a desktop screenshot is.
Bytes screenshotPng() {
    Vips canvas, text;
    vips_black(canvas.out(), 3840, 2160, "bands", 3, nullptr);
    double background[] = {246, 246, 246};
    vips_draw_rect(canvas.image, background, 3, 0, 0, 3840, 2160, "fill", TRUE, nullptr);
    double sidebar[] = {40, 44, 52};
    vips_draw_rect(canvas.image, sidebar, 3, 0, 0, 520, 2160, "fill", TRUE, nullptr);
    double toolbar[] = {220, 225, 235};
    vips_draw_rect(canvas.image, toolbar, 3, 520, 0, 3320, 90, "fill", TRUE, nullptr);
    std::string lines;
    for (int i = 0; i < 60; ++i)
        lines += "int main(int argc, char** argv) { return run(parse(argv, argc), " +
                 std::to_string(i * 7919) + "); }  // build " + std::to_string(i) + "\n";
    vips_text(text.out(), lines.c_str(), "width", 3200, "dpi", 110, "font", "Monospace", nullptr);
    Vips inverted, rgb, placed, typed;
    vips_invert(text.image, inverted.out(), nullptr);
    VipsImage* three[] = {inverted.image, inverted.image, inverted.image};
    vips_bandjoin(three, rgb.out(), 3, nullptr);
    vips_insert(canvas.image, rgb.image, placed.out(), 580, 140, nullptr);
    vips_copy(placed.image, typed.out(), "interpretation", VIPS_INTERPRETATION_sRGB, nullptr);
    return encode(typed.image, ".png");
}

// Noise does not compress: a PNG of this size is as large as its pixels.
Bytes nearLimitPng() {
    Vips photo = photoLike(2360, 2360, 60.0);
    return encode(photo.image, ".png[compression=1]");
}

// ---- measuring ------------------------------------------------------------

long statusKiB(const char* field) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind(field, 0) == 0)
            return std::stol(line.substr(std::string(field).size()));
    return -1;
}

// Resets the kernel's high-water mark, so it tells the peak of what follows.
void resetPeak() {
    std::ofstream("/proc/self/clear_refs") << "5";
}

struct History {
    fs::path dir;
    SystemClock clock;
    QuietLog log;
    std::unique_ptr<Defaults> defaults;
    std::unique_ptr<ImageClipStore> store;
    fs::path container;

    explicit History(const fs::path& base) {
        std::string pattern = (base / "zettly-image-bench-XXXXXX");
        if (!::mkdtemp(pattern.data()))
            throw std::runtime_error("mkdtemp failed");
        dir = pattern;
        container = dir / "container";
        defaults = std::make_unique<Defaults>(dir / "defaults.json", clock, log);
        fs::path c = container;
        store = std::make_unique<ImageClipStore>(
            StoreContext{*defaults, [c] { return std::optional(c); }, clock, log});
    }
    ~History() {
        store.reset();
        std::error_code ec;
        fs::remove_all(dir, ec);
    }
};

// Peak memory growth of one save in a fresh process (this binary started
// again with --peak-of): here, memory freed by earlier saves is still
// resident and would hide the growth.
long peakGrowthOfOneSaveKiB(const fs::path& inputFile, const fs::path& base) {
    std::ifstream in(inputFile, std::ios::binary);
    Bytes input{std::istreambuf_iterator<char>(in), {}};
    History history(base);
    resetPeak();
    long before = statusKiB("VmRSS:");
    if (history.store->save(input) != ImageClipStore::SaveResult::saved)
        return -1;
    return statusKiB("VmHWM:") - before;
}

double peakGrowthMB(const Bytes& input, const fs::path& base) {
    fs::path file = base / ("zettly-image-bench-input-" + std::to_string(::getpid()));
    std::ofstream(file, std::ios::binary)
        .write(reinterpret_cast<const char*>(input.data()), static_cast<long>(input.size()));
    std::string command = fs::read_symlink("/proc/self/exe").string() + " --peak-of " +
                          file.string() + " " + base.string();
    long kib = -1;
    if (FILE* child = ::popen(command.c_str(), "r")) {
        if (std::fscanf(child, "%ld", &kib) != 1)
            kib = -1;
        ::pclose(child);
    }
    fs::remove(file);
    return kib < 0 ? -1 : static_cast<double>(kib) / 1024.0;
}

void save(benchmark::State& state, const Bytes* input, const fs::path* base) {
    History history(*base);
    for (auto _ : state) {
        state.PauseTiming();
        history.store->clear(false);  // every save is a new image, not a re-copy
        state.ResumeTiming();
        if (history.store->save(*input) != ImageClipStore::SaveResult::saved)
            state.SkipWithError("save failed");
    }
    state.counters["input_MB"] = static_cast<double>(input->size()) / 1e6;
    state.counters["peak_growth_MB"] = peakGrowthMB(*input, *base);
}

void fetchAll(benchmark::State& state, const fs::path* base) {
    History history(*base);
    Bytes small = encode(photoLike(64, 48, 10).image, ".png");
    history.store->save(small);  // opens the database and creates the folder
    sql::Database db;
    db.open(history.container / "Library" / "clipmedia.sqlite");
    db.exec("BEGIN");
    for (int i = 0; i < 115; ++i) {
        std::string id = crypto::newUUID();
        sql::Statement st = db.prepare(
            "INSERT INTO media(id, file, thumb, w, h, bytes, created, pinned, modified, dirty, "
            "rid) VALUES(?,?,?,1280,800,250000,?,?,?,1,?)");
        st.bind(1, id);
        st.bind(2, "/nowhere/" + id + ".jpg");
        st.bind(3, "/nowhere/" + id + "_t.jpg");
        st.bind(4, history.clock.now() - i);
        st.bind(5, i >= 15);
        st.bind(6, history.clock.now() - i);
        st.bind(7, "i_" + id);
        st.run();
    }
    db.exec("COMMIT");
    for (auto _ : state) {
        auto items = history.store->fetchAll();
        if (items.size() != 115)
            state.SkipWithError("fetchAll listed the wrong count");
        benchmark::DoNotOptimize(items);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (VIPS_INIT(argv[0]))
        return 1;
    if (argc == 4 && std::string(argv[1]) == "--peak-of") {
        std::printf("%ld\n", peakGrowthOfOneSaveKiB(argv[2], argv[3]));
        return 0;
    }
    static fs::path base = fs::is_directory("/dev/shm") ? fs::path("/dev/shm") : fs::current_path();
    static Bytes camera = cameraJpeg();
    static Bytes screenshot = screenshotPng();
    static Bytes nearLimit = nearLimitPng();
    std::printf(
        "inputs: camera JPEG 4000x3000 %.2f MB, screenshot PNG 3840x2160 %.2f MB, "
        "noise PNG 2360x2360 %.2f MB (limit %.2f MB); store on %s\n",
        camera.size() / 1e6, screenshot.size() / 1e6, nearLimit.size() / 1e6,
        ImageClipStore::maxInputBytes / 1e6, base.c_str());
    // libvips decodes on worker threads, so the wall time is the cost a
    // user waits for (the main thread's CPU time alone says little).
    for (auto [name, input] : {std::pair{"save/camera_jpeg_12MP", &camera},
                               {"save/screenshot_png_4K", &screenshot},
                               {"save/noise_png_16MiB", &nearLimit}})
        benchmark::RegisterBenchmark(name, save, input, &base)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
    benchmark::RegisterBenchmark("fetchAll/15_unpinned_100_pinned", fetchAll, &base)
        ->Unit(benchmark::kMicrosecond);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
