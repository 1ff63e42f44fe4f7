#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

namespace zettly {

class Defaults;

// The application's reverse-DNS identifier.
inline constexpr std::string_view AppIdentifier = "org.zettly.Zettly";

// Where the application keeps its data, following the XDG base directories.
namespace AppGroup {

// The process-wide defaults store: $XDG_CONFIG_HOME/Zettly/defaults.json
// (default ~/.config/Zettly/defaults.json). Created on first use and kept.
Defaults& defaults();

// $XDG_DATA_HOME/Zettly (default ~/.local/share/Zettly), created (mode 0700)
// on every read; none when no home directory can be found or the folder
// cannot be made.
std::optional<std::filesystem::path> containerURL();

// An XDG base directory: the variable's value when it is an absolute path
// (relative values are invalid and ignored, as the XDG rules say), else the
// fallback below the home directory. None without a home directory.
std::optional<std::filesystem::path> xdgDirectory(const char* variable,
                                                  std::string_view fallbackBelowHome);

}  // namespace AppGroup
}  // namespace zettly
