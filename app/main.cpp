// The zettly executable: one tray application per user session.
#include <QApplication>
#include <QIcon>
#include <QSocketNotifier>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string_view>

#include <fcntl.h>
#include <malloc.h>
#include <sys/socket.h>
#include <unistd.h>

#include "app/AppDelegate.h"
#include "app/SingleInstance.h"
#include "i18n/Translations.h"
#include "platform/AppFolders.h"
#include "platform/Clock.h"
#include "platform/Defaults.h"
#include "platform/Log.h"
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

// The image worker sits beside this executable in the build tree and in
// libexec/zettly once installed (/usr/bin/zettly finds
// /usr/libexec/zettly/zettly-image-worker).
std::filesystem::path imageWorkerPath() {
    constexpr const char* name = "zettly-image-worker";
    std::error_code error;
    std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) {
        std::fprintf(stderr, "[Zettly] cannot find its own executable (%s); images are not saved\n",
                     error.message().c_str());
        return name;
    }
    std::filesystem::path bin = self.parent_path();
    std::filesystem::path installed = (bin / ZETTLY_WORKER_DIR_FROM_BIN / name).lexically_normal();
    for (const auto& candidate : {installed, bin / name}) {
        if (::access(candidate.c_str(), X_OK) == 0)
            return candidate;
    }
    // Every image copy then fails with the worker's start error; saying
    // where it was looked for once makes a broken install easy to spot.
    std::fprintf(stderr, "[Zettly] %s is neither in %s nor beside %s; images are not saved\n", name,
                 installed.parent_path().c_str(), self.c_str());
    return installed;
}

}  // namespace

int main(int argc, char** argv) {
    // Two heap arenas are plenty for a tray app with one background worker;
    // glibc's default (eight per core) keeps freed memory resident per thread.
    mallopt(M_ARENA_MAX, 2);
    // Answered before Qt starts, so it works without a display (packaging
    // checks, bug reports from a terminal).
    if (argc == 2 && std::string_view(argv[1]) == "--version") {
        std::printf("zettly %s\n", ZETTLY_VERSION);
        return 0;
    }
    // Capture, the hot key and pasting speak X11; under Wayland that is XWayland.
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "xcb");
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Zettly"));
    QApplication::setApplicationVersion(QStringLiteral(ZETTLY_VERSION));
    zettly::installTranslations(app, QLocale::system());
    QApplication::setWindowIcon(
        QIcon(QStringLiteral(":/icons/hicolor/scalable/apps/org.zettly.Zettly.svg")));
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

    zettly::XdgAppFolders folders;
    zettly::Defaults defaults(folders.configDirectory() / "defaults.json",
                              zettly::SystemClock::instance(), zettly::StderrLog::instance());
    zettly::StoreContext stores{defaults, [&folders] { return folders.containerURL(); },
                                zettly::SystemClock::instance(), zettly::StderrLog::instance()};
    zettly::ImageWorkerClient imageWorker(imageWorkerPath());
    zettly::ClipboardStore texts(stores);
    zettly::ImageClipStore images(stores, imageWorker);
    zettly::AppDelegate delegate(std::move(x11), defaults, texts, images);
    delegate.applicationDidFinishLaunching();
    QObject::connect(&instance, &zettly::SingleInstance::activated, &delegate,
                     &zettly::AppDelegate::secondLaunch);
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &delegate,
                     &zettly::AppDelegate::applicationWillTerminate);
    quitOnSignals();
    return QApplication::exec();
}
