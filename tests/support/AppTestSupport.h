// What the desktop tests share: waiting with a deadline, child processes,
// and the real app started over private XDG folders in the session the test
// runs in (X11 by default; see prepareSession).
#pragma once

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/fakes/TempDir.h"
#include "tests/fakes/TestImages.h"

extern char** environ;

namespace zettly::test {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

// Long enough for a loaded 2-core CI machine; the poll itself is 0.5 s.
inline constexpr auto kDeadline = 10s;

template <typename Ready>
inline bool waitUntil(Ready ready) {
    for (auto end = SteadyClock::now() + kDeadline; SteadyClock::now() < end;
         std::this_thread::sleep_for(50ms))
        if (ready())
            return true;
    return ready();
}

inline std::chrono::milliseconds since(SteadyClock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(SteadyClock::now() - start);
}

// The child inherits this process's environment, which SetUp points at the
// test's own folders, unless `env` ("NAME=value" lines) is given; its output
// goes to `log` when one is named.
inline pid_t spawn(std::vector<std::string> args, int stdinFd = -1,
                   std::vector<std::string> env = {}, const fs::path& log = {}) {
    std::vector<char*> argv;
    for (auto& arg : args)
        argv.push_back(arg.data());
    argv.push_back(nullptr);
    std::vector<char*> envp;
    for (auto& line : env)
        envp.push_back(line.data());
    envp.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (stdinFd >= 0)
        posix_spawn_file_actions_adddup2(&actions, stdinFd, STDIN_FILENO);
    if (!log.empty() || stdinFd >= 0) {
        // xclip in the foreground narrates every request it serves.
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO,
                                         log.empty() ? "/dev/null" : log.c_str(),
                                         O_WRONLY | O_CREAT | O_APPEND, 0600);
        posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    }
    pid_t pid = -1;
    int rc = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(),
                          env.empty() ? environ : envp.data());
    posix_spawn_file_actions_destroy(&actions);
    return rc == 0 ? pid : -1;
}

inline void stop(pid_t pid, int signal = SIGTERM) {
    if (pid <= 0)
        return;
    ::kill(pid, signal);
    int status = 0;
    bool ended = waitUntil([&] { return ::waitpid(pid, &status, WNOHANG) == pid; });
    if (!ended) {  // a hung quit must not hang the whole suite
        ::kill(pid, SIGKILL);
        ::waitpid(pid, &status, 0);
    }
}

inline std::string readFile(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// Runs a command and gives its standard output.
inline std::string output(const std::string& command) {
    std::string out;
    if (FILE* pipe = ::popen(command.c_str(), "r")) {
        char buffer[4096];
        for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
            out.append(buffer, n);
        ::pclose(pipe);
    }
    return out;
}

inline void run(const std::string& command) {
    int status = std::system(command.c_str());
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << command;
}

// The id of a shown window titled exactly `title`, empty when there is none.
inline std::string visibleWindow(const std::string& title) {
    std::string id =
        output("xdotool search --onlyvisible --name '^" + title + "$' 2>/dev/null | head -1");
    while (!id.empty() && id.back() == '\n')
        id.pop_back();
    return id;
}

// A program of the build tree, or its copy where the compositor harness put
// it for a test user who cannot read the build tree.
inline std::string program(const fs::path& built) {
    if (const char* staged = ::getenv("ZETTLY_STAGED_BIN")) {
        fs::path copy = fs::path(staged) / built.filename();
        if (fs::exists(copy))
            return copy.string();
    }
    return built.string();
}

// Rows matching `where`; a database or table that does not exist yet counts
// as none, since the app creates them on its first capture.
inline int countRows(const fs::path& file, const std::string& table, const std::string& where,
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

// Starts the real app over private XDG folders, with `defaults` (JSON) as its
// preferences, and stops it after the test.
class AppTest : public ::testing::Test {
protected:
    void SetUp() override {
        prepareSession();
        if (HasFatalFailure())
            return;
        for (const fs::path& dir : {config_, data_, runtime_}) {
            fs::create_directories(dir);
            ::chmod(dir.c_str(), 0700);
        }
        ::setenv("XDG_CONFIG_HOME", config_.c_str(), 1);
        ::setenv("XDG_DATA_HOME", data_.c_str(), 1);
        ::setenv("XDG_RUNTIME_DIR", runtime_.c_str(), 1);
        if (!defaults().empty())
            setDefaults(defaults());
        beforeStart();
        if (HasFatalFailure())
            return;
        startApp();
    }
    void startApp() {
        // A killed app leaves its socket behind; the next one replaces it.
        std::error_code ignored;
        fs::remove(runtime_ / "zettly.sock", ignored);
        std::vector<std::string> command{program(ZETTLY_APP_PATH)};
        for (const std::string& argument : arguments())
            command.push_back(argument);
        app_ = spawn(command, -1, {}, appLog_);
        ASSERT_GT(app_, 0) << "cannot start " << ZETTLY_APP_PATH;
        ASSERT_TRUE(waitUntil([&] { return fs::exists(runtime_ / "zettly.sock"); }))
            << "the app never started listening";
    }
    // Ends the app with `signal` (SIGKILL: as a crash would) and starts it
    // again over the same folders; its log goes on in the same file.
    void restartApp(int signal) {
        stop(app_, signal);
        app_ = -1;
        startApp();
    }
    // Points the app and the test's clients at the display server; runs
    // before XDG_RUNTIME_DIR becomes the test's own.
    virtual void prepareSession() {
        ASSERT_NE(::getenv("DISPLAY"), nullptr) << "run under xvfb-run";
        ::setenv("QT_QPA_PLATFORM", "xcb", 1);
    }
    virtual std::string defaults() const { return {}; }
    // Runs before the app's first start, over the test's own folders: a
    // history the app is to find there.
    virtual void beforeStart() {}
    virtual std::vector<std::string> arguments() const { return {}; }

    // Replaces the preferences while the app runs; it reads the file afresh
    // at its next look.
    void setDefaults(const std::string& json) {
        fs::path file = config_ / "Zettly" / "defaults.json";
        fs::create_directories(file.parent_path());
        std::ofstream(dir_ / "defaults.json.new") << json;
        fs::rename(dir_ / "defaults.json.new", file);
    }

    void TearDown() override {
        stop(app_);
        for (pid_t pid : children_)
            stop(pid);
        if (HasFailure())
            std::cerr << "the app said:\n" << appLog();
    }

    std::string appLog() const { return readFile(appLog_); }

    void xclip(std::vector<std::string> args, const std::string& input = {}) {
        int pipeFds[2];
        ASSERT_EQ(::pipe2(pipeFds, O_CLOEXEC), 0);
        args.insert(args.begin(), {"xclip", "-quiet", "-selection", "clipboard"});
        pid_t pid = spawn(args, pipeFds[0]);
        ::close(pipeFds[0]);
        ASSERT_EQ(::write(pipeFds[1], input.data(), input.size()), ssize_t(input.size()));
        ::close(pipeFds[1]);
        ASSERT_GT(pid, 0) << "xclip is missing";
        children_.push_back(pid);
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
    fs::path appLog_ = dir_ / "app.log";
    pid_t app_ = -1;
    std::vector<pid_t> children_;  // stopped after the test
};

}  // namespace zettly::test
