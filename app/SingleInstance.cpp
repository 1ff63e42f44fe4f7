#include "app/SingleInstance.h"

#include <QDir>
#include <QLocalSocket>
#include <QThread>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace zettly {

SingleInstance::SingleInstance(QObject* parent) : QObject(parent) {
    connect(&server_, &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket* socket = server_.nextPendingConnection()) {
            connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
                QByteArray message = socket->readAll();
                if (message.startsWith("activate"))
                    emit activated();
                else if (message.startsWith("toggle"))
                    emit toggled();
                socket->disconnectFromServer();
            });
            connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        }
    });
}

SingleInstance::~SingleInstance() {
    server_.close();
    if (lockFd_ >= 0)
        ::close(lockFd_);
}

QString SingleInstance::socketPath() {
    QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (runtime.isEmpty() || !QDir(runtime).exists())
        return QDir::tempPath() + QStringLiteral("/zettly-%1.sock").arg(::getuid());
    return runtime + QStringLiteral("/zettly.sock");
}

bool SingleInstance::claim() {
    QByteArray lockPath = (socketPath() + QStringLiteral(".lock")).toLocal8Bit();
    lockFd_ = ::open(lockPath.constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    // The lock, not the socket, decides: two launches at the same moment
    // would otherwise both remove a "stale" socket and both listen.
    if (lockFd_ < 0 || ::flock(lockFd_, LOCK_EX | LOCK_NB) != 0) {
        if (lockFd_ >= 0)
            ::close(lockFd_);
        lockFd_ = -1;
        return false;
    }
    QLocalServer::removeServer(socketPath());  // left behind by a crash
    server_.setSocketOptions(QLocalServer::UserAccessOption);
    return server_.listen(socketPath());
}

bool SingleInstance::notifyRunning(Request request) {
    // The running instance may still be starting; give it a moment to listen.
    for (int attempt = 0; attempt < 20; ++attempt) {
        QLocalSocket socket;
        socket.connectToServer(socketPath());
        if (socket.waitForConnected(250)) {
            socket.write(request == Request::toggle ? "toggle\n" : "activate\n");
            socket.waitForBytesWritten(250);
            socket.disconnectFromServer();
            return true;
        }
        QThread::msleep(100);
    }
    return false;
}

}  // namespace zettly
