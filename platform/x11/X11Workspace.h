#pragma once

#include <string>
#include <vector>

#include "platform/Pasteboard.h"
#include "platform/x11/XcbConnection.h"

namespace zettly {

// The application in front, from the window manager's _NET_ACTIVE_WINDOW.
// Its id is, in this order: the Flatpak application id of the window's
// process, the GTK application id, KDE's desktop file name, the WM_CLASS
// class. The first names an app exactly; WM_CLASS is what every X client has.
class X11Workspace final : public Workspace {
public:
    explicit X11Workspace(XcbConnection& connection) : connection_(connection) {}
    std::optional<std::string> frontmostApplicationId() override;
    std::vector<RunningApp> runningApplications() override;

    // The top-level window in front: the window manager's active window, or,
    // with no window manager keeping one (a bare X server, a minimal WM), the
    // top-level window that holds the keyboard focus.
    static std::optional<xcb_window_t> activeWindow(XcbConnection& connection);
    // The id of the application that owns a top-level window, as above.
    static std::optional<std::string> applicationId(XcbConnection& connection, xcb_window_t window);

    // A top-level window of a running application, as the window manager
    // lists it, with its application's id (as above) and its title.
    struct ClientWindow {
        xcb_window_t window = XCB_WINDOW_NONE;
        std::string appId;
        std::string title;
    };
    // The window manager's _NET_CLIENT_LIST in its order (oldest first),
    // without windows whose application cannot be named. Empty without a
    // window manager that keeps the list.
    static std::vector<ClientWindow> clientWindows(XcbConnection& connection);

    // Reads "name=" of the [Application] group of a .flatpak-info file.
    static std::optional<std::string> flatpakId(const std::string& info);

private:
    XcbConnection& connection_;
};

}  // namespace zettly
