#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zettly {

// The keys that paste in another application. Most take Ctrl+V; terminal
// emulators pass Ctrl+V to the program running in them and paste with
// Ctrl+Shift+V, and xterm and rxvt bind neither and paste with Shift+Insert.
enum class PasteChord { ctrlV, ctrlShiftV, shiftInsert };

// The user's own choice for one application (Settings › General).
struct PasteChordChoice {
    std::string appId;
    PasteChord chord = PasteChord::ctrlV;
    bool operator==(const PasteChordChoice&) const = default;
};

// The chord for an application: the user's choice for it (ids compared
// without regard to ASCII case, as window classes vary in case), else the
// one its kind of application takes, else Ctrl+V.
PasteChord pasteChordFor(const std::optional<std::string>& appId,
                         const std::vector<PasteChordChoice>& chosen);

// Whether two ids name the same application for the choices above.
bool sameAppId(std::string_view a, std::string_view b);

// How a chord is stored: "ctrl+v", "ctrl+shift+v", "shift+insert".
std::string_view chordName(PasteChord chord);
std::optional<PasteChord> chordNamed(std::string_view name);

}  // namespace zettly
