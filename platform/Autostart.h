#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace zettly {

// Starting Zettly when the user logs in (Settings › General). Main thread.
class Autostart {
public:
    struct Result {
        bool ok = true;
        // What went wrong, with the file or folder and the system's reason.
        std::string error;
    };

    virtual ~Autostart() = default;
    // Whether the desktop will start Zettly at login.
    virtual bool isEnabled() = 0;
    virtual Result enable() = 0;
    // A missing entry is already removed.
    virtual Result disable() = 0;
};

// An XDG autostart file: every desktop that follows the freedesktop.org
// autostart rules (GNOME, KDE Plasma, Xfce, LXQt, Cinnamon, MATE, and the
// autostart helpers of wlroots compositors) starts the program it names.
class XdgAutostart final : public Autostart {
public:
    static constexpr std::string_view entryName = "org.zettly.Zettly.desktop";

    XdgAutostart(std::filesystem::path dir, std::string executablePath);
    // $XDG_CONFIG_HOME/autostart (~/.config/autostart), starting the
    // executable of this process.
    static XdgAutostart forThisProcess();

    // The entry exists and no one switched it off in place (Hidden=true, or
    // the X-GNOME-Autostart-enabled=false that GNOME Tweaks writes).
    bool isEnabled() override;
    // Writes the entry, creating the folder when missing.
    Result enable() override;
    Result disable() override;

    std::filesystem::path entryPath() const { return dir_ / std::string(entryName); }

    // The entry's text, starting `executablePath`.
    static std::string desktopEntry(std::string_view executablePath);
    // One argument of an Exec line: quoted when it holds a character the
    // desktop-entry rules reserve, with the string-level escapes applied, so
    // a path such as "/opt/My Apps/zettly" survives the launcher's parsing.
    static std::string execArgument(std::string_view argument);

private:
    std::filesystem::path dir_;
    std::string executablePath_;
};

}  // namespace zettly
