// How fast the history window opens from the global shortcut with a full
// history: 500 texts and 15 screenshots. The program wires the window and its
// controller the way the application does, over the X11 backend, presses
// Alt+V through XTEST on an X connection of its own and times each opening:
//
//   t0  just before the key press goes to the X server
//   t1  the shortcut's handler starts (X server, Qt's event thread and the
//       event loop in between)
//   t2  the first frame of the window has been painted and handed to the X
//       server
//
// The first opening (the window never shown, the databases not yet opened
// by these stores) is reported on its own; warm openings follow after a few
// warm-ups. PopupModel::reset(), the model's share of every opening, is
// timed apart as well.
//
// --texts=N (N > 500) puts N - 500 older texts of 50-2,000 bytes behind
// those, written straight into the file, for the cost of a long history:
// the window still lists the newest 500.
//
// Needs an X server with XTEST:
//   xvfb-run -a -s "-screen 0 1280x800x24" build/bench/popup_open_bench [--texts=100000]
#include <QApplication>
#include <QElapsedTimer>
#include <QEvent>
#include <QEventLoop>
#include <QGuiApplication>
#include <QTimer>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <variant>
#include <vector>

#include <unistd.h>

#include "capture/PasteboardMonitor.h"
#include "platform/AppFolders.h"
#include "platform/Backends.h"
#include "platform/Clock.h"
#include "platform/Defaults.h"
#include "platform/GlobalHotKey.h"
#include "platform/HotKeyCombo.h"
#include "platform/Keyboard.h"
#include "platform/Log.h"
#include "platform/Platform.h"
#include "platform/SerialExecutor.h"
#include "popup/PopupController.h"
#include "popup/PopupModel.h"
#include "popup/ui/HistoryList.h"
#include "popup/ui/PopupWindow.h"
#include "popup/ui/Texts.h"
#include "store/ChipOrder.h"
#include "store/ClipPrefs.h"
#include "store/ClipboardStore.h"
#include "store/ImageClipStore.h"
#include "store/PrefKeys.h"
#include "store/Sql.h"
#include "store/StoreContext.h"
#include "sync/SyncPace.h"
#include "tests/fakes/TestImages.h"
#include "tests/x11/SyntheticInput.h"

namespace fs = std::filesystem;
using namespace zettly;

namespace {

constexpr int textCount = 500;
constexpr int imageCount = 15;
constexpr int warmUps = 3;
constexpr int openings = 30;
constexpr int resetCalls = 30;
constexpr double hotKeyToFrameTarget = 50;  // ms
constexpr double resetTarget = 10;          // ms
// Long enough for the unmap, the focus change and the key releases to be
// handled before the next press; a user never reopens faster than this.
constexpr int settleMs = 150;
constexpr int frameTimeoutMs = 3000;

double nowMs() {
    using namespace std::chrono;
    return duration<double, std::milli>(steady_clock::now().time_since_epoch()).count();
}

// ---- the history ------------------------------------------------------------

// The time of the copy being written: the stores read the clock several
// times per item, so it moves only when told.
class FillClock final : public Clock {
public:
    explicit FillClock(double start) : t_(start) {}
    double now() const override { return t_; }
    void advance(double seconds) { t_ += seconds; }

private:
    double t_;
};

class Random {
public:
    explicit Random(std::uint32_t seed) : state_(seed * 2654435761u + 1) {}
    std::uint32_t next() {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 17;
        state_ ^= state_ << 5;
        return state_;
    }
    std::uint32_t below(std::uint32_t n) { return next() % n; }

private:
    std::uint32_t state_;
};

// What people copy: links, shell commands, paragraphs of mail, code, notes,
// addresses. Between 50 and 2000 bytes, about a third of them on several
// lines; the number `i` keeps every one distinct.
std::string realisticText(int i, Random& random) {
    static const char* const words[] = {
        "the",      "meeting",  "notes",   "build",  "review",   "deploy", "server",
        "and",      "Thursday", "with",    "please", "report",   "client", "invoice",
        "London",   "of",       "release", "branch", "a",        "to",     "in",
        "Anna",     "draft",    "budget",  "for",    "Q3",       "update", "Müller",
        "café",     "schedule", "will",    "we",     "agreed",   "next",   "week",
        "contract", "Straße",   "привет",  "is",     "attached", "thanks", "deadline"};
    auto prose = [&](std::size_t bytes, bool lines) {
        std::string out;
        while (out.size() < bytes) {
            out += words[random.below(std::size(words))];
            std::uint32_t r = random.below(14);
            out += r == 0 ? ". " : (lines && r == 1) ? ".\n" : " ";
        }
        return out;
    };
    const std::string n = std::to_string(i);
    switch (i % 10) {
        case 0:
        case 1: {  // a link
            std::string path = prose(20 + random.below(80), false);
            std::replace(path.begin(), path.end(), ' ', '-');
            return "https://docs.example.com/" + path + "?item=" + n;
        }
        case 2: {  // a command line
            return "git log --oneline --author=anna origin/release-" + n + " -- src/ | grep -i " +
                   words[random.below(std::size(words))] + " | head -n " +
                   std::to_string(10 + random.below(90));
        }
        case 3:
        case 4:
        case 5: {  // a paragraph from a mail or a document
            return "Re #" + n + ": " + prose(150 + random.below(850), false);
        }
        case 6:
        case 7: {  // code, indented, on many lines
            std::string code = "// change " + n + "\nint total(const std::vector<Item>& items) {\n";
            const std::size_t bytes = 300 + random.below(1700);
            while (code.size() < bytes)
                code += "    sum += items[" + std::to_string(random.below(64)) + "].price * " +
                        std::to_string(random.below(9) + 1) + ";  // " + prose(20, false) + "\n";
            return code + "    return sum;\n}\n";
        }
        case 8: {  // notes over several lines
            return "Notes " + n + "\n\n" + prose(200 + random.below(1300), true);
        }
        default: {  // an address
            return "Anna Müller\nBahnhofstraße " + n + "\n80335 München\nGermany";
        }
    }
}

// Something like a screenshot: a window with a title bar, a sidebar, lines
// of "text" and a photo-like gradient, different for each seed. Real
// screenshots compress far better than noise, and so do these.
test::Paint screenshot(std::uint32_t seed) {
    return [seed](int x, int y) -> test::Rgba {
        const auto tint = static_cast<std::uint8_t>(seed * 37);
        if (y < 32)
            return {std::uint8_t(60 + tint / 4), 60, 70};
        if (x < 220)
            return {235, 236, std::uint8_t(240 - tint / 8)};
        if (x > 760 && y > 120 && y < 520)
            return {std::uint8_t((x * 3 + seed * 11) % 256), std::uint8_t((y * 2) % 256),
                    std::uint8_t((x + y + seed * 29) % 256)};
        const int line = (y - 40) / 22;
        const int inLine = (y - 40) % 22;
        std::uint32_t h =
            (std::uint32_t(line) * 2654435761u) ^ (std::uint32_t(x / 9) * 40503u) ^ (seed * 97u);
        h ^= h >> 13;
        if (inLine > 5 && inLine < 17 && h % 5 != 0 && x < 260 + int((h >> 7) % 480))
            return {30, 32, 36};
        return {250, 250, 252};
    };
}

// A private folder with the preferences file and the container.
struct Folder {
    fs::path dir;
    Folder() {
        std::string pattern = (fs::temp_directory_path() / "zettly-open-bench-XXXXXX").string();
        if (!::mkdtemp(pattern.data()))
            throw std::runtime_error("cannot create a folder in " +
                                     fs::temp_directory_path().string());
        dir = pattern;
    }
    ~Folder() {
        std::error_code ignored;
        fs::remove_all(dir, ignored);
    }
    fs::path container() const { return dir / "container"; }
    StoreContext context(Defaults& defaults, const Clock& clock) const {
        return StoreContext{defaults, [c = container()] { return std::optional(c); }, clock,
                            StderrLog::instance()};
    }
};

// Writes the history with stores of its own, which are gone before the
// measured ones open the files, as after a restart of the application.
void fill(const Folder& folder, Defaults& defaults) {
    // Five days of copying, well inside the 30-day retention, up to a
    // minute ago.
    const double span = 5 * 24 * 3600.0;
    const double step = span / (textCount + imageCount);
    FillClock clock(SystemClock::instance().now() - span - 60);
    StoreContext context = folder.context(defaults, clock);
    ClipboardStore texts(context);
    ImageClipStore images(context);

    auto work = texts.createCategory("Work");
    auto snippets = texts.createCategory("Snippets");
    auto addresses = texts.createCategory("Addresses");
    if (!work || !snippets || !addresses)
        throw std::runtime_error("cannot create the categories");

    Random random(7);
    int image = 0;
    for (int i = 0; i < textCount; ++i) {
        clock.advance(step);
        if (texts.insert(realisticText(i, random)) != ClipboardStore::InsertResult::inserted)
            throw std::runtime_error("text " + std::to_string(i) + " was not stored");
        const std::string id =
            texts.fetch(1, 0, std::nullopt, false, ClipboardStore::CategoryFilter::any(), true)
                .at(0)
                .id;
        if (i % 167 == 3)
            texts.setPinned(id, true);
        if (i % 61 == 5)
            texts.setLabel(id, "Reply template " + std::to_string(i));
        if (i % 40 == 9)  // every fourth address
            texts.setCategory(id, addresses->id);
        else if (i % 41 == 6)
            texts.setCategory(id, snippets->id);
        else if (i % 53 == 4)
            texts.setCategory(id, work->id);
        // Screenshots come in among the texts, the last two among the
        // newest entries, where the first screen of the list shows them.
        const bool due = image < imageCount - 2 ? i == 30 + 36 * image
                                                : i == textCount - 3 + 2 * (image - imageCount + 2);
        if (due) {
            clock.advance(step);
            // Each a little taller, so none is taken for a copy of another.
            const int height = 720 + 8 * image;
            auto bytes = image % 3 == 2 ? test::jpeg(1280, height, screenshot(std::uint32_t(image)))
                                        : test::png(1280, height, screenshot(std::uint32_t(image)));
            if (images.save(bytes) != ImageClipStore::SaveResult::saved)
                throw std::runtime_error("image " + std::to_string(image) + " was not stored");
            ++image;
        }
    }
    if (image != imageCount)
        throw std::runtime_error("only " + std::to_string(image) + " images were made");
}

// `count` texts older than those fill() copies, in one transaction: copying
// a hundred thousand one by one would take most of an hour. Ten seconds
// apart, which keeps them inside the 30-day retention.
void fillOlder(const Folder& folder, int count) {
    sql::Database db;
    db.open(folder.container() / "Library" / "clipboard.sqlite");
    db.exec("BEGIN");
    sql::Statement st =
        db.prepare("INSERT INTO items(id, text, hash, type, created, pinned) VALUES(?,?,?,?,?,0)");
    const double newest = SystemClock::instance().now() - 5 * 24 * 3600.0 - 120;
    Random random(11);
    for (int i = 0; i < count; ++i) {
        std::string text = realisticText(textCount + i, random) + " #" + std::to_string(i);
        st.reset();
        st.bind(1, "older-" + std::to_string(i));
        st.bind(2, text);
        st.bind(3, ClipboardStore::hash(text));
        st.bind(4, ClipboardStore::detectType(text));
        st.bind(5, newest - 10.0 * (count - i));
        if (st.step() != SQLITE_DONE)
            throw std::runtime_error("older text " + std::to_string(i) + " was not stored");
    }
    db.exec("COMMIT");
}

// ---- timing -----------------------------------------------------------------

struct Summary {
    double median = 0, p90 = 0, max = 0;
};

Summary summarize(std::vector<double> samples) {
    std::sort(samples.begin(), samples.end());
    auto rank = [&](double p) {
        auto index = std::size_t(std::max(0.0, std::ceil(p * double(samples.size())) - 1));
        return samples[std::min(index, samples.size() - 1)];
    };
    return {rank(0.5), rank(0.9), samples.back()};
}

void printRow(const char* what, const std::vector<double>& samples,
              std::optional<double> target = std::nullopt) {
    Summary s = summarize(samples);
    std::printf("  %-40s %8.2f %8.2f %8.2f", what, s.median, s.p90, s.max);
    if (target)
        std::printf("   <= %4.0f ms  %s", *target, s.p90 <= *target ? "ok" : "MISSED (p90)");
    std::printf("\n");
}

void printSingle(const char* what, double ms, std::optional<double> target = std::nullopt) {
    std::printf("  %-40s %8.2f", what, ms);
    if (target)
        std::printf("   %17s <= %4.0f ms  %s", "", *target, ms <= *target ? "ok" : "MISSED");
    std::printf("\n");
}

// Runs the event loop for `ms`.
void settle(int ms) {
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

// Notes when the next frame of the window that shows the list is on the X
// server.
//
// A widget's frame is painted and flushed in one go: the paint events are
// sent to every dirty widget and then the backing store is flushed (a
// PutImage or SHM request), all inside the one event that repaints. A
// zero-delay timer started by a paint event therefore runs once the flush is
// done; a round trip on Qt's own connection then waits until the X server
// has handled the image. A frame that has not painted the list's rows yet
// (only the frame around them) does not count. A compositor, where there is
// one, adds its own frame on top.
class FrameWatch final : public QObject {
public:
    FrameWatch(QWidget& window, QWidget& list) : window_(window), list_(list) {
        window.installEventFilter(this);
        list.installEventFilter(this);
    }
    ~FrameWatch() override {
        window_.removeEventFilter(this);
        list_.removeEventFilter(this);
    }

    // `then` gets the time of the next such frame.
    void arm(std::function<void(double)> then) {
        then_ = std::move(then);
        listPainted_ = false;
    }
    void disarm() { then_ = nullptr; }
    // When the list was painted, while asked to keep them.
    std::optional<std::vector<double>> listPaints;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() != QEvent::Paint)
            return false;
        if (listPaints && watched == &list_)
            listPaints->push_back(nowMs());
        if (!then_)
            return false;
        listPainted_ = listPainted_ || watched == &list_;
        if (!checkQueued_) {
            checkQueued_ = true;
            QTimer::singleShot(0, this, [this] {
                checkQueued_ = false;
                if (!then_ || !listPainted_)
                    return;
                test::SyntheticInput::qtRoundTrip();
                auto then = std::move(then_);
                then_ = nullptr;
                then(nowMs());
            });
        }
        return false;
    }

private:
    QWidget& window_;
    QWidget& list_;
    std::function<void(double)> then_;
    bool listPainted_ = false;
    bool checkQueued_ = false;
};

struct Opening {
    double pressedAt = 0;
    double hotKeyToHandler = 0;
    double handlerToFrame = 0;
    double hotKeyToFrame = 0;
    double toggle = 0;  // the handler's toggle() call
};

}  // namespace

int main(int argc, char** argv) {
    auto chosen = chooseBackend("x11", SessionEnvironment::current());
    if (auto* why = std::get_if<std::string>(&chosen)) {
        std::fprintf(stderr, "popup_open_bench: %s (run under xvfb-run)\n", why->c_str());
        return 1;
    }
    qputenv("QT_QPA_PLATFORM",
            QByteArray::fromStdString(std::get<BackendChoice>(chosen).qtPlatform));
    int allTexts = textCount;
    for (int i = 1; i < argc; ++i)
        if (std::string_view(argv[i]).starts_with("--texts="))
            allTexts = std::max(textCount, std::atoi(argv[i] + 8));
    QApplication qtApp(argc, argv);
    try {
        Folder folder;
        Defaults defaults(folder.dir / "defaults.json", SystemClock::instance(),
                          StderrLog::instance());
        // The default keeps 200 texts; a full history needs more room.
        defaults.setInteger(prefkey::clipboardLimit, std::max(1000, allTexts));
        {
            QElapsedTimer filling;
            filling.start();
            fill(folder, defaults);
            fillOlder(folder, allTexts - textCount);
            std::printf("history written in %.1f s\n", double(filling.elapsed()) / 1000);
        }

        // ---- wired as the application does it ----
        StoreContext context = folder.context(defaults, SystemClock::instance());
        ClipboardStore texts(context);
        ImageClipStore images(context);
        auto platform = makePlatform(std::get<BackendChoice>(chosen), StderrLog::instance());
        if (platform->name() != "x11")
            throw std::runtime_error("the X11 backend could not start");
        SerialExecutor background, reads, searches;
        // Built but not started: clipboard captures would only add noise.
        PasteboardMonitor monitor(PasteboardMonitor::Dependencies{
            platform->pasteboard(), platform->workspace(), platform->mainQueue(), reads, background,
            texts, images, defaults, SystemClock::instance(), StderrLog::instance()});
        PopupWindow window(&platform->keyboardLayout(), &platform->windowHints());
        SyncPace pace;
        PopupController controller(
            PopupController::Dependencies{window, platform->desktop(), platform->mainQueue(), texts,
                                          images, monitor, defaults, pace,
                                          std::string(AppIdentifier), searches},
            &chipTitle);
        controller.texts = translatedPopupTexts();
        window.pasteAutomatically = [&defaults] {
            return ClipPrefs(defaults).pasteAutomatically();
        };
        window.setController(&controller);

        if (ClipPrefs(defaults).hotKey() != HotKeyCombo{})
            throw std::runtime_error("the shortcut is not the default Alt+V");
        FrameWatch frames(window, *window.list()->viewport());
        double handlerAt = 0, toggled = 0;
        std::optional<double> frameAt;
        QEventLoop* waiting = nullptr;
        HotKeyState answer;
        platform->hotKey().bind(
            ClipPrefs(defaults).hotKey(),
            [&] {
                handlerAt = nowMs();
                frames.arm([&](double at) {
                    frameAt = at;
                    if (waiting)
                        waiting->quit();
                });
                controller.toggle();
                toggled = nowMs();
            },
            [&](const HotKeyState& state) { answer = state; });
        if (answer.kind != HotKeyState::Kind::bound)
            throw std::runtime_error("the shortcut could not be grabbed");
        test::SyntheticInput keys;
        settle(settleMs);  // Qt's connection set up, the grab in place

        auto open = [&]() -> Opening {
            handlerAt = toggled = 0;
            frameAt.reset();
            QEventLoop loop;
            waiting = &loop;
            QTimer::singleShot(frameTimeoutMs, &loop, &QEventLoop::quit);
            const double pressed = nowMs();
            keys.pressAltV();
            loop.exec();
            waiting = nullptr;
            frames.disarm();
            if (!handlerAt)
                throw std::runtime_error("the shortcut never reached its handler");
            if (!frameAt || !controller.isOpen())
                throw std::runtime_error("the window did not open");
            return {pressed, handlerAt - pressed, *frameAt - handlerAt, *frameAt - pressed,
                    toggled - handlerAt};
        };
        auto close = [&] {
            controller.close();
            settle(settleMs);
        };

        // The screenshots on the first screen are decoded off the main
        // thread and painted as they arrive; the list's paint after the last
        // of them is the moment the window is complete.
        std::vector<double> thumbnailLoads;
        auto counting = QObject::connect(&window.list()->thumbnails(), &ThumbnailCache::loaded,
                                         &frames, [&] { thumbnailLoads.push_back(nowMs()); });
        frames.listPaints.emplace();
        const Opening cold = open();
        settle(1000);
        QObject::disconnect(counting);
        std::optional<double> thumbnailsAt;
        if (!thumbnailLoads.empty()) {
            auto after = std::find_if(frames.listPaints->begin(), frames.listPaints->end(),
                                      [&](double at) { return at >= thumbnailLoads.back(); });
            if (after != frames.listPaints->end())
                thumbnailsAt = *after;
        }
        frames.listPaints.reset();
        const std::size_t shown = controller.model().entries().size();
        const std::size_t total = controller.model().allCount();
        close();
        for (int i = 0; i < warmUps; ++i) {
            open();
            close();
        }
        std::vector<double> toHandler, toFrame, fromHandler, toggle;
        for (int i = 0; i < openings; ++i) {
            Opening o = open();
            toHandler.push_back(o.hotKeyToHandler);
            fromHandler.push_back(o.handlerToFrame);
            toFrame.push_back(o.hotKeyToFrame);
            toggle.push_back(o.toggle);
            close();
        }

        // The model alone, as a fresh one over the same stores (no view
        // listening), and the window's model, whose change reloads the list
        // and the chips.
        ChipOrder order(defaults, texts);
        PopupModel bare(texts, images, order, searches, platform->mainQueue());
        std::vector<double> bareReset, viewReset;
        for (int i = 0; i < resetCalls + 1; ++i) {
            double start = nowMs();
            bare.reset();
            if (i > 0)  // the first opens nothing new but warms the model's own caches
                bareReset.push_back(nowMs() - start);
        }
        for (int i = 0; i < resetCalls; ++i) {
            double start = nowMs();
            controller.model().reset();
            viewReset.push_back(nowMs() - start);
        }
        if (bare.allCount() != std::size_t(textCount + imageCount))
            throw std::runtime_error("the model holds " + std::to_string(bare.allCount()) +
                                     " entries, not " + std::to_string(textCount + imageCount));

        std::printf(
            "History window opening: %zu entries (%d texts of 50-2000 bytes, %d screenshots "
            "1280x720-832), %zu under the first chip; %u CPUs\n",
            total, allTexts, imageCount, shown, std::thread::hardware_concurrency());
        std::printf("  %-40s %8s %8s %8s   %s\n", "(ms)", "median", "p90", "max", "target");
        std::printf("first opening (window never shown, databases not yet open):\n");
        printSingle("hot key -> handler", cold.hotKeyToHandler);
        printSingle("handler -> first frame", cold.handlerToFrame);
        printSingle("hot key -> first frame", cold.hotKeyToFrame, hotKeyToFrameTarget);
        printSingle("  of which toggle() (opens the window)", cold.toggle);
        if (thumbnailsAt)
            std::printf("  %-40s %8.2f   (%zu screenshots on the first screen)\n",
                        "hot key -> their thumbnails painted", *thumbnailsAt - cold.pressedAt,
                        thumbnailLoads.size());
        else
            std::printf("  no screenshot thumbnail was loaded for the first screen\n");
        std::printf("warm openings (%d, after %d warm-ups, %d ms apart):\n", openings, warmUps,
                    settleMs);
        printRow("hot key -> handler", toHandler);
        printRow("handler -> first frame", fromHandler);
        printRow("hot key -> first frame", toFrame, hotKeyToFrameTarget);
        printRow("  of which toggle() (opens the window)", toggle);
        std::printf("model (%d calls each):\n", resetCalls);
        printRow("PopupModel::reset(), no view", bareReset, resetTarget);
        printRow("reset() with the list and chips reload", viewReset);
        return 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "popup_open_bench: %s\n", e.what());
        return 1;
    }
}
