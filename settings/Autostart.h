#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace zettly::autostart {

// The login entry is an XDG autostart file: every desktop that follows the
// freedesktop.org autostart rules (GNOME, KDE Plasma, Xfce, LXQt, Cinnamon,
// MATE) starts the program it names when the user logs in.
inline constexpr std::string_view entryName = "org.zettly.Zettly.desktop";

std::filesystem::path entryPath(const std::filesystem::path& dir);

// Whether the desktop will start Zettly at login: the entry exists and no
// one switched it off in place (Hidden=true, or GNOME's
// X-GNOME-Autostart-enabled=false that GNOME Tweaks writes).
bool isEnabled(const std::filesystem::path& dir);

// The entry's text, starting `executablePath`.
std::string desktopEntry(std::string_view executablePath);

// One argument of an Exec line: quoted when it holds a character the
// desktop-entry rules reserve, with the string-level escapes applied, so a
// path such as "/opt/My Apps/zettly" survives the launcher's parsing.
std::string execArgument(std::string_view argument);

struct Result {
    bool ok = true;
    // What went wrong, with the file or folder and the system's reason.
    std::string error;
};

// Writes the entry (creating the folder when missing) or removes it. A
// missing entry is already removed.
Result enable(const std::filesystem::path& dir, std::string_view executablePath);
Result disable(const std::filesystem::path& dir);

}  // namespace zettly::autostart
