#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

struct wl_display;
struct wl_interface;
struct wl_registry;
struct wl_seat;

namespace zettly {

class Log;

// A Wayland connection of Zettly's own, beside the one Qt draws its windows
// through, with a thread that dispatches its events. The clipboard owner's
// answers, the compositor's selection events and the list of windows arrive
// here however busy the main thread is, and Qt's connection never sees our
// privileged protocols.
//
// Every Wayland object made on this connection is used on its thread only:
// the parts bind their globals and make their objects in their constructors,
// before start(); afterwards they reach the thread through post().
//
//     auto wayland = WaylandConnection::open(log);
//     DataControlClipboard clipboard(*wayland, ...);  // binds, listens
//     wayland->start();
//     wayland->post([&] { /* on the event thread */ });
class WaylandConnection {
public:
    struct Global {
        std::uint32_t name = 0;
        std::string interface;
        std::uint32_t version = 0;
    };

    // Connects to `display` (WAYLAND_DISPLAY when empty) and reads the
    // compositor's globals; none when no compositor answers.
    static std::unique_ptr<WaylandConnection> open(Log& log, const std::string& display = {});
    ~WaylandConnection();
    WaylandConnection(const WaylandConnection&) = delete;
    WaylandConnection& operator=(const WaylandConnection&) = delete;

    wl_display* display() const { return display_; }
    bool offers(std::string_view interface) const;
    // Binds the global of this interface at the lower of its version and
    // `maxVersion`; null when the compositor does not offer it. Before
    // start() only.
    void* bind(const wl_interface& interface, std::uint32_t maxVersion);
    // The session's first seat, bound at open; null when it has none.
    wl_seat* seat() const { return seat_; }
    // Waits until the compositor has handled every request sent so far and
    // its answers were dispatched. Before start() only.
    void roundtrip();

    // Starts the event thread.
    void start();
    // Runs `task` on the event thread, in order; from any thread. Dropped
    // once the connection is lost.
    void post(std::function<void()> task);
    bool onEventThread() const;
    // False once the compositor closed the connection or raised a protocol
    // error (logged once); nothing on it works any more.
    bool alive() const { return alive_; }

private:
    WaylandConnection(wl_display* display, Log& log);
    static void onGlobal(void* data, wl_registry* registry, std::uint32_t name,
                         const char* interface, std::uint32_t version);
    static void onGlobalRemove(void* data, wl_registry* registry, std::uint32_t name);
    void run();
    void runTasks();
    void lost();

    wl_display* display_;
    Log& log_;
    wl_registry* registry_ = nullptr;
    wl_seat* seat_ = nullptr;
    std::vector<Global> globals_;
    int wakeFd_ = -1;
    std::atomic<bool> alive_{true};
    std::atomic<bool> stopping_{false};
    std::mutex tasksMutex_;
    std::vector<std::function<void()>> tasks_;
    std::thread thread_;
};

}  // namespace zettly
