#include "platform/gnome/ShellExtensions.h"

#include <QDBusMessage>
#include <QDBusReply>
#include <QProcess>
#include <QThread>
#include <QVariantMap>

#include "platform/Log.h"
#include "platform/gnome/ShellBridge.h"

namespace zettly::shellextensions {

namespace {

QDBusMessage extensionsCall(const char* method) {
    return QDBusMessage::createMethodCall(
        QStringLiteral("org.gnome.Shell"), QStringLiteral("/org/gnome/Shell"),
        QStringLiteral("org.gnome.Shell.Extensions"), QString::fromLatin1(method));
}

}  // namespace

State state(const QDBusConnection& bus) {
    QDBusMessage message = extensionsCall("GetExtensionInfo");
    message << QString::fromLatin1(ShellBridge::uuid);
    QDBusMessage reply = bus.call(message, QDBus::Block, 3000);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return State::missing;
    const QVariantMap info = qdbus_cast<QVariantMap>(reply.arguments().at(0));
    if (info.isEmpty())
        return State::missing;
    // The Shell's numbers, the same from GNOME 43 to 50: 1 running; 2 off;
    // 3 error; 4 out of date; 6 loaded but never turned on; 7 and 8 on the
    // way off or on; 99 uninstalled.
    switch (info.value(QStringLiteral("state")).toInt()) {
        case 1:
            return State::on;
        case 2:
        case 6:
        case 7:
        case 8:
            return State::off;
        case 3:
        case 4:
            return State::failed;
        default:
            return State::missing;
    }
}

std::optional<Limitation> limitationFor(State state) {
    switch (state) {
        case State::on:
            return std::nullopt;
        case State::off:
            return Limitation::shellExtensionOff;
        case State::missing:
            return Limitation::shellExtensionMissing;
        case State::failed:
            return Limitation::shellExtensionFailed;
    }
    return std::nullopt;
}

RemedyResult turnOn(const QDBusConnection& bus, Log& log) {
    QDBusMessage message = extensionsCall("EnableExtension");
    message << QString::fromLatin1(ShellBridge::uuid);
    QDBusMessage reply = bus.call(message, QDBus::Block, 5000);
    if (reply.type() != QDBusMessage::ReplyMessage) {
        log.line("[Zettly] GNOME Shell did not turn on Zettly's extension (" +
                 reply.errorMessage().toStdString() + ")");
        return {false, false, reply.errorMessage().toStdString()};
    }
    // The Shell turns it on as it answers, unless the user switched all
    // extensions off in the Extensions app.
    for (int i = 0; i < 20 && state(bus) != State::on; ++i)
        QThread::msleep(100);
    if (state(bus) != State::on) {
        log.line("[Zettly] GNOME Shell accepted but did not start Zettly's extension");
        return {false, false,
                "GNOME Shell did not start the extension. Check in the Extensions app that "
                "extensions are switched on."};
    }
    log.line("[Zettly] Zettly's GNOME Shell extension is on; starting again to use it");
    return {true, true, {}};
}

RemedyResult openExtensionsApp(const QDBusConnection& bus, Log& log) {
    // A D-Bus activatable application: the bus starts it.
    QDBusMessage activate = QDBusMessage::createMethodCall(
        QStringLiteral("org.gnome.Extensions"), QStringLiteral("/org/gnome/Extensions"),
        QStringLiteral("org.freedesktop.Application"), QStringLiteral("Activate"));
    activate << QVariantMap{};
    QDBusMessage reply = bus.call(activate, QDBus::Block, 5000);
    if (reply.type() == QDBusMessage::ReplyMessage)
        return {true, false, {}};
    if (QProcess::startDetached(QStringLiteral("gnome-extensions-app"), {}))
        return {true, false, {}};
    log.line("[Zettly] could not open GNOME's Extensions app (" +
             reply.errorMessage().toStdString() + ")");
    return {false, false,
            "The Extensions app is not installed (Debian and Ubuntu: "
            "gnome-shell-extension-prefs)."};
}

}  // namespace zettly::shellextensions
