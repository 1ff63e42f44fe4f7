#include "app/AppDelegate.h"

#include <QApplication>
#include <QGuiApplication>
#include <QScreen>

#include "app/TrayIcons.h"
#include "platform/Clock.h"
#include "platform/Log.h"
#include "platform/linux/QtGeometry.h"
#include "popup/ui/Texts.h"
#include "store/AppGroup.h"
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
      workspace_(*x11_),
      desktop_(*x11_, std::string(AppIdentifier)),
      layout_(*x11_) {}

AppDelegate::~AppDelegate() = default;

void AppDelegate::applicationDidFinishLaunching() {
    // No sync backend is configured yet: the engine then reports sync as off
    // and does nothing else.
    sync_ = std::make_unique<ClipCloudSync>(
        ClipCloudSync::Dependencies{nullptr, texts_, images_, defaults_, SystemClock::instance(),
                                    StderrLog::instance(), mainQueue_, syncExecutor_},
        ClipCloudSync::Role::mac);
    // Every local change keeps sync in its quick pace for two minutes and
    // asks for a sync once a burst of changes is over.
    texts_.didChangeLocally = [this] {
        mainQueue_.post([this] {
            SyncPace::shared().fastUntil = SystemClock::instance().now() + SyncPace::fastWindow;
            sync_->syncSoon("local", 1.5);
        });
    };

    monitor_ = std::make_unique<PasteboardMonitor>(
        PasteboardMonitor::Dependencies{pasteboard_, workspace_, mainQueue_, background_, texts_,
                                        images_, defaults_, StderrLog::instance()});
    monitor_->onSkipConsumed = [this] { updateIcon(); };
    monitor_->start();

    window_ = std::make_unique<PopupWindow>(&layout_);
    popup_ = std::make_unique<PopupController>(
        PopupController::Dependencies{*window_, desktop_, mainQueue_, texts_, images_, *monitor_,
                                      defaults_, std::string(AppIdentifier)},
        &chipTitle);
    popup_->texts = translatedPopupTexts();
    popup_->onQuit = [] { QCoreApplication::quit(); };
    window_->pasteAutomatically = [this] { return ClipPrefs(defaults_).pasteAutomatically(); };
    window_->setController(popup_.get());
    popup_->onOpened = [this] { sync_->syncInBackground("window"); };
    sync_->didChange = [this] { popup_->cloudDidChange(); };
    registerHotKey();

    buildTrayMenu();
    connect(&tray_, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason r) {
        if (r == QSystemTrayIcon::Trigger)
            statusClicked(QGuiApplication::queryKeyboardModifiers());
    });
    updateIcon();
    tray_.show();

    pollTimer_ =
        mainQueue_.repeating(SyncCadence::tickInterval, SyncCadence::tickTolerance, [this] {
            if (cadence_.due(SyncPace::shared(), SystemClock::instance().now()))
                sync_->syncInBackground("timer");
        });
    sync_->syncInBackground("launch");
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
    // Made before the old one goes, so an unchanged shortcut never lapses.
    hotKey_ = std::make_unique<X11HotKey>(
        ClipPrefs(defaults_).hotKey(),
        [this] {
            if (popup_)
                popup_->toggle();
        },
        layout_, StderrLog::instance());
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
    // Starting Zettly again (from the launcher) is a way to reach the history.
    if (popup_ && !popup_->isOpen())
        popup_->open();
}

void AppDelegate::applicationWillTerminate() {
    if (!ClipPrefs(defaults_).clearOnQuit())
        return;
    texts_.clear(true);
    images_.clear(true);
}

}  // namespace zettly
