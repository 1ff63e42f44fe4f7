#include <map>
#include <set>

#include <gtest/gtest.h>

#include "platform/Keyboard.h"
#include "store/HotKeyCombo.h"

namespace zettly {
namespace {

// A layout a test fills key by key; keys it does not know type nothing.
class FakeLayout final : public KeyboardLayout {
public:
    std::map<std::uint32_t, std::string> typed;
    std::optional<std::string> character(std::uint32_t code) override {
        auto found = typed.find(code);
        if (found == typed.end())
            return std::nullopt;
        return found->second;
    }
};

TEST(HotKeyCombo, LinuxModifierKeysMapOntoTheStoredMaskBitByBit) {
    EXPECT_EQ(HotKeyCombo::carbon({}), 0u);
    EXPECT_EQ(HotKeyCombo::carbon({.ctrl = true}), modifier::command);
    EXPECT_EQ(HotKeyCombo::carbon({.alt = true}), modifier::option);
    EXPECT_EQ(HotKeyCombo::carbon({.shift = true}), modifier::shift);
    EXPECT_EQ(HotKeyCombo::carbon({.super = true}), modifier::control);
    EXPECT_EQ(HotKeyCombo::carbon({.ctrl = true, .alt = true, .shift = true, .super = true}),
              modifier::all);
}

TEST(HotKeyCombo, DisplayNamesModifiersInLinuxOrderThenTheKey) {
    FakeLayout layout;
    layout.typed[keycode::v] = "v";
    EXPECT_EQ(HotKeyCombo{}.display(layout), "Alt+V");
    // Super+Shift+Space as recorded: Mac code 49 with control | shift.
    EXPECT_EQ((HotKeyCombo{keycode::space, 4608}.display(layout)), "Shift+Super+Space");
    EXPECT_EQ((HotKeyCombo{keycode::v, modifier::all}.display(layout, "Leertaste")),
              "Ctrl+Alt+Shift+Super+V");
    EXPECT_EQ((HotKeyCombo{keycode::space, modifier::command}.display(layout, "Leertaste")),
              "Ctrl+Leertaste");
}

TEST(HotKeyCombo, KeyNamesCoverKeysThatTypeNothingAndUpperCaseTheRest) {
    FakeLayout layout;
    layout.typed[keycode::a] = "a";
    layout.typed[41] = "\xc3\xb6";  // ö on a German layout
    layout.typed[27] = "\xc3\x9f";  // ß: upper-cases to two letters
    layout.typed[50] = "";          // a dead key reported as empty text
    EXPECT_EQ(HotKeyCombo::keyName(keycode::a, layout), "A");
    EXPECT_EQ(HotKeyCombo::keyName(41, layout), "\xc3\x96");
    EXPECT_EQ(HotKeyCombo::keyName(27, layout), "SS");
    EXPECT_EQ(HotKeyCombo::keyName(50, layout), "?");
    EXPECT_EQ(HotKeyCombo::keyName(keycode::v, layout), "?");

    EXPECT_EQ(HotKeyCombo::keyName(keycode::returnKey, layout), "Return");
    EXPECT_EQ(HotKeyCombo::keyName(keycode::keypadEnter, layout), "Enter");
    EXPECT_EQ(HotKeyCombo::keyName(keycode::deleteKey, layout), "Backspace");
    EXPECT_EQ(HotKeyCombo::keyName(keycode::escape, layout), "Esc");
    EXPECT_EQ(HotKeyCombo::keyName(keycode::tab, layout), "Tab") << "not the tab character";
    EXPECT_EQ(HotKeyCombo::keyName(keycode::space, layout, "Espace"), "Espace");
    EXPECT_EQ(HotKeyCombo::keyName(123, layout), "Left");
    EXPECT_EQ(HotKeyCombo::keyName(109, layout), "F10");
}

TEST(HotKeyCombo, RecordingSavesOnlyWithCtrlAltOrSuperAndEscapeAlwaysCancels) {
    using R = HotKeyCombo::Recording;
    EXPECT_EQ(HotKeyCombo::record(keycode::a, 0), R::ignore);
    EXPECT_EQ(HotKeyCombo::record(keycode::a, modifier::shift), R::ignore);
    EXPECT_EQ(HotKeyCombo::record(keycode::a, modifier::command), R::save);
    EXPECT_EQ(HotKeyCombo::record(keycode::a, modifier::option | modifier::shift), R::save);
    EXPECT_EQ(HotKeyCombo::record(keycode::space, modifier::control | modifier::shift), R::save);
    EXPECT_EQ(HotKeyCombo::record(keycode::escape, 0), R::cancel);
    EXPECT_EQ(HotKeyCombo::record(keycode::escape, modifier::option), R::cancel);
}

TEST(KeyCodes, EveryMappedKeyRoundTripsAndNoTwoKeysShareACode) {
    std::set<std::uint32_t> evdevSeen;
    int mapped = 0;
    for (std::uint32_t mac = 0; mac < 256; ++mac) {
        std::optional<std::uint32_t> evdev = evdevFromMacKeyCode(mac);
        if (!evdev)
            continue;
        ++mapped;
        EXPECT_TRUE(evdevSeen.insert(*evdev).second) << "evdev " << *evdev << " used twice";
        EXPECT_EQ(macKeyCodeFromEvdev(*evdev), mac) << "mac " << mac;
    }
    // Letters, digits, punctuation, editing keys, F1-F12 and the keypad.
    EXPECT_GE(mapped, 90);
    for (std::uint32_t evdev = 0; evdev < 256; ++evdev) {
        if (std::optional<std::uint32_t> mac = macKeyCodeFromEvdev(evdev)) {
            EXPECT_EQ(evdevFromMacKeyCode(*mac), evdev);
        }
    }
}

TEST(KeyCodes, KeysLandOnTheSamePhysicalPositionAndModifierKeysAreNotMapped) {
    EXPECT_EQ(evdevFromMacKeyCode(keycode::v), 47u);
    EXPECT_EQ(evdevFromMacKeyCode(keycode::deleteKey), 14u);  // Backspace, not Delete
    EXPECT_EQ(evdevFromMacKeyCode(117), 111u);                // forward Delete
    EXPECT_EQ(evdevFromMacKeyCode(keycode::keypadEnter), 96u);
    EXPECT_EQ(evdevFromMacKeyCode(10), 86u);           // the ISO key
    EXPECT_EQ(macKeyCodeFromEvdev(29), std::nullopt);  // Left Ctrl
    EXPECT_EQ(evdevFromMacKeyCode(255), std::nullopt);
}

}  // namespace
}  // namespace zettly
