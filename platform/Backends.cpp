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
    return {variable("XDG_SESSION_TYPE"), variable("WAYLAND_DISPLAY"), variable("DISPLAY")};
}

std::vector<std::string_view> backendNames() {
    return {"wayland", "x11", "fallback"};
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
        if (*forced == "fallback")
            return fallbackFor(session);
        std::string known;
        for (std::string_view name : backendNames())
            known += (known.empty() ? "" : ", ") + std::string(name);
        return "There is no platform \"" + *forced + "\"; this Zettly knows " + known + ".";
    }
    // A Wayland session gets the native backend, which needs a compositor
    // with a data-control protocol; makePlatform() falls back where there is
    // none (GNOME). XWayland's DISPLAY would show only X11 applications'
    // copies.
    if (!session.waylandDisplay.empty())
        return BackendChoice{"wayland", "wayland"};
    if (!session.display.empty())
        return BackendChoice{"x11", "xcb"};
    return fallbackFor(session);
}

}  // namespace zettly
