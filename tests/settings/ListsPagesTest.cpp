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
#include <functional>
#include <map>
#include <memory>

#include <gtest/gtest.h>

#include "capture/PasteboardMonitor.h"
#include "platform/couch/CouchContainer.h"
#include "settings/CategoriesPage.h"
#include "settings/IgnorePage.h"
#include "settings/SettingsContext.h"
#include "settings/SyncPage.h"
#include "settings/SyncServerBox.h"
#include "store/ChipOrder.h"
#include "store/ClipboardStore.h"
#include "store/ImageClipStore.h"
#include "store/PrefKeys.h"
#include "sync/ClipCloudSync.h"
#include "tests/fakes/StoreFixture.h"
#include "tests/fakes/TestImages.h"

namespace zettly {
namespace {

using Strings = std::vector<std::string>;

// Runs `action` and answers the dialogs it opens in turn: a name dialog gets
// the next answer typed, a message box has the button of that text clicked.
// Returns what the message boxes said.
QString answering(QStringList answers, const std::function<void()>& action) {
    QString seen;
    QDialog* last = nullptr;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
        if (!dialog || dialog == last || answers.isEmpty())
            return;
        last = dialog;
        const QString answer = answers.takeFirst();
        if (auto* box = qobject_cast<QMessageBox*>(dialog)) {
            seen += box->text() + "\n" + box->informativeText();
            for (QAbstractButton* button : box->buttons())
                if (button->text() == answer)
                    return button->click();
            ADD_FAILURE() << "no button " << answer.toStdString();
            return box->reject();
        }
        auto* field = dialog->findChild<QLineEdit*>();
        ASSERT_NE(field, nullptr);
        field->setText(answer);
        QTest::keyClick(field, Qt::Key_Return);
    });
    poll.start(5);
    action();
    EXPECT_TRUE(answers.isEmpty()) << answers.size() << " dialogs never came";
    return seen;
}

template <typename T>
T* child(QWidget& page, const char* name) {
    T* found = page.findChild<T*>(QString::fromLatin1(name));
    EXPECT_NE(found, nullptr) << name;
    return found;
}

Strings rows(const QListWidget* list) {
    Strings texts;
    for (int i = 0; i < list->count(); ++i)
        texts.push_back(list->item(i)->text().toStdString());
    return texts;
}

QStringList column(const QTreeWidget* tree, int column) {
    QStringList texts;
    for (int row = 0; row < tree->topLevelItemCount(); ++row)
        texts << tree->topLevelItem(row)->text(column);
    return texts;
}

class ListsPagesTest : public ::testing::Test {
protected:
    test::StoreEnvironment env;
    ClipboardStore texts{env.context()};
    ImageClipStore images{env.context()};
    int syncRequests = 0;
    std::vector<RunningApp> windows;
    std::vector<Limitation> limits;
    SettingsContext context{
        .defaults = env.defaults,
        .texts = texts,
        .images = images,
        .limitations = [this] { return limits; },
        .runningApps = [this] { return windows; },
        .syncSettingsChanged = [this] { ++syncRequests; },
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
    void textWith(const std::string& text, const std::optional<std::string>& category) {
        env.clock.advance(1);
        texts.insert(text);
        for (const auto& item : texts.fetch(100, 0))
            if (item.text == text)
                return texts.setCategory(item.id, category);
        ADD_FAILURE() << text << " was not stored";
    }
    std::optional<Strings> stored(std::string_view key) { return env.defaults.stringArray(key); }
};

// ---- categories -------------------------------------------------------------

TEST_F(ListsPagesTest, CategoriesCountTheirTextsAndImagesAndDeletingOneAsksThenKeepsItsClips) {
    const std::string work = categoryId("Work");
    const std::string home = categoryId("Home");
    textWith("invoice", work);
    textWith("report", work);
    textWith("recipe", home);
    textWith("dinner", home);
    textWith("loose", std::nullopt);
    ASSERT_EQ(images.save(test::png(40, 30, test::noise(7))), ImageClipStore::SaveResult::saved);
    images.setCategory(images.fetchAll().front().id, work);

    CategoriesPage page(context);
    auto* tree = child<QTreeWidget>(page, "categoryList");
    EXPECT_EQ(column(tree, 0), (QStringList{"Work", "Home"}));
    EXPECT_EQ(column(tree, 1), (QStringList{"3 items", "2 items"}));

    tree->setCurrentItem(tree->topLevelItem(0));
    auto* remove = child<QPushButton>(page, "deleteCategoryButton");
    const QString asked = answering({"Cancel"}, [&] { remove->click(); });
    EXPECT_TRUE(asked.contains(QStringLiteral("Delete the category \u201cWork\u201d?")))
        << asked.toStdString();
    EXPECT_EQ(categoryNames(), (Strings{"Work", "Home"}));

    answering({"Delete"}, [&] { remove->click(); });
    EXPECT_EQ(categoryNames(), (Strings{"Home"}));
    EXPECT_EQ(column(tree, 0), (QStringList{"Home"}));
    int kept = 0;
    for (const auto& item : texts.fetch(10, 0))
        if (item.text == "invoice" || item.text == "report") {
            ++kept;
            EXPECT_TRUE(item.pinned && !item.category) << item.text;
        }
    EXPECT_EQ(kept, 2);
    EXPECT_EQ(images.fetchAll().front().category, std::nullopt);
}

TEST_F(ListsPagesTest, NewAndRenamedCategoriesAreTrimmedAndAnEmptyOrTakenNameIsRefused) {
    categoryId("Home");
    CategoriesPage page(context);
    page.show();
    auto* tree = child<QTreeWidget>(page, "categoryList");
    auto* create = child<QPushButton>(page, "newCategoryButton");
    answering({"  Recipes \n"}, [&] { create->click(); });
    EXPECT_EQ(categoryNames(), (Strings{"Home", "Recipes"}));
    QString message = answering({"recipes", "OK"}, [&] { create->click(); });
    EXPECT_EQ(categoryNames(), (Strings{"Home", "Recipes"}));
    EXPECT_TRUE(message.contains(QStringLiteral("already a category called \u201cRecipes\u201d")))
        << message.toStdString();
    EXPECT_EQ(tree->currentItem()->text(0), "Recipes");  // shows the user where it is

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
    EXPECT_EQ(categoryNames(), (Strings{"Office", "Recipes"}));
    renameFirstTo(QStringLiteral("   "));
    message = answering({"OK"}, [&] { renameFirstTo(QStringLiteral("RECIPES")); });
    EXPECT_TRUE(message.contains(QStringLiteral("\u201cRecipes\u201d"))) << message.toStdString();
    EXPECT_EQ(categoryNames(), (Strings{"Office", "Recipes"}));
    EXPECT_EQ(column(tree, 0), (QStringList{"Office", "Recipes"}));
}

TEST_F(ListsPagesTest, DroppingACategoryReordersTheStoreAndAStoredChipOrderAlike) {
    const std::string a = categoryId("A");
    const std::string b = categoryId("B");
    const std::string c = categoryId("C");
    CategoriesPage page(context);
    page.resize(400, 400);
    page.show();
    auto* tree = child<QTreeWidget>(page, "categoryList");
    auto drop = [&](const std::string& id, int row, bool upperHalf) {
        const QRect r = tree->visualItemRect(tree->topLevelItem(row));
        const QPoint at(r.center().x(), upperHalf ? r.top() + 1 : r.bottom() - 1);
        QMimeData mime;
        mime.setData("application/x-zettly-category", QByteArray::fromStdString(id));
        QDragEnterEvent enter(at, Qt::MoveAction, &mime, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(tree->viewport(), &enter);
        ASSERT_TRUE(enter.isAccepted());
        QDropEvent dropped(at, Qt::MoveAction, &mime, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(tree->viewport(), &dropped);
    };

    drop(a, 2, false);
    EXPECT_EQ(categoryNames(), (Strings{"B", "C", "A"}));
    EXPECT_EQ(column(tree, 0), (QStringList{"B", "C", "A"}));
    EXPECT_FALSE(env.defaults.contains(prefkey::clipboardChipOrder));

    // The chips keep their places; the categories among them take the new order.
    ChipOrder(env.defaults, texts)
        .save({"all", "cat:" + b, "pinned", "cat:" + c, "text", "cat:" + a, "links", "images"});
    drop(a, 0, true);
    EXPECT_EQ(categoryNames(), (Strings{"A", "B", "C"}));
    EXPECT_EQ(
        stored(prefkey::clipboardChipOrder),
        (Strings{"all", "cat:" + a, "pinned", "cat:" + b, "text", "cat:" + c, "links", "images"}));

    drop(b, 1, true);  // its own place
    EXPECT_EQ(categoryNames(), (Strings{"A", "B", "C"}));
}

// ---- ignore ---------------------------------------------------------------

TEST_F(ListsPagesTest, BuiltInAppsShowUntilTheFirstChangeStoresTheWholeListAndDefaultsUndoIt) {
    windows = {{"org.mozilla.firefox", "Mozilla Firefox"},
               {"org.mozilla.firefox", "Downloads"},
               {"org.keepassxc.KeePassXC", "Passwords.kdbx - KeePassXC"},
               {"org.gnome.Terminal", "Tom & Jerry"}};
    const Strings builtIn = PasteboardMonitor::builtInIgnoredApps();
    IgnorePage page(context);
    auto* list = child<QListWidget>(page, "appList");
    auto* note = child<QLabel>(page, "appDefaultsNote");
    EXPECT_EQ(rows(list), builtIn);
    EXPECT_FALSE(note->isHidden());
    EXPECT_FALSE(env.defaults.contains(prefkey::ignoredApps));

    list->findItems("com.bitwarden.desktop", Qt::MatchExactly).front()->setSelected(true);
    child<QPushButton>(page, "removeAppButton")->click();
    Strings expected = builtIn;
    std::erase(expected, "com.bitwarden.desktop");
    EXPECT_EQ(stored(prefkey::ignoredApps), expected);
    EXPECT_TRUE(note->isHidden());

    auto* field = child<QLineEdit>(page, "appField");
    for (const char* typed : {"  org.example.Vault ", "org.example.Vault"}) {
        QTest::keyClicks(field, typed);
        QTest::keyClick(field, Qt::Key_Return);
    }
    expected.push_back("org.example.Vault");
    EXPECT_EQ(stored(prefkey::ignoredApps), expected);
    EXPECT_EQ(rows(list), expected);

    // An open window adds its app once; apps already ignored are ticked.
    QMenu* menu = child<QToolButton>(page, "runningAppsButton")->menu();
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
    expected.push_back("org.mozilla.firefox");
    EXPECT_EQ(stored(prefkey::ignoredApps), expected);

    child<QPushButton>(page, "appDefaultsButton")->click();
    EXPECT_FALSE(env.defaults.contains(prefkey::ignoredApps));
    EXPECT_EQ(rows(list), builtIn);
}

TEST_F(ListsPagesTest, WhereTheAppInFrontIsUnknownTheListSaysItCannotWorkAndStaysEditable) {
    IgnorePage page(context);
    auto* note = child<QWidget>(page, "appsUnrecognisedNote");
    EXPECT_TRUE(note->isHidden());
    limits = {Limitation::noPaste, Limitation::noFrontmostApp};
    page.reload();
    EXPECT_FALSE(note->isHidden());
    QString said;
    for (const QLabel* label : note->findChildren<QLabel*>())
        said += label->text();
    EXPECT_TRUE(said.contains("cannot tell which application is in front")) << said.toStdString();
    page.addApp("org.example.Vault");
    EXPECT_EQ(stored(prefkey::ignoredApps)->back(), "org.example.Vault");
    limits = {Limitation::noPaste};
    page.reload();
    EXPECT_TRUE(note->isHidden());
}

TEST_F(ListsPagesTest, AnInvalidPatternIsMarkedAndNeverStoredWhileValidOnesAreAddedAndEdited) {
    env.defaults.setStringArray(prefkey::ignoredPatterns, {"\\d{6}", "(unclosed"});
    IgnorePage page(context);
    auto* list = child<QListWidget>(page, "patternList");
    auto* field = child<QLineEdit>(page, "patternField");
    auto* mark = page.findChild<QAction*>(QStringLiteral("patternMark"));
    ASSERT_NE(mark, nullptr);
    auto* problem = child<QLabel>(page, "patternProblem");
    auto* save = child<QPushButton>(page, "savePatternButton");
    EXPECT_TRUE(list->item(0)->toolTip().isEmpty());
    EXPECT_TRUE(list->item(1)->toolTip().contains(QStringLiteral("parentheses")));

    QTest::keyClicks(field, QStringLiteral("[0-9"));
    EXPECT_TRUE(mark->isVisible());
    EXPECT_TRUE(mark->toolTip().contains(QStringLiteral("is not closed")))
        << mark->toolTip().toStdString();
    EXPECT_EQ(problem->text(), mark->toolTip());
    EXPECT_FALSE(problem->isHidden());
    EXPECT_FALSE(save->isEnabled());
    QTest::keyClick(field, Qt::Key_Return);
    EXPECT_FALSE(page.addPattern(QStringLiteral("(?<=a+)b")));
    EXPECT_FALSE(page.addPattern(QString()));
    EXPECT_EQ(stored(prefkey::ignoredPatterns), (Strings{"\\d{6}", "(unclosed"}));

    QTest::keyClicks(field, QStringLiteral("]{6}"));
    EXPECT_FALSE(mark->isVisible());
    EXPECT_TRUE(problem->isHidden());
    QTest::keyClick(field, Qt::Key_Return);
    EXPECT_EQ(field->text(), "");
    QTest::keyClicks(field, QStringLiteral("[0-9]{6}"));  // the same pattern twice is one
    QTest::keyClick(field, Qt::Key_Return);
    EXPECT_FALSE(problem->isHidden());
    EXPECT_EQ(stored(prefkey::ignoredPatterns), (Strings{"\\d{6}", "(unclosed", "[0-9]{6}"}));

    field->clear();
    list->setCurrentRow(0);
    child<QPushButton>(page, "editPatternButton")->click();
    EXPECT_EQ(field->text(), "\\d{6}");
    field->setText(QStringLiteral("^\\d{6"));
    EXPECT_FALSE(save->isEnabled());
    field->setText(QStringLiteral("^\\d{6}$"));
    save->click();
    list->setCurrentRow(1);
    child<QPushButton>(page, "removePatternButton")->click();
    EXPECT_EQ(stored(prefkey::ignoredPatterns), (Strings{"^\\d{6}$", "[0-9]{6}"}));
}

// ---- sync -----------------------------------------------------------------

TEST_F(ListsPagesTest, TheSyncSwitchesWriteTheirKeysAskForASyncAndTheChipSwitchNeedsSync) {
    SyncPage page(context);
    auto* sync = child<QCheckBox>(page, "syncSwitch");
    auto* chips = child<QCheckBox>(page, "chipOrderSwitch");
    EXPECT_FALSE(sync->isChecked());
    EXPECT_TRUE(chips->isChecked());
    EXPECT_FALSE(chips->isEnabled());
    EXPECT_TRUE(child<QGroupBox>(page, "cloudCopyBox")->isHidden());  // no hook to delete with

    sync->click();
    EXPECT_EQ(env.defaults.boolObject(prefkey::clipboardCloudSync), true);
    EXPECT_TRUE(chips->isEnabled());
    chips->click();
    EXPECT_EQ(env.defaults.boolObject(prefkey::clipboardChipOrderSync), false);
    EXPECT_EQ(syncRequests, 2);

    // Switched off by another process: the page shows it and asks for nothing.
    env.defaults.setBool(prefkey::clipboardCloudSync, false);
    page.reload();
    EXPECT_FALSE(sync->isChecked());
    EXPECT_FALSE(chips->isEnabled());
    EXPECT_EQ(syncRequests, 2);
}

TEST_F(ListsPagesTest, TheStatusIsTheLastErrorElseWhenTheLastSyncEndedElseNotYet) {
    const double now = 1'700'000'000;
    auto syncedAt = [&](double at) {
        env.defaults.setDouble(prefkey::clipSyncLastAt, at);
        return SyncPage::statusText(env.defaults, now);
    };
    EXPECT_EQ(SyncPage::statusText(env.defaults, now), "Not synced yet");
    EXPECT_EQ(syncedAt(now - 30), "Last synced: just now");
    EXPECT_EQ(syncedAt(now - 150), "Last synced: 2 minutes ago");
    EXPECT_EQ(syncedAt(now - 3 * 3600 - 5), "Last synced: 3 hours ago");
    EXPECT_FALSE(syncedAt(now - 3 * 86400).contains("ago"));
    EXPECT_FALSE(syncedAt(now + 600).contains("ago"));  // a clock running behind

    // The engine's stored codes read as sentences; other texts as stored.
    auto failed = [&](const char* error) {
        env.defaults.setString(prefkey::clipSyncLastError, error);
        return SyncPage::statusText(env.defaults, now);
    };
    EXPECT_TRUE(failed("CloudKit 4").contains("cannot be reached"));
    EXPECT_EQ(failed("CloudKit 15"), "Sync failed (error 15).");
    EXPECT_EQ(failed("CloudKit x"), "CloudKit x");
    // Every status the engine and the server's backend leave has its sentence.
    for (std::string_view stored :
         {ClipCloudSync::untrustedStatus, ClipCloudSync::applyHeldStatus,
          ClipCloudSync::setAsideStatus, ClipCloudSync::downloadsStatus,
          CouchContainer::passphraseChangedMessage, CouchContainer::markerTamperedMessage}) {
        const QString shown = failed(std::string(stored).c_str());
        EXPECT_NE(shown.toStdString(), stored);
        EXPECT_TRUE(shown.endsWith('.')) << shown.toStdString();
    }
    EXPECT_EQ(failed(ClipCloudSync::clockStatus(-31 * 86400.0).c_str()),
              "Your computer's clock is 744 hours off. Zettly holds back deletions until it is "
              "set right.");
    EXPECT_TRUE(failed(ClipCloudSync::clockStatus(400).c_str())
                    .startsWith("Your computer's clock is 7 minutes off."));
    failed("Sync is not set up");
    SyncPage page(context);
    EXPECT_EQ(child<QLabel>(page, "syncStatus")->text(), "Sync is not set up");
}

TEST_F(ListsPagesTest, DeletingTheCloudCopyAsksFirstThenWaitsForTheHookAndShowsItsAnswer) {
    int calls = 0;
    std::function<void(std::optional<std::string>)> answer;
    context.deleteCloudCopy = [&](auto done) {
        ++calls;
        answer = std::move(done);
    };
    auto page = std::make_unique<SyncPage>(context);
    auto* button = child<QPushButton>(*page, "deleteCloudCopyButton");
    auto* result = child<QLabel>(*page, "deleteCloudCopyResult");
    EXPECT_FALSE(child<QGroupBox>(*page, "cloudCopyBox")->isHidden());

    const QString asked = answering({"Cancel"}, [&] { button->click(); });
    EXPECT_TRUE(asked.contains(QStringLiteral("other devices stays"))) << asked.toStdString();
    EXPECT_EQ(calls, 0);

    answering({"Delete"}, [&] { button->click(); });
    EXPECT_EQ(calls, 1);
    page->reload();  // a sync finishing meanwhile must not enable it
    EXPECT_FALSE(button->isEnabled());
    answer(std::string("CloudKit 9"));
    EXPECT_TRUE(button->isEnabled());
    EXPECT_TRUE(result->text().contains(QStringLiteral("could not be deleted: CloudKit 9")));

    answering({"Delete"}, [&] { button->click(); });
    answer(std::nullopt);
    EXPECT_EQ(result->text(), "The cloud copy was deleted.");

    answering({"Delete"}, [&] { button->click(); });
    page.reset();  // the window closed before the server answered
    answer(std::nullopt);
    EXPECT_EQ(calls, 3);
}

TEST_F(ListsPagesTest, TheServerFieldsKeepWhatIsUsableAndTheTestShowsTheServersAnswer) {
    std::map<SyncSecret, std::string> secrets;
    bool keyringLocked = false;
    int changes = 0;
    std::function<void(bool, std::string)> pendingTest;
    context.syncServer = {
        .readSecret = [&](SyncSecret which) -> std::optional<std::string> {
            return secrets.contains(which) ? std::optional(secrets[which]) : std::nullopt;
        },
        .writeSecret =
            [&](SyncSecret which, const std::string& value) {
                if (!keyringLocked)
                    secrets[which] = value;
                return !keyringLocked;
            },
        .urlProblem = [](const std::string& url) -> std::optional<std::string> {
            return url.starts_with("http://") ? std::optional<std::string>("Use https.")
                                              : std::nullopt;
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
    pendingTest(false, "The sync server did not accept the user name or password.");
    EXPECT_TRUE(box.testResult()->text().endsWith("user name or password."));

    secrets[SyncSecret::password] = "changed elsewhere";
    box.reload();
    EXPECT_EQ(box.passwordField()->text(), "changed elsewhere");
}

}  // namespace
}  // namespace zettly
