#pragma once

#include <QObject>
#include <QSystemTrayIcon>
#include <memory>

#include "app/DesktopNotice.h"
#include "app/SyncBackend.h"
#include "app/TrayMenu.h"
#include "capture/PasteboardMonitor.h"
#include "platform/GlobalHotKey.h"
#include "platform/Platform.h"
#include "platform/SerialExecutor.h"
#include "platform/linux/AppcastUpdater.h"
#include "popup/PopupController.h"
#include "popup/ui/PopupWindow.h"
#include "settings/SettingsWindow.h"
#include "settings/ShortcutRecorder.h"
#include "sync/ClipCloudSync.h"
#include "sync/SyncPace.h"

namespace zettly {

class ClipboardStore;
class Defaults;
class ImageClipStore;
class StoreHealth;

// Wires the parts together at launch from the session's platform services,
// owns the tray icon (normal, paused, skip-next) and its clicks, the history
// window and the global hot key, says what the session cannot do and when
// copies cannot be saved, and clears the history on quit when asked to.
class AppDelegate final : public QObject {
    Q_OBJECT
public:
    AppDelegate(Platform& platform, Defaults& defaults, ClipboardStore& texts,
                ImageClipStore& images, StoreHealth& health);
    ~AppDelegate() override;

    void applicationDidFinishLaunching();
    void applicationWillTerminate();
    // The user started Zettly again while it runs: the history window opens.
    void secondLaunch();
    // `zettly --toggle`, bound to a key in the desktop's own settings where
    // Zettly cannot hold a shortcut itself.
    void toggleRequested();

    // A left click on the tray icon, with the modifiers held at the time.
    void statusClicked(Qt::KeyboardModifiers modifiers);
    void updateIcon();

    PasteboardMonitor& monitor() { return *monitor_; }
    PopupController& popup() { return *popup_; }
    ClipCloudSync& cloudSync() { return *sync_; }

    // Registers the stored shortcut (again, after the settings changed it).
    void registerHotKey();
    // Made on first use: most sessions never open it.
    void openSettings(SettingsWindow::Tab tab);
    SettingsWindow* settingsWindow() const { return settings_.get(); }

    // Takes the step the platform offers against `limitation` (turning on
    // Zettly's GNOME Shell extension) and tells the user when it failed.
    void remedy(Limitation limitation);
    // A step asked for Zettly to start again once it has quit.
    bool restartRequested() const { return restart_; }

private:
    void buildTrayMenu();
    // Where the shortcut would put it; an open window stays as it is.
    void showHistory();
    // The sync cadence timer runs while sync is switched on.
    void updateSyncCadence();
    SettingsContext settingsContext();
    void showUpdateResult(const UpdateCheckResult& result);
    // What the session cannot do, in the user's words: one line each.
    QStringList limitationLines() const;
    // The first limitation that has a step against it.
    std::optional<Limitation> remedyLimitation() const;
    // Says once, in a notification, what is wrong and offers the step.
    void announceRemedy();
    // The stores' health changed: tooltip and Settings › Storage follow, and
    // a history file that had to be rebuilt or moved aside is told once.
    void storageChanged();
    // Under the tray icon when the panel tells where it is.
    std::optional<popupgeometry::Anchor> trayAnchor() const;
    // Once the history has been left alone for a while, removes from the
    // search index what deletions left there (only when one is due).
    void purgeSearchIndexSoon();

    Platform& platform_;
    Defaults& defaults_;
    ClipboardStore& texts_;
    ImageClipStore& images_;
    StoreHealth& health_;
    MainQueue& mainQueue_;
    SyncPace pace_;
    SerialExecutor background_;
    // The newest request to purge the search index; an older one that comes
    // due finds it changed and leaves the purge to the newer.
    std::uint64_t purgeRequest_ = 0;
    std::unique_ptr<PasteboardMonitor> monitor_;
    // After the monitor: it goes first, finishing the read under way while
    // the monitor's stores still exist.
    SerialExecutor clipboardReads_;
    // The history window's search; before the window, which goes first and
    // stops its search, and the thread then finishes the slice in flight.
    SerialExecutor searchExecutor_;
    std::unique_ptr<PopupWindow> window_;
    std::unique_ptr<PopupController> popup_;
    HotKeyState hotKeyState_;
    std::unique_ptr<SyncBackend> backend_;
    std::unique_ptr<ClipCloudSync> sync_;
    std::unique_ptr<SettingsWindow> settings_;
    AppcastUpdater updater_;
    std::unique_ptr<Timer> pollTimer_;
    SyncCadence cadence_;
    // Declared after sync_ so that it goes first: its thread finishes the
    // pass in flight while the engine still exists.
    SerialExecutor syncExecutor_;
    // Before the icon, which shows it: the icon goes first.
    std::unique_ptr<TrayMenu> trayMenu_;
    QSystemTrayIcon tray_;
    DesktopNotice notice_;
    // Its own, so that it does not replace the notice above.
    DesktopNotice storageNotice_;
    bool restart_ = false;
};

}  // namespace zettly
