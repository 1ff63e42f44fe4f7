#include "platform/Backends.h"

#include <cstdlib>

namespace zettly {

namespace {

std::string variable(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

// Qt takes its Wayland plugin where it can, else its X11 one (through
// XWayland when that runs); with neither display there is nothing to show a
// window on.
std::variant<BackendChoice, std::string> fallbackFor(const SessionEnvironment& session) {
    if (!session.waylandDisplay.empty())
        return BackendChoice{"fallback", session.display.empty() ? "wayland" : "wayland;xcb"};
    if (!session.display.empty())
        return BackendChoice{"fallback", "xcb"};
    return std::string(
        "Zettly needs a graphical session, and neither WAYLAND_DISPLAY nor DISPLAY is set.");
}

}  // namespace

SessionEnvironment SessionEnvironment::current() {
    return {variable("XDG_SESSION_TYPE"), variable("WAYLAND_DISPLAY"), variable("DISPLAY"),
            variable("XDG_CURRENT_DESKTOP")};
}

bool SessionEnvironment::isGnome() const {
    std::string_view rest = currentDesktop;
    while (!rest.empty()) {
        auto colon = rest.find(':');
        if (rest.substr(0, colon) == "GNOME")
            return true;
        rest = colon == std::string_view::npos ? std::string_view{} : rest.substr(colon + 1);
    }
    return false;
}

std::vector<std::string_view> backendNames() {
    return {"gnome", "wayland", "x11", "fallback"};
}

std::variant<BackendChoice, std::string> chooseBackend(const std::optional<std::string>& forced,
                                                       const SessionEnvironment& session) {
    if (forced) {
        if (*forced == "x11") {
            if (session.display.empty())
                return std::string("The x11 platform needs an X server, and DISPLAY is not set.");
            return BackendChoice{"x11", "xcb"};
        }
        if (*forced == "wayland") {
            if (session.waylandDisplay.empty())
                return std::string(
                    "The wayland platform needs a Wayland compositor, and WAYLAND_DISPLAY is not "
                    "set.");
            return BackendChoice{"wayland", "wayland"};
        }
        if (*forced == "gnome") {
            if (session.waylandDisplay.empty())
                return std::string(
                    "The gnome platform needs GNOME Shell on Wayland, and WAYLAND_DISPLAY is not "
                    "set.");
            return BackendChoice{"gnome", "wayland"};
        }
        if (*forced == "fallback")
            return fallbackFor(session);
        std::string known;
        for (std::string_view name : backendNames())
            known += (known.empty() ? "" : ", ") + std::string(name);
        return "There is no platform \"" + *forced + "\"; this Zettly knows " + known + ".";
    }
    // GNOME Shell keeps the clipboard from other applications: its backend
    // goes through Zettly's Shell extension, and makePlatform() falls back
    // while that is off. Any other Wayland session gets the native backend,
    // which needs a compositor with a data-control protocol. XWayland's
    // DISPLAY would show only X11 applications' copies.
    if (!session.waylandDisplay.empty() && session.isGnome())
        return BackendChoice{"gnome", "wayland"};
    if (!session.waylandDisplay.empty())
        return BackendChoice{"wayland", "wayland"};
    if (!session.display.empty())
        return BackendChoice{"x11", "xcb"};
    return fallbackFor(session);
}

}  // namespace zettly
