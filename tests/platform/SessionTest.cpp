// What a session gets: the backend chosen for it and the paste keys its
// applications take.
#include <string>
#include <variant>

#include <gtest/gtest.h>

#include "platform/Backends.h"
#include "platform/PasteChord.h"

namespace zettly {
namespace {

std::string chosen(std::optional<std::string> forced, SessionEnvironment session) {
    auto choice = chooseBackend(forced, session);
    if (auto* why = std::get_if<std::string>(&choice))
        return "error: " + *why;
    const auto& backend = std::get<BackendChoice>(choice);
    return backend.name + " on " + backend.qtPlatform;
}

TEST(Backends, TheSessionPicksTheBackendAndQtFollowsItUnlessTheUserForcesOne) {
    const SessionEnvironment x11{"x11", "", ":0"};
    const SessionEnvironment wayland{"wayland", "wayland-0", ":0"};
    const SessionEnvironment waylandWithoutX{"wayland", "wayland-0", ""};
    // A compositor started from a TTY leaves XDG_SESSION_TYPE at "tty".
    const SessionEnvironment nestedWayland{"tty", "wayland-1", ""};
    const SessionEnvironment bareX{"", "", ":99"};
    const SessionEnvironment nothing{"tty", "", ""};

    EXPECT_EQ(chosen({}, x11), "x11 on xcb");
    EXPECT_EQ(chosen({}, bareX), "x11 on xcb");
    EXPECT_EQ(chosen({}, wayland), "wayland on wayland");
    EXPECT_EQ(chosen({}, waylandWithoutX), "wayland on wayland");
    EXPECT_EQ(chosen({}, nestedWayland), "wayland on wayland");
    // XDG_SESSION_TYPE outlives a compositor that has gone.
    EXPECT_EQ(chosen({}, SessionEnvironment{"wayland", "", ":0"}), "x11 on xcb");
    EXPECT_EQ(chosen({}, nothing).rfind("error: ", 0), 0u);

    // GNOME is one name among several in XDG_CURRENT_DESKTOP; on X11 it is
    // an X session like any other.
    EXPECT_EQ(chosen({}, SessionEnvironment{"wayland", "wayland-0", "", "ubuntu:GNOME"}),
              "gnome on wayland");
    EXPECT_EQ(chosen({}, SessionEnvironment{"wayland", "wayland-0", "", "GNOME-Classic:GNOME"}),
              "gnome on wayland");
    EXPECT_EQ(chosen({}, SessionEnvironment{"wayland", "wayland-0", "", "GNOME-Flashback"}),
              "wayland on wayland");
    EXPECT_EQ(chosen({}, SessionEnvironment{"x11", "", ":0", "GNOME"}), "x11 on xcb");
    EXPECT_NE(chosen("gnome", x11).find("WAYLAND_DISPLAY"), std::string::npos);

    EXPECT_EQ(chosen("x11", wayland), "x11 on xcb");  // XWayland
    EXPECT_EQ(chosen("fallback", bareX), "fallback on xcb");
    EXPECT_EQ(chosen("fallback", wayland), "fallback on wayland;xcb");
    EXPECT_NE(chosen("wayland", bareX).find("WAYLAND_DISPLAY"), std::string::npos);
    EXPECT_NE(chosen("x11", waylandWithoutX).find("DISPLAY"), std::string::npos);
    const std::string unknown = chosen("mir", x11);
    EXPECT_NE(unknown.find("\"mir\""), std::string::npos) << unknown;
    EXPECT_NE(unknown.find("gnome, wayland, x11, fallback"), std::string::npos) << unknown;
}

TEST(PasteChords, EachKindOfApplicationGetsItsKeysAndTheUsersChoiceComesFirst) {
    EXPECT_EQ(pasteChordFor(std::nullopt, {}), PasteChord::ctrlV);
    EXPECT_EQ(pasteChordFor("org.gnome.TextEditor", {}), PasteChord::ctrlV);
    EXPECT_EQ(pasteChordFor("Gnome-terminal", {}), PasteChord::ctrlShiftV);
    EXPECT_EQ(pasteChordFor("kitty", {}), PasteChord::ctrlShiftV);
    EXPECT_EQ(pasteChordFor("XTerm", {}), PasteChord::shiftInsert);
    EXPECT_EQ(pasteChordFor("URxvt", {}), PasteChord::shiftInsert);

    const std::vector<PasteChordChoice> chosen{{"xterm", PasteChord::ctrlShiftV},
                                               {"Emacs", PasteChord::shiftInsert}};
    EXPECT_EQ(pasteChordFor("XTerm", chosen), PasteChord::ctrlShiftV);
    EXPECT_EQ(pasteChordFor("emacs", chosen), PasteChord::shiftInsert);
    EXPECT_EQ(pasteChordFor("konsole", chosen), PasteChord::ctrlShiftV);

    for (PasteChord chord : {PasteChord::ctrlV, PasteChord::ctrlShiftV, PasteChord::shiftInsert})
        EXPECT_EQ(chordNamed(chordName(chord)), chord);
    EXPECT_EQ(chordNamed("Shift+Insert"), PasteChord::shiftInsert);
    EXPECT_EQ(chordNamed("alt+v"), std::nullopt);
}

}  // namespace
}  // namespace zettly
