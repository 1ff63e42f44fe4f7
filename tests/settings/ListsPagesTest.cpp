#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QDialog>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QTimer>
#include <QToolButton>
#include <QTreeWidget>
#include <QtTest/QTest>
#include <deque>
#include <functional>
#include <map>
#include <memory>

#include <gtest/gtest.h>

#include "capture/PasteboardMonitor.h"
#include "settings/CategoriesPage.h"
#include "settings/IgnorePage.h"
#include "settings/SettingsContext.h"
#include "settings/SyncPage.h"
#include "settings/SyncServerBox.h"
#include "store/ChipOrder.h"
#include "store/ClipboardStore.h"
#include "store/ImageClipStore.h"
#include "store/PrefKeys.h"
#include "tests/fakes/StoreFixture.h"
#include "tests/fakes/TestImages.h"

namespace zettly {
namespace {

using Strings = std::vector<std::string>;

// Answers the modal dialogs that open during a call, in order: each handler
// gets the next dialog that comes up. Leftover handlers fail the test.
class DialogScript {
public:
    using Handler = std::function<void(QDialog&)>;

    DialogScript() {
        QObject::connect(&timer_, &QTimer::timeout, [this] { poll(); });
        timer_.start(5);
    }
    ~DialogScript() { EXPECT_TRUE(handlers_.empty()) << handlers_.size() << " dialogs never came"; }
    void then(Handler handler) { handlers_.push_back(std::move(handler)); }

    // Types into the one-line field of the name dialog and saves.
    void type(const QString& text) {
        then([text](QDialog& dialog) {
            auto* field = dialog.findChild<QLineEdit*>();
            ASSERT_NE(field, nullptr);
            field->setText(text);
            QTest::keyClick(field, Qt::Key_Return);
        });
    }
    // Clicks a message box's button; `seen` gets its title and texts.
    void click(const QString& button, QString* seen = nullptr) {
        then([button, seen](QDialog& dialog) {
            auto* box = qobject_cast<QMessageBox*>(&dialog);
            ASSERT_NE(box, nullptr);
            if (seen)
                *seen = box->text() + "\n" + box->informativeText();
            for (QAbstractButton* candidate : box->buttons())
                if (candidate->text() == button) {
                    candidate->click();
                    return;
                }
            ADD_FAILURE() << "no button " << button.toStdString();
            box->reject();
        });
    }

private:
    void poll() {
        auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
        if (!dialog || dialog == last_ || handlers_.empty())
            return;
        last_ = dialog;
        Handler next = std::move(handlers_.front());
        handlers_.pop_front();
        next(*dialog);
    }

    QTimer timer_;
    std::deque<Handler> handlers_;
    QDialog* last_ = nullptr;
};

template <typename T>
T* child(QWidget& page, const char* name) {
    T* found = page.findChild<T*>(QString::fromLatin1(name));
    EXPECT_NE(found, nullptr) << name;
    return found;
}

QStringList rows(const QListWidget* list) {
    QStringList texts;
    for (int i = 0; i < list->count(); ++i)
        texts << list->item(i)->text();
    return texts;
}

QStringList fromStd(const Strings& strings) {
    QStringList out;
    for (const std::string& s : strings)
        out << QString::fromStdString(s);
    return out;
}

class ListsPagesTest : public ::testing::Test {
protected:
    test::StoreEnvironment env;
    ClipboardStore texts{env.context()};
    ImageClipStore images{env.context()};
    int syncRequests = 0;
    std::vector<RunningApp> windows;
    SettingsContext context{
        .defaults = env.defaults,
        .texts = texts,
        .images = images,
        .layout = nullptr,
        .hotKeyChanged = {},
        .pasteSupport = {},
        .runningApps = [this] { return windows; },
        .syncSettingsChanged = [this] { ++syncRequests; },
        .deleteCloudCopy = {},
        .autostartDir = {},
        .executablePath = {},
    };

    std::string categoryId(const std::string& name) {
        auto made = texts.createCategory(name);
        EXPECT_TRUE(made);
        return made ? made->id : std::string();
    }
    Strings categoryNames() {
        Strings names;
        for (const auto& category : texts.categories())
            names.push_back(category.name);
        return names;
    }
    std::string textWith(const std::string& text, const std::optional<std::string>& category) {
        env.clock.advance(1);
        texts.insert(text);
        for (const auto& item : texts.fetch(100, 0))
            if (item.text == text) {
                texts.setCategory(item.id, category);
                return item.id;
            }
        ADD_FAILURE() << text << " was not stored";
        return {};
    }
};

// ---- categories -------------------------------------------------------------

QStringList column(const QTreeWidget* tree, int column) {
    QStringList texts;
    for (int row = 0; row < tree->topLevelItemCount(); ++row)
        texts << tree->topLevelItem(row)->text(column);
    return texts;
}

void dropCategory(QTreeWidget* tree, const std::string& id, QPoint at) {
    QMimeData mime;
    mime.setData(QStringLiteral("application/x-zettly-category"), QByteArray::fromStdString(id));
    QDragEnterEvent enter(at, Qt::MoveAction, &mime, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(tree->viewport(), &enter);
    ASSERT_TRUE(enter.isAccepted());
    QDropEvent drop(at, Qt::MoveAction, &mime, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(tree->viewport(), &drop);
}

TEST_F(ListsPagesTest, CategoriesAreListedInStoreOrderCountingTheirTextsAndImages) {
    const std::string work = categoryId("Work");
    const std::string home = categoryId("Home");
    textWith("invoice", work);
    textWith("report", work);
    textWith("recipe", home);
    textWith("loose", std::nullopt);
    ASSERT_EQ(images.save(test::png(40, 30, test::noise(7))), ImageClipStore::SaveResult::saved);
    images.setCategory(images.fetchAll().front().id, home);

    CategoriesPage page(context);
    auto* tree = child<QTreeWidget>(page, "categoryList");
    EXPECT_EQ(column(tree, 0), (QStringList{"Work", "Home"}));
    EXPECT_EQ(column(tree, 1), (QStringList{"2 items", "2 items"}));

    textWith("another", home);
    page.reload();
    EXPECT_EQ(column(tree, 1), (QStringList{"2 items", "3 items"}));
}

TEST_F(ListsPagesTest, ANewCategoryIsTrimmedAndATakenNameIsRefusedWithAMessage) {
    CategoriesPage page(context);
    auto* tree = child<QTreeWidget>(page, "categoryList");
    auto* create = child<QPushButton>(page, "newCategoryButton");
    {
        DialogScript dialogs;
        dialogs.type(QStringLiteral("  Recipes \n"));
        create->click();
    }
    EXPECT_EQ(categoryNames(), (Strings{"Recipes"}));
    QString message;
    {
        DialogScript dialogs;
        dialogs.type(QStringLiteral("recipes"));
        dialogs.click(QStringLiteral("OK"), &message);
        create->click();
    }
    EXPECT_EQ(categoryNames(), (Strings{"Recipes"}));
    EXPECT_TRUE(message.contains(QStringLiteral("already a category called \u201cRecipes\u201d")))
        << message.toStdString();
    // The existing one is selected, so the user sees where it is.
    EXPECT_EQ(tree->currentItem()->text(0), "Recipes");
}

TEST_F(ListsPagesTest, RenamingInPlaceStoresTheNameAndKeepsTheOldOneWhenEmptyOrTaken) {
    categoryId("Work");
    categoryId("Home");
    CategoriesPage page(context);
    page.show();
    auto* tree = child<QTreeWidget>(page, "categoryList");
    auto renameFirstTo = [&](const QString& text) {
        tree->setCurrentItem(tree->topLevelItem(0));
        child<QPushButton>(page, "renameCategoryButton")->click();
        auto* editor = tree->viewport()->findChild<QLineEdit*>();
        ASSERT_NE(editor, nullptr);
        editor->setText(text);
        QTest::keyClick(editor, Qt::Key_Return);
        // The delegate commits queued, and the page answers once the editor is closed.
        for (int turn = 0; turn < 3; ++turn)
            QApplication::processEvents();
    };

    renameFirstTo(QStringLiteral("  Office  "));
    EXPECT_EQ(categoryNames(), (Strings{"Office", "Home"}));
    renameFirstTo(QStringLiteral("   "));
    EXPECT_EQ(categoryNames(), (Strings{"Office", "Home"}));
    EXPECT_EQ(column(tree, 0), (QStringList{"Office", "Home"}));
    {
        DialogScript dialogs;
        QString message;
        dialogs.click(QStringLiteral("OK"), &message);
        renameFirstTo(QStringLiteral("HOME"));
        EXPECT_TRUE(message.contains(QStringLiteral("\u201cHome\u201d"))) << message.toStdString();
    }
    EXPECT_EQ(categoryNames(), (Strings{"Office", "Home"}));
    EXPECT_EQ(column(tree, 0), (QStringList{"Office", "Home"}));
}

TEST_F(ListsPagesTest, DeletingConfirmsWithTheNameAndLeavesItsTextsPinnedAndItsImagesOutside) {
    const std::string work = categoryId("Work");
    const std::string note = textWith("meeting notes", work);
    ASSERT_EQ(images.save(test::png(40, 30, test::noise(3))), ImageClipStore::SaveResult::saved);
    images.setCategory(images.fetchAll().front().id, work);
    CategoriesPage page(context);
    auto* tree = child<QTreeWidget>(page, "categoryList");
    tree->setCurrentItem(tree->topLevelItem(0));
    auto* remove = child<QPushButton>(page, "deleteCategoryButton");

    QString asked;
    {
        DialogScript dialogs;
        dialogs.click(QStringLiteral("Cancel"), &asked);
        remove->click();
    }
    EXPECT_TRUE(asked.contains(QStringLiteral("Delete the category \u201cWork\u201d?")))
        << asked.toStdString();
    EXPECT_EQ(categoryNames(), (Strings{"Work"}));
    {
        DialogScript dialogs;
        dialogs.click(QStringLiteral("Delete"));
        remove->click();
    }
    EXPECT_TRUE(categoryNames().empty());
    EXPECT_EQ(tree->topLevelItemCount(), 0);
    const auto item = texts.fetch(10, 0).front();
    EXPECT_EQ(item.id, note);
    EXPECT_TRUE(item.pinned);
    EXPECT_EQ(item.category, std::nullopt);
    EXPECT_EQ(images.fetchAll().front().category, std::nullopt);
}

TEST_F(ListsPagesTest, DroppingACategoryReordersTheStoreAndAStoredChipOrderAlike) {
    const std::string a = categoryId("A");
    const std::string b = categoryId("B");
    const std::string c = categoryId("C");
    CategoriesPage page(context);
    page.resize(400, 400);
    page.show();
    auto* tree = child<QTreeWidget>(page, "categoryList");
    auto upperHalf = [&](int row) {
        QRect r = tree->visualItemRect(tree->topLevelItem(row));
        return QPoint(r.center().x(), r.top() + 1);
    };
    auto lowerHalf = [&](int row) {
        QRect r = tree->visualItemRect(tree->topLevelItem(row));
        return QPoint(r.center().x(), r.bottom() - 1);
    };

    // Without a chip order of the user's the chips follow the store; none
    // is written.
    dropCategory(tree, a, lowerHalf(2));
    EXPECT_EQ(categoryNames(), (Strings{"B", "C", "A"}));
    EXPECT_EQ(column(tree, 0), (QStringList{"B", "C", "A"}));
    EXPECT_FALSE(env.defaults.contains(prefkey::clipboardChipOrder));

    ChipOrder chips(env.defaults, texts);
    chips.save({"all", "cat:" + b, "pinned", "cat:" + c, "text", "cat:" + a, "links", "images"});
    dropCategory(tree, a, upperHalf(0));
    EXPECT_EQ(categoryNames(), (Strings{"A", "B", "C"}));
    // The chips keep their places; the categories among them take the new order.
    EXPECT_EQ(
        env.defaults.stringArray(prefkey::clipboardChipOrder),
        (Strings{"all", "cat:" + a, "pinned", "cat:" + b, "text", "cat:" + c, "links", "images"}));

    // Dropped on its own place: nothing changes.
    dropCategory(tree, b, upperHalf(1));
    EXPECT_EQ(categoryNames(), (Strings{"A", "B", "C"}));
}

// ---- ignore ---------------------------------------------------------------

TEST_F(ListsPagesTest, TheBuiltInAppsShowAsDefaultsUntilTheFirstChangeStoresTheWholeList) {
    const Strings builtIn = PasteboardMonitor::builtInIgnoredApps();
    IgnorePage page(context);
    auto* list = child<QListWidget>(page, "appList");
    auto* note = child<QLabel>(page, "appDefaultsNote");
    EXPECT_EQ(rows(list), fromStd(builtIn));
    EXPECT_FALSE(note->isHidden());
    EXPECT_FALSE(env.defaults.contains(prefkey::ignoredApps));

    list->findItems(QStringLiteral("com.bitwarden.desktop"), Qt::MatchExactly)
        .front()
        ->setSelected(true);
    child<QPushButton>(page, "removeAppButton")->click();
    Strings expected = builtIn;
    std::erase(expected, "com.bitwarden.desktop");
    EXPECT_EQ(env.defaults.stringArray(prefkey::ignoredApps), expected);
    EXPECT_TRUE(note->isHidden());

    auto* field = child<QLineEdit>(page, "appField");
    QTest::keyClicks(field, QStringLiteral("  org.example.Vault "));
    QTest::keyClick(field, Qt::Key_Return);
    QTest::keyClicks(field, QStringLiteral("org.example.Vault"));
    QTest::keyClick(field, Qt::Key_Return);
    expected.push_back("org.example.Vault");
    EXPECT_EQ(env.defaults.stringArray(prefkey::ignoredApps), expected);
    EXPECT_EQ(rows(list), fromStd(expected));

    child<QPushButton>(page, "appDefaultsButton")->click();
    EXPECT_FALSE(env.defaults.contains(prefkey::ignoredApps));
    EXPECT_EQ(rows(list), fromStd(builtIn));
}

TEST_F(ListsPagesTest, AnOpenWindowAddsItsAppOnceAndAppsAlreadyIgnoredAreTicked) {
    windows = {{"org.mozilla.firefox", "Mozilla Firefox"},
               {"org.mozilla.firefox", "Downloads"},
               {"org.keepassxc.KeePassXC", "Passwords.kdbx - KeePassXC"},
               {"org.gnome.Terminal", "Tom & Jerry"}};
    IgnorePage page(context);
    auto* button = child<QToolButton>(page, "runningAppsButton");
    EXPECT_FALSE(button->isHidden());
    QMenu* menu = button->menu();
    Q_EMIT menu->aboutToShow();
    QStringList entries;
    for (QAction* action : menu->actions())
        entries << action->text();
    EXPECT_EQ(entries, (QStringList{"Mozilla Firefox \u2014 org.mozilla.firefox",
                                    "Passwords.kdbx - KeePassXC \u2014 org.keepassxc.KeePassXC",
                                    "Tom && Jerry \u2014 org.gnome.Terminal"}));
    EXPECT_FALSE(menu->actions()[1]->isEnabled());
    EXPECT_TRUE(menu->actions()[1]->isChecked());

    menu->actions()[0]->trigger();
    Strings expected = PasteboardMonitor::builtInIgnoredApps();
    expected.push_back("org.mozilla.firefox");
    EXPECT_EQ(env.defaults.stringArray(prefkey::ignoredApps), expected);

    context.runningApps = {};
    IgnorePage withoutWindows(context);
    EXPECT_TRUE(child<QToolButton>(withoutWindows, "runningAppsButton")->isHidden());
}

TEST_F(ListsPagesTest, AnInvalidPatternIsMarkedWhileTypedAndNotStoredWhileAValidOneIs) {
    IgnorePage page(context);
    auto* field = child<QLineEdit>(page, "patternField");
    auto* mark = page.findChild<QAction*>(QStringLiteral("patternMark"));
    ASSERT_NE(mark, nullptr);
    auto* problem = child<QLabel>(page, "patternProblem");
    auto* save = child<QPushButton>(page, "savePatternButton");

    QTest::keyClicks(field, QStringLiteral("[0-9"));
    EXPECT_TRUE(mark->isVisible());
    EXPECT_TRUE(mark->toolTip().contains(QStringLiteral("is not closed")))
        << mark->toolTip().toStdString();
    EXPECT_FALSE(problem->isHidden());
    EXPECT_EQ(problem->text(), mark->toolTip());
    EXPECT_FALSE(save->isEnabled());
    QTest::keyClick(field, Qt::Key_Return);
    EXPECT_FALSE(env.defaults.contains(prefkey::ignoredPatterns));
    EXPECT_FALSE(page.addPattern(QStringLiteral("(?<=a+)b")));
    EXPECT_FALSE(page.addPattern(QString()));

    QTest::keyClicks(field, QStringLiteral("]{6}"));
    EXPECT_FALSE(mark->isVisible());
    EXPECT_TRUE(problem->isHidden());
    QTest::keyClick(field, Qt::Key_Return);
    EXPECT_EQ(env.defaults.stringArray(prefkey::ignoredPatterns), (Strings{"[0-9]{6}"}));
    EXPECT_EQ(field->text(), "");

    // The same pattern twice is one pattern.
    QTest::keyClicks(field, QStringLiteral("[0-9]{6}"));
    QTest::keyClick(field, Qt::Key_Return);
    EXPECT_EQ(env.defaults.stringArray(prefkey::ignoredPatterns), (Strings{"[0-9]{6}"}));
    EXPECT_FALSE(problem->isHidden());
}

TEST_F(ListsPagesTest, EditingAPatternReplacesItInPlaceAndABrokenStoredOneIsFlagged) {
    env.defaults.setStringArray(prefkey::ignoredPatterns, {"\\d{6}", "secret", "(unclosed"});
    IgnorePage page(context);
    auto* list = child<QListWidget>(page, "patternList");
    auto* field = child<QLineEdit>(page, "patternField");
    auto* save = child<QPushButton>(page, "savePatternButton");
    EXPECT_TRUE(list->item(0)->toolTip().isEmpty());
    EXPECT_TRUE(list->item(2)->toolTip().contains(QStringLiteral("parentheses")));

    list->setCurrentRow(0);
    child<QPushButton>(page, "editPatternButton")->click();
    EXPECT_EQ(field->text(), "\\d{6}");
    field->setText(QStringLiteral("^\\d{6"));
    EXPECT_FALSE(save->isEnabled());
    field->setText(QStringLiteral("^\\d{6}$"));
    save->click();
    EXPECT_EQ(env.defaults.stringArray(prefkey::ignoredPatterns),
              (Strings{"^\\d{6}$", "secret", "(unclosed"}));

    list->setCurrentRow(2);
    child<QPushButton>(page, "removePatternButton")->click();
    EXPECT_EQ(env.defaults.stringArray(prefkey::ignoredPatterns), (Strings{"^\\d{6}$", "secret"}));
}

// ---- sync -----------------------------------------------------------------

TEST_F(ListsPagesTest, TheSyncSwitchesWriteTheirKeysAskForASyncAndTheChipSwitchNeedsSync) {
    SyncPage page(context);
    auto* sync = child<QCheckBox>(page, "syncSwitch");
    auto* chips = child<QCheckBox>(page, "chipOrderSwitch");
    EXPECT_FALSE(sync->isChecked());
    EXPECT_TRUE(chips->isChecked());
    EXPECT_FALSE(chips->isEnabled());

    sync->click();
    EXPECT_EQ(env.defaults.boolObject(prefkey::clipboardCloudSync), true);
    EXPECT_EQ(syncRequests, 1);
    EXPECT_TRUE(chips->isEnabled());
    chips->click();
    EXPECT_EQ(env.defaults.boolObject(prefkey::clipboardChipOrderSync), false);
    EXPECT_EQ(syncRequests, 2);

    // Another process (or sync) switched it off: the page shows it and asks for nothing.
    env.defaults.setBool(prefkey::clipboardCloudSync, false);
    page.reload();
    EXPECT_FALSE(sync->isChecked());
    EXPECT_FALSE(chips->isEnabled());
    EXPECT_EQ(syncRequests, 2);
}

TEST_F(ListsPagesTest, TheStatusIsTheLastErrorElseWhenTheLastSyncEndedElseNotYet) {
    const double now = 1'700'000'000;
    EXPECT_EQ(SyncPage::statusText(env.defaults, now), "Not synced yet");
    env.defaults.setDouble(prefkey::clipSyncLastAt, now - 30);
    EXPECT_EQ(SyncPage::statusText(env.defaults, now), "Last synced: just now");
    env.defaults.setDouble(prefkey::clipSyncLastAt, now - 150);
    EXPECT_EQ(SyncPage::statusText(env.defaults, now), "Last synced: 2 minutes ago");
    env.defaults.setDouble(prefkey::clipSyncLastAt, now - 3 * 3600 - 5);
    EXPECT_EQ(SyncPage::statusText(env.defaults, now), "Last synced: 3 hours ago");
    env.defaults.setDouble(prefkey::clipSyncLastAt, now - 3 * 86400);
    EXPECT_FALSE(SyncPage::statusText(env.defaults, now).contains(QStringLiteral("ago")));
    env.defaults.setDouble(prefkey::clipSyncLastAt, now + 600);  // a clock running behind
    EXPECT_FALSE(SyncPage::statusText(env.defaults, now).contains(QStringLiteral("ago")));

    // The engine's stored codes read as sentences; other texts as stored.
    env.defaults.setString(prefkey::clipSyncLastError, "CloudKit 4");
    EXPECT_TRUE(SyncPage::statusText(env.defaults, now).contains("cannot be reached"));
    env.defaults.setString(prefkey::clipSyncLastError, "CloudKit 15");
    EXPECT_EQ(SyncPage::statusText(env.defaults, now), "Sync failed (error 15).");
    env.defaults.setString(prefkey::clipSyncLastError, "CloudKit x");
    EXPECT_EQ(SyncPage::statusText(env.defaults, now), "CloudKit x");
    env.defaults.setString(prefkey::clipSyncLastError, "Sync is not set up");
    SyncPage page(context);
    EXPECT_EQ(child<QLabel>(page, "syncStatus")->text(), "Sync is not set up");
    env.defaults.remove(prefkey::clipSyncLastError);
    env.defaults.remove(prefkey::clipSyncLastAt);
    page.reload();
    EXPECT_EQ(child<QLabel>(page, "syncStatus")->text(), "Not synced yet");
}

TEST_F(ListsPagesTest, DeletingTheCloudCopyAsksFirstThenWaitsForTheHookAndShowsItsAnswer) {
    int calls = 0;
    std::function<void(std::optional<std::string>)> answer;
    context.deleteCloudCopy = [&](std::function<void(std::optional<std::string>)> done) {
        ++calls;
        answer = std::move(done);
    };
    auto page = std::make_unique<SyncPage>(context);
    auto* button = child<QPushButton>(*page, "deleteCloudCopyButton");
    auto* result = child<QLabel>(*page, "deleteCloudCopyResult");
    EXPECT_FALSE(child<QGroupBox>(*page, "cloudCopyBox")->isHidden());

    QString asked;
    {
        DialogScript dialogs;
        dialogs.click(QStringLiteral("Cancel"), &asked);
        button->click();
    }
    EXPECT_TRUE(asked.contains(QStringLiteral("other devices stays"))) << asked.toStdString();
    EXPECT_EQ(calls, 0);

    {
        DialogScript dialogs;
        dialogs.click(QStringLiteral("Delete"));
        button->click();
    }
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(button->isEnabled());
    EXPECT_TRUE(page->deletingCloudCopy());
    page->reload();  // a sync finishing meanwhile must not enable it
    EXPECT_FALSE(button->isEnabled());
    answer(std::string("CloudKit 9"));
    EXPECT_TRUE(button->isEnabled());
    EXPECT_TRUE(result->text().contains(QStringLiteral("could not be deleted: CloudKit 9")));

    {
        DialogScript dialogs;
        dialogs.click(QStringLiteral("Delete"));
        button->click();
    }
    EXPECT_EQ(calls, 2);
    answer(std::nullopt);
    EXPECT_EQ(result->text(), "The cloud copy was deleted.");

    // The window may close before the server answers.
    {
        DialogScript dialogs;
        dialogs.click(QStringLiteral("Delete"));
        button->click();
    }
    page.reset();
    answer(std::nullopt);
    EXPECT_EQ(calls, 3);

    context.deleteCloudCopy = {};
    SyncPage withoutHook(context);
    EXPECT_TRUE(child<QGroupBox>(withoutHook, "cloudCopyBox")->isHidden());
}

TEST_F(ListsPagesTest, TheServerFieldsKeepWhatIsUsableAndTheTestShowsTheServersAnswer) {
    std::map<SyncSecret, std::string> secrets;
    bool keyringLocked = false;
    int changes = 0;
    std::function<void(bool, std::string)> pendingTest;
    context.syncServer = {
        .readSecret = [&](SyncSecret which) -> std::optional<std::string> {
            if (!secrets.contains(which))
                return std::nullopt;
            return secrets[which];
        },
        .writeSecret =
            [&](SyncSecret which, const std::string& value) {
                if (keyringLocked)
                    return false;
                secrets[which] = value;
                return true;
            },
        .secretsWhere = [] { return std::string("the Secret Service"); },
        .urlProblem = [](const std::string& url) -> std::optional<std::string> {
            if (url.starts_with("http://"))
                return "Use https for a server on another computer.";
            return std::nullopt;
        },
        .testConnection = [&](auto done) { pendingTest = std::move(done); },
        .changed = [&] { ++changes; },
    };
    SyncServerBox box(context);
    auto enter = [](QLineEdit* field, const QString& text) {
        field->setText(text);
        Q_EMIT field->editingFinished();
    };

    enter(box.urlField(), "http://couch.example.org/zettly");
    EXPECT_FALSE(env.defaults.contains(prefkey::syncServerURL));
    EXPECT_TRUE(box.problem()->isVisibleTo(&box));
    enter(box.urlField(), "  https://couch.example.org/zettly ");
    EXPECT_EQ(env.defaults.string(prefkey::syncServerURL), "https://couch.example.org/zettly");
    EXPECT_FALSE(box.problem()->isVisibleTo(&box));
    enter(box.userField(), "ann");
    enter(box.userField(), "ann");  // unchanged: no new connection
    enter(box.passwordField(), "s3cret");
    EXPECT_EQ(secrets[SyncSecret::password], "s3cret");
    EXPECT_EQ(changes, 3);

    keyringLocked = true;
    enter(box.passphraseField(), "correct horse");
    EXPECT_FALSE(secrets.contains(SyncSecret::passphrase));
    EXPECT_TRUE(box.problem()->isVisibleTo(&box));
    EXPECT_EQ(changes, 3);
    keyringLocked = false;

    // What is typed but not yet left counts for the test.
    box.passphraseField()->setText("correct horse");
    box.testConnection();
    EXPECT_EQ(secrets[SyncSecret::passphrase], "correct horse");
    ASSERT_TRUE(pendingTest);
    box.testConnection();  // a second click while one runs does nothing
    pendingTest(false, "The sync server did not accept the user name or password.");
    EXPECT_TRUE(box.testResult()->text().endsWith("user name or password."));

    secrets[SyncSecret::password] = "changed elsewhere";
    box.reload();
    EXPECT_EQ(box.passwordField()->text(), "changed elsewhere");
}

}  // namespace
}  // namespace zettly
