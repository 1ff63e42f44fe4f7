#include <cstdlib>

#include <pwd.h>
#include <unistd.h>

#include "platform/AppFolders.h"
#include "platform/Files.h"

namespace zettly {

namespace fs = std::filesystem;

std::optional<fs::path> XdgAppFolders::xdgDirectory(const char* variable,
                                                    std::string_view fallbackBelowHome) {
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

std::optional<fs::path> XdgAppFolders::containerURL() {
    auto data = xdgDirectory("XDG_DATA_HOME", ".local/share");
    if (!data)
        return std::nullopt;
    fs::path dir = *data / "Zettly";
    std::error_code ec;
    if (!files::createPrivateDirectories(dir, ec))
        return std::nullopt;
    return dir;
}

fs::path XdgAppFolders::configDirectory() {
    // Without any home directory the preferences live in the working
    // directory's ".config" for this run rather than nowhere.
    return xdgDirectory("XDG_CONFIG_HOME", ".config").value_or(fs::path(".config")) / "Zettly";
}

}  // namespace zettly
