#include "settings/RunningAppsButton.h"

#include <QAction>
#include <QMenu>
#include <set>
#include <utility>

namespace zettly {

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
    setPopupMode(QToolButton::InstantPopup);
    setMenu(menu_);
    setVisible(static_cast<bool>(runningApps_));
    connect(menu_, &QMenu::aboutToShow, this, [this] { fill(); });
}

void RunningAppsButton::fill() {
    menu_->clear();
    if (!runningApps_)
        return;
    // One entry per application; a browser with six windows is one choice.
    std::set<std::string> seen;
    for (const RunningApp& app : runningApps_()) {
        if (app.appId.empty() || !seen.insert(app.appId).second)
            continue;
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
