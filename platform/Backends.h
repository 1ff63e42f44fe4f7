#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace zettly {

class Log;
class Platform;

// The session as the environment describes it.
struct SessionEnvironment {
    std::string sessionType;     // XDG_SESSION_TYPE: "x11", "wayland", "tty" or empty
    std::string waylandDisplay;  // WAYLAND_DISPLAY
    std::string display;         // DISPLAY
    // XDG_CURRENT_DESKTOP: colon-separated names, "ubuntu:GNOME". Defaulted,
    // so that the fields above alone still describe a session.
    std::string currentDesktop = {};
    // Whether XDG_CURRENT_DESKTOP names GNOME among its desktops.
    bool isGnome() const;

    static SessionEnvironment current();
};

// A backend picked for this run, and the Qt platform plugin that goes with
// it (QT_QPA_PLATFORM: the backend's code and Qt's windows must speak to the
// same display server).
struct BackendChoice {
    std::string name;
    std::string qtPlatform;
    bool operator==(const BackendChoice&) const = default;
};

// The backends this build has, in the order they are preferred.
std::vector<std::string_view> backendNames();

// The backend for this session, or why Zettly cannot start in it. `forced`
// is the name given with --platform.
std::variant<BackendChoice, std::string> chooseBackend(const std::optional<std::string>& forced,
                                                       const SessionEnvironment& session);

// Builds the chosen backend's services; once the Qt application exists.
std::unique_ptr<Platform> makePlatform(const BackendChoice& choice, Log& log);

}  // namespace zettly
