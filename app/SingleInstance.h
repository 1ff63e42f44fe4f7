#pragma once

#include <QLocalServer>
#include <QObject>
#include <QString>

namespace zettly {

// One Zettly per user session. The first instance holds a lock file and
// listens on a local socket in $XDG_RUNTIME_DIR; a second launch finds the
// lock taken, tells the first one through the socket and exits.
class SingleInstance final : public QObject {
    Q_OBJECT
public:
    explicit SingleInstance(QObject* parent = nullptr);
    ~SingleInstance() override;

    // True when this process is the one instance (and now listens).
    bool claim();
    // What a second launch asks of the running instance: to show itself (a
    // launcher), or to open or close the history window (`zettly --toggle`).
    enum class Request { activate, toggle };
    bool notifyRunning(Request request);

    static QString socketPath();

signals:
    void activated();
    void toggled();

private:
    int lockFd_ = -1;
    QLocalServer server_;
};

}  // namespace zettly
