#include "platform/wayland/WaylandConnection.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <wayland-client.h>

#include "platform/Log.h"

namespace zettly {

std::unique_ptr<WaylandConnection> WaylandConnection::open(Log& log, const std::string& name) {
    wl_display* display = wl_display_connect(name.empty() ? nullptr : name.c_str());
    if (!display)
        return nullptr;
    std::unique_ptr<WaylandConnection> connection(new WaylandConnection(display, log));
    // The globals, then the seat's own answer.
    connection->roundtrip();
    if (auto seat = std::find_if(connection->globals_.begin(), connection->globals_.end(),
                                 [](const Global& g) { return g.interface == "wl_seat"; });
        seat != connection->globals_.end()) {
        connection->seat_ = static_cast<wl_seat*>(wl_registry_bind(
            connection->registry_, seat->name, &wl_seat_interface, std::min(seat->version, 5u)));
    }
    connection->roundtrip();
    if (!connection->alive())
        return nullptr;
    return connection;
}

WaylandConnection::WaylandConnection(wl_display* display, Log& log)
    : display_(display), log_(log), wakeFd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    static const wl_registry_listener listener = {&WaylandConnection::onGlobal,
                                                  &WaylandConnection::onGlobalRemove};
    registry_ = wl_display_get_registry(display_);
    wl_registry_add_listener(registry_, &listener, this);
}

WaylandConnection::~WaylandConnection() {
    stopping_ = true;
    if (thread_.joinable()) {
        std::uint64_t one = 1;
        [[maybe_unused]] auto n = ::write(wakeFd_, &one, sizeof one);
        thread_.join();
    }
    if (seat_)
        wl_seat_destroy(seat_);
    if (registry_)
        wl_registry_destroy(registry_);
    wl_display_disconnect(display_);
    if (wakeFd_ >= 0)
        ::close(wakeFd_);
}

void WaylandConnection::onGlobal(void* data, wl_registry*, std::uint32_t name,
                                 const char* interface, std::uint32_t version) {
    static_cast<WaylandConnection*>(data)->globals_.push_back({name, interface, version});
}

void WaylandConnection::onGlobalRemove(void* data, wl_registry*, std::uint32_t name) {
    auto& globals = static_cast<WaylandConnection*>(data)->globals_;
    std::erase_if(globals, [name](const Global& g) { return g.name == name; });
}

bool WaylandConnection::offers(std::string_view interface) const {
    return std::any_of(globals_.begin(), globals_.end(),
                       [&](const Global& g) { return g.interface == interface; });
}

void* WaylandConnection::bind(const wl_interface& interface, std::uint32_t maxVersion) {
    auto global = std::find_if(globals_.begin(), globals_.end(),
                               [&](const Global& g) { return g.interface == interface.name; });
    if (global == globals_.end())
        return nullptr;
    std::uint32_t version =
        std::min({global->version, maxVersion, static_cast<std::uint32_t>(interface.version)});
    return wl_registry_bind(registry_, global->name, &interface, version);
}

void WaylandConnection::roundtrip() {
    if (wl_display_roundtrip(display_) < 0)
        lost();
}

void WaylandConnection::start() {
    if (thread_.joinable() || !alive_)
        return;
    thread_ = std::thread([this] { run(); });
}

void WaylandConnection::post(std::function<void()> task) {
    if (!alive_)
        return;
    {
        std::lock_guard lock(tasksMutex_);
        tasks_.push_back(std::move(task));
    }
    std::uint64_t one = 1;
    [[maybe_unused]] auto n = ::write(wakeFd_, &one, sizeof one);
}

bool WaylandConnection::onEventThread() const {
    return std::this_thread::get_id() == thread_.get_id();
}

void WaylandConnection::runTasks() {
    std::uint64_t count;
    while (::read(wakeFd_, &count, sizeof count) > 0) {
    }
    std::vector<std::function<void()>> tasks;
    {
        std::lock_guard lock(tasksMutex_);
        tasks.swap(tasks_);
    }
    for (auto& task : tasks)
        task();
}

void WaylandConnection::lost() {
    if (!alive_.exchange(false)) {
        return;
    }
    int error = wl_display_get_error(display_);
    log_.line(std::string("[Zettly] the Wayland connection broke (") + std::strerror(error) +
              "); clipboard capture and paste stop until Zettly is restarted");
}

void WaylandConnection::run() {
    int fd = wl_display_get_fd(display_);
    while (!stopping_ && alive_) {
        while (wl_display_prepare_read(display_) != 0) {
            if (wl_display_dispatch_pending(display_) < 0) {
                lost();
                return;
            }
        }
        // A compositor slow to take our requests: wait until it can.
        bool pendingWrites = wl_display_flush(display_) < 0 && errno == EAGAIN;
        pollfd fds[2] = {{fd, static_cast<short>(POLLIN | (pendingWrites ? POLLOUT : 0)), 0},
                         {wakeFd_, POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0 && errno != EINTR) {
            wl_display_cancel_read(display_);
            lost();
            return;
        }
        if (fds[0].revents & POLLIN) {
            if (wl_display_read_events(display_) < 0) {
                lost();
                return;
            }
        } else {
            wl_display_cancel_read(display_);
        }
        if (fds[0].revents & (POLLERR | POLLHUP)) {
            lost();
            return;
        }
        if (wl_display_dispatch_pending(display_) < 0) {
            lost();
            return;
        }
        if (fds[1].revents & POLLIN)
            runTasks();
        if (wl_display_flush(display_) < 0 && errno != EAGAIN) {
            lost();
            return;
        }
    }
}

}  // namespace zettly
