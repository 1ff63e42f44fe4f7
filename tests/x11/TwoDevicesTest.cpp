// Two copies of the real app, each on an X server of its own with its own
// folders, syncing through one local pouchdb-server: what one copies shows
// up in the other's history within seconds, pushed by the server.
#include <map>
#include <string>
#include <vector>

#include "tests/fakes/PouchServer.h"
#include "tests/support/AppTestSupport.h"

namespace zettly::test {
namespace {

// This process's environment with `set` added or replaced.
std::vector<std::string> environmentWith(const std::map<std::string, std::string>& set) {
    std::vector<std::string> env;
    for (char** entry = environ; *entry; ++entry) {
        std::string line = *entry;
        std::string name = line.substr(0, line.find('='));
        // No keyring in a test: secrets come from the environment.
        if (!set.contains(name) && name != "DBUS_SESSION_BUS_ADDRESS")
            env.push_back(line);
    }
    for (const auto& [name, value] : set)
        env.push_back(name + "=" + value);
    return env;
}

// One device: an Xvfb on a display it picks itself, folders, and the app.
struct Device {
    explicit Device(const PouchServer& server) {
        int fds[2];
        if (::pipe(fds) != 0)
            return;
        xvfb = spawn({"Xvfb", "-displayfd", std::to_string(fds[1]), "-screen", "0", "800x600x24",
                      "-nolisten", "tcp"});
        ::close(fds[1]);
        char number[16] = {};
        ssize_t got = ::read(fds[0], number, sizeof number - 1);
        ::close(fds[0]);
        if (xvfb <= 0 || got <= 0)
            return;
        display = ":" + std::string(number, std::size_t(got - (number[got - 1] == '\n')));

        for (const fs::path& folder : {config / "Zettly", data, runtime}) {
            fs::create_directories(folder);
            ::chmod(folder.c_str(), 0700);
        }
        std::ofstream(config / "Zettly" / "defaults.json")
            << R"({"clipboardCloudSync": true, "syncServerURL": ")" << server.url()
            << R"(/zettly", "syncServerUser": ")" << PouchServer::user << R"("})";
        app = spawn({ZETTLY_APP_PATH}, -1, environmentWith(environment()));
    }
    ~Device() {
        stop(app);
        for (pid_t pid : xclips)
            stop(pid);
        stop(xvfb);
    }

    std::map<std::string, std::string> environment() const {
        return {{"DISPLAY", display},
                {"HOME", dir.path().string()},
                {"XDG_CONFIG_HOME", config.string()},
                {"XDG_DATA_HOME", data.string()},
                {"XDG_RUNTIME_DIR", runtime.string()},
                {"QT_QPA_PLATFORM", "xcb"},
                {"ZETTLY_SYNC_PASSWORD", PouchServer::password},
                {"ZETTLY_SYNC_PASSPHRASE", "one passphrase for both"}};
    }
    bool started() const { return fs::exists(runtime / "zettly.sock"); }
    void copy(const std::string& text) {
        int fds[2];
        ASSERT_EQ(::pipe2(fds, O_CLOEXEC), 0);
        pid_t pid = spawn({"xclip", "-quiet", "-selection", "clipboard", "-i"}, fds[0],
                          environmentWith(environment()));
        ::close(fds[0]);
        ASSERT_EQ(::write(fds[1], text.data(), text.size()), ssize_t(text.size()));
        ::close(fds[1]);
        ASSERT_GT(pid, 0);
        xclips.push_back(pid);
    }
    int has(const std::string& text) {
        return countRows(data / "Zettly" / "Library" / "clipboard.sqlite", "items", "text = ?",
                         text);
    }

    TempDir dir;
    fs::path config = dir / "config", data = dir / "data", runtime = dir / "run";
    std::string display;
    pid_t xvfb = -1, app = -1;
    std::vector<pid_t> xclips;
};

TEST(TwoDevices, WhatOneCopiesAppearsInTheOthersHistoryWithinSeconds) {
    PouchServer server(ZETTLY_POUCHDB_SERVER);
    ASSERT_TRUE(server.start()) << server.output();
    Device a(server);
    Device b(server);
    ASSERT_FALSE(a.display.empty() || b.display.empty()) << "Xvfb did not start";
    ASSERT_TRUE(waitUntil([&] { return a.started() && b.started(); })) << "an app did not start";

    a.copy("copied on the laptop");
    ASSERT_TRUE(waitUntil([&] { return a.has("copied on the laptop") == 1; }));
    EXPECT_TRUE(waitUntil([&] { return b.has("copied on the laptop") == 1; }))
        << "never reached the other device";

    b.copy("copied on the desktop");
    EXPECT_TRUE(waitUntil([&] { return a.has("copied on the desktop") == 1; }));

    // The server holds both, sealed.
    auto raw = server.request("GET", "/zettly/_all_docs?include_docs=true");
    EXPECT_EQ(raw.status, 200);
    EXPECT_EQ(raw.body.find("copied on"), std::string::npos);
}

}  // namespace
}  // namespace zettly::test
