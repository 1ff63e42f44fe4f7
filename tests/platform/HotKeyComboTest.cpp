#include <map>
#include <set>

#include <gtest/gtest.h>

#include "platform/HotKeyCombo.h"
#include "platform/Keyboard.h"

namespace zettly {
namespace {

// A layout a test fills key by key; keys it does not know type nothing.
class FakeLayout final : public KeyboardLayout {
public:
    std::map<std::uint32_t, std::string> typed;
    std::optional<std::string> character(std::uint32_t code) override {
        auto found = typed.find(code);
        return found == typed.end() ? std::nullopt : std::optional(found->second);
    }
};

TEST(HotKeyCombo, ModifiersMapBitByBitAndDisplayInLinuxOrderBeforeTheKey) {
    EXPECT_EQ(HotKeyCombo::carbon({}), 0u);
    EXPECT_EQ(HotKeyCombo::carbon({.ctrl = true}), modifier::command);
    EXPECT_EQ(HotKeyCombo::carbon({.alt = true}), modifier::option);
    EXPECT_EQ(HotKeyCombo::carbon({.shift = true}), modifier::shift);
    EXPECT_EQ(HotKeyCombo::carbon({.super = true}), modifier::control);

    FakeLayout layout;
    layout.typed[keycode::v] = "v";
    EXPECT_EQ(HotKeyCombo{}.display(layout), "Alt+V");
    // Super+Shift+Space as recorded: Mac code 49 with control | shift.
    EXPECT_EQ((HotKeyCombo{keycode::space, 4608}.display(layout)), "Shift+Super+Space");
    EXPECT_EQ((HotKeyCombo{keycode::v, modifier::all}.display(layout)), "Ctrl+Alt+Shift+Super+V");
    EXPECT_EQ((HotKeyCombo{keycode::space, modifier::command}.display(layout, "Leertaste")),
              "Ctrl+Leertaste");
}

TEST(HotKeyCombo, KeyNamesCoverKeysThatTypeNothingAndUpperCaseTheRest) {
    FakeLayout layout;
    layout.typed = {{keycode::a, "a"},
                    {41, "\xc3\xb6"},  // ö on a German layout
                    {27, "\xc3\x9f"},  // ß: upper-cases to two letters
                    {50, ""},          // a dead key reported as empty text
                    {keycode::tab, "\t"}};
    const std::pair<std::uint32_t, const char*> names[] = {{keycode::a, "A"},
                                                           {41, "\xc3\x96"},
                                                           {27, "SS"},
                                                           {50, "?"},
                                                           {keycode::v, "?"},
                                                           {keycode::returnKey, "Return"},
                                                           {keycode::deleteKey, "Backspace"},
                                                           {keycode::keypadEnter, "Enter"},
                                                           {keycode::escape, "Esc"},
                                                           {keycode::tab, "Tab"},
                                                           {123, "Left"},
                                                           {109, "F10"},
                                                           {keycode::space, "Espace"}};
    for (auto [code, name] : names)
        EXPECT_EQ(HotKeyCombo::keyName(code, layout, "Espace"), name) << code;
}

TEST(HotKeyCombo, RecordingSavesOnlyWithCtrlAltOrSuperAndEscapeAlwaysCancels) {
    using R = HotKeyCombo::Recording;
    EXPECT_EQ(HotKeyCombo::record(keycode::a, 0), R::ignore);
    EXPECT_EQ(HotKeyCombo::record(keycode::a, modifier::shift), R::ignore);
    EXPECT_EQ(HotKeyCombo::record(keycode::a, modifier::command), R::save);
    EXPECT_EQ(HotKeyCombo::record(keycode::a, modifier::option | modifier::shift), R::save);
    EXPECT_EQ(HotKeyCombo::record(keycode::space, modifier::control | modifier::shift), R::save);
    EXPECT_EQ(HotKeyCombo::record(keycode::escape, modifier::option), R::cancel);
}

TEST(KeyCodes, EveryMappedKeyRoundTripsOnTheSamePhysicalPositionAndModifiersAreNotMapped) {
    std::set<std::uint32_t> evdevSeen;
    for (std::uint32_t mac = 0; mac < 256; ++mac) {
        if (std::optional<std::uint32_t> evdev = evdevFromMacKeyCode(mac)) {
            EXPECT_TRUE(evdevSeen.insert(*evdev).second) << "evdev " << *evdev << " used twice";
            EXPECT_EQ(macKeyCodeFromEvdev(*evdev), mac) << "mac " << mac;
        }
    }
    // Letters, digits, punctuation, editing keys, F1-F12 and the keypad.
    EXPECT_GE(evdevSeen.size(), 90u);
    for (std::uint32_t evdev = 0; evdev < 256; ++evdev) {
        if (std::optional<std::uint32_t> mac = macKeyCodeFromEvdev(evdev)) {
            EXPECT_EQ(evdevFromMacKeyCode(*mac), evdev);
        }
    }

    EXPECT_EQ(evdevFromMacKeyCode(keycode::v), 47u);
    EXPECT_EQ(evdevFromMacKeyCode(keycode::deleteKey), 14u);  // Backspace, not Delete
    EXPECT_EQ(evdevFromMacKeyCode(117), 111u);                // forward Delete
    EXPECT_EQ(evdevFromMacKeyCode(10), 86u);                  // the ISO key
    EXPECT_EQ(macKeyCodeFromEvdev(29), std::nullopt);         // Left Ctrl
}

}  // namespace
}  // namespace zettly
