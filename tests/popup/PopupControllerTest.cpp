#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "popup/PopupController.h"
#include "store/ClipPrefs.h"
#include "store/PrefKeys.h"
#include "sync/SyncPace.h"
#include "tests/fakes/FakeDesktop.h"
#include "tests/fakes/FakePopupView.h"
#include "tests/fakes/HistoryEnvironment.h"
#include "tests/fakes/TestImages.h"

namespace zettly {
namespace {

using ::testing::ElementsAre;
using Kind = PopupModel::Filter::Kind;

const std::string ownId = "org.zettly.Zettly";

class PopupControllerTest : public ::testing::Test, protected test::HistoryEnvironment {
protected:
    PopupControllerTest() { desktop.front = editor; }

    void addTexts(std::initializer_list<const char*> list) {
        for (const char* text : list) {
            env.clock.advance(1);
            texts.insert(text);
        }
    }
    std::string addImage(int width, int height) {
        env.clock.advance(1);
        EXPECT_EQ(images.save(test::png(width, height, test::solid({9, 99, 199}))),
                  ImageClipStore::SaveResult::saved);
        return images.fetchAll().front().id;
    }
    bool press(std::uint32_t code, std::uint32_t mods = 0, std::string characters = "") {
        return controller.handle(KeyPress{code, mods, std::move(characters)});
    }
    std::vector<std::string> listed() {
        std::vector<std::string> out;
        for (const auto& entry : controller.model().entries())
            out.push_back(entry.text() ? entry.text()->text : "image");
        return out;
    }
    std::string selectedText() { return controller.model().selectedEntry()->text()->text; }
    test::FakePopupView view;
    test::FakeDesktop desktop;
    SyncPace pace;
    test::ManualExecutor searches;
    PopupController controller{
        {view, desktop, queue, texts, images, monitor, env.defaults, pace, ownId, searches}};
    const AppWindow editor{11, "org.gnome.TextEditor"};
    const AppWindow ourPanel{12, ownId};
};

using Keys = PopupControllerTest;
using Pick = PopupControllerTest;
using Preview = PopupControllerTest;
using Dialogs = PopupControllerTest;
using Window = PopupControllerTest;

TEST_F(Keys, ArrowsAndTabTakeAnyModifiersWhileAltPAndAltBackspaceNeedAltAlone) {
    addTexts({"one", "two", "three"});
    controller.open();
    EXPECT_TRUE(press(keycode::downArrow, modifier::all));
    EXPECT_TRUE(press(keycode::downArrow, modifier::shift));
    EXPECT_TRUE(press(keycode::upArrow, modifier::command));
    EXPECT_EQ(selectedText(), "two");

    EXPECT_FALSE(press(keycode::p, modifier::option | modifier::shift, "p"));
    EXPECT_FALSE(press(keycode::deleteKey));  // edits the search text instead
    EXPECT_FALSE(press(keycode::deleteKey, modifier::command));
    EXPECT_FALSE(press(keycode::space, modifier::control | modifier::shift, " "));
    EXPECT_EQ(listed(), (std::vector<std::string>{"three", "two", "one"}));

    EXPECT_TRUE(press(keycode::p, modifier::option, "p"));
    EXPECT_TRUE(textItem("two").pinned);
    EXPECT_TRUE(press(keycode::deleteKey, modifier::option));
    // "two" left the All chip, so the highlight landed on "one".
    EXPECT_EQ(listed(), std::vector<std::string>{"three"});

    EXPECT_TRUE(press(keycode::tab));
    EXPECT_EQ(controller.model().filter().kind(), Kind::pinned);
    EXPECT_TRUE(press(keycode::tab, modifier::shift));
    EXPECT_TRUE(press(keycode::tab, modifier::shift));
    EXPECT_EQ(controller.model().filter().kind(), Kind::images);  // wrapped to the last chip
}

TEST_F(Keys, PageKeysMoveByTheViewsPageAndHomeEndReachTheEndsUnlessTheSearchHasText) {
    addTexts({"a1", "a2", "a3", "a4", "a5", "a6", "a7", "a8"});
    controller.open();
    view.pageRows = 3;
    EXPECT_TRUE(press(keycode::pageDown));
    EXPECT_EQ(controller.model().selection(), 3u);
    view.pageRows = 4;
    EXPECT_TRUE(press(keycode::pageDown, modifier::shift));
    EXPECT_EQ(controller.model().selection(), 7u);
    EXPECT_TRUE(press(keycode::pageDown));  // clamped at the last row
    EXPECT_EQ(controller.model().selection(), 7u);
    EXPECT_TRUE(press(keycode::pageUp));
    EXPECT_EQ(controller.model().selection(), 3u);
    EXPECT_TRUE(press(keycode::pageUp));
    EXPECT_EQ(controller.model().selection(), 0u);

    EXPECT_TRUE(press(keycode::end));
    EXPECT_EQ(selectedText(), "a1");
    EXPECT_TRUE(press(keycode::home));
    EXPECT_EQ(selectedText(), "a8");
    // Shift+Home selects in the search field; Alt+End is nobody's.
    EXPECT_FALSE(press(keycode::end, modifier::shift));
    EXPECT_FALSE(press(keycode::end, modifier::option));
    EXPECT_EQ(controller.model().selection(), 0u);

    // With search text, Home and End belong to the field's cursor.
    controller.model().setQuery("a");
    EXPECT_FALSE(press(keycode::end));
    EXPECT_FALSE(press(keycode::home));
    EXPECT_EQ(controller.model().selection(), 0u);
    EXPECT_TRUE(press(keycode::end, modifier::command));
    EXPECT_EQ(selectedText(), "a1");
    EXPECT_TRUE(press(keycode::home, modifier::command));
    EXPECT_EQ(selectedText(), "a8");
}

TEST_F(Keys, CtrlDigitPicksThatRowWhateverIsSelectedAndIsSwallowedWhenTheRowIsMissing) {
    addTexts({"a", "b"});
    controller.open();
    EXPECT_TRUE(press(20, modifier::command, "3"));
    EXPECT_TRUE(controller.isOpen());
    EXPECT_EQ(pasteboard.text(), std::nullopt);
    EXPECT_FALSE(press(20, modifier::command | modifier::option, "3"));

    addTexts({"c", "d", "e"});
    env.clock.advance(1);
    controller.close();
    controller.open();
    EXPECT_EQ(controller.model().selection(), 0u);
    EXPECT_TRUE(press(20, modifier::command, "3"));
    EXPECT_EQ(pasteboard.text(), "c");
    EXPECT_FALSE(controller.isOpen());

    // French AZERTY types "é" on the 2 key; its position still counts.
    controller.open();
    EXPECT_EQ(listed(), (std::vector<std::string>{"c", "e", "d", "b", "a"}));
    EXPECT_TRUE(press(19, modifier::command, "\xc3\xa9"));
    EXPECT_EQ(pasteboard.text(), "e");
}

TEST_F(Keys, CommandsThatNeedAnEntryPassWithoutOneAndTheOthersAlwaysWork) {
    int settings = 0, quits = 0;
    controller.onOpenSettings = [&] { ++settings; };
    controller.onQuit = [&] { ++quits; };
    controller.open();
    EXPECT_FALSE(press(keycode::e, modifier::command, "e"));
    EXPECT_FALSE(press(keycode::n, modifier::command, "N"));
    EXPECT_FALSE(press(keycode::k, modifier::command, "k"));
    EXPECT_FALSE(press(keycode::e, modifier::option, "e"));
    EXPECT_TRUE(press(keycode::q, modifier::command, "q"));
    EXPECT_TRUE(press(keycode::comma, modifier::command, ","));
    EXPECT_EQ(quits, 1);
    EXPECT_EQ(settings, 1);
    EXPECT_FALSE(controller.isOpen());
    EXPECT_FALSE(press(keycode::downArrow));  // closed: nothing is ours any more

    // Ctrl+E on an image is taken but asks nothing.
    addImage(30, 20);
    controller.open();
    EXPECT_TRUE(press(keycode::e, modifier::command, "e"));
    EXPECT_TRUE(view.dialogs.empty());
}

// That the pick reaches the window the user worked in, and that the window
// closes, is the X11 scenario HotKeyOpensTheWindowAndTypingThenReturnPastesTheMatch;
// that it moves to the top uncaptured is PasteboardMonitorTest's.
TEST_F(Pick, ThePasteFollowsAfterADelayAltInvertsThePreferenceAndTheUsersChordWins) {
    addTexts({"ls -la", "newer"});
    env.defaults.setBool(prefkey::pasteAutomatically, true);
    controller.open();
    desktop.front = ourPanel;
    press(keycode::downArrow);
    EXPECT_TRUE(press(keycode::returnKey));
    EXPECT_EQ(pasteboard.text(), "ls -la");
    EXPECT_THAT(desktop.activated, ElementsAre(editor));
    queue.advance(0.14);
    EXPECT_TRUE(desktop.pastes.empty());
    queue.advance(0.02);
    ASSERT_EQ(desktop.pastes.size(), 1u);
    EXPECT_EQ(desktop.pastes[0].target, editor);
    EXPECT_EQ(desktop.pastes[0].chord, PasteChord::ctrlV);

    std::size_t expected = 1;
    for (bool preference : {false, true}) {
        for (bool alt : {false, true}) {
            env.defaults.setBool(prefkey::pasteAutomatically, preference);
            controller.open();
            press(keycode::keypadEnter, alt ? modifier::option | modifier::shift : 0);
            queue.advance(1);
            expected += preference != alt;
            EXPECT_EQ(desktop.pastes.size(), expected) << preference << alt;
        }
    }

    // The chord the user chose for an application in the settings reaches
    // the desktop with the paste.
    ClipPrefs(env.defaults).setPasteChords({{"gnome-terminal", PasteChord::shiftInsert}});
    desktop.front = AppWindow{20, "Gnome-terminal"};
    controller.open();
    desktop.front = editor;  // the desktop already gave the keyboard back itself
    desktop.activated.clear();
    press(keycode::returnKey);
    queue.advance(1);
    EXPECT_TRUE(desktop.activated.empty());
    EXPECT_EQ(desktop.pastes.back().target, (AppWindow{20, "Gnome-terminal"}));
    EXPECT_EQ(desktop.pastes.back().chord, PasteChord::shiftInsert);

    desktop.keysAllowed = false;
    controller.open();
    press(keycode::returnKey, modifier::option);
    queue.advance(1);
    EXPECT_EQ(desktop.pastes.size(), expected + 1);
    EXPECT_EQ(pasteboard.text(), "ls -la");
}

TEST_F(Pick, AnImageGoesBackAsCopiedWhileItsOriginalReadsAndAsTheReducedJpegOtherwise) {
    const test::Bytes photo = test::png(4000, 3000, test::gradient(4000));
    env.clock.advance(1);
    // As capture stores it: the copied bytes with the type they were read as.
    pasteboard.copy({{"image/png", photo}});
    monitor.poll();
    reader.runAll();
    executor.runAll();
    ASSERT_EQ(images.fetchAll().size(), 1u);
    const ImageClipStore::Item item = images.fetchAll().front();
    const auto original = images.originalData(item.id);
    ASSERT_TRUE(original);

    controller.pick(PopupModel::Entry{item}, false);
    EXPECT_EQ(pasteboard.types().value, std::vector<std::string>{"image/png"});
    EXPECT_EQ(pasteboard.data("image/png").value, photo);
    // Our own write: not captured as a new image.
    monitor.poll();
    EXPECT_EQ(reader.pendingCount(), 0u);

    std::filesystem::remove(std::filesystem::path(images.fetchAll().front().file).parent_path() /
                            (std::filesystem::path(item.file).stem().string() + ".orig.png"));
    controller.pick(PopupModel::Entry{item}, false);
    EXPECT_EQ(pasteboard.types().value, std::vector<std::string>{"image/jpeg"});
    EXPECT_EQ(pasteboard.data("image/jpeg").value, images.fileData(item.id).value());
    monitor.poll();
    EXPECT_EQ(reader.pendingCount(), 0u);
    EXPECT_EQ(images.fetchAll().size(), 1u);
}

TEST_F(Window, OpeningOverOurOwnWindowKeepsTheWindowToPasteInto) {
    controller.open();
    EXPECT_EQ(controller.previousApp(), editor);
    controller.close();
    desktop.front = AppWindow{5, ownId};  // our Settings window
    controller.open();
    EXPECT_EQ(controller.previousApp(), editor);
    controller.close();
    desktop.front = AppWindow{6, std::nullopt};  // a window without an id is someone else's
    controller.open();
    EXPECT_EQ(controller.previousApp(), (AppWindow{6, std::nullopt}));
}

TEST_F(Window, SyncPollsFastExactlyWhileOpenAndAResizeIsUsedNextTime) {
    env.defaults.setString(prefkey::popupPosition, "center");
    int opened = 0;
    controller.onOpened = [&] { ++opened; };
    controller.toggle();
    EXPECT_TRUE(pace.menuOpen);
    EXPECT_EQ(opened, 1);
    EXPECT_TRUE(controller.keyMonitorActive());
    controller.panelDidEndResize({500, 700});
    controller.toggle();
    EXPECT_FALSE(pace.menuOpen);
    EXPECT_FALSE(controller.keyMonitorActive());
    controller.toggle();
    EXPECT_EQ(view.frame.width, 500);
    EXPECT_EQ(view.frame.height, 700);
    controller.panelDidResignKey();
    EXPECT_FALSE(pace.menuOpen);
}

TEST_F(Window, ChangesFromTheCloudReloadTheOpenWindowKeepingTheHighlightedItem) {
    addTexts({"a", "b", "c"});
    controller.open();
    press(keycode::downArrow);
    addTexts({"from the phone"});
    controller.cloudDidChange();
    EXPECT_EQ(listed().front(), "from the phone");
    EXPECT_EQ(selectedText(), "b");
}

TEST_F(Preview, ItAppearsAfterTheDelayOnTheSameItemFollowsTheSelectionAndEscapeHidesItFirst) {
    addTexts({"a", "b", "c"});
    desktop.mouse = {200, 800};
    controller.open();
    press(keycode::downArrow);
    queue.advance(1.4);
    press(keycode::downArrow);
    queue.advance(1.4);
    EXPECT_FALSE(view.previewVisible);
    queue.advance(0.2);
    ASSERT_TRUE(view.previewVisible);
    EXPECT_EQ(view.previewed->text()->text, "a");
    EXPECT_EQ(view.previewFrame.x, view.frame.maxX() + 6);
    press(keycode::upArrow);
    EXPECT_EQ(view.previewed->text()->text, "b");

    EXPECT_TRUE(press(keycode::y, modifier::command, "y"));
    EXPECT_FALSE(view.previewVisible);
    EXPECT_TRUE(press(keycode::space, modifier::control, " "));  // the second way to toggle it
    EXPECT_TRUE(press(keycode::escape));
    EXPECT_FALSE(view.previewVisible);
    EXPECT_TRUE(controller.isOpen());
    EXPECT_TRUE(press(keycode::escape, modifier::shift));
    EXPECT_FALSE(controller.isOpen());

    controller.open();  // a preview that was due when the window closed stays away
    press(keycode::downArrow);
    controller.close();
    queue.advance(5);
    EXPECT_FALSE(view.previewVisible);
}

TEST_F(Preview, ADelayOfZeroShowsItOnlyOnRequestSizedForTheImage) {
    env.defaults.setDouble(prefkey::previewDelay, 0);
    addImage(100, 50);
    addTexts({"text"});
    controller.open();
    press(keycode::downArrow);
    queue.advance(60);
    EXPECT_FALSE(view.previewVisible);
    press(keycode::space, modifier::control, " ");
    EXPECT_EQ(view.previewFrame.width, 200);
    EXPECT_EQ(view.previewFrame.height, 98);
}

TEST_F(Dialogs, TheWindowStaysOpenWhileADialogHasTheKeyboardAndGetsItBack) {
    addTexts({"note"});
    controller.open();
    view.onDialog = [&] {
        EXPECT_TRUE(controller.modalActive());
        EXPECT_FALSE(controller.keyMonitorActive());
        controller.panelDidResignKey();
    };
    EXPECT_TRUE(press(keycode::n, modifier::command, "n"));  // cancelled
    EXPECT_TRUE(controller.isOpen());
    EXPECT_FALSE(controller.modalActive());
    EXPECT_EQ(view.madeKey, 1);
    EXPECT_EQ(textItem("note").label, std::nullopt);
    ASSERT_EQ(view.dialogs.size(), 1u);
    EXPECT_EQ(view.dialogs[0].message, controller.texts.nameMessage);

    view.onDialog = nullptr;
    controller.panelDidResignKey();
    EXPECT_FALSE(controller.isOpen());
}

TEST_F(Dialogs, EditingKeepsTheStoreUntouchedUnlessTheTextReallyChangesToSomethingNew) {
    addTexts({"first", "second"});
    int edits = 0;
    texts.didChangeLocally = [&] { ++edits; };
    controller.open();
    view.askAnswers = {"  second\n", "first", "  Second  "};
    press(keycode::e, modifier::command, "e");
    EXPECT_EQ(edits, 0);
    press(keycode::e, modifier::command, "\xd1\x83");  // the E key on a Russian layout
    EXPECT_EQ(view.dialogs.back().title, controller.texts.duplicateText);
    EXPECT_EQ(listed(), (std::vector<std::string>{"second", "first"}));
    press(keycode::e, modifier::command, "e");
    EXPECT_EQ(listed(), (std::vector<std::string>{"Second", "first"}));
}

// That the texts stay pinned is ClipboardItemsTest's; the images are the controller's to detach.
TEST_F(Dialogs, DeletingTheActiveCategoryAsksFallsBackToTheFirstChipAndFreesItsImages) {
    addImage(20, 20);
    controller.open();
    view.askAnswers = {" Work "};
    controller.createCategory();
    const std::string id = controller.model().categories().at(0).id;
    EXPECT_EQ(controller.model().filter(), PopupModel::Filter::category(id));
    controller.setCategory(PopupModel::Entry{images.fetchAll().front()}, id);

    view.confirmAnswers = {false, true};
    controller.deleteCategory(id);
    EXPECT_EQ(controller.model().categories().size(), 1u);
    controller.deleteCategory(id);
    EXPECT_TRUE(controller.model().categories().empty());
    EXPECT_EQ(controller.model().filter().kind(), Kind::all);
    EXPECT_EQ(images.fetchAll().front().category, std::nullopt);
}

TEST_F(Dialogs, TheCategoryMenuCanFileAnItemInANewCategory) {
    addTexts({"address"});
    controller.open();
    PopupView::CategoryChoice fresh;
    fresh.kind = PopupView::CategoryChoice::Kind::newCategory;
    view.categoryAnswers = {fresh};
    view.askAnswers = {"Home"};
    EXPECT_TRUE(press(keycode::k, modifier::command, "k"));
    ASSERT_EQ(texts.categories().size(), 1u);
    EXPECT_EQ(textItem("address").category, texts.categories()[0].id);
    EXPECT_TRUE(textItem("address").pinned);
}

// Which rows survive is the stores' rule; both stores are cleared keeping pins.
TEST_F(Dialogs, ClearingAfterConfirmationKeepsPinnedTextsAndImages) {
    addTexts({"loose", "kept"});
    texts.setPinned(textItem("kept").id, true);
    std::string keptImage = addImage(20, 20);
    images.setPinned(keptImage, true);
    addImage(40, 20);
    controller.open();
    view.confirmAnswers = {false, true};
    controller.clearHistory();
    EXPECT_FALSE(controller.isOpen());
    EXPECT_EQ(texts.fetch(10, 0).size(), 2u);
    controller.clearHistory();
    ASSERT_EQ(texts.fetch(10, 0).size(), 1u);
    EXPECT_EQ(texts.fetch(10, 0)[0].text, "kept");
    ASSERT_EQ(images.fetchAll().size(), 1u);
    EXPECT_EQ(images.fetchAll()[0].id, keptImage);
}

}  // namespace
}  // namespace zettly
