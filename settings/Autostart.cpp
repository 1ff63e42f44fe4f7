#include "settings/Autostart.h"

#include <fstream>
#include <system_error>

#include "platform/Files.h"

namespace zettly::autostart {
namespace {

namespace fs = std::filesystem;

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

fs::path entryPath(const fs::path& dir) {
    return dir / std::string(entryName);
}

bool isEnabled(const fs::path& dir) {
    std::ifstream in(entryPath(dir));
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

std::string execArgument(std::string_view argument) {
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

std::string desktopEntry(std::string_view executablePath) {
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

Result enable(const fs::path& dir, std::string_view executablePath) {
    if (executablePath.empty())
        return Result{false, "The path of the Zettly program is not known."};
    std::error_code ec;
    if (!files::createPrivateDirectories(dir, ec))
        return failure("Could not create the folder", dir, ec);
    const fs::path file = entryPath(dir);
    if (!files::writeAtomically(file, desktopEntry(executablePath), ec))
        return failure("Could not write", file, ec);
    return {};
}

Result disable(const fs::path& dir) {
    const fs::path file = entryPath(dir);
    std::error_code ec;
    fs::remove(file, ec);
    if (ec)
        return failure("Could not remove", file, ec);
    return {};
}

}  // namespace zettly::autostart
