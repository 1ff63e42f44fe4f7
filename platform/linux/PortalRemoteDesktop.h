#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QPointer>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "platform/Log.h"
#include "platform/linux/KeyTyper.h"

namespace zettly {

namespace portal {
class Request;
}

// Types the paste keys through the desktop's RemoteDesktop portal (GNOME,
// KDE Plasma): the desktop asks the user once whether Zettly may control
// the keyboard, and remembers the answer through a restore token that is
// kept in `tokenFile`, so that later sessions start without a dialog.
// The session is asked for at the first paste (or by prepare()) and kept.
// A declined request is not asked again until askAgain(). Main thread.
class PortalRemoteDesktop final : public QObject, public KeyTyper {
    Q_OBJECT
public:
    // Whether `bus` has a RemoteDesktop portal that can control a keyboard.
    // Blocks while the bus starts the portal.
    static bool available(const QDBusConnection& bus);

    // `bus` as portal::openConnection() gives it; `tokenFile` is written
    // for the user only.
    PortalRemoteDesktop(QDBusConnection bus, std::filesystem::path tokenFile, Log& log);
    ~PortalRemoteDesktop() override;

    // A started session exists, or one may still be asked for.
    bool ready() override;
    // Types the chord at once in a started session; otherwise asks for one
    // and types it when the desktop has agreed.
    void type(PasteChord chord) override;

    // Asks for a session now, unless one is started, being asked for, or
    // was declined.
    void prepare();
    // The user wants to be asked again after declining.
    void askAgain();
    // Why keys cannot be typed now, for the user; empty while ready().
    std::string problem() const { return problem_; }

    // Runs after each change of ready() or problem().
    std::function<void()> changed;

private Q_SLOTS:
    void sessionClosed();

private:
    enum class Stage { idle, asking, started, stopped };

    void selectDevices();
    void start();
    void started(const QVariantMap& results);
    void stop(const std::string& why);
    void endSession();
    void press(PasteChord chord);
    std::string storedToken() const;
    void storeToken(const std::string& token);
    void notify();

    QDBusConnection bus_;
    std::filesystem::path tokenFile_;
    Log& log_;
    Stage stage_ = Stage::idle;
    QString session_;
    QPointer<portal::Request> pending_;
    std::optional<PasteChord> waiting_;
    std::string problem_;
};

}  // namespace zettly
