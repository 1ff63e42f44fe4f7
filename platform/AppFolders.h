#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

namespace zettly {

// The application's reverse-DNS identifier.
inline constexpr std::string_view AppIdentifier = "org.zettly.Zettly";

// Where Zettly keeps its files in this session.
class AppFolders {
public:
    virtual ~AppFolders() = default;
    // The history's folder (databases and images), created mode 0700 on
    // every call; none when there is no home or it cannot be made.
    virtual std::optional<std::filesystem::path> containerURL() = 0;
    // The folder of the preferences and of the secrets file; it may not
    // exist yet.
    virtual std::filesystem::path configDirectory() = 0;
};

// The XDG base directories: $XDG_DATA_HOME/Zettly (~/.local/share/Zettly)
// and $XDG_CONFIG_HOME/Zettly (~/.config/Zettly), read afresh on each call.
class XdgAppFolders final : public AppFolders {
public:
    std::optional<std::filesystem::path> containerURL() override;
    std::filesystem::path configDirectory() override;

    // The variable's value when it is an absolute path (relative values are
    // invalid and ignored, as the XDG rules say), else the fallback below
    // the home directory. None without a home directory.
    static std::optional<std::filesystem::path> xdgDirectory(const char* variable,
                                                             std::string_view fallbackBelowHome);
};

}  // namespace zettly
