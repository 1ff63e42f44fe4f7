#include "settings/RunningAppsButton.h"

#include <QAction>
#include <QCoreApplication>
#include <QGuiApplication>
#include <QMenu>
#include <algorithm>
#include <cctype>
#include <set>
#include <string_view>
#include <utility>

#include "platform/AppFolders.h"

namespace zettly {
namespace {

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// Panels, docks, desktop-icon windows and window managers that list
// themselves as windows: app ids and WM_CLASS names, in lower case.
bool isDesktopShell(const std::string& appId) {
    static const std::set<std::string, std::less<>> shells = {
        // Xfce; "wrapper-2.0" holds the panel's plugins.
        "xfce4-panel", "xfdesktop", "xfwm4", "xfce4-notifyd", "wrapper-2.0",
        // KDE and GNOME.
        "plasmashell", "org.kde.plasmashell", "kwin", "kwin_x11", "kwin_wayland", "gnome-shell",
        "org.gnome.shell", "mutter",
        // Desktop icons of file managers.
        "desktop", "nemo-desktop", "pcmanfm-desktop",
        // Panels, docks and window managers of lighter sessions.
        "tint2", "lxpanel", "lxqt-panel", "mate-panel", "marco", "budgie-panel", "polybar",
        "waybar", "plank", "cairo-dock", "conky", "openbox", "fluxbox", "icewm"};
    return shells.contains(lowered(appId));
}

}  // namespace

std::vector<RunningApp> RunningAppsButton::offered(std::vector<RunningApp> apps,
                                                   const std::vector<std::string>& ownIds) {
    std::set<std::string> own;
    for (const std::string& id : ownIds)
        if (!id.empty())
            own.insert(lowered(id));
    // One entry per application; a browser with six windows is one choice.
    std::set<std::string> seen;
    std::erase_if(apps, [&](const RunningApp& app) {
        return app.appId.empty() || own.contains(lowered(app.appId)) || isDesktopShell(app.appId) ||
               !seen.insert(app.appId).second;
    });
    return apps;
}

RunningAppsButton::RunningAppsButton(std::function<std::vector<RunningApp>()> runningApps,
                                     std::function<bool(const std::string& appId)> listed,
                                     QWidget* parent)
    : QToolButton(parent),
      runningApps_(std::move(runningApps)),
      listed_(std::move(listed)),
      menu_(new QMenu(this)) {
    //: Settings › Ignore and Settings › General › paste keys: button with a menu of the open
    //: windows, to pick an application from.
    setText(tr("Open Windows"));
    // The arrow gets a part of its own: drawn over the text of a button that
    // opens its menu at once, it hides the end of a longer translation.
    setPopupMode(QToolButton::MenuButtonPopup);
    setToolButtonStyle(Qt::ToolButtonTextOnly);
    setMenu(menu_);
    connect(this, &QToolButton::clicked, this, &QToolButton::showMenu);
    setVisible(static_cast<bool>(runningApps_));
    connect(menu_, &QMenu::aboutToShow, this, [this] { fill(); });
}

void RunningAppsButton::fill() {
    menu_->clear();
    if (!runningApps_)
        return;
    const std::vector<std::string> ownIds = {std::string(AppIdentifier),
                                             QCoreApplication::applicationName().toStdString(),
                                             QGuiApplication::desktopFileName().toStdString()};
    for (const RunningApp& app : offered(runningApps_(), ownIds)) {
        const QString id = QString::fromStdString(app.appId);
        QString title = QString::fromStdString(app.title);
        title.replace(QLatin1Char('&'), QStringLiteral("&&"));
        //: The open-windows menu (Settings › Ignore, paste keys): an entry with the window's
        //: title, then the application id.
        const QString text = title.isEmpty() ? id : tr("%1 \u2014 %2").arg(title, id);
        QAction* action = menu_->addAction(text);
        if (listed_ && listed_(app.appId)) {
            // Shown ticked so the user sees it is covered.
            action->setCheckable(true);
            action->setChecked(true);
            action->setEnabled(false);
        } else {
            connect(action, &QAction::triggered, this, [this, id] { Q_EMIT picked(id); });
        }
    }
    if (menu_->isEmpty())
        //: The open-windows menu when no window could be listed.
        menu_->addAction(tr("No windows found"))->setEnabled(false);
}

}  // namespace zettly
