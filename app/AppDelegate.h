#pragma once

#include <QAction>
#include <QMenu>
#include <QObject>
#include <QSystemTrayIcon>
#include <memory>

#include "app/SyncBackend.h"
#include "capture/PasteboardMonitor.h"
#include "platform/AppFolders.h"
#include "platform/Autostart.h"
#include "platform/SerialExecutor.h"
#include "platform/linux/AppcastUpdater.h"
#include "platform/linux/QtMainQueue.h"
#include "platform/linux/X11Desktop.h"
#include "platform/linux/X11HotKey.h"
#include "platform/linux/X11Pasteboard.h"
#include "platform/linux/X11WindowHints.h"
#include "platform/linux/X11Workspace.h"
#include "platform/linux/XcbConnection.h"
#include "platform/linux/XkbKeyboardLayout.h"
#include "popup/PopupController.h"
#include "popup/ui/PopupWindow.h"
#include "settings/SettingsWindow.h"
#include "sync/ClipCloudSync.h"
#include "sync/SyncPace.h"

namespace zettly {

class ClipboardStore;
class Defaults;
class ImageClipStore;

// Wires the parts together at launch, owns the tray icon (normal, paused,
// skip-next) and its clicks, the history window and the global hot key, and
// clears the history on quit when asked to.
class AppDelegate final : public QObject {
    Q_OBJECT
public:
    AppDelegate(std::unique_ptr<XcbConnection> x11, Defaults& defaults, ClipboardStore& texts,
                ImageClipStore& images);
    ~AppDelegate() override;

    void applicationDidFinishLaunching();
    void applicationWillTerminate();
    // The user started Zettly again while it runs.
    void secondLaunch();

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

private:
    void buildTrayMenu();
    SettingsContext settingsContext();
    void showUpdateResult(const UpdateCheckResult& result);
    // Under the tray icon when the panel tells where it is.
    std::optional<popupgeometry::Anchor> trayAnchor() const;

    std::unique_ptr<XcbConnection> x11_;
    XdgAppFolders folders_;
    XdgAutostart autostart_ = XdgAutostart::forThisProcess();
    Defaults& defaults_;
    ClipboardStore& texts_;
    ImageClipStore& images_;
    QtMainQueue mainQueue_;
    SerialExecutor background_;
    X11Pasteboard pasteboard_;
    X11Workspace workspace_;
    X11Desktop desktop_;
    XkbKeyboardLayout layout_;
    X11WindowHints windowHints_;
    std::unique_ptr<PasteboardMonitor> monitor_;
    std::unique_ptr<PopupWindow> window_;
    std::unique_ptr<PopupController> popup_;
    std::unique_ptr<X11HotKey> hotKey_;
    std::unique_ptr<SyncBackend> backend_;
    std::unique_ptr<ClipCloudSync> sync_;
    std::unique_ptr<SettingsWindow> settings_;
    AppcastUpdater updater_;
    std::unique_ptr<Timer> pollTimer_;
    SyncCadence cadence_;
    // Declared after sync_ so that it goes first: its thread finishes the
    // pass in flight while the engine still exists.
    SerialExecutor syncExecutor_;
    QSystemTrayIcon tray_;
    QMenu trayMenu_;
    QAction* pauseAction_ = nullptr;
    QAction* skipAction_ = nullptr;
    QAction* updatesAction_ = nullptr;
};

}  // namespace zettly
