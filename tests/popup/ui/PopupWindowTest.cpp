#include <QAbstractAnimation>
#include <QApplication>
#include <QDialog>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QTimer>
#include <QToolButton>
#include <QToolTip>
#include <QtTest/QTest>
#include <map>

#include <gtest/gtest.h>

#include "capture/PasteboardMonitor.h"
#include "popup/PopupController.h"
#include "popup/ui/ChipBar.h"
#include "popup/ui/HistoryList.h"
#include "popup/ui/PopupWindow.h"
#include "popup/ui/PreviewPanel.h"
#include "popup/ui/Texts.h"
#include "store/ClipPrefs.h"
#include "sync/SyncPace.h"
#include "tests/fakes/FakeDesktop.h"
#include "tests/fakes/HistoryEnvironment.h"
#include "tests/fakes/TestImages.h"
#include "ui/KeyEvents.h"

namespace zettly {
namespace {

// Picks the item with this text in the next menu that opens, by keyboard.
void chooseInNextMenu(const QString& text) {
    QTimer::singleShot(0, [text] {
        auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
        ASSERT_NE(menu, nullptr);
        for (QAction* action : menu->actions())
            if (action->text() == text) {
                menu->setActiveAction(action);
                QTest::keyClick(menu, Qt::Key_Return);
                return;
            }
        ADD_FAILURE() << "no menu item " << text.toStdString();
        menu->close();
    });
}

// The window wired to a real controller over real stores, as the app does.
class PopupWindowTest : public ::testing::Test, protected test::HistoryEnvironment {
protected:
    PopupWindowTest() {
        ClipPrefs(env.defaults).setPopupSize({420, 600});
        // The offscreen platform's one screen.
        desktop.screenList = {{Rect{0, 0, 800, 600}, Rect{0, 0, 800, 600}}};
        desktop.mouse = {100, 560};
        window.setController(&controller);
    }

    void copy(const std::string& text) {
        env.clock.advance(1);
        texts.insert(text);
    }
    int rows() { return window.list()->model()->rowCount(); }
    QPoint rowCentre(int row) {
        return window.list()->visualRect(window.list()->model()->index(row, 0)).center();
    }
    QLineEdit& search() { return *window.searchField(); }
    QImage screenshot() {
        QApplication::processEvents();
        window.list()->thumbnails().waitForLoads();
        return window.grab().toImage();
    }

    test::FakeDesktop desktop;
    PopupWindow window;
    SyncPace pace;
    test::ManualExecutor searches;
    PopupController controller{{window, desktop, queue, texts, images, monitor, env.defaults, pace,
                                "org.zettly.Zettly", searches},
                               &chipTitle};
};

// Escape closing the window and Return pasting the typed match are the X11
// scenarios in tests/x11/PopupTest.cpp; widening the search is PopupModelTest's.
TEST_F(PopupWindowTest, TypingFiltersTheRowsArrowsGoToTheControllerAndTheEmptyListSaysWhy) {
    controller.open();
    EXPECT_EQ(window.list()->emptyText(), "Copy something and it shows up here.");
    controller.close();
    copy("apple pie");
    copy("banana bread");
    copy("apple juice");
    controller.open();
    EXPECT_EQ(rows(), 3);
    EXPECT_EQ(window.list()->emptyText(), "");

    QTest::keyClicks(&search(), "apple");
    EXPECT_EQ(rows(), 2);
    QTest::keyClick(&search(), Qt::Key_Down);
    EXPECT_EQ(controller.model().selection(), 1u);
    EXPECT_EQ(search().text(), "apple");
    QTest::keyClicks(&search(), "zzz");
    // Nothing is found for certain only once the older history is read.
    QLabel* searching = nullptr;
    for (QLabel* label : window.findChildren<QLabel*>())
        if (label->text() == "Searching\u2026")
            searching = label;
    ASSERT_NE(searching, nullptr);
    EXPECT_EQ(window.list()->emptyText(), "Searching\u2026");
    EXPECT_FALSE(searching->isHidden());
    searches.runAll();
    queue.runPending();
    EXPECT_EQ(window.list()->emptyText(), "Nothing found.");
    EXPECT_TRUE(searching->isHidden());

    controller.close();
    controller.open();  // the next opening starts with an empty search field again
    EXPECT_EQ(search().text(), "");
}

TEST_F(PopupWindowTest, TheNameDialogStoresWhatWasTypedAndCancellingKeepsTheOldName) {
    copy("Bahnhofstrasse 1, Zurich");
    controller.open();
    auto answer = [](const QString& text, Qt::Key key) {
        QTimer::singleShot(0, [text, key] {
            auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
            ASSERT_NE(dialog, nullptr);
            auto* field = dialog->findChild<QLineEdit*>();
            ASSERT_NE(field, nullptr);
            EXPECT_TRUE(field->hasSelectedText() || field->text().isEmpty());
            field->setText(text);
            QTest::keyClick(field, key);
        });
    };

    answer("Office", Qt::Key_Return);
    controller.editLabel(*controller.model().selectedEntry());
    EXPECT_EQ(textItem("Bahnhofstrasse 1, Zurich").label, "Office");

    answer("Home", Qt::Key_Escape);
    controller.editLabel(*controller.model().selectedEntry());
    EXPECT_EQ(textItem("Bahnhofstrasse 1, Zurich").label, "Office");
    EXPECT_TRUE(window.isVisible());
}

// A dialog's title and every label in it, as the user reads them.
QStringList textsOf(const QDialog& dialog) {
    QStringList texts{dialog.windowTitle()};
    for (const auto* label : dialog.findChildren<QLabel*>())
        texts << label->text();
    return texts;
}

TEST_F(PopupWindowTest, TheEditDialogSaysCtrlReturnSavesAndItDoesAndNoDialogRepeatsItsTitle) {
    copy("draft");
    controller.open();
    QTimer::singleShot(0, [] {
        auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
        ASSERT_NE(dialog, nullptr);
        const QStringList shown = textsOf(*dialog);
        EXPECT_EQ(shown.count("Edit text"), 1);
        EXPECT_TRUE(shown.contains("Ctrl+Return saves"));
        auto* box = dialog->findChild<QPlainTextEdit*>();
        ASSERT_NE(box, nullptr);
        box->setPlainText("final\ntext");
        QTest::keyClick(box, Qt::Key_Return, Qt::ControlModifier);
        if (dialog->isVisible())
            dialog->reject();
    });
    controller.editText(*controller.model().selectedEntry());
    EXPECT_EQ(controller.model().entries().front().text()->text, "final\ntext");

    QTimer::singleShot(0, [] {
        auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
        ASSERT_NE(dialog, nullptr);
        const QStringList shown = textsOf(*dialog);
        EXPECT_EQ(shown.count("Name"), 1);
        dialog->reject();
    });
    controller.editLabel(*controller.model().selectedEntry());
}

TEST_F(PopupWindowTest, TheRowMenuSelectsItsRowAndShowsTheKeysThatDoTheSameThere) {
    copy("older");
    copy("newer");
    controller.open();
    std::map<QString, QString> keys;
    QTimer::singleShot(0, [&keys] {
        auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
        ASSERT_NE(menu, nullptr);
        for (QAction* action : menu->actions())
            if (!action->isSeparator()) {
                EXPECT_TRUE(action->isShortcutVisibleInContextMenu())
                    << action->text().toStdString();
                EXPECT_EQ(action->shortcutContext(), Qt::WidgetShortcut)
                    << action->text().toStdString();
                keys[action->text()] = action->shortcut().toString();
            }
        menu->close();
    });
    QContextMenuEvent click(QContextMenuEvent::Mouse, rowCentre(1),
                            window.list()->viewport()->mapToGlobal(rowCentre(1)));
    QApplication::sendEvent(window.list()->viewport(), &click);
    EXPECT_EQ(controller.model().selection(), 1u);
    EXPECT_EQ(keys["Copy"], "Return");
    EXPECT_EQ(keys["Copy and Paste"], "Alt+Return");
    EXPECT_EQ(keys[QString::fromUtf8("Edit Text\u2026")], "Ctrl+E");
    EXPECT_EQ(keys["Category"], "Ctrl+K");
    EXPECT_EQ(keys["Delete"], "Alt+Backspace");

    // The keys the menu showed reach the key table and act on that row.
    for (const char* name : {"Pin", "Delete"}) {
        const QKeySequence shown(keys[name]);
        ASSERT_EQ(shown.count(), 1);
        QTest::keyClick(&search(), shown[0].key(), shown[0].keyboardModifiers());
    }
    // "older" went to Pinned; the highlight fell on "newer", which went away.
    EXPECT_TRUE(textItem("older").pinned);
    EXPECT_EQ(texts.fetch(10, 0).size(), 1u);
}

TEST_F(PopupWindowTest, AnotherWindowTakingTheKeyboardClosesTheWindow) {
    copy("note");
    controller.open();
    QApplication::processEvents();
    ASSERT_TRUE(window.isActiveWindow());
    QWidget elsewhere;
    elsewhere.show();
    elsewhere.activateWindow();
    for (int i = 0; i < 50 && window.isVisible(); ++i)
        QTest::qWait(20);
    EXPECT_FALSE(window.isVisible());
}

// Sway takes the keyboard away for a moment when a keyboard is added.
TEST_F(PopupWindowTest, TheKeyboardComingBackAtOnceKeepsTheWindowOpen) {
    copy("note");
    controller.open();
    QApplication::processEvents();
    ASSERT_TRUE(window.isActiveWindow());
    QWidget elsewhere;
    elsewhere.show();
    elsewhere.activateWindow();
    QApplication::processEvents();
    window.activateWindow();
    QTest::qWait(400);
    EXPECT_TRUE(window.isVisible());
}

TEST_F(PopupWindowTest, AResizeByTheUserIsKeptForNextTimeButThePlacementIsNot) {
    controller.open();
    const QSize placed = window.size();
    ASSERT_LT(placed.height(), 600);  // the offscreen screen is too low for the preference
    auto stored = [this] { return ClipPrefs(env.defaults).popupSize(); };
    QTest::qWait(500);
    EXPECT_EQ(stored(), (ClipPrefs::PopupSize{420, 600}));

    window.resize(500, 400);
    // Reported once the resizing has been still for a moment.
    for (int i = 0; i < 100 && stored().width != 500; ++i)
        QTest::qWait(20);
    EXPECT_EQ(stored(), (ClipPrefs::PopupSize{500, 400}));
}

TEST_F(PopupWindowTest, ClickingARowPicksItAndAltInvertsThePastePreference) {
    copy("first");
    copy("second");
    desktop.front = AppWindow{11, "org.gnome.TextEditor"};
    for (Qt::KeyboardModifiers held :
         {Qt::KeyboardModifiers{}, Qt::KeyboardModifiers{Qt::AltModifier}}) {
        controller.open();
        QTest::mouseClick(window.list()->viewport(), Qt::LeftButton, held, rowCentre(1));
        EXPECT_FALSE(window.isVisible());
        queue.advance(1);
    }
    EXPECT_EQ(pasteboard.text(), "second");  // the first pick moved "first" to the top
    EXPECT_EQ(desktop.pastes.size(), 1u);
}

TEST_F(PopupWindowTest, ClickingAChipActivatesItAndDroppingAChipOnAnotherMovesIt) {
    controller.open();
    auto keys = [this] {
        std::vector<std::string> out;
        for (const auto& filter : controller.model().filters())
            out.push_back(filter.key());
        return out;
    };
    auto* bar = window.findChild<ChipBar*>();
    ASSERT_NE(bar, nullptr);
    const QPoint textChip = bar->chipRect(2).center();
    QWidget* strip = bar->childAt(textChip);
    ASSERT_NE(strip, nullptr);
    const QPoint at = strip->mapFrom(bar, textChip);
    QTest::mouseClick(strip, Qt::LeftButton, {}, at);
    EXPECT_EQ(controller.model().filter(), PopupModel::Filter::text());

    QMimeData mime;
    mime.setData(ChipBar::mimeType, "all");
    QDragEnterEvent enter(at, Qt::MoveAction, &mime, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(strip, &enter);
    EXPECT_TRUE(enter.isAccepted());
    QDropEvent drop(at, Qt::MoveAction, &mime, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(strip, &drop);
    // All came from the left of Text, so it lands right after it.
    EXPECT_EQ(keys(), (std::vector<std::string>{"pinned", "text", "all", "links", "images"}));
}

TEST_F(PopupWindowTest, ALongCategoryNameIsCutAndChipsOutOfSightAreReachableByMenuAndByKeys) {
    const auto reports =
        texts.createCategory("Quarterly reports for the Brno office and the auditors");
    ASSERT_TRUE(reports);
    const QString name = QString::fromStdString(reports->name);  // as stored: 40 characters
    const auto category = PopupModel::Filter::category(reports->id);
    controller.open();
    PopupModel& model = controller.model();
    model.moveChip(category, model.filters().front());
    window.resize(320, window.height());  // the narrowest window
    QApplication::processEvents();
    auto* bar = window.findChild<ChipBar*>();
    ASSERT_NE(bar, nullptr);
    auto indexOf = [&](const PopupModel::Filter& filter) {
        const auto& all = model.filters();
        return std::size_t(std::find(all.begin(), all.end(), filter) - all.begin());
    };
    auto inSight = [&](std::size_t index) {
        const auto hidden = bar->hiddenChips();
        return std::find(hidden.begin(), hidden.end(), index) == hidden.end();
    };
    ASSERT_EQ(indexOf(category), 0u);
    ASSERT_TRUE(inSight(0));

    // Cut with an ellipsis, whole in the tooltip, and leaving room for others.
    const QString shown = bar->chipTitle(0);
    EXPECT_TRUE(shown.endsWith(QChar(0x2026))) << shown.toStdString();
    EXPECT_TRUE(name.startsWith(shown.chopped(1).trimmed()));
    EXPECT_EQ(bar->chipToolTip(0).toStdString(), name.toStdString());
    EXPECT_EQ(bar->chipToolTip(indexOf(PopupModel::Filter::text())), "");
    EXPECT_LT(bar->chipRect(0).width(), bar->width() / 2);
    QWidget* strip = bar->childAt(bar->chipRect(0).center());
    ASSERT_NE(strip, nullptr);
    const QPoint at = strip->mapFrom(bar, bar->chipRect(0).center());
    QHelpEvent help(QEvent::ToolTip, at, strip->mapToGlobal(at));
    QApplication::sendEvent(strip, &help);
    EXPECT_EQ(QToolTip::text().toStdString(), name.toStdString());
    QToolTip::hideText();

    // Images is out of sight; the chevron button lists it and activates it.
    const std::size_t images = indexOf(PopupModel::Filter::images());
    EXPECT_FALSE(inSight(images));
    QToolButton* more = nullptr;
    for (auto* button : bar->findChildren<QToolButton*>())
        if (button->toolTip() == "More chips")
            more = button;
    ASSERT_NE(more, nullptr);
    ASSERT_TRUE(more->isVisible());
    chooseInNextMenu("Images");
    QTest::mouseClick(more, Qt::LeftButton);
    EXPECT_EQ(model.filter(), PopupModel::Filter::images());
    EXPECT_TRUE(inSight(images));
    EXPECT_FALSE(inSight(0));

    // Tab goes round from the last chip to the first, bringing it back.
    QTest::keyClick(&search(), Qt::Key_Tab);
    EXPECT_EQ(model.filter(), category);
    EXPECT_TRUE(inSight(0));
    EXPECT_FALSE(inSight(images));

    // Wide enough for every chip, the button goes.
    window.resize(600, window.height());
    QApplication::processEvents();
    EXPECT_TRUE(bar->hiddenChips().empty());
    EXPECT_FALSE(more->isVisible());
}

TEST_F(PopupWindowTest, MenusActOnTheRowAndTheFooterClosesTheWindowBeforeOpeningSettings) {
    copy("note");
    const auto work = texts.createCategory("Work");
    ASSERT_TRUE(work);
    controller.open();
    chooseInNextMenu("Pin");
    QContextMenuEvent click(QContextMenuEvent::Mouse, rowCentre(0),
                            window.list()->viewport()->mapToGlobal(rowCentre(0)));
    QApplication::sendEvent(window.list()->viewport(), &click);
    EXPECT_TRUE(textItem("note").pinned);
    EXPECT_TRUE(window.isVisible());

    controller.model().setFilter(PopupModel::Filter::pinned());
    chooseInNextMenu("Work");
    QTest::keyClick(&search(), Qt::Key_K, Qt::ControlModifier);
    EXPECT_EQ(textItem("note").category, work->id);

    int settingsOpened = 0;
    controller.onOpenSettings = [&] {
        ++settingsOpened;
        EXPECT_FALSE(window.isVisible());
    };
    QToolButton* menuButton = nullptr;
    for (auto* button : window.findChildren<QToolButton*>())
        if (button->toolTip() == "Menu")
            menuButton = button;
    ASSERT_NE(menuButton, nullptr);
    chooseInNextMenu(QString::fromUtf8("Settings\u2026"));
    QTest::mouseClick(menuButton, Qt::LeftButton);
    EXPECT_EQ(settingsOpened, 1);
}

TEST_F(PopupWindowTest, CtrlYPreviewsTheWholeTextOrTheImageOfTheSelectedRow) {
    env.clock.advance(1);
    ASSERT_EQ(images.save(test::png(640, 400, test::solid({200, 60, 60}))),
              ImageClipStore::SaveResult::saved);
    const std::string log = "first line\n" + std::string(20000, 'y') + "\nlast line";
    copy(log);
    controller.open();
    QTest::keyClick(&search(), Qt::Key_Y, Qt::ControlModifier);
    ASSERT_TRUE(window.isPreviewVisible());
    EXPECT_EQ(window.preview()->shownText().toStdString(), log);
    QTest::keyClick(&search(), Qt::Key_Down);  // the preview follows the selection
    EXPECT_EQ(window.preview()->shownText(), QString::fromUtf8("640 \u00d7 400"));
}

TEST_F(PopupWindowTest, APreviewAfterAnImageHasTheSizeItWouldHaveHadFirst) {
    copy("a short note");
    env.clock.advance(1);
    ASSERT_EQ(images.save(test::png(1000, 900, test::solid({40, 120, 200}))),
              ImageClipStore::SaveResult::saved);
    controller.open();
    const PopupModel::Entry image = *controller.model().entry(0);
    const PopupModel::Entry text = *controller.model().entry(1);
    ASSERT_TRUE(text.isText());
    controller.showPreview(text);
    const QSize textFirst = window.preview()->size();
    EXPECT_EQ(textFirst, QSize(380, 360));
    controller.showPreview(image);
    const QSize imageSize = window.preview()->size();
    EXPECT_GT(imageSize.width(), textFirst.width());
    controller.showPreview(text);
    EXPECT_EQ(window.preview()->size(), textFirst);
    // Hidden in between, the same.
    controller.showPreview(image);
    window.hidePreview();
    controller.showPreview(text);
    EXPECT_EQ(window.preview()->size(), textFirst);
    controller.showPreview(image);
    EXPECT_EQ(window.preview()->size(), imageSize);
}

class CommaTypesSemicolon final : public KeyboardLayout {
public:
    std::optional<std::string> character(std::uint32_t code) override {
        if (code == keycode::comma)
            return ";";
        return std::nullopt;
    }
};

TEST(KeyPressFrom, ScanCodesNameThePhysicalKeyAndSynthesisedKeysFallBackToTheQtKey) {
    auto press = [](int key, Qt::KeyboardModifiers held, quint32 scanCode = 0, QString text = {},
                    KeyboardLayout* layout = nullptr) {
        return keyPressFrom(QKeyEvent(QEvent::KeyPress, key, held, scanCode, 0, 0, text), layout);
    };
    auto is = [](const KeyPress& k, std::uint32_t code, std::uint32_t mods, std::string chars) {
        EXPECT_EQ(k.keyCode, code);
        EXPECT_EQ(k.modifiers, mods);
        EXPECT_EQ(k.characters, chars);
    };
    is(press(Qt::Key_3, Qt::ControlModifier, 4 + 8, "3"), 20, modifier::command, "3");  // evdev 4
    is(press(Qt::Key_Return, Qt::AltModifier), keycode::returnKey, modifier::option, "");
    is(press(Qt::Key_Backtab, {}), keycode::tab, modifier::shift, "");
    is(press(Qt::Key_N, Qt::MetaModifier | Qt::ShiftModifier), keycode::n,
       modifier::control | modifier::shift, "n");
    // The layout, not the Qt key, says what the key types.
    CommaTypesSemicolon layout;
    is(press(Qt::Key_Comma, Qt::ControlModifier, 51 + 8, ",", &layout), keycode::comma,
       modifier::command, ";");
    EXPECT_EQ(press(Qt::Key_VolumeUp, {}).keyCode, unknownKeyCode);
}

TEST(RowText, ALongTextShowsTwoCollapsedLinesAndAMatchFarDownBringsItsContext) {
    EXPECT_EQ(snippetOf("  first   line\t\twith tabs\n\n\n   second line\r\nthird"),
              "first line with tabs\nsecond line");
    EXPECT_EQ(snippetOf(std::string(100000, 'x')).size(), 300);
    EXPECT_EQ(snippetOf(" \n\t\n"), "");

    std::string log;
    for (int i = 0; i < 2000; ++i)
        log += "INFO request served in 12 ms\n";
    log += "WARN mail queue is full\n";
    ClipboardStore::Item item{"A", log, "text", 0, false, std::nullopt, std::nullopt};
    RowText row = rowTextOf(PopupModel::Entry{item}, "mail");
    EXPECT_TRUE(row.snippet.startsWith(QChar(0x2026)));
    ASSERT_EQ(row.matches.size(), 1u);
    auto [begin, end] = row.matches.front();
    EXPECT_EQ(row.snippet.mid(begin, end - begin), "mail");

    // "Ü" is two bytes in UTF-8 but one unit in the row's text.
    item.text = "Über mail";
    row = rowTextOf(PopupModel::Entry{item}, "mail");
    ASSERT_EQ(row.matches.size(), 1u);
    EXPECT_EQ(row.matches.front(), std::make_pair(5, 9));
}

// The line count is kept while the user types, but an edit read back from
// the store is counted again.
TEST_F(PopupWindowTest, ARowsLineCountFollowsAnEditOfItsText) {
    copy("one line");
    copy("another");
    controller.open();
    EntryListModel& list = window.list()->rows();
    ASSERT_EQ(rows(), 2);
    EXPECT_EQ(list.rowText(1).lineCount, 1);
    QTest::keyClicks(&search(), "one");
    ASSERT_EQ(rows(), 1);
    EXPECT_EQ(list.rowText(0).lineCount, 1);

    const std::string id = controller.model().entries().front().text()->id;
    ASSERT_TRUE(texts.updateText(id, "one\ntwo\n\nthree\nfour"));
    controller.model().reload();
    ASSERT_EQ(rows(), 1);
    EXPECT_EQ(list.rowText(0).lineCount, 4);
}

// Renders a name, a category, an image and a marked match, and keeps the
// picture (history-window.png in the working folder) for a look by eye.
TEST_F(PopupWindowTest, RowsOfTextsNamesCategoriesAndImagesPaintWithTheMatchesMarked) {
    copy("Best regards,\nAnna Meier\nProduct design");
    copy("Re: your mail from Monday. I will send the figures tomorrow morning.");
    copy("anna.meier@mailbox.org");
    env.clock.advance(1);
    ASSERT_EQ(images.save(test::png(640, 400, test::gradient(640))),
              ImageClipStore::SaveResult::saved);
    const std::string image = images.fetchAll().front().id;
    images.setLabel(image, "Mail screenshot");
    images.setPinned(image, true);
    auto work = texts.createCategory("Work");
    ASSERT_TRUE(work);
    const std::string signature = textItem("Best regards,\nAnna Meier\nProduct design").id;
    texts.setLabel(signature, "Mail signature");
    texts.setPinned(signature, true);
    texts.setCategory(textItem("anna.meier@mailbox.org").id, work->id);

    controller.open();
    controller.model().setFilter(PopupModel::Filter::pinned());
    // Thumbnails arrive through the event loop, which has not run yet.
    const QImage loading = window.grab().toImage();
    window.list()->thumbnails().waitForLoads();
    EXPECT_NE(window.grab().toImage(), loading);
    QTest::keyClicks(&search(), "mail");
    EXPECT_EQ(rows(), 3);
    const QImage loaded = screenshot();
    ASSERT_FALSE(loaded.isNull());
    EXPECT_TRUE(loaded.save("history-window.png"));
}

// An open, untouched window may only blink its text cursor (a timer of the
// line edit's own, not a QTimer). A repeating timer or an endless animation
// anywhere in it (a busy indicator, a pulse, a poll) wakes the app for ever.
TEST_F(PopupWindowTest, AnOpenUntouchedWindowRunsNoRepeatingTimerOrEndlessAnimation) {
    for (int i = 0; i < 40; ++i)
        copy("entry " + std::to_string(i) + "\nwith a second line");
    env.clock.advance(1);
    ASSERT_EQ(images.save(test::png(320, 200, test::gradient(320))),
              ImageClipStore::SaveResult::saved);
    controller.open();
    // The pointer rests on a row and on a chip, as it may when the window opens.
    QTest::mouseMove(window.list()->viewport(), rowCentre(1));
    QTest::mouseMove(window.findChild<ChipBar*>());
    window.list()->thumbnails().waitForLoads();
    QApplication::processEvents();

    QStringList running;
    for (const QTimer* timer : window.findChildren<QTimer*>())
        if (timer->isActive() && !timer->isSingleShot())
            running
                << QStringLiteral("timer of %1").arg(timer->parent()->metaObject()->className());
    for (const QAbstractAnimation* animation : window.findChildren<QAbstractAnimation*>())
        if (animation->state() == QAbstractAnimation::Running && animation->totalDuration() < 0)
            running << QStringLiteral("animation of %1")
                           .arg(animation->parent()->metaObject()->className());
    EXPECT_TRUE(running.isEmpty()) << running.join(u", ").toStdString();
}

}  // namespace
}  // namespace zettly
