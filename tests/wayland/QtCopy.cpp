// zettly_test_qt_copy TYPE=VALUE...
//
// Copies as a Wayland application does under GNOME, where only the window
// with the keyboard may set the clipboard: shows a window, and once it has
// the keyboard owns the clipboard with all the formats given (a password
// manager's copy is its text plus a marker format). Prints "ready" when the
// copy is made and stays to answer reads until it is stopped.
#include <QApplication>
#include <QClipboard>
#include <QLabel>
#include <QMimeData>
#include <QTimer>
#include <cstdio>

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setDesktopFileName(QStringLiteral("zettly-test-copy"));
    QLabel window(QStringLiteral("copying"));
    window.setWindowTitle(QStringLiteral("Copy source"));
    window.resize(300, 80);
    window.show();
    bool copied = false;
    auto copy = [&] {
        if (copied || !window.isActiveWindow())
            return;
        auto* data = new QMimeData;
        for (int i = 1; i < argc; ++i) {
            const QByteArray pair(argv[i]);
            const auto equals = pair.indexOf('=');
            if (equals > 0)
                data->setData(QString::fromUtf8(pair.left(equals)), pair.mid(equals + 1));
        }
        QApplication::clipboard()->setMimeData(data);
        copied = true;
        std::printf("ready\n");
        std::fflush(stdout);
    };
    QObject::connect(&app, &QApplication::focusChanged, copy);
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, copy);
    poll.start(100);
    return QApplication::exec();
}
