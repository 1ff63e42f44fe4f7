// The real app under Xvfb, fed by real X clients: what reaches its databases.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <gtest/gtest.h>

#include "tests/fakes/SqlRows.h"
#include "tests/fakes/TempDir.h"
#include "tests/fakes/TestImages.h"

extern char** environ;

namespace zettly::test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// Long enough for a loaded 2-core CI machine; the poll itself is 0.5 s.
constexpr auto kDeadline = 10s;

template <typename Ready>
bool waitUntil(Ready ready) {
    for (auto end = Clock::now() + kDeadline; Clock::now() < end; std::this_thread::sleep_for(50ms))
        if (ready())
            return true;
    return ready();
}

// The child inherits this process's environment, which SetUp points at the
// test's own folders.
pid_t spawn(std::vector<std::string> args, int stdinFd = -1) {
    std::vector<char*> argv;
    for (auto& arg : args)
        argv.push_back(arg.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (stdinFd >= 0) {
        posix_spawn_file_actions_adddup2(&actions, stdinFd, STDIN_FILENO);
        // xclip in the foreground narrates every request it serves.
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    }
    pid_t pid = -1;
    int rc = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return rc == 0 ? pid : -1;
}

void stop(pid_t pid) {
    if (pid <= 0)
        return;
    ::kill(pid, SIGTERM);
    int status = 0;
    bool ended = waitUntil([&] { return ::waitpid(pid, &status, WNOHANG) == pid; });
    if (!ended) {  // a hung quit must not hang the whole suite
        ::kill(pid, SIGKILL);
        ::waitpid(pid, &status, 0);
    }
}

// Rows matching `where`; a database or table that does not exist yet counts
// as none, since the app creates them on its first capture.
int countRows(const fs::path& file, const std::string& table, const std::string& where,
              const std::string& value = {}) {
    sqlite3* db = nullptr;
    int count = 0;
    if (sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
        sqlite3_busy_timeout(db, 500);
        sqlite3_stmt* query = nullptr;
        std::string sql = "SELECT count(*) FROM " + table + " WHERE " + where;
        if (sqlite3_prepare_v2(db, sql.c_str(), -1, &query, nullptr) == SQLITE_OK) {
            if (!value.empty())
                sqlite3_bind_text(query, 1, value.c_str(), -1, SQLITE_TRANSIENT);
            if (sqlite3_step(query) == SQLITE_ROW)
                count = sqlite3_column_int(query, 0);
        }
        sqlite3_finalize(query);
    }
    sqlite3_close(db);
    return count;
}

// An X client that owns CLIPBOARD with targets of its choosing, which xclip
// cannot do for more than one target. It records what it is asked for, so a
// test knows the app has looked at the copy before moving on.
class SelectionOwner {
public:
    explicit SelectionOwner(const std::map<std::string, std::string>& targets)
        : c_(xcb_connect(nullptr, nullptr)), window_(xcb_generate_id(c_)) {
        xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c_)).data;
        xcb_create_window(c_, XCB_COPY_FROM_PARENT, window_, screen->root, 0, 0, 1, 1, 0,
                          XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0, nullptr);
        targetsAtom_ = atom("TARGETS");
        for (const auto& [name, bytes] : targets)
            offered_.emplace(atom(name), bytes);
        xcb_set_selection_owner(c_, window_, atom("CLIPBOARD"), XCB_CURRENT_TIME);
        xcb_flush(c_);
        thread_ = std::thread([this] { serve(); });
    }
    ~SelectionOwner() {
        done_ = true;
        thread_.join();
        xcb_destroy_window(c_, window_);
        xcb_disconnect(c_);
    }

    // The app asks for TARGETS first whenever it examines a new copy.
    bool waitUntilExamined() {
        std::unique_lock lock(mutex_);
        return asked_.wait_for(lock, kDeadline, [&] { return requested_.contains(targetsAtom_); });
    }

private:
    xcb_atom_t atom(const std::string& name) {
        auto cookie = xcb_intern_atom(c_, 0, static_cast<uint16_t>(name.size()), name.c_str());
        xcb_intern_atom_reply_t* reply = xcb_intern_atom_reply(c_, cookie, nullptr);
        xcb_atom_t a = reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
        std::free(reply);
        return a;
    }

    void answer(const xcb_selection_request_event_t& request) {
        // ICCCM: old clients leave the property out and mean the target itself.
        xcb_atom_t property = request.property ? request.property : request.target;
        if (request.target == targetsAtom_) {
            std::vector<xcb_atom_t> atoms{targetsAtom_};
            for (const auto& offered : offered_)
                atoms.push_back(offered.first);
            xcb_change_property(c_, XCB_PROP_MODE_REPLACE, request.requestor, property,
                                XCB_ATOM_ATOM, 32, static_cast<uint32_t>(atoms.size()),
                                atoms.data());
        } else if (auto it = offered_.find(request.target); it != offered_.end()) {
            xcb_change_property(c_, XCB_PROP_MODE_REPLACE, request.requestor, property,
                                request.target, 8, static_cast<uint32_t>(it->second.size()),
                                it->second.data());
        } else {
            property = XCB_ATOM_NONE;
        }
        xcb_selection_notify_event_t notify{};
        notify.response_type = XCB_SELECTION_NOTIFY;
        notify.time = request.time;
        notify.requestor = request.requestor;
        notify.selection = request.selection;
        notify.target = request.target;
        notify.property = property;
        xcb_send_event(c_, 0, request.requestor, XCB_EVENT_MASK_NO_EVENT,
                       reinterpret_cast<const char*>(&notify));
        xcb_flush(c_);
        std::lock_guard lock(mutex_);
        requested_.insert(request.target);
        asked_.notify_all();
    }

    void serve() {
        while (!done_) {
            pollfd fd{xcb_get_file_descriptor(c_), POLLIN, 0};
            ::poll(&fd, 1, 50);  // wakes up now and then to see `done_`
            while (xcb_generic_event_t* event = xcb_poll_for_event(c_)) {
                if ((event->response_type & 0x7f) == XCB_SELECTION_REQUEST)
                    answer(*reinterpret_cast<xcb_selection_request_event_t*>(event));
                std::free(event);
            }
        }
    }

    xcb_connection_t* c_;
    xcb_window_t window_;
    xcb_atom_t targetsAtom_ = XCB_ATOM_NONE;
    std::map<xcb_atom_t, std::string> offered_;
    std::thread thread_;
    std::atomic<bool> done_ = false;
    std::mutex mutex_;
    std::condition_variable asked_;
    std::set<xcb_atom_t> requested_;
};

class AppCaptureTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(::getenv("DISPLAY"), nullptr) << "run under xvfb-run";
        for (const fs::path& dir : {config_, data_, runtime_}) {
            fs::create_directories(dir);
            ::chmod(dir.c_str(), 0700);
        }
        ::setenv("XDG_CONFIG_HOME", config_.c_str(), 1);
        ::setenv("XDG_DATA_HOME", data_.c_str(), 1);
        ::setenv("XDG_RUNTIME_DIR", runtime_.c_str(), 1);
        ::setenv("QT_QPA_PLATFORM", "xcb", 1);
        app_ = spawn({ZETTLY_APP_PATH});
        ASSERT_GT(app_, 0) << "cannot start " << ZETTLY_APP_PATH;
        ASSERT_TRUE(waitUntil([&] { return fs::exists(runtime_ / "zettly.sock"); }))
            << "the app never started listening";
    }
    void TearDown() override {
        stop(app_);
        for (pid_t pid : xclips_)
            stop(pid);
    }

    void xclip(std::vector<std::string> args, const std::string& input = {}) {
        int pipeFds[2];
        ASSERT_EQ(::pipe2(pipeFds, O_CLOEXEC), 0);
        args.insert(args.begin(), {"xclip", "-quiet", "-selection", "clipboard"});
        pid_t pid = spawn(args, pipeFds[0]);
        ::close(pipeFds[0]);
        ASSERT_EQ(::write(pipeFds[1], input.data(), input.size()), ssize_t(input.size()));
        ::close(pipeFds[1]);
        ASSERT_GT(pid, 0) << "xclip is missing";
        xclips_.push_back(pid);
    }
    void copyText(const std::string& text) { xclip({"-i"}, text); }
    void copyPng(int width, int height, std::uint32_t seed) {
        Bytes bytes = png(width, height, noise(seed));
        fs::path file = dir_ / ("copy-" + std::to_string(seed) + ".png");
        std::ofstream(file, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
        xclip({"-t", "image/png", "-i", file.string()});
    }

    int texts(const std::string& text) {
        return countRows(library_ / "clipboard.sqlite", "items", "text = ?", text);
    }
    int images(const std::string& where = "1") {
        return countRows(library_ / "clipmedia.sqlite", "media", where);
    }

    TempDir dir_;
    fs::path config_ = dir_ / "config", data_ = dir_ / "data", runtime_ = dir_ / "run";
    fs::path library_ = data_ / "Zettly" / "Library";
    pid_t app_ = -1;
    std::vector<pid_t> xclips_;
};

TEST_F(AppCaptureTest, TextCopiedWithXclipIsStored) {
    copyText("copied under Xvfb ✓");
    EXPECT_TRUE(waitUntil([&] { return texts("copied under Xvfb ✓") == 1; }));
}

TEST_F(AppCaptureTest, CopyMarkedByPasswordManagerIsNotStored) {
    {
        SelectionOwner keepass({{"UTF8_STRING", "hunter2-secret"},
                                {"text/plain;charset=utf-8", "hunter2-secret"},
                                {"x-kde-passwordManagerHint", "secret"}});
        ASSERT_TRUE(keepass.waitUntilExamined()) << "the app never looked at the copy";
        copyText("after the password");
        ASSERT_TRUE(waitUntil([&] { return texts("after the password") == 1; }));
    }
    EXPECT_EQ(texts("hunter2-secret"), 0);
}

TEST_F(AppCaptureTest, PngCopyIsStoredAsImage) {
    copyPng(64, 48, 1);
    ASSERT_TRUE(waitUntil([&] { return images() == 1; }));
    auto stored = rows(library_ / "clipmedia.sqlite", "SELECT w, h, file FROM media");
    ASSERT_EQ(stored.size(), 1u);
    EXPECT_EQ(stored[0][0] + "x" + stored[0][1], "64x48");
    EXPECT_TRUE(fs::exists(stored[0][2])) << stored[0][2];
    EXPECT_EQ(fs::path(stored[0][2]).parent_path(), library_ / "clipmedia");
}

TEST_F(AppCaptureTest, FileCopyOfferingAnImageIsNotStored) {
    Bytes icon = png(40, 30, noise(2));
    {
        SelectionOwner files({{"text/uri-list", "file:///tmp/holiday.png\r\n"},
                              {"image/png", std::string(icon.begin(), icon.end())}});
        ASSERT_TRUE(files.waitUntilExamined()) << "the app never looked at the copy";
        // An image, not a text, comes next: it proves images are saved at all, and
        // the serial image queue would store a wrongly taken icon before it.
        copyPng(64, 48, 3);
        ASSERT_TRUE(waitUntil([&] { return images("w = 64 AND h = 48") == 1; }));
    }
    EXPECT_EQ(images(), 1);
}

TEST_F(AppCaptureTest, LoggingOutWithClearOnQuitKeepsOnlyPinnedTexts) {
    copyText("keep me");
    ASSERT_TRUE(waitUntil([&] { return texts("keep me") == 1; }));
    copyText("forget me");
    ASSERT_TRUE(waitUntil([&] { return texts("forget me") == 1; }));
    rows(library_ / "clipboard.sqlite", "UPDATE items SET pinned = 1 WHERE text = 'keep me'");
    // Set while the app runs: it reads the preference when it quits.
    fs::create_directories(config_ / "Zettly");
    std::ofstream(config_ / "Zettly" / "defaults.json") << R"({"clearOnQuit": true})";

    stop(app_);  // SIGTERM, as a session logout sends
    app_ = -1;
    EXPECT_EQ(texts("keep me"), 1);
    EXPECT_EQ(texts("forget me"), 0);
}

}  // namespace
}  // namespace zettly::test
