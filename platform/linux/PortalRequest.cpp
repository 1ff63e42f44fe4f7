#include "platform/linux/PortalRequest.h"

#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QRandomGenerator>
#include <atomic>
#include <utility>

#include "platform/Log.h"

namespace zettly::portal {

namespace {

const QString requestInterface = QStringLiteral("org.freedesktop.portal.Request");
const QString connectionName = QStringLiteral("zettly-portal");
// Long enough for the bus to start the portal service on demand.
constexpr int startTimeoutMs = 5000;

}  // namespace

QDBusConnection openConnection(const QString& appId, Log& log) {
    // Registering works once per connection; a second caller shares it.
    QDBusConnection existing(connectionName);
    if (existing.isConnected())
        return existing;
    QDBusConnection bus =
        QDBusConnection::connectToBus(QDBusConnection::SessionBus, connectionName);
    if (!bus.isConnected()) {
        log.line("[Zettly] cannot reach the session bus for the desktop portals: " +
                 bus.lastError().message().toStdString());
        return bus;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        service, objectPath, QStringLiteral("org.freedesktop.host.portal.Registry"),
        QStringLiteral("Register"));
    call << appId << QVariantMap{};
    QDBusMessage reply = bus.call(call, QDBus::Block, startTimeoutMs);
    // Portals before 1.19 have no registry and take the id from elsewhere
    // (the systemd unit, the desktop file of the launcher).
    if (reply.type() == QDBusMessage::ErrorMessage)
        log.line("[Zettly] the desktop portal did not take the application id " +
                 appId.toStdString() + " (" + reply.errorMessage().toStdString() +
                 "); it may name Zettly differently in its dialogs");
    return bus;
}

std::optional<unsigned> uintProperty(const QDBusConnection& bus, const QString& interface,
                                     const QString& name) {
    if (!bus.isConnected())
        return std::nullopt;
    QDBusMessage call = QDBusMessage::createMethodCall(
        service, objectPath, QStringLiteral("org.freedesktop.DBus.Properties"),
        QStringLiteral("Get"));
    call << interface << name;
    QDBusMessage reply = bus.call(call, QDBus::Block, startTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return std::nullopt;
    QVariant value = reply.arguments().constFirst().value<QDBusVariant>().variant();
    bool ok = false;
    unsigned version = value.toUInt(&ok);
    if (!ok)
        return std::nullopt;
    return version;
}

QString newToken() {
    static std::atomic<unsigned> counter{0};
    return QStringLiteral("zettly_%1_%2")
        .arg(++counter)
        .arg(QRandomGenerator::global()->generate(), 8, 16, QLatin1Char('0'));
}

QString handlePath(const QDBusConnection& bus, const QString& kind, const QString& token) {
    QString sender = bus.baseService();
    if (sender.startsWith(QLatin1Char(':')))
        sender.remove(0, 1);
    sender.replace(QLatin1Char('.'), QLatin1Char('_'));
    return objectPath + QLatin1Char('/') + kind + QLatin1Char('/') + sender + QLatin1Char('/') +
           token;
}

QString sessionHandle(const QVariantMap& results) {
    QVariant handle = results.value(QStringLiteral("session_handle"));
    if (handle.metaType() == QMetaType::fromType<QDBusObjectPath>())
        return handle.value<QDBusObjectPath>().path();
    return handle.toString();
}

void closeSession(const QDBusConnection& bus, const QString& session) {
    if (session.isEmpty())
        return;
    QDBusConnection(bus).send(QDBusMessage::createMethodCall(
        service, session, QStringLiteral("org.freedesktop.portal.Session"),
        QStringLiteral("Close")));
}

Request::Request(QDBusConnection bus, QObject* parent) : QObject(parent), bus_(std::move(bus)) {}

Request::~Request() {
    if (!done_)
        stopAndClose();
}

void Request::abandon() {
    answer_ = nullptr;
    failure_ = nullptr;
    if (!done_) {
        done_ = true;
        stopAndClose();
    }
    deleteLater();
}

void Request::stopAndClose() {
    stopListening();
    // The dialog it may show has no one to answer.
    if (!path_.isEmpty())
        bus_.send(QDBusMessage::createMethodCall(service, path_, requestInterface,
                                                 QStringLiteral("Close")));
}

Request* Request::send(QDBusConnection bus, const QString& interface, const QString& method,
                       QVariantList arguments, QVariantMap options, QObject* parent, Answer answer,
                       Failure failure) {
    auto* request = new Request(bus, parent);
    request->answer_ = std::move(answer);
    request->failure_ = std::move(failure);
    const QString token = newToken();
    options.insert(QStringLiteral("handle_token"), token);
    request->listen(handlePath(bus, QStringLiteral("request"), token));

    QDBusMessage call = QDBusMessage::createMethodCall(service, objectPath, interface, method);
    arguments << options;
    call.setArguments(arguments);
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), request);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, request,
                     [request, method](QDBusPendingCallWatcher* finished) {
                         finished->deleteLater();
                         QDBusPendingReply<QDBusObjectPath> reply = *finished;
                         if (request->done_)
                             return;
                         if (reply.isError()) {
                             request->done_ = true;
                             request->stopListening();
                             request->deleteLater();
                             // The handler may abandon the request.
                             if (auto failure = std::move(request->failure_))
                                 failure(method + QStringLiteral(": ") + reply.error().message());
                             return;
                         }
                         const QString path = reply.value().path();
                         if (path != request->path_)
                             request->listen(path);
                     });
    return request;
}

void Request::listen(const QString& path) {
    stopListening();
    path_ = path;
    bus_.connect(service, path_, requestInterface, QStringLiteral("Response"), this,
                 SLOT(response(uint, QVariantMap)));
}

void Request::stopListening() {
    if (path_.isEmpty())
        return;
    bus_.disconnect(service, path_, requestInterface, QStringLiteral("Response"), this,
                    SLOT(response(uint, QVariantMap)));
}

void Request::response(uint code, const QVariantMap& results) {
    if (done_)
        return;
    done_ = true;
    stopListening();
    deleteLater();
    // The handler may abandon the request.
    if (auto answer = std::move(answer_))
        answer(code, results);
}

Request* createSession(QDBusConnection bus, const QString& interface, QObject* parent,
                       std::function<void(const QString& session)> opened,
                       std::function<void(unsigned response, const QString& error)> notOpened) {
    return Request::send(
        std::move(bus), interface, QStringLiteral("CreateSession"), {},
        {{QStringLiteral("session_handle_token"), newToken()}}, parent,
        [opened, notOpened](unsigned response, const QVariantMap& results) {
            if (response != 0)
                return notOpened(response, {});
            const QString session = sessionHandle(results);
            if (session.isEmpty())
                return notOpened(0, QStringLiteral("CreateSession: no session handle"));
            opened(session);
        },
        [notOpened](const QString& error) { notOpened(0, error); });
}

}  // namespace zettly::portal
