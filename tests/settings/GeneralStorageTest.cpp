#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>
#include <QToolButton>
#include <QtTest/QTest>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <utility>
#include <vector>

#include <sqlite3.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/Autostart.h"
#include "settings/AboutPage.h"
#include "settings/GeneralPage.h"
#include "settings/PasteKeysBox.h"
#include "settings/RunningAppsButton.h"
#include "settings/SettingsContext.h"
#include "settings/SettingsWindow.h"
#include "settings/ShortcutRecorder.h"
#include "settings/StoragePage.h"
#include "store/ClipPrefs.h"
#include "store/ClipboardStore.h"
#include "store/ImageClipStore.h"
#include "store/PrefKeys.h"
#include "tests/fakes/StoreFixture.h"
#include "tests/fakes/TestImages.h"

namespace zettly {
namespace {

using ::testing::HasSubstr;
using Strings = std::vector<std::string>;

// Picks an entry the way a keyboard user does, so the picker's own
// "activated" path runs rather than a programmatic index change.
void pick(QComboBox* picker, const QString& text) {
    const int target = picker->findText(text);
    ASSERT_GE(target, 0) << "no entry " << text.toStdString();
    while (picker->currentIndex() < target)
        QTest::keyClick(picker, Qt::Key_Down);
    while (picker->currentIndex() > target)
        QTest::keyClick(picker, Qt::Key_Up);
}

QStringList entries(const QComboBox* picker) {
    QStringList texts;
    for (int i = 0; i < picker->count(); ++i)
        texts << picker->itemText(i);
    return texts;
}

// Answers the next confirmation with the button of this text.
void answerNextDialog(const QString& button) {
    QTimer::singleShot(0, [button] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        ASSERT_NE(box, nullptr);
        for (QAbstractButton* candidate : box->buttons())
            if (candidate->text() == button)
                return candidate->click();
        ADD_FAILURE() << "no button " << button.toStdString();
        box->reject();
    });
}

class SettingsPagesTest : public ::testing::Test {
protected:
    test::StoreEnvironment env;
    ClipboardStore texts{env.context()};
    ImageClipStore images{env.context()};
    int hotKeyChanges = 0;
    HotKeyState hotKey;
    std::vector<Limitation> limits;
    std::vector<RunningApp> windows;
    XdgAutostart autostart{env.dir / "config/autostart", "/usr/bin/zettly"};
    SettingsContext context{
        .defaults = env.defaults,
        .texts = texts,
        .images = images,
        .hotKeyChanged = [this] { ++hotKeyChanges; },
        .hotKeyState = [this] { return hotKey; },
        .limitations = [this] { return limits; },
        .runningApps = [this] { return windows; },
        .autostart = &autostart,
    };
    ClipPrefs prefs{env.defaults};
};

TEST(StoragePageLabels, RetentionReadsInMinutesHoursDaysOrWeeksAsTheValueSuggests) {
    // Only one day and thirty days read as days; two days are 48 hours.
    const std::vector<std::pair<int, QString>> labels = {
        {1, "1 minute"},   {59, "59 minutes"},   {60, "1 hour"},
        {90, "1.5 hours"}, {1440, "1 day"},      {2880, "48 hours"},
        {10080, "1 week"}, {20160, "336 hours"}, {43200, "30 days"},
    };
    for (const auto& [minutes, label] : labels)
        EXPECT_EQ(StoragePage::retentionLabel(minutes), label) << minutes;
}

TEST_F(SettingsPagesTest, StoragePickersAndSwitchesStoreEachChangeAndShowValuesSetElsewhere) {
    StoragePage page(context);
    EXPECT_EQ(page.limitPicker()->currentText(), "200 items");
    EXPECT_EQ(page.retentionPicker()->currentText(), "30 days");

    pick(page.limitPicker(), "100,000 items");
    pick(page.retentionPicker(), "15 minutes");
    QTest::keyClick(page.saveImagesSwitch(), Qt::Key_Space);
    QTest::keyClick(page.clearOnQuitSwitch(), Qt::Key_Space);
    EXPECT_EQ(env.defaults.integer(prefkey::clipboardLimit), 100000);
    EXPECT_EQ(env.defaults.integer(prefkey::clipboardRetentionMinutes), 15);
    EXPECT_EQ(env.defaults.boolObject(prefkey::saveImages), false);
    EXPECT_EQ(env.defaults.boolObject(prefkey::clearOnQuit), true);

    // Values written by hand get an entry in order; showing them writes nothing.
    env.defaults.setInteger(prefkey::clipboardLimit, 300);
    env.defaults.setInteger(prefkey::clipboardRetentionMinutes, 90);
    env.defaults.setBool(prefkey::saveImages, true);
    page.reload();
    EXPECT_EQ(entries(page.limitPicker()),
              QStringList({"50 items", "100 items", "200 items", "300 items", "500 items",
                           "1,000 items", "10,000 items", "100,000 items"}));
    EXPECT_EQ(page.limitPicker()->currentText(), "300 items");
    EXPECT_EQ(page.retentionPicker()->currentText(), "1.5 hours");
    EXPECT_EQ(page.retentionPicker()->currentIndex(), 4);  // between 1 hour and 1 day
    EXPECT_TRUE(page.saveImagesSwitch()->isChecked());
    EXPECT_EQ(env.defaults.integer(prefkey::clipboardRetentionMinutes), 90);
}

TEST_F(SettingsPagesTest, TheLimitForImagesAsCopiedIsStoredOffIsZeroAndItFollowsTheImageSwitch) {
    StoragePage page(context);
    EXPECT_EQ(entries(page.originalLimitPicker()), QStringList({"Off", "5 MB", "10 MB", "16 MB"}));
    EXPECT_EQ(page.originalLimitPicker()->currentText(), "10 MB");
    pick(page.originalLimitPicker(), "Off");
    EXPECT_EQ(env.defaults.integer(prefkey::imageOriginalLimitMB), 0);
    EXPECT_TRUE(env.defaults.contains(prefkey::imageOriginalLimitMB));
    EXPECT_EQ(ClipPrefs(env.defaults).imageOriginalLimitMB(), 0);
    pick(page.originalLimitPicker(), "16 MB");
    EXPECT_EQ(env.defaults.integer(prefkey::imageOriginalLimitMB), 16);

    env.defaults.setInteger(prefkey::imageOriginalLimitMB, 7);
    page.reload();
    EXPECT_EQ(page.originalLimitPicker()->currentText(), "7 MB");
    EXPECT_EQ(page.originalLimitPicker()->currentIndex(), 2);
    QTest::keyClick(page.saveImagesSwitch(), Qt::Key_Space);
    EXPECT_FALSE(page.originalLimitPicker()->isEnabled());
    QTest::keyClick(page.saveImagesSwitch(), Qt::Key_Space);
    EXPECT_TRUE(page.originalLimitPicker()->isEnabled());
}

TEST_F(SettingsPagesTest, ClearHistoryAsksFirstAndKeepsPinnedTextsAndImages) {
    test::start();
    texts.insert("kept because pinned");
    texts.setPinned(texts.fetch(1, 0).front().id, true);
    env.clock.advance(1);
    texts.insert("cleared");
    ASSERT_EQ(images.save(test::png(64, 64, test::solid({10, 200, 10}))),
              ImageClipStore::SaveResult::saved);
    StoragePage page(context);

    answerNextDialog("Cancel");
    page.clearButton()->click();
    EXPECT_EQ(texts.fetch(10, 0).size(), 2u);
    EXPECT_EQ(images.fetchAll().size(), 1u);

    answerNextDialog("Clear");
    page.clearButton()->click();
    const auto left = texts.fetch(10, 0);
    ASSERT_EQ(left.size(), 1u);
    EXPECT_EQ(left[0].text, "kept because pinned");
    EXPECT_TRUE(images.fetchAll().empty());
}

TEST_F(SettingsPagesTest, WhileCopiesCannotBeSavedTheStoragePageSaysWhyAndStopsOnceTheyAre) {
    context.storageStatus = [&] { return env.health.status(); };
    StoragePage page(context);
    EXPECT_FALSE(page.problemLabel()->isVisibleTo(&page));

    const auto file = env.library() / "clipboard.sqlite";
    env.health.saveFailed(file, SQLITE_FULL, ENOSPC);
    page.reload();
    EXPECT_TRUE(page.problemLabel()->isVisibleTo(&page));
    EXPECT_EQ(page.problemLabel()->text(), "New copies are not being saved: the disk is full");

    env.health.saveFailed(file, SQLITE_CANTOPEN, EACCES);
    page.reload();
    EXPECT_THAT(page.problemLabel()->text().toStdString(),
                HasSubstr("cannot write to " + env.library().string()));

    env.health.saved(file);
    page.reload();
    EXPECT_FALSE(page.problemLabel()->isVisibleTo(&page));

    // The one notice about a rebuilt file names what was kept and where.
    auto [title, body] =
        StoragePage::rescueText({.file = file,
                                 .aside = env.library() / "clipboard.sqlite.damaged-1800000000",
                                 .kept = 493,
                                 .unreadable = 8});
    EXPECT_EQ(title, "Zettly repaired its history");
    EXPECT_THAT(body.toStdString(), HasSubstr("493 entries were saved"));
    EXPECT_THAT(body.toStdString(), HasSubstr("8 could not be read"));
    EXPECT_THAT(body.toStdString(), HasSubstr("clipboard.sqlite.damaged-1800000000"));
}

TEST_F(SettingsPagesTest, GeneralPickersStoreEachChangeAndThePasteNoteSaysWhatBlocksPasting) {
    GeneralPage page(context);
    EXPECT_EQ(page.previewPicker()->currentText(), "After 1.5 s");
    EXPECT_EQ(page.positionPicker()->currentText(), "At the pointer");
    EXPECT_TRUE(page.pasteNote()->isHidden());

    QTest::keyClick(page.pasteSwitch(), Qt::Key_Space);
    pick(page.previewPicker(), "Only with Super+Space or Ctrl+Y");
    pick(page.positionPicker(), "In the center of the screen");
    EXPECT_TRUE(prefs.pasteAutomatically());
    EXPECT_EQ(env.defaults.doubleObject(prefkey::previewDelay), 0.0);
    EXPECT_EQ(env.defaults.string(prefkey::popupPosition), "center");
    pick(page.previewPicker(), "After 3 s");
    EXPECT_EQ(env.defaults.doubleObject(prefkey::previewDelay), 3.0);

    env.defaults.setDouble(prefkey::previewDelay, 2.25);
    env.defaults.setString(prefkey::popupPosition, "CENTER");  // not "center": the pointer
    env.defaults.setBool(prefkey::pasteAutomatically, false);
    limits = {Limitation::noGlobalShortcut, Limitation::noPaste};
    page.reload();
    EXPECT_EQ(entries(page.previewPicker()),
              QStringList({"Only with Super+Space or Ctrl+Y", "After 0.5 s", "After 1.5 s",
                           "After 2.25 s", "After 3 s"}));
    EXPECT_EQ(page.previewPicker()->currentText(), "After 2.25 s");
    EXPECT_EQ(page.positionPicker()->currentText(), "At the pointer");
    EXPECT_FALSE(page.pasteSwitch()->isChecked());
    EXPECT_FALSE(page.pasteNote()->isHidden());
    EXPECT_TRUE(page.pasteNote()->text().contains("cannot type into other apps"));
    EXPECT_FALSE(page.pasteSwitch()->isEnabled());

    // The history window opens no preview on its own for a negative delay.
    env.defaults.setDouble(prefkey::previewDelay, -1);
    limits = {Limitation::noXTest};
    page.reload();
    EXPECT_EQ(page.previewPicker()->currentText(), "Only with Super+Space or Ctrl+Y");
    EXPECT_EQ(page.previewPicker()->count(), 4);
    EXPECT_TRUE(page.pasteNote()->text().contains("XTEST"));
    EXPECT_TRUE(page.pasteSwitch()->isEnabled()) << "XTEST can be had: the choice is kept";

    // The reason nothing can be typed, rather than only that it cannot.
    limits = {Limitation::noPaste, Limitation::noKeyTypingProtocol};
    page.reload();
    EXPECT_TRUE(page.pasteNote()->text().contains("no way to press keys"));
    EXPECT_FALSE(page.pasteNote()->text().contains("cannot type into other apps"));
    EXPECT_FALSE(page.pasteSwitch()->isEnabled());
    EXPECT_TRUE(page.pasteKeys()->isHidden());
}

TEST_F(SettingsPagesTest, WhereTheDesktopPlacesWindowsThePositionPickerIsOffAndKeepsItsChoice) {
    prefs.setPopupPosition(ClipPrefs::PopupPosition::center);
    GeneralPage page(context);
    EXPECT_TRUE(page.positionPicker()->isEnabled());
    EXPECT_TRUE(page.positionNote()->isHidden());

    limits = {Limitation::noWindowPlacement};
    page.reload();
    EXPECT_FALSE(page.positionPicker()->isEnabled());
    EXPECT_FALSE(page.positionNote()->isHidden());
    EXPECT_EQ(page.positionPicker()->currentText(), "In the center of the screen");
    EXPECT_EQ(env.defaults.string(prefkey::popupPosition), "center");

    // Back in a session that places windows, the kept choice applies again.
    limits = {Limitation::noPaste};
    page.reload();
    EXPECT_TRUE(page.positionPicker()->isEnabled());
    EXPECT_TRUE(page.positionNote()->isHidden());
    EXPECT_EQ(page.positionPicker()->currentText(), "In the center of the screen");
}

TEST_F(SettingsPagesTest, RecorderStoresOnlyAShortcutWithCtrlAltOrSuperAndEscapeOrLeavingKeepsIt) {
    QWidget window;
    ShortcutRecorder recorder(context, &window);
    auto* elsewhere = new QLineEdit(&window);
    window.show();
    window.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    QPushButton* button = recorder.recordButton();
    EXPECT_EQ(button->text(), "Alt+V");
    EXPECT_FALSE(recorder.resetButton()->isEnabled());

    QTest::mouseClick(button, Qt::LeftButton);
    EXPECT_EQ(button->text(), "Press a shortcut\u2026");
    QTest::keyClick(button, Qt::Key_K);
    QTest::keyClick(button, Qt::Key_K, Qt::ShiftModifier);
    QTest::keyClick(button, Qt::Key_Space);  // would click the button if it got through
    EXPECT_TRUE(recorder.isRecording());
    QTest::keyClick(button, Qt::Key_Escape);
    EXPECT_FALSE(recorder.isRecording());
    EXPECT_EQ(button->text(), "Alt+V");
    EXPECT_FALSE(env.defaults.contains(prefkey::hotKeyCode));

    QTest::mouseClick(button, Qt::LeftButton);
    // X11 sends Ctrl and Shift as presses of their own on the way to the key
    // (left Ctrl is key code 37, left Shift 50).
    QKeyEvent ctrl(QEvent::KeyPress, Qt::Key_Control, Qt::ControlModifier, 37, 0xffe3, 0);
    QApplication::sendEvent(button, &ctrl);
    QKeyEvent shift(QEvent::KeyPress, Qt::Key_Shift, Qt::ControlModifier | Qt::ShiftModifier, 50,
                    0xffe1, 0);
    QApplication::sendEvent(button, &shift);
    EXPECT_TRUE(recorder.isRecording());
    QTest::keyClick(button, Qt::Key_K, Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_FALSE(recorder.isRecording());
    EXPECT_EQ(prefs.hotKey(), (HotKeyCombo{keycode::k, HotKeyCombo::command | HotKeyCombo::shift}));
    EXPECT_EQ(button->text(), "Ctrl+Shift+K");
    EXPECT_EQ(hotKeyChanges, 1);

    ASSERT_TRUE(recorder.resetButton()->isEnabled());
    QTest::mouseClick(recorder.resetButton(), Qt::LeftButton);
    EXPECT_EQ(prefs.hotKey(), HotKeyCombo{});
    EXPECT_EQ(button->text(), "Alt+V");
    EXPECT_EQ(hotKeyChanges, 2);

    // The keyboard going elsewhere ends recording, and keys reach the window again.
    QTest::mouseClick(button, Qt::LeftButton);
    ASSERT_TRUE(recorder.isRecording());
    elsewhere->setFocus();
    EXPECT_FALSE(recorder.isRecording());
    EXPECT_EQ(button->text(), "Alt+V");
    QTest::keyClicks(elsewhere, "ok");
    EXPECT_EQ(elsewhere->text(), "ok");
    EXPECT_EQ(hotKeyChanges, 2);
}

TEST_F(SettingsPagesTest, LaunchAtLoginWritesTheEntryAndShowsWhatTheDesktopWillReallyDo) {
    GeneralPage page(context);
    QCheckBox* launch = page.launchAtLoginSwitch();
    ASSERT_NE(launch, nullptr);
    EXPECT_FALSE(launch->isChecked());
    QTest::keyClick(launch, Qt::Key_Space);
    EXPECT_TRUE(autostart.isEnabled());
    EXPECT_TRUE(page.launchError()->isHidden());

    // Switched off by the desktop's own autostart settings.
    std::filesystem::remove(autostart.entryPath());
    page.reload();
    EXPECT_FALSE(launch->isChecked());

    const auto blocked = env.dir / "blocked";  // a file where the folder should be
    std::ofstream(blocked) << "not a folder";
    XdgAutostart blockedAutostart(blocked / "autostart", "/usr/bin/zettly");
    context.autostart = &blockedAutostart;
    QTest::keyClick(launch, Qt::Key_Space);
    EXPECT_FALSE(launch->isChecked());
    EXPECT_TRUE(page.launchError()->text().contains(QString::fromStdString(blocked.string())));
    EXPECT_FALSE(page.launchError()->isHidden());
}

TEST_F(SettingsPagesTest, TheUpdateSwitchShowsOnlyWithAFeedAndFollowsTheUpdater) {
    EXPECT_EQ(AboutPage(context).automaticChecksSwitch(), nullptr);

    bool automatic = false;
    context.automaticUpdateChecks = [&] { return automatic; };
    context.setAutomaticUpdateChecks = [&](bool on) { automatic = on; };
    context.checkForUpdates = [] {};
    AboutPage page(context);
    ASSERT_NE(page.automaticChecksSwitch(), nullptr);
    page.automaticChecksSwitch()->click();
    EXPECT_TRUE(automatic);
    automatic = false;
    page.reload();
    EXPECT_FALSE(page.automaticChecksSwitch()->isChecked());
}

// ---- what this session cannot do --------------------------------------------

QStringList limitationTexts(const GeneralPage& page) {
    QStringList texts;
    for (const QLabel* line : page.sessionNote()->findChildren<QLabel*>("limitation"))
        texts << line->text();
    return texts;
}

TEST_F(SettingsPagesTest, TheShortcutNoteSaysWhatTheDesktopAnsweredAndFollowsItsChanges) {
    GeneralPage page(context);
    auto visibleNotes = [&] {
        QStringList shown;
        for (const QLabel* label :
             {page.shortcutProblem(), page.shortcutHelp(), page.shortcutCommand()})
            if (!label->isHidden())
                shown << label->text();
        return shown;
    };
    for (HotKeyState::Kind quiet : {HotKeyState::Kind::waiting, HotKeyState::Kind::bound}) {
        hotKey = {quiet, "ignored", {}};
        page.reload();
        EXPECT_EQ(visibleNotes(), QStringList()) << static_cast<int>(quiet);
        EXPECT_TRUE(page.shortcutRecorder()->isEnabled());
    }

    hotKey = {HotKeyState::Kind::taken, {}, {}};
    page.reload();
    EXPECT_EQ(visibleNotes(),
              QStringList{"Alt+V is used by another application. Choose another shortcut."});
    prefs.setHotKey({keycode::k, HotKeyCombo::command | HotKeyCombo::shift});
    page.reload();
    EXPECT_TRUE(page.shortcutProblem()->text().startsWith("Ctrl+Shift+K is used"));

    hotKey = {HotKeyState::Kind::failed, "has no key on this keyboard", {}};
    page.reload();
    EXPECT_EQ(visibleNotes(), QStringList{"The shortcut Ctrl+Shift+K could not be set: has no key "
                                          "on this keyboard"});

    // Recording here would change nothing: the desktop's own settings hold it.
    hotKey = {HotKeyState::Kind::inDesktopSettings, "zettly --toggle", {}};
    page.reload();
    ASSERT_EQ(visibleNotes().size(), 2);
    EXPECT_TRUE(page.shortcutHelp()->text().contains("keyboard settings"));
    EXPECT_EQ(page.shortcutCommand()->text(), "zettly --toggle");
    EXPECT_TRUE(page.shortcutCommand()->textInteractionFlags() & Qt::TextSelectableByMouse);
    EXPECT_FALSE(page.shortcutRecorder()->isEnabled());

    // The app reloads the open window when the desktop answers.
    SettingsWindow window(context);
    window.open(SettingsWindow::Tab::general);
    auto* shown = window.findChild<GeneralPage*>();
    ASSERT_NE(shown, nullptr);
    hotKey = {HotKeyState::Kind::bound, {}, {}};
    window.sessionChanged();
    EXPECT_TRUE(shown->shortcutHelp()->isHidden());
    EXPECT_TRUE(shown->shortcutCommand()->isHidden());
    EXPECT_TRUE(shown->shortcutRecorder()->isEnabled());
}

TEST_F(SettingsPagesTest, WhereTheDesktopChoosesTheKeyThePageShowsItsChoiceAndWhereToChangeIt) {
    bool desktopChooses = true;
    int dialogs = 0;
    context.desktopChoosesHotKey = [&] { return desktopChooses; };
    context.openDesktopHotKeyDialog = [&] { ++dialogs; };
    GeneralPage page(context);
    hotKey = {HotKeyState::Kind::bound, "Meta+Shift+V", {}};
    page.reload();
    EXPECT_EQ(page.shortcutHelp()->text(), "Your desktop opens the history with Meta+Shift+V.");
    EXPECT_FALSE(page.shortcutHelp()->isHidden());
    EXPECT_TRUE(page.shortcutProblem()->isHidden());
    // Recording proposes another key; the desktop's settings change it.
    EXPECT_TRUE(page.shortcutRecorder()->isEnabled());
    EXPECT_FALSE(page.shortcutWish()->isHidden());
    EXPECT_FALSE(page.desktopShortcutsButton()->isHidden());
    page.desktopShortcutsButton()->click();
    EXPECT_EQ(dialogs, 1);

    hotKey = {HotKeyState::Kind::bound, {}, {}};
    page.reload();
    EXPECT_TRUE(page.shortcutHelp()->text().contains("no key"));

    // A desktop that takes the recorded key as it is says nothing of it.
    desktopChooses = false;
    hotKey = {HotKeyState::Kind::bound, "Alt+V", {}};
    page.reload();
    EXPECT_TRUE(page.shortcutHelp()->isHidden());
    EXPECT_TRUE(page.shortcutWish()->isHidden());
    EXPECT_TRUE(page.desktopShortcutsButton()->isHidden());
}

TEST_F(SettingsPagesTest, ACompositorLineNamesItsFileAndSectionAndCopies) {
    GeneralPage page(context);
    hotKey = {HotKeyState::Kind::inDesktopSettings, "bindsym Mod1+v exec zettly --toggle",
              "~/.config/sway/config"};
    page.reload();
    EXPECT_TRUE(page.shortcutHelp()->text().contains("add this to ~/.config/sway/config and"))
        << page.shortcutHelp()->text().toStdString();
    EXPECT_EQ(page.shortcutCommand()->text(), "bindsym Mod1+v exec zettly --toggle");
    EXPECT_FALSE(page.shortcutRecorder()->isEnabled());
    page.copyShortcutCommand()->click();
    EXPECT_EQ(QGuiApplication::clipboard()->text(), "bindsym Mod1+v exec zettly --toggle");

    hotKey = {HotKeyState::Kind::inDesktopSettings, "Alt+V { spawn \"zettly\" \"--toggle\"; }",
              "~/.config/niri/config.kdl", "binds { }"};
    page.reload();
    EXPECT_TRUE(page.shortcutHelp()->text().contains(
        "add this to the binds { } section of ~/.config/niri/config.kdl"))
        << page.shortcutHelp()->text().toStdString();
}

TEST_F(SettingsPagesTest, TheSessionNoteListsEachLimitationOnceAndHidesWithoutAny) {
    GeneralPage page(context);
    EXPECT_TRUE(page.sessionNote()->isHidden());

    // Typing nothing into other windows covers the window that cannot be
    // activated; every other limitation gets a sentence of its own.
    limits = {Limitation::noGlobalShortcut,
              Limitation::noPaste,
              Limitation::noXTest,
              Limitation::captureOnlyWhileFocused,
              Limitation::noFrontmostApp,
              Limitation::noWindowActivation,
              Limitation::x11ApplicationsOnly,
              Limitation::noWindowPlacement};
    page.reload();
    EXPECT_FALSE(page.sessionNote()->isHidden());
    const QStringList lines = limitationTexts(page);
    const QStringList expected = {"shortcut of its own",
                                  "cannot type into other applications",
                                  "XTEST",
                                  "only while one of its windows is active",
                                  "which application is in front",
                                  "XWayland",
                                  "place their own windows"};
    ASSERT_EQ(lines.size(), expected.size()) << lines.join('\n').toStdString();
    for (int i = 0; i < lines.size(); ++i)
        EXPECT_TRUE(lines[i].contains(expected[i])) << lines[i].toStdString();

    limits = {Limitation::noWindowActivation};
    page.reload();
    ASSERT_EQ(limitationTexts(page).size(), 1);
    EXPECT_TRUE(limitationTexts(page)[0].contains("give the keyboard back"));

    // A compositor with no way to type keys explains the paste that cannot
    // happen, in one line for both, whichever order the backend lists them in.
    for (const std::vector<Limitation>& pair :
         {std::vector{Limitation::noPaste, Limitation::noKeyTypingProtocol,
                      Limitation::noWindowActivation},
          std::vector{Limitation::noKeyTypingProtocol, Limitation::noWindowActivation,
                      Limitation::noPaste}}) {
        limits = pair;
        page.reload();
        ASSERT_EQ(limitationTexts(page).size(), 1)
            << limitationTexts(page).join('\n').toStdString();
        EXPECT_TRUE(limitationTexts(page)[0].contains("no way to press keys"));
        EXPECT_EQ(GeneralPage::limitationLines(limits), limitationTexts(page));
    }

    limits.clear();
    page.reload();
    EXPECT_TRUE(page.sessionNote()->isHidden());
    EXPECT_TRUE(limitationTexts(page).isEmpty());
}

TEST_F(SettingsPagesTest, AMissingShellExtensionComesFirstWithTheButtonThatMendsIt) {
    std::vector<Limitation> mended;
    context.hasRemedy = [](Limitation limitation) {
        return limitation == Limitation::shellExtensionOff ||
               limitation == Limitation::shellExtensionMissing;
    };
    context.remedy = [&](Limitation limitation) { mended.push_back(limitation); };
    GeneralPage page(context);
    EXPECT_TRUE(page.remedyButton()->isHidden());

    // The fallback's own limits follow the reason for them.
    limits = {Limitation::shellExtensionOff, Limitation::noGlobalShortcut,
              Limitation::captureOnlyWhileFocused};
    page.reload();
    ASSERT_EQ(limitationTexts(page).size(), 3);
    EXPECT_TRUE(limitationTexts(page)[0].contains("extension is turned off"));
    ASSERT_FALSE(page.remedyButton()->isHidden());
    EXPECT_TRUE(page.remedyButton()->text().contains("Turn On"));
    page.remedyButton()->click();
    EXPECT_EQ(mended, std::vector{Limitation::shellExtensionOff});

    limits = {Limitation::shellExtensionMissing, Limitation::noPaste};
    page.reload();
    EXPECT_TRUE(limitationTexts(page)[0].contains("log out and back in"));
    EXPECT_TRUE(page.remedyButton()->text().contains("Extensions"));
    page.remedyButton()->click();
    EXPECT_EQ(mended.back(), Limitation::shellExtensionMissing);

    // Without a step to take, only the sentence.
    limits = {Limitation::shellExtensionFailed};
    page.reload();
    EXPECT_TRUE(limitationTexts(page)[0].contains("Extensions app shows why"));
    EXPECT_TRUE(page.remedyButton()->isHidden());
}

// ---- paste keys ---------------------------------------------------------------

TEST_F(SettingsPagesTest, PasteKeysAreAddedChangedAndRemovedInTheStoreAtOnce) {
    prefs.setPasteChords({{"org.gnome.Terminal", PasteChord::ctrlShiftV}});
    windows = {{"org.mozilla.firefox", "Mozilla Firefox"}, {"org.gnome.terminal", "Terminal"}};
    GeneralPage page(context);
    PasteKeysBox* box = page.pasteKeys();
    auto stored = [&] { return env.defaults.stringArray(prefkey::pasteShortcuts); };
    auto rows = [&] {
        QStringList shown;
        for (int row = 0; row < box->rowCount(); ++row)
            shown << box->appIdAt(row) + "=" + box->keysPicker(row)->currentText();
        return shown;
    };
    EXPECT_EQ(rows(), QStringList{"org.gnome.Terminal=Ctrl+Shift+V"});
    EXPECT_EQ(entries(box->keysPicker(0)), (QStringList{"Ctrl+V", "Ctrl+Shift+V", "Shift+Insert"}));

    // A typed application starts with the keys it is pasted with now; one
    // already listed, in whatever case, is not added twice.
    EXPECT_FALSE(box->addButton()->isEnabled());
    for (const char* typed : {"  xterm ", "XTerm"}) {
        QTest::keyClicks(box->appField(), typed);
        QTest::keyClick(box->appField(), Qt::Key_Return);
    }
    EXPECT_EQ(stored(), (Strings{"org.gnome.Terminal=ctrl+shift+v", "xterm=shift+insert"}));
    EXPECT_EQ(rows(), (QStringList{"org.gnome.Terminal=Ctrl+Shift+V", "xterm=Shift+Insert"}));
    EXPECT_TRUE(box->appField()->text().isEmpty());

    pick(box->keysPicker(1), "Ctrl+V");
    EXPECT_EQ(prefs.pasteChords(),
              (std::vector<PasteChordChoice>{{"org.gnome.Terminal", PasteChord::ctrlShiftV},
                                             {"xterm", PasteChord::ctrlV}}));

    // The open windows offer what is not listed yet.
    QMenu* menu = box->runningAppsButton()->menu();
    Q_EMIT menu->aboutToShow();
    ASSERT_EQ(menu->actions().size(), 2);
    EXPECT_FALSE(menu->actions()[1]->isEnabled());
    menu->actions()[0]->trigger();
    EXPECT_EQ(stored(), (Strings{"org.gnome.Terminal=ctrl+shift+v", "xterm=ctrl+v",
                                 "org.mozilla.firefox=ctrl+v"}));

    QTest::mouseClick(box->removeButton(0), Qt::LeftButton);
    EXPECT_EQ(stored(), (Strings{"xterm=ctrl+v", "org.mozilla.firefox=ctrl+v"}));
    EXPECT_EQ(rows(), (QStringList{"xterm=Ctrl+V", "org.mozilla.firefox=Ctrl+V"}));
    QTest::mouseClick(box->removeButton(1), Qt::LeftButton);
    QTest::mouseClick(box->removeButton(0), Qt::LeftButton);
    EXPECT_EQ(stored(), Strings{});
    EXPECT_EQ(box->rowCount(), 0);
}

TEST_F(SettingsPagesTest, PasteKeysHideWhereNothingCanBePasted) {
    prefs.setPasteChords({{"xterm", PasteChord::ctrlV}});
    GeneralPage page(context);
    EXPECT_FALSE(page.pasteKeys()->isHidden());
    limits = {Limitation::noXTest};  // fixable: the choices apply once XTEST is there
    page.reload();
    EXPECT_FALSE(page.pasteKeys()->isHidden());
    limits = {Limitation::noPaste};
    page.reload();
    EXPECT_TRUE(page.pasteKeys()->isHidden());
    EXPECT_EQ(prefs.pasteChords().size(), 1u);
}

}  // namespace
}  // namespace zettly
