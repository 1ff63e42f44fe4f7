#include "app/AppDelegate.h"

#include <QApplication>
#include <QGuiApplication>

#include "app/TrayIcons.h"
#include "platform/Clock.h"
#include "platform/Log.h"
#include "store/ClipPrefs.h"
#include "store/ClipboardStore.h"
#include "store/ImageClipStore.h"
#include "sync/SyncPace.h"

namespace zettly {

AppDelegate::AppDelegate(std::unique_ptr<XcbConnection> x11, Defaults& defaults,
                         ClipboardStore& texts, ImageClipStore& images)
    : x11_(std::move(x11)),
      defaults_(defaults),
      texts_(texts),
      images_(images),
      pasteboard_(*x11_),
      workspace_(*x11_) {}

AppDelegate::~AppDelegate() = default;

void AppDelegate::applicationDidFinishLaunching() {
    // Every local change keeps sync in its quick pace for two minutes.
    MainQueue& queue = mainQueue_;
    texts_.didChangeLocally = [&queue] {
        queue.post([] {
            SyncPace::shared().fastUntil = SystemClock::instance().now() + SyncPace::fastWindow;
        });
    };

    monitor_ = std::make_unique<PasteboardMonitor>(
        PasteboardMonitor::Dependencies{pasteboard_, workspace_, mainQueue_, background_, texts_,
                                        images_, defaults_, StderrLog::instance()});
    monitor_->onSkipConsumed = [this] { updateIcon(); };
    monitor_->start();

    buildTrayMenu();
    connect(&tray_, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason r) {
        if (r == QSystemTrayIcon::Trigger)
            statusClicked(QGuiApplication::queryKeyboardModifiers());
    });
    updateIcon();
    tray_.show();
}

void AppDelegate::buildTrayMenu() {
    // Alt-click and Alt+Shift-click do the same, but not every panel passes
    // modifier keys on, so the menu offers them too.
    pauseAction_ = trayMenu_.addAction(QString());
    connect(pauseAction_, &QAction::triggered, this, [this] { statusClicked(Qt::AltModifier); });
    skipAction_ = trayMenu_.addAction(
        //: Tray menu item: do not save the next copy (Alt+Shift-click does the same).
        tr("Skip Next Copy"));
    connect(skipAction_, &QAction::triggered, this,
            [this] { statusClicked(Qt::AltModifier | Qt::ShiftModifier); });
    trayMenu_.addSeparator();
    //: Tray menu item that quits the application.
    connect(trayMenu_.addAction(tr("Quit Zettly")), &QAction::triggered, qApp,
            &QCoreApplication::quit);
    tray_.setContextMenu(&trayMenu_);
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
    }
    // A plain click opens the history window, which arrives with it.
}

void AppDelegate::updateIcon() {
    bool paused = monitor_ && monitor_->paused;
    bool skip = monitor_ && monitor_->skipNext;
    tray_.setIcon(trayIcon(paused ? TrayState::paused
                           : skip ? TrayState::skipNext
                                  : TrayState::normal));
    tray_.setToolTip(paused ?
                            //: Tooltip of the tray icon while saving is paused.
                         tr("Zettly is paused. Alt-click to resume.")
                            : QStringLiteral("Zettly"));
    pauseAction_->setText(
        paused ?
               //: Tray menu item that resumes saving copies.
            tr("Resume Capture")
               //: Tray menu item that pauses saving copies (Alt-click does the same).
               : tr("Pause Capture"));
    skipAction_->setEnabled(!skip);
}

void AppDelegate::secondLaunch() {
    // Until the history window exists, say that Zettly is already running.
    if (QSystemTrayIcon::supportsMessages() && tray_.isVisible())
        //: Notification when Zettly is started a second time.
        tray_.showMessage(QStringLiteral("Zettly"), tr("Zettly is already running."));
}

void AppDelegate::applicationWillTerminate() {
    if (!ClipPrefs(defaults_).clearOnQuit())
        return;
    texts_.clear(true);
    images_.clear(true);
}

}  // namespace zettly
