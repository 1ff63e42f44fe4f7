#include "app/AppDelegate.h"

#include <QApplication>
#include <QDesktopServices>
#include <QGuiApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>
#include <QUrl>
#include <cstdlib>
#include <filesystem>

#include "app/TrayIcons.h"
#include "platform/AppFolders.h"
#include "platform/Clock.h"
#include "platform/Desktop.h"
#include "platform/Keyboard.h"
#include "platform/Log.h"
#include "platform/Pasteboard.h"
#include "platform/linux/QtGeometry.h"
#include "popup/ui/Texts.h"
#include "settings/GeneralPage.h"
#include "settings/StoragePage.h"
#include "store/ClipPrefs.h"
#include "store/ClipboardStore.h"
#include "store/ImageClipStore.h"
#include "store/StoreHealth.h"
#include "sync/SyncPace.h"

namespace zettly {

AppDelegate::AppDelegate(Platform& platform, Defaults& defaults, ClipboardStore& texts,
                         ImageClipStore& images, StoreHealth& health)
    : platform_(platform),
      defaults_(defaults),
      texts_(texts),
      images_(images),
      health_(health),
      mainQueue_(platform.mainQueue()),
      updater_(ZETTLY_VERSION, defaults, mainQueue_, SystemClock::instance(),
               StderrLog::instance()) {}

AppDelegate::~AppDelegate() {
    // The stores outlive this object; what they report later has no one to
    // go to.
    health_.setListener(nullptr);
    // A read waiting on an application that does not answer must not hold
    // up the quit.
    platform_.pasteboard().interruptReads();
}

void AppDelegate::purgeSearchIndexSoon() {
    // The purge rewrites the whole index (seconds at 100,000 entries) and
    // holds the history meanwhile, so it waits for a quiet moment; whether
    // one is due at all is the store's cheap check.
    constexpr double quiet = 10;
    const std::uint64_t request = ++purgeRequest_;
    mainQueue_.postAfter(quiet, [this, request] {
        if (request != purgeRequest_)
            return;
        // A failure is logged by the store and the purge stays due.
        background_.run([this] { texts_.purgeSearchIndex(); });
    });
}

void AppDelegate::applicationDidFinishLaunching() {
    // Reported on the thread that saved (or failed to save) a copy.
    health_.setListener([this] { mainQueue_.post([this] { storageChanged(); }); });
    // Both files are checked (and a damaged one rebuilt, stray picture files
    // reclaimed) now, ahead of the first copy on the same thread, rather than
    // when the user first opens the history.
    background_.run([this] {
        texts_.open();
        images_.open();
    });
    // Until a server is set up in the settings, the backend has no account
    // and sync only reports that.
    backend_ = std::make_unique<SyncBackend>(
        defaults_, [this] { return platform_.openSecretStore(StderrLog::instance()); },
        StderrLog::instance());
    sync_ = std::make_unique<ClipCloudSync>(
        ClipCloudSync::Dependencies{backend_.get(), texts_, images_, defaults_,
                                    SystemClock::instance(), StderrLog::instance(), mainQueue_,
                                    syncExecutor_},
        ClipCloudSync::Role::mac);
    // Another device changed the history: the server's long-poll says so on
    // its own thread.
    backend_->setPushHandler([this](const std::string& subscription) {
        if (subscription == ClipCloudSync::subscriptionID)
            mainQueue_.post([this] { sync_->syncInBackground("push"); });
    });
    // Every local change keeps sync in its quick pace for two minutes and
    // asks for a sync once a burst of changes is over.
    texts_.didChangeLocally = [this] {
        mainQueue_.post([this] {
            pace_.fastUntil = SystemClock::instance().now() + SyncPace::fastWindow;
            sync_->syncSoon("local", 1.5);
            purgeSearchIndexSoon();
        });
    };

    if (PasteboardMonitor::migrateIgnoredApps(defaults_))
        StderrLog::instance().line(
            "[Zettly] the ignored applications no longer list macOS ids; yours are kept");
    monitor_ = std::make_unique<PasteboardMonitor>(PasteboardMonitor::Dependencies{
        platform_.pasteboard(), platform_.workspace(), mainQueue_, clipboardReads_, background_,
        texts_, images_, defaults_, SystemClock::instance(), StderrLog::instance()});
    monitor_->onSkipConsumed = [this] { updateIcon(); };
    monitor_->start();

    window_ = std::make_unique<PopupWindow>(&platform_.keyboardLayout(), &platform_.windowHints());
    popup_ = std::make_unique<PopupController>(
        PopupController::Dependencies{*window_, platform_.desktop(), mainQueue_, texts_, images_,
                                      *monitor_, defaults_, pace_, std::string(AppIdentifier),
                                      searchExecutor_},
        &chipTitle);
    popup_->texts = translatedPopupTexts();
    popup_->onQuit = [] { QCoreApplication::quit(); };
    popup_->onOpenSettings = [this] { openSettings(SettingsWindow::Tab::general); };
    popup_->onShowAbout = [this] { openSettings(SettingsWindow::Tab::about); };
    popup_->onCheckForUpdates = [this] { updater_.checkForUpdates(); };
    window_->pasteAutomatically = [this] { return ClipPrefs(defaults_).pasteAutomatically(); };
    window_->setUpdatesConfigured(updater_.configured());
    window_->setController(popup_.get());
    popup_->onOpened = [this] { sync_->syncInBackground("window"); };
    sync_->didChange = [this] {
        // What arrived is indexed for searching once the sync goes quiet.
        purgeSearchIndexSoon();
        popup_->cloudDidChange();
        if (settings_)
            settings_->cloudDidChange();
    };
    buildTrayMenu();
    connect(&tray_, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason r) {
        if (r == QSystemTrayIcon::Trigger)
            statusClicked(QGuiApplication::queryKeyboardModifiers());
    });
    // The desktop's answer about the shortcut shows in the tray's tooltip.
    registerHotKey();
    updateIcon();
    tray_.show();
    announceRemedy();
    if (!QSystemTrayIcon::isSystemTrayAvailable())
        // Without a tray the history is reached by the shortcut, by starting
        // Zettly again, or by `zettly --toggle`.
        StderrLog::instance().line(
            "[Zettly] this session shows no tray icons; start Zettly again or run "
            "zettly --toggle to open the history");

    updateSyncCadence();
    // The server named in the settings, set up on the sync thread ahead of
    // the launch sync that the same serial thread runs next.
    syncExecutor_.run([this] { backend_->reconfigure(); });
    sync_->syncInBackground("launch");

    // A background check that finds a release only marks it (tool tip, dot,
    // the history window's update row); the user decides when to look.
    updater_.notice().onChange = [this] {
        updateIcon();
        const auto& version = updater_.notice().version();
        window_->setUpdateVersion(version ? std::optional(QString::fromStdString(*version))
                                          : std::nullopt);
    };
    updater_.onUserCheckResult = [this](const UpdateCheckResult& result) {
        showUpdateResult(result);
    };
    updater_.start();
}

void AppDelegate::showUpdateResult(const UpdateCheckResult& result) {
    QMessageBox box;
    box.setIcon(QMessageBox::Information);
    //: Title of the dialog that answers "Check for Updates…".
    box.setWindowTitle(tr("Software Update"));
    QPushButton* download = nullptr;
    QPushButton* notes = nullptr;
    using Kind = UpdateCheckResult::Kind;
    switch (result.kind) {
        case Kind::newer:
            //: Update dialog. %1 is the new version number, e.g. 1.0.2.
            box.setText(tr("Zettly %1 is available.").arg(QString::fromStdString(result.version)));
            //: Update dialog: the version the user runs now. %1 is a version number.
            box.setInformativeText(tr("You have version %1.").arg(QStringLiteral(ZETTLY_VERSION)));
            if (!result.downloadUrl.empty())
                //: Update dialog button that opens the download in the browser.
                download = box.addButton(tr("Download"), QMessageBox::AcceptRole);
            if (!result.releaseNotesUrl.empty())
                //: Update dialog button that opens the release notes in the browser.
                notes = box.addButton(tr("Release Notes"), QMessageBox::HelpRole);
            //: Update dialog button that closes it without downloading.
            box.addButton(tr("Later"), QMessageBox::RejectRole);
            break;
        case Kind::upToDate:
            //: Update dialog when no newer version exists.
            box.setText(tr("You\u2019re up to date."));
            //: Update dialog. %1 is the version number the user runs.
            box.setInformativeText(tr("Zettly %1 is the newest version.").arg(ZETTLY_VERSION));
            break;
        case Kind::failed:
            box.setIcon(QMessageBox::Warning);
            //: Update dialog when the update feed could not be read.
            box.setText(tr("Zettly could not check for updates."));
            box.setInformativeText(QString::fromStdString(result.error));
            break;
        case Kind::notConfigured:
            //: Update dialog when this build has no update feed (e.g. installed from a
            //: distribution, which brings updates itself).
            box.setText(tr("Update checks are not set up for this copy of Zettly."));
            //: Update dialog: where updates come from instead.
            box.setInformativeText(tr("Updates come with your system's software updates."));
            break;
    }
    box.exec();
    if (box.clickedButton() && box.clickedButton() == download)
        QDesktopServices::openUrl(QUrl(QString::fromStdString(result.downloadUrl)));
    else if (box.clickedButton() && box.clickedButton() == notes)
        QDesktopServices::openUrl(QUrl(QString::fromStdString(result.releaseNotesUrl)));
    updater_.finishUpdateSession();
}

SettingsContext AppDelegate::settingsContext() {
    SettingsContext context{.defaults = defaults_, .texts = texts_, .images = images_};
    context.layout = &platform_.keyboardLayout();
    context.hotKeyChanged = [this] { registerHotKey(); };
    context.hotKeyState = [this] { return hotKeyState_; };
    context.desktopChoosesHotKey = [this] { return platform_.hotKey().desktopChoosesKey(); };
    context.openDesktopHotKeyDialog = [this] { platform_.hotKey().openDesktopDialog(); };
    context.limitations = [this] { return platform_.limitations(); };
    context.hasRemedy = [this](Limitation limitation) { return platform_.hasRemedy(limitation); };
    context.remedy = [this](Limitation limitation) { remedy(limitation); };
    // The button leaves out Zettly's own windows and the desktop's panels.
    context.runningApps = [this] { return platform_.workspace().runningApplications(); };
    context.syncSettingsChanged = [this] {
        updateSyncCadence();
        sync_->syncSoon("settings", 0.5);
    };
    auto secret = [](SyncSecret which) {
        return which == SyncSecret::password ? SyncBackend::Secret::password
                                             : SyncBackend::Secret::passphrase;
    };
    context.syncServer.readSecret = [this, secret](SyncSecret which) {
        return backend_->secret(secret(which));
    };
    context.syncServer.writeSecret = [this, secret](SyncSecret which, const std::string& value) {
        return backend_->setSecret(secret(which), value);
    };
    context.syncServer.secretsWhere = [this] { return backend_->secretsWhere(); };
    context.syncServer.urlProblem = [](const std::string& url) -> std::optional<std::string> {
        if (auto problem = couchUrlProblem(url))
            return SyncBackend::explain(*problem);
        return std::nullopt;
    };
    context.syncServer.testConnection = [this](std::function<void(bool, std::string)> done) {
        syncExecutor_.run([this, done = std::move(done)] {
            auto report = backend_->testConnection();
            mainQueue_.post([done, report] { done(report.ok, SyncBackend::explain(report)); });
        });
    };
    // On the sync thread, in order with the connection test that may follow.
    context.syncServer.changed = [this] {
        syncExecutor_.run([this] {
            backend_->reconfigure();
            sync_->accountMayHaveChanged();
        });
        sync_->syncSoon("settings", 0.5);
    };
    // On the sync thread, so that no pass runs with the old key meanwhile.
    context.syncServer.changePassphrase =
        [this](const std::string& passphrase,
               std::function<void(std::optional<std::string>)> done) {
            syncExecutor_.run([this, passphrase, done = std::move(done)] {
                auto outcome = backend_->changePassphrase(passphrase);
                if (outcome.serverChanged) {
                    sync_->serverStartedAfresh();
                    sync_->syncInBackground("passphrase");
                }
                mainQueue_.post([done, problem = outcome.problem] { done(problem); });
            });
        };
    context.deleteCloudCopy = [this](std::function<void(std::optional<std::string>)> done) {
        syncExecutor_.run([this, done = std::move(done)] {
            auto result = sync_->deleteCloudCopy();
            std::optional<std::string> error;
            if (!result)
                error = result.error().description;
            mainQueue_.post([done, error] { done(error); });
        });
    };
    if (updater_.configured()) {
        context.automaticUpdateChecks = [this] { return updater_.automaticallyChecks(); };
        context.setAutomaticUpdateChecks = [this](bool on) { updater_.setAutomaticallyChecks(on); };
        context.checkForUpdates = [this] { updater_.checkForUpdates(); };
    }
    context.autostart = &platform_.autostart();
    context.storageStatus = [this] { return health_.status(); };
    context.dialogTexts = translatedPopupTexts();
    return context;
}

void AppDelegate::openSettings(SettingsWindow::Tab tab) {
    if (!settings_)
        settings_ = std::make_unique<SettingsWindow>(settingsContext());
    settings_->open(tab);
}

void AppDelegate::buildTrayMenu() {
    // Some panels open the menu on any click and never report one, and
    // where the shortcut could not be had this may be the only way in.
    TrayMenu::Hooks hooks;
    hooks.newest = [this] { return TrayMenu::newestEntries(texts_, images_); };
    hooks.aboutToShow = [this] { popup_->rememberFrontWindow(); };
    // As if chosen in the history window: copied, and pasted into the
    // window in front when the user wants that.
    hooks.pick = [this](const PopupModel::Entry& entry) { popup_->pick(entry, false); };
    hooks.showHistory = [this] { showHistory(); };
    // Alt-click and Alt+Shift-click do the same, but not every panel passes
    // modifier keys on, and some window managers keep Alt-click for moving.
    hooks.togglePause = [this] { statusClicked(Qt::AltModifier); };
    hooks.skipNext = [this] { statusClicked(Qt::AltModifier | Qt::ShiftModifier); };
    hooks.openSettings = [this] { openSettings(SettingsWindow::Tab::general); };
    if (updater_.configured())
        hooks.checkForUpdates = [this] { updater_.checkForUpdates(); };
    hooks.quit = [] { QCoreApplication::quit(); };
    hooks.remedy = [this] {
        if (auto limitation = remedyLimitation())
            remedy(*limitation);
    };
    trayMenu_ = std::make_unique<TrayMenu>(std::move(hooks));
    tray_.setContextMenu(&trayMenu_->menu());
}

void AppDelegate::statusClicked(Qt::KeyboardModifiers modifiers) {
    if (!monitor_)
        return;
    bool alt = modifiers.testFlag(Qt::AltModifier);
    if (alt && modifiers.testFlag(Qt::ShiftModifier)) {
        monitor_->skipNext = true;
        updateIcon();
    } else if (alt) {
        monitor_->paused = !monitor_->paused;
        updateIcon();
    } else if (popup_) {
        popup_->toggle(trayAnchor());
    }
}

std::optional<popupgeometry::Anchor> AppDelegate::trayAnchor() const {
    // StatusNotifierItem hosts do not tell where the icon is (an empty
    // rectangle); the window then opens at the pointer, which is on the icon.
    QRect icon = tray_.geometry();
    QScreen* screen = icon.isValid() ? QGuiApplication::screenAt(icon.center()) : nullptr;
    if (!screen)
        return std::nullopt;
    return popupgeometry::Anchor{qtgeometry::fromQt(icon),
                                 qtgeometry::fromQt(screen->availableGeometry())};
}

void AppDelegate::registerHotKey() {
    // An answer about the shortcut before this one no longer holds.
    hotKeyState_ = HotKeyState{};
    if (settings_)
        settings_->sessionChanged();
    platform_.hotKey().bind(
        ClipPrefs(defaults_).hotKey(),
        [this] {
            if (popup_)
                popup_->toggle();
        },
        [this](const HotKeyState& state) {
            hotKeyState_ = state;
            updateIcon();
            if (settings_)
                settings_->sessionChanged();
        });
}

void AppDelegate::updateSyncCadence() {
    // With sync switched off a tick would find nothing to do: the idle app
    // then does not wake at all.
    if (!ClipPrefs(defaults_).clipboardCloudSync()) {
        pollTimer_.reset();
        return;
    }
    if (pollTimer_)
        return;
    pollTimer_ =
        mainQueue_.repeating(SyncCadence::tickInterval, SyncCadence::tickTolerance, [this] {
            if (cadence_.due(pace_, SystemClock::instance().now()))
                sync_->syncInBackground("timer");
        });
}

void AppDelegate::updateIcon() {
    bool paused = monitor_ && monitor_->paused;
    bool skip = monitor_ && monitor_->skipNext;
    const auto& update = updater_.notice().version();
    tray_.setIcon(trayIcon(paused ? TrayState::paused
                           : skip ? TrayState::skipNext
                                  : TrayState::normal,
                           update && !paused));
    QString tip;
    if (paused)
        //: Tooltip of the tray icon while saving is paused.
        tip = tr("Zettly is paused. Alt-click to resume.");
    else if (update)
        //: Tooltip of the tray icon when a new version was found. %1 is the version number,
        //: e.g. 1.0.2.
        tip = tr("Zettly %1 is available.").arg(QString::fromStdString(*update));
    else
        tip = QStringLiteral("Zettly");
    // Copies not being saved come first: they cost the user most.
    const QString storage = StoragePage::problemText(health_.status());
    if (!storage.isEmpty())
        tip += QLatin1Char('\n') + storage;
    // What does not work here stays in view until the session changes.
    const QStringList limits = limitationLines();
    if (!limits.isEmpty())
        tip += QLatin1Char('\n') + limits.join(QLatin1Char('\n'));
    tray_.setToolTip(tip);
    if (trayMenu_) {
        auto limitation = remedyLimitation();
        trayMenu_->setRemedyLabel(limitation ? GeneralPage::remedyLabel(*limitation) : QString());
        trayMenu_->setCaptureState(paused, skip);
    }
}

void AppDelegate::secondLaunch() {
    // Starting Zettly again (from the launcher) is a way to reach the history.
    showHistory();
}

void AppDelegate::showHistory() {
    if (popup_ && !popup_->isOpen())
        popup_->open();
}

void AppDelegate::toggleRequested() {
    if (popup_)
        popup_->toggle();
}

QStringList AppDelegate::limitationLines() const {
    QStringList lines;
    if (hotKeyState_.kind == HotKeyState::Kind::taken)
        //: Tray tooltip line when the shortcut could not be had. %1 is the shortcut, e.g. Alt+V.
        lines << tr("%1 is used by another application; choose another shortcut in Settings.")
                     .arg(ShortcutRecorder::displayText(ClipPrefs(defaults_).hotKey(),
                                                        &platform_.keyboardLayout()));
    // The same sentences as Settings › General, where the user can read on.
    lines << GeneralPage::limitationLines(platform_.limitations());
    return lines;
}

std::optional<Limitation> AppDelegate::remedyLimitation() const {
    for (Limitation limitation : platform_.limitations())
        if (platform_.hasRemedy(limitation) && !GeneralPage::remedyLabel(limitation).isEmpty())
            return limitation;
    return std::nullopt;
}

void AppDelegate::announceRemedy() {
    auto limitation = remedyLimitation();
    if (!limitation)
        return;
    const QStringList lines = GeneralPage::limitationLines({*limitation});
    const QString body = lines.isEmpty() ? QString() : lines.first();
    //: Title of the notification shown at start when Zettly's GNOME Shell extension is not
    //: running.
    const QString summary = tr("Zettly cannot see your copies");
    const QString label = GeneralPage::remedyLabel(*limitation);
    const Limitation which = *limitation;
    if (!notice_.show(summary, body, label, [this, which] { remedy(which); }))
        StderrLog::instance().line("[Zettly] no notification server to say: " + body.toStdString());
}

void AppDelegate::storageChanged() {
    updateIcon();
    if (settings_)
        settings_->storageChanged();
    for (const StoreHealth::Rescue& rescue : health_.takeRescues()) {
        const auto [summary, body] = StoragePage::rescueText(rescue);
        const QString folder = QString::fromStdString(rescue.aside.parent_path().string());
        //: Button of the notification about a damaged history file: opens the folder that
        //: holds it.
        if (!storageNotice_.show(summary, body, tr("Show File"), [folder] {
                QDesktopServices::openUrl(QUrl::fromLocalFile(folder));
            }))
            StderrLog::instance().line("[Zettly] no notification server to say: " +
                                       body.toStdString());
    }
}

void AppDelegate::remedy(Limitation limitation) {
    const RemedyResult result = platform_.remedy(limitation);
    if (!result.done) {
        QMessageBox box(QMessageBox::Warning,
                        //: Title of the message when turning on Zettly's GNOME Shell extension
                        //: (or opening the Extensions app) failed.
                        tr("Zettly"), GeneralPage::remedyLabel(limitation), QMessageBox::Ok);
        //: Message when turning on Zettly's GNOME Shell extension or opening the Extensions
        //: app failed. %1 is the reason, in English.
        box.setInformativeText(
            tr("That did not work: %1").arg(QString::fromStdString(result.error)));
        box.exec();
        return;
    }
    if (result.restart) {
        restart_ = true;
        QCoreApplication::quit();
        return;
    }
    updateIcon();
    if (settings_)
        settings_->sessionChanged();
}

void AppDelegate::applicationWillTerminate() {
    // Starting again is not the user's quit.
    if (restart_)
        return;
    if (!ClipPrefs(defaults_).clearOnQuit())
        return;
    texts_.clear(true);
    images_.clear(true);
}

}  // namespace zettly
