#include "app/DesktopNotice.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QVariantMap>

namespace zettly {

namespace {

const QString kService = QStringLiteral("org.freedesktop.Notifications");
const QString kPath = QStringLiteral("/org/freedesktop/Notifications");
const QString kActionKey = QStringLiteral("remedy");

}  // namespace

DesktopNotice::DesktopNotice(QObject* parent) : QObject(parent) {
    QDBusConnection::sessionBus().connect(kService, kPath, kService,
                                          QStringLiteral("ActionInvoked"), this,
                                          SLOT(onActionInvoked(uint, QString)));
}

bool DesktopNotice::show(const QString& summary, const QString& body, const QString& actionLabel,
                         std::function<void()> action) {
    QDBusMessage notify =
        QDBusMessage::createMethodCall(kService, kPath, kService, QStringLiteral("Notify"));
    QStringList actions;
    if (!actionLabel.isEmpty())
        actions << kActionKey << actionLabel;
    // Stays until the user deals with it: it asks for a step.
    QVariantMap hints{{QStringLiteral("desktop-entry"), QStringLiteral("org.zettly.Zettly")},
                      {QStringLiteral("urgency"), QVariant::fromValue<uchar>(1)}};
    notify << QStringLiteral("Zettly") << id_ << QStringLiteral("org.zettly.Zettly") << summary
           << body << actions << hints << 0;
    QDBusMessage reply = QDBusConnection::sessionBus().call(notify, QDBus::Block, 3000);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return false;
    id_ = reply.arguments().at(0).toUInt();
    action_ = std::move(action);
    return true;
}

void DesktopNotice::onActionInvoked(uint id, const QString& key) {
    if (id == id_ && key == kActionKey && action_)
        action_();
}

}  // namespace zettly
