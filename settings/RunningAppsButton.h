#pragma once

#include <QToolButton>
#include <functional>
#include <string>
#include <vector>

#include "platform/Pasteboard.h"

class QMenu;

namespace zettly {

// "Open Windows": a button whose menu lists the applications that have a
// window open, so the user can pick one instead of typing its id. The menu
// is filled each time it opens; applications already in the caller's list
// are shown ticked and cannot be picked again. Hidden when the app cannot
// list windows.
class RunningAppsButton : public QToolButton {
    Q_OBJECT
public:
    RunningAppsButton(std::function<std::vector<RunningApp>()> runningApps,
                      std::function<bool(const std::string& appId)> listed,
                      QWidget* parent = nullptr);

    // The windows worth offering: one entry per application, none of
    // Zettly's own (`ownIds`, compared without case: the app id and the
    // WM_CLASS Qt gives its windows), and none of the desktop's panels,
    // docks, desktop icons or window manager, whose copies are never the
    // user's to ignore.
    static std::vector<RunningApp> offered(std::vector<RunningApp> apps,
                                           const std::vector<std::string>& ownIds);

Q_SIGNALS:
    void picked(const QString& appId);

private:
    void fill();

    std::function<std::vector<RunningApp>()> runningApps_;
    std::function<bool(const std::string&)> listed_;
    QMenu* menu_;
};

}  // namespace zettly
