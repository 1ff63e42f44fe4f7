#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QPoint>
#include <QRect>
#include <QString>
#include <QStringList>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zettly {

class Log;

// The app's end of Zettly's GNOME Shell extension (gnome-shell/ in the
// source tree), which lends Zettly what mutter keeps from other Wayland
// clients: the clipboard whoever has the keyboard, the focused window, the
// pointer, window placement, key presses and, before GNOME 48, the global
// shortcut. The extension decides nothing; each call here maps to one of
// its D-Bus methods, and docs/ARCHITECTURE.md lists them.
//
// The Shell answers on the main thread of the compositor, so every call
// has a short time limit: a Shell that hangs must not hang Zettly's window.
// Calls are made on the main thread, except readClipboard(), which any
// thread may start.
class ShellBridge final : public QObject {
    Q_OBJECT
public:
    static constexpr const char* service = "org.zettly.Zettly.ShellBridge";
    static constexpr const char* path = "/org/zettly/Zettly/ShellBridge";
    static constexpr const char* interface = "org.zettly.Zettly.ShellBridge";
    // The extension's directory name and id, as GNOME Shell knows it.
    static constexpr const char* uuid = "bridge@zettly.org";

    ShellBridge(QDBusConnection bus, Log& log);

    // What saying hello came to: the extension answers only the Zettly
    // binary it was installed with.
    struct Greeting {
        bool ok = false;
        QString errorName;  // D-Bus error name when not ok
        QString error;      // its message
        QString shellVersion;
    };
    // Registers this process as the extension's one client; from then on
    // the extension watches the clipboard and sends its signals here.
    Greeting hello();

    struct Clipboard {
        std::uint64_t serial = 0;
        std::vector<std::string> types;
    };
    std::optional<Clipboard> clipboard();
    // Asks the extension to write one format's bytes, at most maxBytes + 1,
    // into `writeEnd` (the write end of a pipe; the caller closes its own
    // copy) and close it. An empty read means the format was not there
    // (the extension's log says why). No reply is waited for: Qt keeps a
    // sent message, and with it a copy of the write end, for as long as it
    // waits for the reply, and the read would never see the pipe's end.
    // False when the request could not be sent.
    bool readClipboard(const std::string& type, std::uint32_t maxBytes, int writeEnd);
    // The change the write made; none when the Shell did not take it.
    std::optional<std::uint64_t> setClipboard(const std::string& type, const QByteArray& data);

    struct Window {
        std::uint64_t id = 0;
        QString appId;
        QString title;
    };
    std::optional<Window> focusedWindow();
    std::vector<Window> windows();
    void activateWindow(std::uint64_t id);

    std::optional<QPoint> pointer();
    struct Monitor {
        QRect frame;
        QRect workArea;
    };
    std::vector<Monitor> monitors();
    void placeWindow(const QString& title, QPoint topLeft);
    // Types `keyvals` (X keysyms, modifiers first) into window `id` once the
    // user has let go of the keys still held. Does not wait for the answer.
    void paste(std::uint64_t id, const std::vector<std::uint32_t>& keyvals);
    // Binds a GTK accelerator ("<Alt>v"); "" lets go. None when the Shell
    // did not answer; false when it refused the combination.
    std::optional<bool> bindHotKey(const QString& accelerator);

signals:
    void clipboardChanged(quint64 serial, const QStringList& types);
    void hotKeyActivated();
    // The extension was turned off, or on again.
    void presenceChanged(bool present);

private slots:
    void onClipboardChanged(quint64 serial, const QStringList& types);
    void onHotKeyActivated();

private:
    QDBusMessage method(const char* name) const;
    // A call with the short time limit; logs a failure once per method.
    std::optional<QDBusMessage> call(QDBusMessage message);

    QDBusConnection bus_;
    Log& log_;
    QStringList failedMethods_;
};

}  // namespace zettly
