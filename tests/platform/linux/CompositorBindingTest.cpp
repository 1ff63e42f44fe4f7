#include <map>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "platform/UsKeyboardLayout.h"
#include "platform/linux/CompositorConfigHotKey.h"
#include "platform/linux/PortalGlobalShortcuts.h"
#include "platform/linux/ShortcutKeyNames.h"
#include "tests/fakes/RecordingLog.h"

namespace zettly {
namespace {

constexpr std::uint32_t ctrl = HotKeyCombo::command;
constexpr std::uint32_t alt = HotKeyCombo::option;
constexpr std::uint32_t shift = HotKeyCombo::shift;
constexpr std::uint32_t super = HotKeyCombo::control;
constexpr std::uint32_t f5 = 96, keypadZero = 82, pageDown = 121;

// A German keyboard: Z and Y swapped, and "ü" where US has "[".
class GermanLayout final : public KeyboardLayout {
public:
    std::optional<std::string> character(std::uint32_t macKeyCode) override {
        if (macKeyCode == 6)
            return "y";
        if (macKeyCode == keycode::y)
            return "z";
        if (macKeyCode == 33)
            return "\xc3\xbc";
        return us.character(macKeyCode);
    }
    UsKeyboardLayout us;
};

struct CompositorBindingTest : ::testing::Test {
    UsKeyboardLayout us;
    CompositorBinding bindingFor(std::string_view desktop, HotKeyCombo combo) {
        return compositorBindingFor(desktop, combo, us);
    }
};

TEST_F(CompositorBindingTest, EachCompositorGetsAltVInItsOwnSyntaxAndFile) {
    const HotKeyCombo altV{keycode::v, alt};
    const std::map<std::string, CompositorBinding> expected = {
        {"sway", {"bindsym Mod1+v exec zettly --toggle", "~/.config/sway/config", ""}},
        {"Hyprland", {"bind = ALT, V, exec, zettly --toggle", "~/.config/hypr/hyprland.conf", ""}},
        {"river",
         {"riverctl map normal Alt V spawn 'zettly --toggle'", "~/.config/river/init", ""}},
        {"niri",
         {R"(Alt+V { spawn "zettly" "--toggle"; })", "~/.config/niri/config.kdl", "binds { }"}},
        {"labwc:wlroots",
         {R"(<keybind key="A-v"><action name="Execute" command="zettly --toggle"/></keybind>)",
          "~/.config/labwc/rc.xml", "<keyboard>"}},
        {"Wayfire",
         {"binding_zettly = <alt> KEY_V\ncommand_zettly = zettly --toggle", "~/.config/wayfire.ini",
          "[command]"}},
    };
    for (const auto& [desktop, binding] : expected)
        EXPECT_EQ(bindingFor(desktop, altV), binding) << desktop;

    // Any other desktop binds the command in its own keyboard settings.
    for (std::string desktop : {"COSMIC", "GNOME", "", "swayfx"})
        EXPECT_EQ(bindingFor(desktop, altV), (CompositorBinding{"zettly --toggle", "", ""}))
            << desktop;
    // The session's own name counts when the desktop list has none of ours.
    EXPECT_EQ(bindingFor("wlroots:sway", altV).configFile, "~/.config/sway/config");
    EXPECT_EQ(compositorBindingFor("sway", altV, us, "/srv/conf").configFile,
              "/srv/conf/sway/config");
}

TEST_F(CompositorBindingTest, ModifiersAndNamedKeysTranslateIntoEachSyntax) {
    const HotKeyCombo all{keycode::k, ctrl | alt | shift | super};
    EXPECT_EQ(bindingFor("sway", all).line, "bindsym Ctrl+Mod1+Shift+Mod4+k exec zettly --toggle");
    EXPECT_EQ(bindingFor("Hyprland", all).line,
              "bind = CTRL ALT SHIFT SUPER, K, exec, zettly --toggle");
    EXPECT_EQ(bindingFor("river", all).line,
              "riverctl map normal Control+Alt+Shift+Super K spawn 'zettly --toggle'");
    EXPECT_EQ(bindingFor("niri", all).line,
              R"(Ctrl+Alt+Shift+Super+K { spawn "zettly" "--toggle"; })");
    EXPECT_TRUE(bindingFor("labwc", all).line.starts_with(R"(<keybind key="C-A-S-W-k">)"));
    EXPECT_TRUE(bindingFor("Wayfire", all)
                    .line.starts_with("binding_zettly = <ctrl> <alt> <shift> <super> KEY_K\n"));

    EXPECT_EQ(bindingFor("sway", {keycode::space, super}).line,
              "bindsym Mod4+space exec zettly --toggle");
    EXPECT_EQ(bindingFor("Hyprland", {f5, ctrl}).line, "bind = CTRL, F5, exec, zettly --toggle");
    EXPECT_EQ(bindingFor("niri", {pageDown, super}).line,
              R"(Super+Page_Down { spawn "zettly" "--toggle"; })");
    EXPECT_EQ(bindingFor("river", {keycode::one, alt}).line,
              "riverctl map normal Alt 1 spawn 'zettly --toggle'");
    EXPECT_TRUE(bindingFor("Wayfire", {keycode::returnKey, super})
                    .line.starts_with("binding_zettly = <super> KEY_ENTER\n"));
    EXPECT_TRUE(
        bindingFor("labwc", {keycode::comma, ctrl}).line.starts_with(R"(<keybind key="C-comma">)"));
}

TEST_F(CompositorBindingTest, KeysAreNamedAsTheLayoutTypesThemExceptWhereWayfireNamesPositions) {
    GermanLayout german;
    // The key typing "z" on a German keyboard sits where US has Y.
    const HotKeyCombo altZ{keycode::y, alt};
    EXPECT_EQ(compositorBindingFor("sway", altZ, german).line,
              "bindsym Mod1+z exec zettly --toggle");
    EXPECT_TRUE(compositorBindingFor("Wayfire", altZ, german)
                    .line.starts_with("binding_zettly = <alt> KEY_Y\n"));
    EXPECT_EQ(keynames::portalTrigger(altZ, german), "ALT+z");

    // "ü" has no name here, nor has a keypad key (it types a digit like the
    // digit row, but under another name): the plain command then.
    for (HotKeyCombo unnamed : {HotKeyCombo{33, alt}, HotKeyCombo{keypadZero, alt}}) {
        for (std::string desktop : {"sway", "Hyprland", "river", "niri", "labwc"})
            EXPECT_EQ(compositorBindingFor(desktop, unnamed, german),
                      (CompositorBinding{"zettly --toggle", "", ""}))
                << desktop << " " << unnamed.keyCode;
        EXPECT_EQ(keynames::portalTrigger(unnamed, german), std::nullopt);
    }
    // Wayfire names the ü key by its position; the keypad key it cannot.
    EXPECT_TRUE(compositorBindingFor("Wayfire", {33, alt}, german)
                    .line.starts_with("binding_zettly = <alt> KEY_LEFTBRACE\n"));
    EXPECT_EQ(compositorBindingFor("Wayfire", {keypadZero, alt}, german).configFile, "");
}

TEST(PortalTriggerTest, WritesTheFreedesktopShortcutFormatAndGtksAccelerators) {
    UsKeyboardLayout us;
    EXPECT_EQ(keynames::portalTrigger({keycode::v, alt}, us), "ALT+v");
    EXPECT_EQ(keynames::portalTrigger({keycode::k, ctrl | alt | shift | super}, us),
              "CTRL+ALT+SHIFT+LOGO+k");
    EXPECT_EQ(keynames::portalTrigger({keycode::space, ctrl}, us), "CTRL+space");

    EXPECT_EQ(keynames::gtkAccelerator({keycode::v, alt}, us), "<Alt>v");
    EXPECT_EQ(keynames::gtkAccelerator({keycode::k, ctrl | alt | shift | super}, us),
              "<Control><Alt><Shift><Super>k");
    EXPECT_EQ(keynames::gtkAccelerator({keycode::comma, ctrl}, us), "<Control>comma");
    EXPECT_EQ(keynames::gtkAccelerator({keypadZero, alt}, us), std::nullopt);
}

TEST(CompositorConfigHotKeyTest, AnswersAtOnceWithTheLineAndItsFileAndLogsIt) {
    UsKeyboardLayout us;
    test::RecordingLog log;
    CompositorConfigHotKey hotKey(us, log, "niri", "~/.config");
    std::vector<HotKeyState> answers;
    hotKey.bind(
        {keycode::v, alt}, [] {}, [&](const HotKeyState& state) { answers.push_back(state); });
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(answers[0], (HotKeyState{HotKeyState::Kind::inDesktopSettings,
                                       R"(Alt+V { spawn "zettly" "--toggle"; })",
                                       "~/.config/niri/config.kdl", "binds { }"}));
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_NE(log.lines()[0].find("~/.config/niri/config.kdl"), std::string::npos);
    EXPECT_FALSE(hotKey.desktopChoosesKey());
}

TEST(KeyboardSettingsTest, KdeAndGnomeOpenTheirShortcutSettingsOthersNothing) {
    auto programs = [](std::string_view desktop) {
        std::vector<std::string> names;
        for (const QStringList& command : PortalGlobalShortcuts::keyboardSettingsCommands(desktop))
            names.push_back(command.join(' ').toStdString());
        return names;
    };
    EXPECT_EQ(programs("KDE"),
              (std::vector<std::string>{"systemsettings kcm_keys", "kcmshell6 kcm_keys",
                                        "kcmshell5 kcm_keys"}));
    EXPECT_EQ(programs("ubuntu:GNOME"), std::vector<std::string>{"gnome-control-center keyboard"});
    EXPECT_EQ(programs("sway"), std::vector<std::string>{});
}

}  // namespace
}  // namespace zettly
