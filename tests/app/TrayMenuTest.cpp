#include <QAction>
#include <QApplication>
#include <QMenu>
#include <QTimer>
#include <QToolButton>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app/TrayMenu.h"
#include "popup/PopupController.h"
#include "popup/ui/PopupWindow.h"
#include "store/PrefKeys.h"
#include "sync/SyncPace.h"
#include "tests/fakes/FakeDesktop.h"
#include "tests/fakes/FakePopupView.h"
#include "tests/fakes/HistoryEnvironment.h"
#include "tests/fakes/TestImages.h"

namespace zettly {
namespace {

using ::testing::ElementsAre;

const std::string ownId = "org.zettly.Zettly";
const QString separator = QStringLiteral("---");

// The tray menu wired to a real history controller the way the app does it,
// with the commands counted.
class TrayMenuTest : public ::testing::Test, protected test::HistoryEnvironment {
protected:
    TrayMenuTest() { desktop.front = editor; }

    TrayMenu::Hooks hooks(bool updates = true) {
        TrayMenu::Hooks h;
        h.newest = [this] { return TrayMenu::newestEntries(texts, images); };
        h.aboutToShow = [this] { controller.rememberFrontWindow(); };
        h.pick = [this](const PopupModel::Entry& entry) { controller.pick(entry, false); };
        h.showHistory = [this] { commands.push_back("show"); };
        h.togglePause = [this] { commands.push_back("pause"); };
        h.skipNext = [this] { commands.push_back("skip"); };
        h.openSettings = [this] { commands.push_back("settings"); };
        if (updates)
            h.checkForUpdates = [this] { commands.push_back("updates"); };
        h.quit = [this] { commands.push_back("quit"); };
        return h;
    }
    void copy(const std::string& text) {
        env.clock.advance(1);
        texts.insert(text);
    }
    // What the user sees, separators as "---".
    static QStringList shown(QMenu& menu) {
        QStringList items;
        for (QAction* action : menu.actions())
            if (action->isVisible())
                items << (action->isSeparator() ? separator : action->text());
        return items;
    }
    static QAction* item(QMenu& menu, const QString& text) {
        for (QAction* action : menu.actions())
            if (action->isVisible() && action->text() == text)
                return action;
        ADD_FAILURE() << "no item " << text.toStdString();
        return nullptr;
    }
    // Opened as the tray opens it, then closed again.
    static void openAndClose(QMenu& menu) {
        menu.popup(QPoint(10, 10));
        QApplication::processEvents();
        menu.close();
    }

    test::FakePopupView view;
    test::FakeDesktop desktop;
    SyncPace pace;
    test::ManualExecutor searches;
    PopupController controller{
        {view, desktop, queue, texts, images, monitor, env.defaults, pace, ownId, searches}};
    std::vector<std::string> commands;
    const AppWindow editor{11, "org.gnome.TextEditor"};
    const AppWindow terminal{12, "org.gnome.Terminal"};
};

TEST_F(TrayMenuTest, ShowHistoryTheFiveNewestUnpinnedOnOneLineThenTheCommandsInOrder) {
    TrayMenu tray(hooks());
    const QStringList commandItems = {separator, "Pause Capture",  "Skip Next Copy",
                                      separator, "Settings\u2026", "Check for Updates\u2026",
                                      separator, "Quit Zettly"};
    EXPECT_EQ(shown(tray.menu()), (QStringList{"Show History", "No Copies Yet"} + commandItems));
    EXPECT_FALSE(item(tray.menu(), "No Copies Yet")->isEnabled());

    copy("the oldest, pushed out");
    copy("line one\nline two\n\t three");
    copy(std::string(30, 'a') + " " + std::string(30, 'b'));
    copy("Tom & Jerry");
    copy("kept on top");
    texts.setPinned(textItem("kept on top").id, true);
    copy("a named one");
    texts.setLabel(textItem("a named one").id, "Server login");
    env.clock.advance(1);
    ASSERT_EQ(images.save(test::png(640, 400, test::solid({200, 60, 60}))),
              ImageClipStore::SaveResult::saved);
    openAndClose(tray.menu());
    EXPECT_EQ(shown(tray.menu()),
              QStringList({"Show History", "Image 640 \u00d7 400", "Server login", "Tom && Jerry",
                           QString(30, 'a') + " " + QString(8, 'b') + "\u2026",
                           "line one line two three"}) +
                  commandItems);

    tray.setCaptureState(true, true);
    EXPECT_EQ(shown(tray.menu())[7], "Resume Capture");
    EXPECT_FALSE(item(tray.menu(), "Skip Next Copy")->isEnabled());
    for (const char* text : {"Show History", "Resume Capture", "Settings\u2026",
                             "Check for Updates\u2026", "Quit Zettly"})
        item(tray.menu(), text)->trigger();
    tray.setCaptureState(false, false);
    item(tray.menu(), "Skip Next Copy")->trigger();
    EXPECT_THAT(commands, ElementsAre("show", "pause", "settings", "updates", "quit", "skip"));

    // Without an update feed the item says so, greyed, in the same place.
    TrayMenu unconfigured(hooks(false));
    QAction* updates = item(unconfigured.menu(), "Updates Not Set Up");
    ASSERT_NE(updates, nullptr);
    EXPECT_FALSE(updates->isEnabled());
    EXPECT_EQ(shown(unconfigured.menu()).indexOf("Updates Not Set Up"),
              shown(unconfigured.menu()).indexOf("Settings\u2026") + 1);
}

TEST_F(TrayMenuTest, EachOpeningListsTheCopiesMadeSinceTheLast) {
    copy("first");
    TrayMenu tray(hooks());
    openAndClose(tray.menu());
    EXPECT_EQ(shown(tray.menu())[1], "first");
    copy("second");
    openAndClose(tray.menu());
    EXPECT_EQ(shown(tray.menu()).mid(1, 3), (QStringList{"second", "first", separator}));
    texts.clear(false);
    openAndClose(tray.menu());
    EXPECT_EQ(shown(tray.menu())[1], "No Copies Yet");
}

TEST_F(TrayMenuTest, PickingAnEntryCopiesItAndPastesIntoTheWindowInFrontAsTheHistoryWindowDoes) {
    env.defaults.setBool(prefkey::pasteAutomatically, true);
    // The history window was last opened over the terminal; the tray menu
    // opens over the editor, which must get the paste.
    desktop.front = terminal;
    controller.open();
    controller.close();
    desktop.front = editor;
    copy("older");
    copy("newest");
    TrayMenu tray(hooks());
    openAndClose(tray.menu());
    env.clock.advance(1);
    item(tray.menu(), "older")->trigger();
    EXPECT_EQ(pasteboard.text(), "older");
    queue.advance(1);
    ASSERT_EQ(desktop.pastes.size(), 1u);
    EXPECT_EQ(desktop.pastes[0].target, editor);
    // Picked from the history it moved to the top, as a pick in the window does.
    openAndClose(tray.menu());
    EXPECT_EQ(shown(tray.menu())[1], "older");

    env.defaults.setBool(prefkey::pasteAutomatically, false);
    env.clock.advance(1);
    ASSERT_EQ(images.save(test::png(64, 48, test::solid({0, 90, 200}))),
              ImageClipStore::SaveResult::saved);
    openAndClose(tray.menu());
    item(tray.menu(), "Image 64 \u00d7 48")->trigger();
    EXPECT_EQ(pasteboard.text(), std::nullopt);
    EXPECT_FALSE(pasteboard.empty());
    queue.advance(1);
    EXPECT_EQ(desktop.pastes.size(), 1u) << "pasted although the preference is off";
}

// The history window's footer menu says the same as the tray about updates.
TEST_F(TrayMenuTest, TheHistoryWindowsFooterAgreesWithTheTrayOnWhetherUpdatesAreSetUp) {
    PopupWindow window;
    PopupController windowController{
        {window, desktop, queue, texts, images, monitor, env.defaults, pace, ownId, searches}};
    window.setController(&windowController);
    windowController.onCheckForUpdates = [this] { commands.push_back("updates"); };
    QToolButton* more = nullptr;
    for (QToolButton* button : window.findChildren<QToolButton*>())
        if (button->toolTip() == "Menu")
            more = button;
    ASSERT_NE(more, nullptr);
    auto footerItem = [&]() -> std::pair<QString, bool> {
        std::pair<QString, bool> found;
        QTimer::singleShot(0, [&] {
            auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
            ASSERT_NE(menu, nullptr);
            for (QAction* action : menu->actions())
                if (action->text().contains("Update"))
                    found = {action->text(), action->isEnabled()};
            menu->close();
        });
        windowController.open();
        more->click();
        return found;
    };
    EXPECT_EQ(footerItem(), std::make_pair(QString("Check for Updates\u2026"), true));
    window.setUpdatesConfigured(false);
    EXPECT_EQ(footerItem(), std::make_pair(QString("Updates Not Set Up"), false));
}

}  // namespace
}  // namespace zettly
