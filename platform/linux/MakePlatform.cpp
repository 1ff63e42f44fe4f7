// The one place that knows every backend of this build: a new one is a
// folder under platform/ and a case here.
#include "platform/Backends.h"
#include "platform/Log.h"
#include "platform/fallback/FallbackPlatform.h"
#include "platform/gnome/GnomePlatform.h"
#include "platform/wayland/WaylandPlatform.h"
#include "platform/x11/X11Platform.h"

namespace zettly {

std::unique_ptr<Platform> makePlatform(const BackendChoice& choice, Log& log) {
    // Falls back by itself, saying what to do about the Shell extension.
    if (choice.name == "gnome")
        return GnomePlatform::open(log);
    if (choice.name == "wayland") {
        if (auto wayland = WaylandPlatform::open(log))
            return wayland;
        log.line(
            "[Zettly] the Wayland compositor offers no clipboard access to other applications "
            "(no data-control protocol); starting without desktop integration");
    }
    if (choice.name == "x11") {
        if (auto x11 = X11Platform::open(log))
            return x11;
        log.line("[Zettly] no X server answers on DISPLAY; starting without desktop integration");
    }
    return std::make_unique<FallbackPlatform>();
}

}  // namespace zettly
