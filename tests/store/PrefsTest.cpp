#include <cstdlib>
#include <fstream>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "store/ChipOrder.h"
#include "store/ClipPrefs.h"
#include "store/PrefKeys.h"
#include "tests/fakes/StoreFixture.h"

namespace zettly {
namespace {

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;
using Size = ClipPrefs::PopupSize;
using Position = ClipPrefs::PopupPosition;

struct Preferences : ::testing::Test {
    test::StoreEnvironment env;
    Defaults& defaults = env.defaults;
    ClipPrefs prefs{env.defaults};
    KeyboardSettings keyboard{env.defaults};
    std::vector<bool> switchesOn() const {
        return {keyboard.clipboardEnabled(), prefs.saveImages(), keyboard.clipboardChipOrderSync()};
    }
    void expectNumericDefaults() {
        EXPECT_EQ(prefs.clipboardLimit(), 200);
        EXPECT_EQ(prefs.clipboardRetentionMinutes(), 43200);
        EXPECT_EQ(prefs.popupSize(), (Size{400, 540}));
        EXPECT_EQ(prefs.previewDelay(), 1.5);
    }
};

TEST_F(Preferences, NothingStoredOrValuesOfAnotherKindOrOutOfRangeGiveTheDefaults) {
    expectNumericDefaults();
    EXPECT_EQ(switchesOn(), (std::vector<bool>{true, true, true}));
    EXPECT_FALSE(prefs.clearOnQuit() || prefs.pasteAutomatically() || prefs.clipboardCloudSync());
    EXPECT_EQ(prefs.popupPosition(), Position::cursor);
    EXPECT_EQ(prefs.hotKey(), (HotKeyCombo{9, 2048}));
    EXPECT_EQ(prefs.ignoredApps(), std::nullopt);

    const std::string_view switches[] = {prefkey::clipboardEnabled, prefkey::saveImages,
                                         prefkey::clipboardChipOrderSync};
    for (auto key : switches)
        defaults.setInteger(key, 0);
    EXPECT_EQ(switchesOn(), (std::vector<bool>{true, true, true}));
    for (auto key : switches)
        defaults.setBool(key, false);
    EXPECT_EQ(switchesOn(), (std::vector<bool>{false, false, false}));

    defaults.setString(prefkey::previewDelay, "3");
    defaults.setDouble(prefkey::popupWidth, 0);
    defaults.setDouble(prefkey::popupHeight, -10);
    for (std::int64_t bad : {0, -5}) {
        defaults.setInteger(prefkey::clipboardLimit, bad);
        defaults.setInteger(prefkey::clipboardRetentionMinutes, bad);
        expectNumericDefaults();
    }
    defaults.setInteger(prefkey::previewDelay, 0);
    EXPECT_EQ(prefs.previewDelay(), 0.0);
    defaults.setString(prefkey::popupPosition, "CENTER");
    EXPECT_EQ(prefs.popupPosition(), Position::cursor);
    defaults.setString(prefkey::popupPosition, "center");
    EXPECT_EQ(prefs.popupPosition(), Position::center);
    defaults.setInteger(prefkey::hotKeyCode, 49);
    EXPECT_EQ(prefs.hotKey(), (HotKeyCombo{49, 0}));
}

TEST_F(Preferences, TheLimitForImagesAsCopiedTakesZeroAsOffAndOnlyAbsentOrBadValuesAsTheDefault) {
    EXPECT_EQ(prefs.imageOriginalLimitMB(), ClipPrefs::defaultImageOriginalLimitMB);
    defaults.setString(prefkey::imageOriginalLimitMB, "5");
    EXPECT_EQ(prefs.imageOriginalLimitMB(), ClipPrefs::defaultImageOriginalLimitMB);
    defaults.setInteger(prefkey::imageOriginalLimitMB, -3);
    EXPECT_EQ(prefs.imageOriginalLimitMB(), ClipPrefs::defaultImageOriginalLimitMB);
    prefs.setImageOriginalLimitMB(0);
    EXPECT_EQ(prefs.imageOriginalLimitMB(), 0);
    prefs.setImageOriginalLimitMB(-8);
    EXPECT_EQ(defaults.integer(prefkey::imageOriginalLimitMB), 0);
    prefs.setImageOriginalLimitMB(50);
    EXPECT_EQ(prefs.imageOriginalLimitMB(), 50);
}

TEST_F(Preferences, PopupSizeIsClampedOnWriteAndOnReadAndASideWithNoUsableNumberIsTheDefault) {
    prefs.setPopupSize({1000, 200});
    EXPECT_EQ(defaults.doubleObject(prefkey::popupWidth), 600.0);
    EXPECT_EQ(defaults.doubleObject(prefkey::popupHeight), 360.0);
    prefs.setPopupSize({100, 1000});
    EXPECT_EQ(prefs.popupSize(), (Size{320, 800}));

    // Written by hand and read by a fresh store, as at the next start.
    auto sizeRead = [&](const std::string& width, const std::string& height) {
        fs::create_directories(defaults.file().parent_path());
        std::ofstream(defaults.file())
            << R"({"popupWidth": )" << width << R"(, "popupHeight": )" << height << "}";
        Defaults fresh(defaults.file(), env.clock, env.log);
        return ClipPrefs(fresh).popupSize();
    };
    EXPECT_EQ(sizeRead("100", "1000"), (Size{320, 800}));
    EXPECT_EQ(sizeRead("1000", "200"), (Size{600, 360}));
    EXPECT_EQ(sizeRead("1e308", "-5"), (Size{600, 540}));
    EXPECT_EQ(sizeRead("-1e308", "18446744073709551616"), (Size{400, 800}));
    // Numeric strings convert, and strtod takes "inf" and "nan" for numbers.
    EXPECT_EQ(sizeRead(R"("700")", R"("abc")"), (Size{600, 540}));
    EXPECT_EQ(sizeRead(R"("inf")", R"("nan")"), (Size{400, 540}));
    EXPECT_EQ(env.log.lines().size(), 0u) << "a valid file was taken for a damaged one";
}

TEST_F(Preferences, OtherNumbersOutOfRangeReadAsTheNearestSensibleValueOrTheDefault) {
    defaults.setDouble(prefkey::previewDelay, 1e308);
    EXPECT_EQ(prefs.previewDelay(), ClipPrefs::maxPreviewDelay);
    defaults.setDouble(prefkey::previewDelay, -5);
    EXPECT_EQ(prefs.previewDelay(), 0.0);  // "only when asked for", as the settings show it
    defaults.setDouble(prefkey::previewDelay, 0.5);
    EXPECT_EQ(prefs.previewDelay(), 0.5);

    // Cut to 32 bits these would be V (9) and Option (2048).
    const std::int64_t wrapsToV = (std::int64_t{1} << 32) + 9;
    defaults.setInteger(prefkey::hotKeyMods, 256);
    for (std::int64_t code : {wrapsToV, std::int64_t{-1}, INT64_MAX}) {
        defaults.setInteger(prefkey::hotKeyCode, code);
        EXPECT_EQ(prefs.hotKey(), HotKeyCombo{}) << code;
    }
    defaults.setInteger(prefkey::hotKeyCode, 49);
    defaults.setInteger(prefkey::hotKeyMods, (std::int64_t{1} << 32) + 2048);
    EXPECT_EQ(prefs.hotKey(), HotKeyCombo{});
    defaults.setInteger(prefkey::hotKeyMods, 4294967295);
    EXPECT_EQ(prefs.hotKey(), (HotKeyCombo{49, 4294967295}));
}

TEST_F(Preferences, PasteKeysReadOnlyWellFormedEntriesTheLastForAnAppWinsAndNoneIsLostOnWrite) {
    EXPECT_TRUE(prefs.pasteChords().empty());
    // Hand-edited files: an id may hold "=", a chord name any case, and a
    // window class its own case.
    defaults.setStringArray(prefkey::pasteShortcuts,
                            {"xterm=ctrl+shift+v", "=ctrl+v", "emacs", "vim=alt+v",
                             "odd=id=Shift+Insert", "XTerm=ctrl+v"});
    EXPECT_EQ(prefs.pasteChords(),
              (std::vector<PasteChordChoice>{{"odd=id", PasteChord::shiftInsert},
                                             {"XTerm", PasteChord::ctrlV}}));
    // Keys this version cannot read are kept for the one that wrote them.
    prefs.setPasteChords({{"kitty", PasteChord::ctrlV}, {"Emacs", PasteChord::shiftInsert}});
    EXPECT_EQ(defaults.stringArray(prefkey::pasteShortcuts),
              (Strings{"vim=alt+v", "kitty=ctrl+v", "Emacs=shift+insert"}));
    prefs.setPasteChords({{"VIM", PasteChord::ctrlShiftV}});
    EXPECT_EQ(defaults.stringArray(prefkey::pasteShortcuts), (Strings{"VIM=ctrl+shift+v"}));
}

TEST(ChipOrder, MergeKeepsTheStoredOrderAndPlacesMissingChips) {
    using C = ClipboardStore::Category;
    // A new category goes right after the last stored one, or without one right after
    // "pinned", even when "pinned" itself was missing. Unknown and repeated keys go.
    EXPECT_EQ(ChipOrder::merge({"text", "cat:A", "all"}, {C{"A", "a"}, C{"B", "b"}}),
              (Strings{"text", "cat:A", "cat:B", "all", "pinned", "links", "images"}));
    EXPECT_EQ(ChipOrder::merge({"pinned", "bogus", "cat:gone", "pinned", "all"}, {}),
              (Strings{"pinned", "all", "text", "links", "images"}));
    EXPECT_EQ(ChipOrder::merge({"text", "pinned", "all"}, {C{"A", "a"}}),
              (Strings{"text", "pinned", "cat:A", "all", "links", "images"}));
    EXPECT_EQ(ChipOrder::merge({"text", "all"}, {C{"A", "a"}}),
              (Strings{"text", "all", "pinned", "cat:A", "links", "images"}));
}

TEST(ChipOrder, SaveStoresTheOrderForSyncAndReordersCategoriesOnlyWhenTheyDiffer) {
    test::StoreEnvironment env;
    ClipboardStore store(env.context());
    auto a = store.createCategory("Work");
    auto b = store.createCategory("Home");
    int changes = 0;
    store.didChangeLocally = [&] { ++changes; };
    ChipOrder chips(env.defaults, store);
    env.clock.set(1731680000.25);

    Strings order{"images", "cat:" + b->id, "all", "cat:" + a->id, "pinned", "text", "links"};
    chips.save(order);
    EXPECT_EQ(env.defaults.stringArray(prefkey::clipboardChipOrder), order);
    EXPECT_EQ(env.defaults.boolObject(prefkey::syncOrderDirty), true);
    EXPECT_EQ(env.defaults.doubleObject(prefkey::syncOrderModified), 1731680000.25);
    EXPECT_EQ(store.categories(), (std::vector<ClipboardStore::Category>{*b, *a}));
    EXPECT_EQ(changes, 2);  // the saved order, then the reordering
    std::swap(order[0], order[2]);
    chips.save(order);
    EXPECT_EQ(changes, 3);  // the categories were already in this order
}

}  // namespace
}  // namespace zettly
