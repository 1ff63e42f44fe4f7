#pragma once

#include <QObject>
#include <QString>
#include <functional>

namespace zettly {

// One notification through the desktop's notification server
// (org.freedesktop.Notifications), with at most one button. Where a tray
// icon cannot show it (GNOME has no tray without an extension), this still
// reaches the user. A session without a notification server logs it.
class DesktopNotice final : public QObject {
    Q_OBJECT
public:
    explicit DesktopNotice(QObject* parent = nullptr);

    // `action` runs on the main thread when the user presses the button
    // labelled `actionLabel` (none without a label). False when no server
    // took the notification.
    bool show(const QString& summary, const QString& body, const QString& actionLabel,
              std::function<void()> action);

private slots:
    void onActionInvoked(uint id, const QString& key);

private:
    uint id_ = 0;
    std::function<void()> action_;
};

}  // namespace zettly
