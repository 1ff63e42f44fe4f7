#include "platform/linux/CompositorConfigHotKey.h"

#include <array>
#include <cstdlib>
#include <optional>
#include <utility>
#include <vector>

#include "platform/linux/ShortcutKeyNames.h"

namespace zettly {

namespace {

constexpr std::string_view command = "zettly --toggle";

enum class Compositor { sway, hyprland, river, niri, labwc, wayfire };

bool sameName(std::string_view a, std::string_view b) {
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        auto fold = [](char c) { return (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : c; };
        if (fold(a[i]) != fold(b[i]))
            return false;
    }
    return true;
}

// The first name in the list that is one of ours: labwc says
// "labwc:wlroots", so every entry counts.
std::optional<Compositor> compositorNamed(std::string_view names) {
    static constexpr std::pair<std::string_view, Compositor> known[] = {
        {"sway", Compositor::sway},   {"hyprland", Compositor::hyprland},
        {"river", Compositor::river}, {"niri", Compositor::niri},
        {"labwc", Compositor::labwc}, {"wayfire", Compositor::wayfire},
    };
    while (!names.empty()) {
        std::size_t end = names.find(':');
        std::string_view name = names.substr(0, end);
        for (const auto& [knownName, compositor] : known)
            if (sameName(name, knownName))
                return compositor;
        if (end == std::string_view::npos)
            break;
        names.remove_prefix(end + 1);
    }
    return std::nullopt;
}

std::string uppercased(std::string text) {
    for (char& c : text)
        if (c >= 'a' && c <= 'z')
            c = static_cast<char>(c - 'a' + 'A');
    return text;
}

// The modifiers in the compositor's words, Ctrl, Alt, Shift, Super in turn.
std::vector<std::string_view> modifierWords(std::uint32_t modifiers,
                                            std::array<std::string_view, 4> words) {
    std::vector<std::string_view> out;
    const std::uint32_t bits[] = {HotKeyCombo::command, HotKeyCombo::option, HotKeyCombo::shift,
                                  HotKeyCombo::control};
    for (std::size_t i = 0; i < 4; ++i)
        if (modifiers & bits[i])
            out.push_back(words[i]);
    return out;
}

std::string joined(const std::vector<std::string_view>& words, std::string_view separator,
                   std::string_view last = {}) {
    std::string out;
    for (std::string_view word : words) {
        if (!out.empty())
            out += separator;
        out += word;
    }
    if (!last.empty()) {
        if (!out.empty())
            out += separator;
        out += last;
    }
    return out;
}

std::optional<CompositorBinding> bindingFor(Compositor compositor, HotKeyCombo combo,
                                            KeyboardLayout& layout, const std::string& home) {
    const std::uint32_t mods = combo.modifiers;
    if (compositor == Compositor::wayfire) {
        auto key = keynames::evdevName(combo.keyCode);
        if (!key)
            return std::nullopt;
        auto words = modifierWords(mods, {"<ctrl>", "<alt>", "<shift>", "<super>"});
        return CompositorBinding{"binding_zettly = " + joined(words, " ", *key) +
                                     "\ncommand_zettly = " + std::string(command),
                                 home + "/wayfire.ini", "[command]"};
    }
    auto key = keynames::xkbName(combo.keyCode, layout);
    if (!key)
        return std::nullopt;
    // Keysym names are matched without regard to case by all but Sway and
    // labwc, whose own examples write letters in lower case.
    const std::string capital = key->size() == 1 ? uppercased(*key) : *key;
    switch (compositor) {
        case Compositor::sway: {
            auto words = modifierWords(mods, {"Ctrl", "Mod1", "Shift", "Mod4"});
            return CompositorBinding{
                "bindsym " + joined(words, "+", *key) + " exec " + std::string(command),
                home + "/sway/config",
                {}};
        }
        case Compositor::hyprland: {
            auto words = modifierWords(mods, {"CTRL", "ALT", "SHIFT", "SUPER"});
            return CompositorBinding{
                "bind = " + joined(words, " ") + ", " + capital + ", exec, " + std::string(command),
                home + "/hypr/hyprland.conf",
                {}};
        }
        case Compositor::river: {
            auto words = modifierWords(mods, {"Control", "Alt", "Shift", "Super"});
            std::string modifiers = words.empty() ? "None" : joined(words, "+");
            return CompositorBinding{"riverctl map normal " + modifiers + " " + capital +
                                         " spawn '" + std::string(command) + "'",
                                     home + "/river/init",
                                     {}};
        }
        case Compositor::niri: {
            auto words = modifierWords(mods, {"Ctrl", "Alt", "Shift", "Super"});
            return CompositorBinding{
                joined(words, "+", capital) + R"( { spawn "zettly" "--toggle"; })",
                home + "/niri/config.kdl", "binds { }"};
        }
        case Compositor::labwc: {
            auto words = modifierWords(mods, {"C", "A", "S", "W"});
            return CompositorBinding{"<keybind key=\"" + joined(words, "-", *key) +
                                         "\"><action name=\"Execute\" command=\"" +
                                         std::string(command) + "\"/></keybind>",
                                     home + "/labwc/rc.xml", "<keyboard>"};
        }
        case Compositor::wayfire:
            break;
    }
    return std::nullopt;
}

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

}  // namespace

CompositorBinding compositorBindingFor(std::string_view desktopNames, HotKeyCombo combo,
                                       KeyboardLayout& layout, std::string_view configHome) {
    if (auto compositor = compositorNamed(desktopNames))
        if (auto binding = bindingFor(*compositor, combo, layout, std::string(configHome)))
            return *binding;
    return CompositorBinding{std::string(command), {}, {}};
}

std::string sessionDesktopNames() {
    std::string names = environment("XDG_CURRENT_DESKTOP");
    std::string session = environment("XDG_SESSION_DESKTOP");
    if (!names.empty() && !session.empty())
        names += ':';
    return names + session;
}

std::string sessionConfigHome() {
    const std::string home = environment("HOME");
    std::string config = environment("XDG_CONFIG_HOME");
    // The XDG rule: a relative path is to be ignored.
    if (config.empty() || config.front() != '/')
        return "~/.config";
    if (!home.empty() && config.starts_with(home + "/"))
        return "~" + config.substr(home.size());
    return config;
}

CompositorConfigHotKey::CompositorConfigHotKey(KeyboardLayout& layout, Log& log,
                                               std::string desktopNames, std::string configHome)
    : layout_(layout),
      log_(log),
      desktopNames_(std::move(desktopNames)),
      configHome_(std::move(configHome)) {}

void CompositorConfigHotKey::bind(HotKeyCombo combo, std::function<void()>,
                                  std::function<void(const HotKeyState&)> answered) {
    CompositorBinding binding = compositorBindingFor(desktopNames_, combo, layout_, configHome_);
    if (binding.configFile.empty())
        log_.line("[Zettly] this desktop gives applications no shortcuts; bind \"" + binding.line +
                  "\" in its keyboard settings");
    else
        log_.line("[Zettly] this compositor gives applications no shortcuts; add to " +
                  binding.configFile + ": " + binding.line);
    if (answered)
        answered(HotKeyState{HotKeyState::Kind::inDesktopSettings, binding.line, binding.configFile,
                             binding.section});
}

}  // namespace zettly
