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
    // Tells the running instance that the user launched Zettly again.
    bool notifyRunning();

    static QString socketPath();

signals:
    void activated();

private:
    int lockFd_ = -1;
    QLocalServer server_;
};

}  // namespace zettly
