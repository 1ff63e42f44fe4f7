#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QString>
#include <QVariantList>
#include <QVariantMap>
#include <functional>
#include <optional>

namespace zettly {

class Log;

// What the desktop portals share: where they live on the session bus, and
// the request object through which each of their dialogs answers.
namespace portal {

inline const QString service = QStringLiteral("org.freedesktop.portal.Desktop");
inline const QString objectPath = QStringLiteral("/org/freedesktop/portal/desktop");

// A connection of our own to the session bus, named to the portals as
// `appId`. Portals ask the desktop file of the application they serve;
// an application outside a sandbox says which it is, on a connection that
// has made no portal call yet (Qt's own connection has).
QDBusConnection openConnection(const QString& appId, Log& log);

// A number property of a portal interface (`version`, a device mask), or
// none when no portal answers for it. Blocks as long as the bus takes to
// start the portal.
std::optional<unsigned> uintProperty(const QDBusConnection& bus, const QString& interface,
                                     const QString& name);

// A fresh token for handle_token and session_handle_token: unique within
// the process and hard to guess, as the portals advise.
QString newToken();

// The path a portal gives the request or session made with `token` by this
// connection (".../SENDER/TOKEN").
QString handlePath(const QDBusConnection& bus, const QString& kind, const QString& token);

// The session handle in a CreateSession answer: a string by the portals'
// own mistake, an object path in some implementations.
QString sessionHandle(const QVariantMap& results);

// Closes a portal session; the desktop forgets what was granted for it.
void closeSession(const QDBusConnection& bus, const QString& session);

// One portal call whose outcome comes later as the Response signal of a
// Request object. Listens on the predicted path before calling, so that a
// quick answer is not lost, and moves to the path the portal returns when
// it differs (older portals). Deletes itself once answered; abandon() (or
// deleting its parent) drops it earlier and closes its dialog.
class Request final : public QObject {
    Q_OBJECT
public:
    // response: 0 done, 1 cancelled by the user, 2 ended otherwise.
    using Answer = std::function<void(unsigned response, const QVariantMap& results)>;
    using Failure = std::function<void(const QString& error)>;

    // Calls `method` of the portal's `interface` with `arguments` followed
    // by `options`, to which the handle_token is added.
    static Request* send(QDBusConnection bus, const QString& interface, const QString& method,
                         QVariantList arguments, QVariantMap options, QObject* parent,
                         Answer answer, Failure failure);
    ~Request() override;

    // Drops the answer still to come, closes the request's dialog and
    // deletes the request later; safe from within its own handlers.
    void abandon();

private Q_SLOTS:
    void response(uint code, const QVariantMap& results);

private:
    Request(QDBusConnection bus, QObject* parent);
    void listen(const QString& path);
    void stopListening();
    void stopAndClose();

    QDBusConnection bus_;
    QString path_;
    Answer answer_;
    Failure failure_;
    bool done_ = false;
};

// CreateSession on the portal's `interface`. `opened` gets the session
// handle; `notOpened` gets the Response's code (1 or 2), or 0 with the
// error when the call failed or the portal named no session.
Request* createSession(QDBusConnection bus, const QString& interface, QObject* parent,
                       std::function<void(const QString& session)> opened,
                       std::function<void(unsigned response, const QString& error)> notOpened);

}  // namespace portal
}  // namespace zettly
