// The zettly executable: one tray application per user session.
#include <QApplication>
#include <QSocketNotifier>
#include <csignal>
#include <cstdio>
#include <filesystem>

#include <fcntl.h>
#include <malloc.h>
#include <sys/socket.h>
#include <unistd.h>

#include "app/AppDelegate.h"
#include "app/SingleInstance.h"
#include "store/AppGroup.h"
#include "store/ClipboardStore.h"
#include "store/ImageClipStore.h"

namespace {

int signalPipe[2] = {-1, -1};

// Logging out sends SIGTERM (and a terminal SIGINT or SIGHUP); quitting
// through the event loop lets clear-on-quit run.
void quitOnSignals() {
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, signalPipe) != 0)
        return;
    auto* notifier = new QSocketNotifier(signalPipe[1], QSocketNotifier::Read, qApp);
    QObject::connect(notifier, &QSocketNotifier::activated, qApp, [] {
        char byte;
        [[maybe_unused]] auto n = ::read(signalPipe[1], &byte, 1);
        QCoreApplication::quit();
    });
    struct sigaction action {};
    action.sa_handler = [](int) {
        char byte = 1;
        [[maybe_unused]] auto n = ::write(signalPipe[0], &byte, 1);
    };
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int signal : {SIGTERM, SIGINT, SIGHUP})
        sigaction(signal, &action, nullptr);
}

}  // namespace

int main(int argc, char** argv) {
    // Two heap arenas are plenty for a tray app with one background worker;
    // glibc's default (eight per core) keeps freed memory resident per thread.
    mallopt(M_ARENA_MAX, 2);
    // Capture, the hot key and pasting speak X11; under Wayland that is XWayland.
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "xcb");
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Zettly"));
    QApplication::setDesktopFileName(
        QString::fromUtf8(zettly::AppIdentifier.data(), zettly::AppIdentifier.size()));
    QApplication::setQuitOnLastWindowClosed(false);

    zettly::SingleInstance instance;
    if (!instance.claim()) {
        if (instance.notifyRunning())
            return 0;
        std::fprintf(stderr, "[Zettly] another instance holds the lock but does not answer\n");
        return 1;
    }

    auto x11 = zettly::XcbConnection::open();
    if (!x11) {
        std::fprintf(stderr, "[Zettly] cannot reach an X server (DISPLAY=%s)\n",
                     qEnvironmentVariable("DISPLAY").toLocal8Bit().constData());
        return 1;
    }

    // Images are decoded by a worker process beside this executable.
    std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe");
    zettly::ImageWorkerClient imageWorker(self.parent_path() / "zettly-image-worker");
    zettly::ClipboardStore texts(zettly::StoreContext::standard());
    zettly::ImageClipStore images(zettly::StoreContext::standard(), imageWorker);
    zettly::AppDelegate delegate(std::move(x11), zettly::AppGroup::defaults(), texts, images);
    delegate.applicationDidFinishLaunching();
    QObject::connect(&instance, &zettly::SingleInstance::activated, &delegate,
                     &zettly::AppDelegate::secondLaunch);
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &delegate,
                     &zettly::AppDelegate::applicationWillTerminate);
    quitOnSignals();
    return QApplication::exec();
}
