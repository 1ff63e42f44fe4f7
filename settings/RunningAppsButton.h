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

Q_SIGNALS:
    void picked(const QString& appId);

private:
    void fill();

    std::function<std::vector<RunningApp>()> runningApps_;
    std::function<bool(const std::string&)> listed_;
    QMenu* menu_;
};

}  // namespace zettly
