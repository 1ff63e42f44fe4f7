#include "platform/wayland/ForeignToplevels.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include <wayland-client.h>

#include "platform/Log.h"
#include "platform/wayland/WaylandConnection.h"
#include "wayland/wlr-foreign-toplevel-management-unstable-v1-client-protocol.h"

namespace zettly {

namespace {

// Version 3 adds the parent event, which we need not but must listen to.
constexpr std::uint32_t kManagerVersion = 3;

}  // namespace

struct ForeignToplevels::State {
    struct Handle {
        State* state = nullptr;
        zwlr_foreign_toplevel_handle_v1* proxy = nullptr;
        Window window;
    };

    State(WaylandConnection& connection, Log& log) : connection(connection), log(log) {}

    // Event thread (or the constructor's roundtrip) ------------------------
    WaylandConnection& connection;
    Log& log;
    zwlr_foreign_toplevel_manager_v1* manager = nullptr;
    // In the order the compositor announced them.
    std::vector<std::unique_ptr<Handle>> handles;
    std::uint64_t nextId = 1;

    // Shared with the main thread ------------------------------------------
    mutable std::mutex mutex;
    std::vector<Window> snapshot;
    bool available = false;

    // The compositor's state is consistent only at a handle's done event.
    void publish() {
        std::vector<Window> copy;
        copy.reserve(handles.size());
        for (const auto& handle : handles)
            copy.push_back(handle->window);
        std::lock_guard lock(mutex);
        snapshot = std::move(copy);
    }

    void closed(Handle* handle) {
        zwlr_foreign_toplevel_handle_v1_destroy(handle->proxy);
        std::erase_if(handles, [handle](const auto& h) { return h.get() == handle; });
        publish();
    }

    void destroy() {
        for (const auto& handle : handles)
            zwlr_foreign_toplevel_handle_v1_destroy(handle->proxy);
        handles.clear();
        if (manager) {
            // The manager has no destructor request: stop tells the
            // compositor, and its later events go to a dead proxy.
            zwlr_foreign_toplevel_manager_v1_stop(manager);
            zwlr_foreign_toplevel_manager_v1_destroy(manager);
            manager = nullptr;
        }
    }
};

namespace {

using Handle = ForeignToplevels::State::Handle;

Handle* handleOf(void* data) {
    return static_cast<Handle*>(data);
}

void onTitle(void* data, zwlr_foreign_toplevel_handle_v1*, const char* title) {
    handleOf(data)->window.title = title ? title : "";
}

void onAppId(void* data, zwlr_foreign_toplevel_handle_v1*, const char* appId) {
    handleOf(data)->window.appId = appId ? appId : "";
}

void onOutput(void*, zwlr_foreign_toplevel_handle_v1*, wl_output*) {}

void onState(void* data, zwlr_foreign_toplevel_handle_v1*, wl_array* states) {
    bool activated = false;
    const auto* values = static_cast<const std::uint32_t*>(states->data);
    for (std::size_t i = 0; i < states->size / sizeof(std::uint32_t); ++i)
        activated = activated || values[i] == ZWLR_FOREIGN_TOPLEVEL_HANDLE_V1_STATE_ACTIVATED;
    handleOf(data)->window.activated = activated;
}

void onDone(void* data, zwlr_foreign_toplevel_handle_v1*) {
    handleOf(data)->state->publish();
}

void onClosed(void* data, zwlr_foreign_toplevel_handle_v1*) {
    Handle* handle = handleOf(data);
    handle->state->closed(handle);
}

void onParent(void*, zwlr_foreign_toplevel_handle_v1*, zwlr_foreign_toplevel_handle_v1*) {}

const zwlr_foreign_toplevel_handle_v1_listener kHandleListener = {
    .title = onTitle,
    .app_id = onAppId,
    .output_enter = onOutput,
    .output_leave = onOutput,
    .state = onState,
    .done = onDone,
    .closed = onClosed,
    .parent = onParent,
};

}  // namespace

bool ForeignToplevels::offeredBy(const WaylandConnection& connection) {
    return connection.offers(zwlr_foreign_toplevel_manager_v1_interface.name);
}

ForeignToplevels::ForeignToplevels(WaylandConnection& connection, std::string ownAppId, Log& log)
    : connection_(connection),
      ownAppId_(std::move(ownAppId)),
      state_(std::make_shared<State>(connection, log)) {
    state_->manager = static_cast<zwlr_foreign_toplevel_manager_v1*>(
        connection.bind(zwlr_foreign_toplevel_manager_v1_interface, kManagerVersion));
    if (!state_->manager)
        return;
    static const zwlr_foreign_toplevel_manager_v1_listener listener = {
        .toplevel = &ForeignToplevels::onToplevel,
        .finished = &ForeignToplevels::onFinished,
    };
    zwlr_foreign_toplevel_manager_v1_add_listener(state_->manager, &listener, state_.get());
    state_->available = true;
    // The windows open now, each with its first done.
    connection.roundtrip();
}

ForeignToplevels::~ForeignToplevels() {
    // The proxies belong to the event thread; the task keeps the state (the
    // listeners' data) alive until it has run.
    connection_.post([state = state_] { state->destroy(); });
}

void ForeignToplevels::onToplevel(void* data, zwlr_foreign_toplevel_manager_v1*,
                                  zwlr_foreign_toplevel_handle_v1* proxy) {
    auto* state = static_cast<State*>(data);
    auto handle = std::make_unique<Handle>();
    handle->state = state;
    handle->proxy = proxy;
    handle->window.id = state->nextId++;
    zwlr_foreign_toplevel_handle_v1_add_listener(proxy, &kHandleListener, handle.get());
    state->handles.push_back(std::move(handle));
}

void ForeignToplevels::onFinished(void* data, zwlr_foreign_toplevel_manager_v1*) {
    auto* state = static_cast<State*>(data);
    zwlr_foreign_toplevel_manager_v1_destroy(state->manager);
    state->manager = nullptr;
    {
        std::lock_guard lock(state->mutex);
        state->available = false;
    }
    state->log.line(
        "[Zettly] the compositor stopped listing windows; the application in front is unknown "
        "from now on");
}

bool ForeignToplevels::available() const {
    std::lock_guard lock(state_->mutex);
    return state_->available;
}

std::vector<ForeignToplevels::Window> ForeignToplevels::windows() const {
    std::lock_guard lock(state_->mutex);
    return state_->snapshot;
}

std::optional<AppWindow> ForeignToplevels::frontmostWindow() {
    for (Window& window : windows()) {
        if (!window.activated)
            continue;
        AppWindow out{window.id, std::nullopt};
        if (!window.appId.empty())
            out.appId = std::move(window.appId);
        return out;
    }
    return std::nullopt;
}

std::optional<std::string> ForeignToplevels::frontmostApplicationId() {
    if (auto window = frontmostWindow())
        return window->appId;
    return std::nullopt;
}

std::vector<RunningApp> ForeignToplevels::runningApplications() {
    std::vector<RunningApp> apps;
    for (Window& window : windows()) {
        if (window.appId.empty() || window.appId == ownAppId_)
            continue;
        apps.push_back({std::move(window.appId), std::move(window.title)});
    }
    return apps;
}

void ForeignToplevels::activate(const AppWindow& window) {
    if (window.id == 0)
        return;
    connection_.post([state = state_, id = window.id] {
        auto handle = std::find_if(state->handles.begin(), state->handles.end(),
                                   [id](const auto& h) { return h->window.id == id; });
        if (handle == state->handles.end())
            return;  // closed since it was in front
        wl_seat* seat = state->connection.seat();
        if (!seat) {
            state->log.line("[Zettly] the Wayland session has no seat; cannot activate a window");
            return;
        }
        zwlr_foreign_toplevel_handle_v1_activate((*handle)->proxy, seat);
    });
}

}  // namespace zettly
