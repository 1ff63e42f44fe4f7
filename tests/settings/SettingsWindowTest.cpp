// The settings window at a small screen's size in German, the open-windows
// menu, the ignore list carried over from older versions, and the palette.
// German is installed for the whole executable, as the app does at start.
#include <QApplication>
#include <QListWidget>
#include <QMenu>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QStyle>
#include <QStyleOptionToolButton>
#include <QTabBar>
#include <QTabWidget>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "capture/PasteboardMonitor.h"
#include "i18n/Translations.h"
#include "settings/IgnorePage.h"
#include "settings/RunningAppsButton.h"
#include "settings/SettingsContext.h"
#include "settings/SettingsWindow.h"
#include "store/ClipboardStore.h"
#include "store/ImageClipStore.h"
#include "store/PrefKeys.h"
#include "tests/fakes/StoreFixture.h"
#include "ui/Look.h"

namespace zettly {
namespace {

using Strings = std::vector<std::string>;

class SettingsWindowTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        installed = installTranslations(*qApp, QLocale(QLocale::German, QLocale::Germany));
    }

    static inline InstalledTranslations installed;
    test::StoreEnvironment env;
    ClipboardStore texts{env.context()};
    ImageClipStore images{env.context()};
    std::vector<RunningApp> windows;
    SettingsContext context{
        .defaults = env.defaults,
        .texts = texts,
        .images = images,
        .runningApps = [this] { return windows; },
    };
};

// 1280×720 at twice the scale: 640×360 logical pixels, less a panel.
constexpr QSize smallScreen{640, 360 - 32};

TEST_F(SettingsWindowTest, FitsHalfOf1280By720WithEveryGermanTabInViewAndThePagesScroll) {
    ASSERT_EQ(installed.language, "de");
    SettingsWindow window(context);
    auto* tabs = window.findChild<QTabWidget*>();
    ASSERT_NE(tabs, nullptr);
    ASSERT_EQ(tabs->tabText(5), "\u00dcber");
    EXPECT_FALSE(tabs->usesScrollButtons());

    const QSize least = window.minimumSizeHint().expandedTo(window.minimumSize());
    EXPECT_LE(least.width(), smallScreen.width());
    EXPECT_LE(least.height(), smallScreen.height());
    window.open(SettingsWindow::Tab::ignore);
    window.resize(smallScreen);
    QApplication::processEvents();
    EXPECT_EQ(window.size(), smallScreen);
    QTabBar* bar = tabs->tabBar();
    for (int i = 0; i < bar->count(); ++i)
        EXPECT_LE(bar->tabRect(i).right(), bar->width()) << tabs->tabText(i).toStdString();
    // The Ignore page with its two lists is taller: it scrolls rather than
    // squeezing them.
    auto* page = qobject_cast<QScrollArea*>(tabs->currentWidget());
    ASSERT_NE(page, nullptr);
    EXPECT_TRUE(page->verticalScrollBar()->isVisible());

    // A longer translation widens the window rather than hiding a tab.
    tabs->setTabText(4, "Synchronisierung zwischen allen Ger\u00e4ten");
    window.adjustSize();
    QApplication::processEvents();
    EXPECT_LE(bar->tabRect(5).right(), bar->width());
    EXPECT_GE(window.minimumSizeHint().width(), bar->sizeHint().width());
}

TEST_F(SettingsWindowTest, OpensCentredInTheFreeAreaNoLargerThanItAndStaysWhereTheUserMovedIt) {
    EXPECT_EQ(SettingsWindow::centredFrame(QRect(1280, 0, 640, 328), QSize(580, 620)),
              QRect(1310, 0, 580, 328));
    EXPECT_EQ(SettingsWindow::centredFrame(QRect(0, 40, 1920, 1040), QSize(580, 620)),
              QRect(670, 250, 580, 620));

    SettingsWindow window(context);
    const QRect area = QGuiApplication::primaryScreen()->availableGeometry();
    window.open(SettingsWindow::Tab::about);
    EXPECT_EQ(window.geometry().center(), area.center());
    EXPECT_TRUE(area.contains(window.geometry()));
    window.move(area.topLeft());
    window.open(SettingsWindow::Tab::general);
    EXPECT_EQ(window.pos(), area.topLeft()) << "an open window jumped";
    window.close();
    window.open(SettingsWindow::Tab::general);
    EXPECT_EQ(window.geometry().center(), area.center());
}

TEST_F(SettingsWindowTest, OpenWindowsLeavesOutZettlyAndTheDesktopShellAndItsArrowHasRoom) {
    QCoreApplication::setApplicationName("Zettly");
    windows = {{"Zettly", "Zettly-Einstellungen"},
               {"org.zettly.Zettly", "Verlauf"},
               {"Xfce4-panel", "xfce4-panel"},
               {"plasmashell", "Arbeitsfl\u00e4che"},
               {"Desktop", "Desktop"},
               {"tint2", "tint2"},
               {"org.mozilla.firefox", "Mozilla Firefox"},
               {"Gimp", "GNU Image Manipulation Program"},
               {"org.mozilla.firefox", "Downloads"}};
    RunningAppsButton button(context.runningApps, nullptr);
    button.menu()->aboutToShow();
    QStringList entries;
    for (QAction* action : button.menu()->actions())
        entries << action->text();
    ASSERT_EQ(entries.size(), 2) << entries.join(" | ").toStdString();
    EXPECT_TRUE(entries[0].endsWith("org.mozilla.firefox"));
    EXPECT_TRUE(entries[1].endsWith("Gimp"));

    // The arrow has a part of its own beside the whole text.
    QStyleOptionToolButton option;
    option.initFrom(&button);
    const int arrow = button.style()->pixelMetric(QStyle::PM_MenuButtonIndicator, &option, &button);
    EXPECT_GE(button.sizeHint().width(),
              button.fontMetrics().horizontalAdvance(button.text()) + arrow);
}

TEST_F(SettingsWindowTest, AnIgnoreListFromEarlierVersionsLosesTheMacIdsAndKeepsTheUsersOwn) {
    for (const std::string& app : PasteboardMonitor::builtInIgnoredApps()) {
        EXPECT_FALSE(app.starts_with("com.apple.")) << app;
        EXPECT_FALSE(app.starts_with("com.agilebits.")) << app;
        EXPECT_FALSE(app.starts_with("com.1password.")) << app;
    }
    const Strings builtIn = PasteboardMonitor::builtInIgnoredApps();

    // Never changed: the built-in list is read, nothing is stored.
    EXPECT_FALSE(PasteboardMonitor::migrateIgnoredApps(env.defaults));
    EXPECT_FALSE(env.defaults.contains(prefkey::ignoredApps));

    // Stored by the user from the old defaults: the Mac ids go.
    env.defaults.setStringArray(
        prefkey::ignoredApps,
        {"com.1password.1password", "com.agilebits.onepassword7", "com.bitwarden.desktop",
         "com.apple.keychainaccess", "com.apple.Passwords", "org.keepassxc.KeePassXC", "KeePassXC",
         "org.example.Vault"});
    EXPECT_TRUE(PasteboardMonitor::migrateIgnoredApps(env.defaults));
    EXPECT_EQ(env.defaults.stringArray(prefkey::ignoredApps),
              (Strings{"com.bitwarden.desktop", "org.keepassxc.KeePassXC", "KeePassXC",
                       "org.example.Vault"}));
    EXPECT_FALSE(PasteboardMonitor::migrateIgnoredApps(env.defaults)) << "migrated twice";

    // Only Mac ids and the user's own: Linux's password managers come in.
    env.defaults.setStringArray(prefkey::ignoredApps, {"com.apple.Passwords", "org.example.Vault"});
    EXPECT_TRUE(PasteboardMonitor::migrateIgnoredApps(env.defaults));
    Strings expected = builtIn;
    expected.push_back("org.example.Vault");
    EXPECT_EQ(env.defaults.stringArray(prefkey::ignoredApps), expected);

    IgnorePage page(context);
    auto* list = page.findChild<QListWidget*>("appList");
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->count(), static_cast<int>(expected.size()));
    EXPECT_EQ(list->findItems("com.", Qt::MatchStartsWith).size(), 1);  // Bitwarden's Flathub id
}

TEST(SettledPalette, PlaceholdersAreDimmerThanTextAndAnInactiveWindowsListIsNotGreyed) {
    // A dark theme that leaves the placeholder as bright as the text and
    // greys the texts of windows not in front.
    QPalette dark;
    dark.setColor(QPalette::Window, QColor(36, 36, 36));
    dark.setColor(QPalette::Base, QColor(45, 45, 45));
    dark.setColor(QPalette::Text, QColor(238, 238, 236));
    dark.setColor(QPalette::PlaceholderText, QColor(238, 238, 236));
    dark.setColor(QPalette::Inactive, QPalette::Text, QColor(120, 120, 120));
    const QPalette settled = look::settledPalette(dark);
    for (QPalette::ColorGroup group : {QPalette::Active, QPalette::Inactive}) {
        const QColor text = settled.color(group, QPalette::Text);
        const QColor hint = settled.color(group, QPalette::PlaceholderText);
        EXPECT_EQ(text, QColor(238, 238, 236)) << group;
        EXPECT_LT(hint.lightness(), text.lightness() - 50) << group;
        EXPECT_GT(hint.lightness(), QColor(45, 45, 45).lightness() + 50) << group;
    }
    // A theme that already dims its placeholders keeps its own colour.
    QPalette light;
    light.setColor(QPalette::Base, Qt::white);
    light.setColor(QPalette::Text, Qt::black);
    light.setColor(QPalette::PlaceholderText, QColor(128, 128, 140));
    EXPECT_EQ(look::settledPalette(light).color(QPalette::Active, QPalette::PlaceholderText),
              QColor(128, 128, 140));
}

}  // namespace
}  // namespace zettly
