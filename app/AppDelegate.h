#pragma once

#include <QAction>
#include <QMenu>
#include <QObject>
#include <QSystemTrayIcon>
#include <memory>

#include "capture/PasteboardMonitor.h"
#include "platform/SerialExecutor.h"
#include "platform/linux/QtMainQueue.h"
#include "platform/linux/X11Pasteboard.h"
#include "platform/linux/X11Workspace.h"
#include "platform/linux/XcbConnection.h"

namespace zettly {

class ClipboardStore;
class Defaults;
class ImageClipStore;

// Wires the parts together at launch, owns the tray icon (normal, paused,
// skip-next) and its clicks, and clears the history on quit when asked to.
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

private:
    void buildTrayMenu();

    std::unique_ptr<XcbConnection> x11_;
    Defaults& defaults_;
    ClipboardStore& texts_;
    ImageClipStore& images_;
    QtMainQueue mainQueue_;
    SerialExecutor background_;
    X11Pasteboard pasteboard_;
    X11Workspace workspace_;
    std::unique_ptr<PasteboardMonitor> monitor_;
    QSystemTrayIcon tray_;
    QMenu trayMenu_;
    QAction* pauseAction_ = nullptr;
    QAction* skipAction_ = nullptr;
};

}  // namespace zettly
