#pragma once
// The real app as a native Wayland client under a compositor that
// tests/wayland/run-in-compositor.sh started, and wl-copy making copies.
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/support/AppTestSupport.h"

namespace zettly::test {

class WaylandAppTest : public AppTest {
protected:
    void prepareSession() override {
        const char* display = ::getenv("WAYLAND_DISPLAY");
        const char* runtime = ::getenv("XDG_RUNTIME_DIR");
        ASSERT_TRUE(display && runtime) << "run under tests/wayland/run-in-compositor.sh";
        // The app gets a runtime folder of its own; the compositor's socket
        // is then named by its whole path, which libwayland accepts.
        fs::path socket = display[0] == '/' ? fs::path(display) : fs::path(runtime) / display;
        ::setenv("WAYLAND_DISPLAY", socket.c_str(), 1);
        ::unsetenv("DISPLAY");
        ::setenv("QT_QPA_PLATFORM", "wayland", 1);
    }

    // Owns the clipboard with `input` until the next copy.
    void wlCopy(std::vector<std::string> args, const std::string& input) {
        int pipeFds[2];
        ASSERT_EQ(::pipe2(pipeFds, O_CLOEXEC), 0);
        args.insert(args.begin(), {"wl-copy", "--foreground"});
        pid_t pid = spawn(args, pipeFds[0]);
        ::close(pipeFds[0]);
        ASSERT_EQ(::write(pipeFds[1], input.data(), input.size()), ssize_t(input.size()));
        ::close(pipeFds[1]);
        ASSERT_GT(pid, 0) << "wl-copy is missing";
        children_.push_back(pid);
    }
};

}  // namespace zettly::test
