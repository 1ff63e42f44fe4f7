#include "store/AppGroup.h"

#include <cstdlib>

#include <pwd.h>
#include <unistd.h>

#include "platform/Clock.h"
#include "platform/Defaults.h"
#include "platform/Files.h"
#include "platform/Log.h"
#include "store/StoreContext.h"

namespace zettly::AppGroup {

namespace fs = std::filesystem;

std::optional<fs::path> xdgDirectory(const char* variable, std::string_view fallbackBelowHome) {
    if (const char* value = std::getenv(variable); value && *value) {
        fs::path p(value);
        if (p.is_absolute())
            return p;
    }
    const char* home = std::getenv("HOME");
    if (!home || !*home) {
        if (const passwd* pw = ::getpwuid(::getuid()); pw && pw->pw_dir)
            home = pw->pw_dir;
    }
    if (!home || !*home)
        return std::nullopt;
    return fs::path(home) / fallbackBelowHome;
}

Defaults& defaults() {
    static Defaults store = [] {
        auto config = xdgDirectory("XDG_CONFIG_HOME", ".config");
        // Without any home directory the preferences live in the working
        // directory's ".config" for this run rather than nowhere.
        fs::path file = config.value_or(fs::path(".config")) / "Zettly" / "defaults.json";
        return Defaults(file, SystemClock::instance(), StderrLog::instance());
    }();
    return store;
}

std::optional<fs::path> containerURL() {
    auto data = xdgDirectory("XDG_DATA_HOME", ".local/share");
    if (!data)
        return std::nullopt;
    fs::path dir = *data / "Zettly";
    std::error_code ec;
    if (!files::createPrivateDirectories(dir, ec))
        return std::nullopt;
    return dir;
}

}  // namespace zettly::AppGroup

namespace zettly {

StoreContext StoreContext::standard() {
    return StoreContext{AppGroup::defaults(), [] { return AppGroup::containerURL(); },
                        SystemClock::instance(), StderrLog::instance()};
}

}  // namespace zettly
