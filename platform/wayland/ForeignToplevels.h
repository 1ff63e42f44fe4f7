#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/Desktop.h"
#include "platform/Pasteboard.h"

struct zwlr_foreign_toplevel_handle_v1;
struct zwlr_foreign_toplevel_manager_v1;

namespace zettly {

class Log;
class WaylandConnection;

// The windows of the session as the wlroots foreign-toplevel protocol lists
// them (Sway, Hyprland, labwc, niri, Wayfire, COSMIC): their application
// ids, titles and which one is active. The compositor's events arrive on the
// connection's thread; the main thread reads a copy taken after each of the
// compositor's atomic updates, so it never waits for the compositor.
//
// Our own windows are known by their app id: Qt labels its Wayland windows
// with QGuiApplication::desktopFileName(), which app/main.cpp sets to our
// application id.
class ForeignToplevels final : public Workspace {
public:
    // Whether the compositor offers the protocol at all.
    static bool offeredBy(const WaylandConnection& connection);

    // Binds the manager and reads the windows open now (a roundtrip), so
    // before connection.start(). Without the protocol it knows nothing.
    ForeignToplevels(WaylandConnection& connection, std::string ownAppId, Log& log);
    ~ForeignToplevels() override;
    ForeignToplevels(const ForeignToplevels&) = delete;
    ForeignToplevels& operator=(const ForeignToplevels&) = delete;

    // False without the protocol, or once the compositor stopped sending.
    bool available() const;

    // ---- Workspace -----------------------------------------------------
    // The active window's app id, our own included (a copy in our Settings
    // window comes from Zettly, as on X11); none when no window is active or
    // the active one names no application.
    std::optional<std::string> frontmostApplicationId() override;
    // Every window but ours whose application names itself, in the order
    // the compositor announced them (oldest first).
    std::vector<RunningApp> runningApplications() override;

    // ---- for the Desktop ----------------------------------------------
    // The active window, with a number of ours that stays the same for as
    // long as the window is open (the protocol gives windows no id).
    std::optional<AppWindow> frontmostWindow();
    // Asks the compositor to activate the window on our seat; nothing when
    // it has closed meanwhile.
    void activate(const AppWindow& window);

    // What the main thread sees, for tests and the functions above.
    struct Window {
        std::uint64_t id = 0;
        std::string appId;
        std::string title;
        bool activated = false;
    };
    std::vector<Window> windows() const;

    // The event thread's side (the listeners' data), defined in the .cpp;
    // shared so that a destruction posted there outlives us.
    struct State;

private:
    static void onToplevel(void* data, zwlr_foreign_toplevel_manager_v1* manager,
                           zwlr_foreign_toplevel_handle_v1* handle);
    static void onFinished(void* data, zwlr_foreign_toplevel_manager_v1* manager);

    WaylandConnection& connection_;
    std::string ownAppId_;
    std::shared_ptr<State> state_;
};

}  // namespace zettly
