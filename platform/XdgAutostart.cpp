#include <fstream>
#include <system_error>
#include <utility>

#include "platform/AppFolders.h"
#include "platform/Autostart.h"
#include "platform/Files.h"

namespace zettly {
namespace {

namespace fs = std::filesystem;
using Result = Autostart::Result;

std::string trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r");
    if (first == std::string_view::npos)
        return {};
    const auto last = text.find_last_not_of(" \t\r");
    return std::string(text.substr(first, last - first + 1));
}

Result failure(const std::string& what, const fs::path& where, const std::error_code& ec) {
    return Result{false, what + " " + where.string() + ": " + ec.message()};
}

}  // namespace

XdgAutostart::XdgAutostart(fs::path dir, std::string executablePath)
    : dir_(std::move(dir)), executablePath_(std::move(executablePath)) {}

XdgAutostart XdgAutostart::forThisProcess() {
    std::error_code ec;
    fs::path self = fs::read_symlink("/proc/self/exe", ec);
    auto config = XdgAppFolders::xdgDirectory("XDG_CONFIG_HOME", ".config");
    // Without a home there is no autostart folder; enable() then says so.
    return XdgAutostart(config ? *config / "autostart" : fs::path(),
                        ec ? std::string() : self.string());
}

bool XdgAutostart::isEnabled() {
    if (dir_.empty())
        return false;
    std::ifstream in(entryPath());
    if (!in)
        return false;
    bool inMainGroup = false;
    std::string line;
    while (std::getline(in, line)) {
        const std::string text = trimmed(line);
        if (text.empty() || text.front() == '#')
            continue;
        if (text.front() == '[') {
            inMainGroup = text == "[Desktop Entry]";
            continue;
        }
        if (!inMainGroup)
            continue;
        const auto equals = text.find('=');
        if (equals == std::string::npos)
            continue;
        const std::string key = trimmed(std::string_view(text).substr(0, equals));
        const std::string value = trimmed(std::string_view(text).substr(equals + 1));
        if (key == "Hidden" && value == "true")
            return false;
        if (key == "X-GNOME-Autostart-enabled" && value == "false")
            return false;
    }
    return true;
}

std::string XdgAutostart::execArgument(std::string_view argument) {
    constexpr std::string_view reserved = " \t\n\"'\\><~|&;$*?#()`";
    const bool quote = argument.empty() || argument.find_first_of(reserved) != std::string::npos;
    std::string quoted;
    if (quote)
        quoted += '"';
    for (char c : argument) {
        if (quote && (c == '"' || c == '`' || c == '$' || c == '\\'))
            quoted += '\\';
        quoted += c;
    }
    if (quote)
        quoted += '"';

    // The Exec value is a desktop-entry string first: its own escapes apply
    // before the launcher splits it, and a lone '%' would start a field code.
    std::string value;
    for (char c : quoted) {
        switch (c) {
            case '\\':
                value += "\\\\";
                break;
            case '\n':
                value += "\\n";
                break;
            case '\t':
                value += "\\t";
                break;
            case '\r':
                value += "\\r";
                break;
            case '%':
                value += "%%";
                break;
            default:
                value += c;
        }
    }
    return value;
}

std::string XdgAutostart::desktopEntry(std::string_view executablePath) {
    return "[Desktop Entry]\n"
           "Type=Application\n"
           "Name=Zettly\n"
           "Comment=Clipboard history\n"
           "Exec=" +
           execArgument(executablePath) +
           "\n"
           "Icon=org.zettly.Zettly\n"
           "Terminal=false\n"
           "X-GNOME-Autostart-enabled=true\n"
           "NoDisplay=false\n";
}

Result XdgAutostart::enable() {
    if (executablePath_.empty())
        return Result{false, "The path of the Zettly program is not known."};
    if (dir_.empty())
        return Result{false, "There is no home folder to keep the login entry in."};
    std::error_code ec;
    if (!files::createPrivateDirectories(dir_, ec))
        return failure("Could not create the folder", dir_, ec);
    const fs::path file = entryPath();
    if (!files::writeAtomically(file, desktopEntry(executablePath_), ec))
        return failure("Could not write", file, ec);
    return {};
}

Result XdgAutostart::disable() {
    if (dir_.empty())
        return {};
    const fs::path file = entryPath();
    std::error_code ec;
    fs::remove(file, ec);
    if (ec)
        return failure("Could not remove", file, ec);
    return {};
}

}  // namespace zettly
