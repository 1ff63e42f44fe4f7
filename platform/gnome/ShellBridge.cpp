#include "platform/gnome/ShellBridge.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusServiceWatcher>
#include <QDBusUnixFileDescriptor>

#include "platform/Log.h"

namespace zettly {

namespace {

// The Shell answers from its main loop; anything slower is a Shell in
// trouble, and the history window must not wait on it.
constexpr int kCallTimeoutMs = 1000;
// Hello is the first call after the Shell started the extension: give a
// session that is still starting up more time.
constexpr int kHelloTimeoutMs = 5000;

}  // namespace

ShellBridge::ShellBridge(QDBusConnection bus, Log& log) : bus_(std::move(bus)), log_(log) {
    auto* watcher = new QDBusServiceWatcher(QString::fromLatin1(service), bus_,
                                            QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(watcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString&, const QString&, const QString& newOwner) {
                emit presenceChanged(!newOwner.isEmpty());
            });
    const QString svc = QString::fromLatin1(service), obj = QString::fromLatin1(path),
                  ifc = QString::fromLatin1(interface);
    bus_.connect(svc, obj, ifc, QStringLiteral("ClipboardChanged"), this,
                 SLOT(onClipboardChanged(quint64, QStringList)));
    bus_.connect(svc, obj, ifc, QStringLiteral("HotKeyActivated"), this, SLOT(onHotKeyActivated()));
}

QDBusMessage ShellBridge::method(const char* name) const {
    return QDBusMessage::createMethodCall(QString::fromLatin1(service), QString::fromLatin1(path),
                                          QString::fromLatin1(interface),
                                          QString::fromLatin1(name));
}

std::optional<QDBusMessage> ShellBridge::call(QDBusMessage message) {
    const QString name = message.member();
    QDBusMessage reply = bus_.call(message, QDBus::Block, kCallTimeoutMs);
    if (reply.type() == QDBusMessage::ReplyMessage) {
        failedMethods_.removeAll(name);
        return reply;
    }
    // Once per method until it works again: a Shell that went away would
    // otherwise fill the log on every copy.
    if (!failedMethods_.contains(name)) {
        failedMethods_ << name;
        log_.line("[Zettly] GNOME Shell extension: " + name.toStdString() + " failed (" +
                  reply.errorName().toStdString() + ": " + reply.errorMessage().toStdString() +
                  ")");
    }
    return std::nullopt;
}

ShellBridge::Greeting ShellBridge::hello() {
    QDBusMessage reply = bus_.call(method("Hello"), QDBus::Block, kHelloTimeoutMs);
    Greeting greeting;
    if (reply.type() != QDBusMessage::ReplyMessage) {
        greeting.errorName = reply.errorName();
        greeting.error = reply.errorMessage();
        return greeting;
    }
    const QList<QVariant> args = reply.arguments();
    greeting.ok = true;
    if (args.size() >= 2)
        greeting.shellVersion = args.at(1).toString();
    return greeting;
}

std::optional<ShellBridge::Clipboard> ShellBridge::clipboard() {
    auto reply = call(method("GetClipboard"));
    if (!reply || reply->arguments().size() < 2)
        return std::nullopt;
    Clipboard out;
    out.serial = reply->arguments().at(0).toULongLong();
    for (const QString& type : reply->arguments().at(1).toStringList())
        out.types.push_back(type.toStdString());
    return out;
}

bool ShellBridge::readClipboard(const std::string& type, std::uint32_t maxBytes, int writeEnd) {
    QDBusMessage message = method("ReadClipboard");
    message << QString::fromStdString(type) << maxBytes
            << QVariant::fromValue(QDBusUnixFileDescriptor(writeEnd));
    return bus_.send(message);
}

std::optional<std::uint64_t> ShellBridge::setClipboard(const std::string& type,
                                                       const QByteArray& data) {
    QDBusMessage message = method("SetClipboard");
    message << QString::fromStdString(type) << data;
    auto reply = call(message);
    if (!reply || reply->arguments().isEmpty())
        return std::nullopt;
    return reply->arguments().at(0).toULongLong();
}

std::optional<ShellBridge::Window> ShellBridge::focusedWindow() {
    auto reply = call(method("GetFocusedWindow"));
    if (!reply || reply->arguments().size() < 2)
        return std::nullopt;
    Window window;
    window.id = reply->arguments().at(0).toULongLong();
    window.appId = reply->arguments().at(1).toString();
    if (window.id == 0)
        return std::nullopt;
    return window;
}

std::vector<ShellBridge::Window> ShellBridge::windows() {
    std::vector<Window> out;
    auto reply = call(method("ListWindows"));
    if (!reply || reply->arguments().isEmpty())
        return out;
    const auto list = reply->arguments().at(0).value<QDBusArgument>();
    list.beginArray();
    while (!list.atEnd()) {
        Window window;
        list.beginStructure();
        list >> window.appId >> window.title;
        list.endStructure();
        out.push_back(window);
    }
    list.endArray();
    return out;
}

void ShellBridge::activateWindow(std::uint64_t id) {
    QDBusMessage message = method("ActivateWindow");
    message << static_cast<qulonglong>(id);
    call(message);
}

std::optional<QPoint> ShellBridge::pointer() {
    auto reply = call(method("GetPointer"));
    if (!reply || reply->arguments().size() < 2)
        return std::nullopt;
    return QPoint(reply->arguments().at(0).toInt(), reply->arguments().at(1).toInt());
}

std::vector<ShellBridge::Monitor> ShellBridge::monitors() {
    std::vector<Monitor> out;
    auto reply = call(method("GetMonitors"));
    if (!reply || reply->arguments().isEmpty())
        return out;
    const auto list = reply->arguments().at(0).value<QDBusArgument>();
    list.beginArray();
    while (!list.atEnd()) {
        int v[8];
        list.beginStructure();
        for (int& value : v)
            list >> value;
        list.endStructure();
        out.push_back({QRect(v[0], v[1], v[2], v[3]), QRect(v[4], v[5], v[6], v[7])});
    }
    list.endArray();
    return out;
}

void ShellBridge::placeWindow(const QString& title, QPoint topLeft) {
    QDBusMessage message = method("PlaceWindow");
    message << title << topLeft.x() << topLeft.y();
    call(message);
}

void ShellBridge::paste(std::uint64_t id, const std::vector<std::uint32_t>& keyvals) {
    QDBusMessage message = method("Paste");
    QList<uint> keys(keyvals.begin(), keyvals.end());
    message << static_cast<qulonglong>(id) << QVariant::fromValue(keys);
    // The extension waits for the user to let go of the keys first, which
    // may take longer than the window should wait: the answer is only
    // looked at for a failure.
    auto* watcher = new QDBusPendingCallWatcher(bus_.asyncCall(message, 5000), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* w) {
        w->deleteLater();
        if (w->isError())
            log_.line("[Zettly] GNOME Shell extension: the paste keys failed (" +
                      w->error().name().toStdString() + ": " + w->error().message().toStdString() +
                      ")");
    });
}

std::optional<bool> ShellBridge::bindHotKey(const QString& accelerator) {
    QDBusMessage message = method("BindHotKey");
    message << accelerator;
    auto reply = call(message);
    if (!reply || reply->arguments().isEmpty())
        return std::nullopt;
    return reply->arguments().at(0).toBool();
}

void ShellBridge::onClipboardChanged(quint64 serial, const QStringList& types) {
    emit clipboardChanged(serial, types);
}

void ShellBridge::onHotKeyActivated() {
    emit hotKeyActivated();
}

}  // namespace zettly
