#include "platform/PasteChord.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace zettly {

namespace {

std::string asciiLower(std::string_view s) {
    std::string out(s);
    for (char& c : out)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return out;
}

// Window classes and application ids of terminal emulators, lower-cased,
// with the chord each one pastes the clipboard with out of the box.
constexpr std::pair<std::string_view, PasteChord> terminals[] = {
    // Their default Shift+Insert inserts the primary selection, which the
    // paste fills with the same text first.
    {"xterm", PasteChord::shiftInsert},
    {"uxterm", PasteChord::shiftInsert},
    {"urxvt", PasteChord::shiftInsert},
    {"rxvt", PasteChord::shiftInsert},
    {"rxvt-unicode", PasteChord::shiftInsert},
    {"gnome-terminal", PasteChord::ctrlShiftV},
    {"gnome-terminal-server", PasteChord::ctrlShiftV},
    {"org.gnome.terminal", PasteChord::ctrlShiftV},
    {"org.gnome.console", PasteChord::ctrlShiftV},
    {"kgx", PasteChord::ctrlShiftV},
    {"konsole", PasteChord::ctrlShiftV},
    {"org.kde.konsole", PasteChord::ctrlShiftV},
    {"xfce4-terminal", PasteChord::ctrlShiftV},
    {"mate-terminal", PasteChord::ctrlShiftV},
    {"lxterminal", PasteChord::ctrlShiftV},
    {"qterminal", PasteChord::ctrlShiftV},
    {"terminator", PasteChord::ctrlShiftV},
    {"tilix", PasteChord::ctrlShiftV},
    {"com.gexperts.tilix", PasteChord::ctrlShiftV},
    {"alacritty", PasteChord::ctrlShiftV},
    {"kitty", PasteChord::ctrlShiftV},
    {"wezterm", PasteChord::ctrlShiftV},
    {"org.wezfurlong.wezterm", PasteChord::ctrlShiftV},
    {"wezterm-gui", PasteChord::ctrlShiftV},
    {"foot", PasteChord::ctrlShiftV},
    {"footclient", PasteChord::ctrlShiftV},
    {"st", PasteChord::ctrlShiftV},
    {"st-256color", PasteChord::ctrlShiftV},
    {"sakura", PasteChord::ctrlShiftV},
    {"terminology", PasteChord::ctrlShiftV},
    {"guake", PasteChord::ctrlShiftV},
    {"tilda", PasteChord::ctrlShiftV},
    {"yakuake", PasteChord::ctrlShiftV},
    {"org.kde.yakuake", PasteChord::ctrlShiftV},
    {"cool-retro-term", PasteChord::ctrlShiftV},
    {"com.raggesilver.blackbox", PasteChord::ctrlShiftV},
    {"ptyxis", PasteChord::ctrlShiftV},
    {"org.gnome.ptyxis", PasteChord::ctrlShiftV},
    {"eterm", PasteChord::ctrlShiftV},
    {"io.elementary.terminal", PasteChord::ctrlShiftV},
    {"com.mitchellh.ghostty", PasteChord::ctrlShiftV},
    {"ghostty", PasteChord::ctrlShiftV},
};

constexpr std::pair<PasteChord, std::string_view> names[] = {
    {PasteChord::ctrlV, "ctrl+v"},
    {PasteChord::ctrlShiftV, "ctrl+shift+v"},
    {PasteChord::shiftInsert, "shift+insert"},
};

}  // namespace

PasteChord pasteChordFor(const std::optional<std::string>& appId,
                         const std::vector<PasteChordChoice>& chosen) {
    if (!appId)
        return PasteChord::ctrlV;
    for (const PasteChordChoice& choice : chosen)
        if (sameAppId(choice.appId, *appId))
            return choice.chord;
    std::string id = asciiLower(*appId);
    auto terminal = std::find_if(std::begin(terminals), std::end(terminals),
                                 [&](const auto& entry) { return entry.first == id; });
    return terminal != std::end(terminals) ? terminal->second : PasteChord::ctrlV;
}

bool sameAppId(std::string_view a, std::string_view b) {
    return asciiLower(a) == asciiLower(b);
}

std::string_view chordName(PasteChord chord) {
    for (const auto& [value, name] : names)
        if (value == chord)
            return name;
    return names[0].second;
}

std::optional<PasteChord> chordNamed(std::string_view name) {
    std::string lower = asciiLower(name);
    for (const auto& [value, known] : names)
        if (known == lower)
            return value;
    return std::nullopt;
}

}  // namespace zettly
