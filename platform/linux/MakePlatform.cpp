// The one place that knows every backend of this build: a new one is a
// folder under platform/ and a case here.
#include "platform/Backends.h"
#include "platform/Log.h"
#include "platform/fallback/FallbackPlatform.h"
#include "platform/x11/X11Platform.h"

namespace zettly {

std::unique_ptr<Platform> makePlatform(const BackendChoice& choice, Log& log) {
    if (choice.name == "x11") {
        if (auto x11 = X11Platform::open(log))
            return x11;
        log.line("[Zettly] no X server answers on DISPLAY; starting without desktop integration");
    }
    return std::make_unique<FallbackPlatform>();
}

}  // namespace zettly
