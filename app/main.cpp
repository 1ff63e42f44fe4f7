// The zettly executable: one tray application per user session.
#include <QApplication>
#include <QFileInfo>
#include <QIcon>
#include <QLibraryInfo>
#include <QSocketNotifier>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <fcntl.h>
#include <malloc.h>
#include <sys/socket.h>
#include <unistd.h>

#include "app/AppDelegate.h"
#include "app/SingleInstance.h"
#include "i18n/Translations.h"
#include "platform/AppFolders.h"
#include "platform/Backends.h"
#include "platform/Clock.h"
#include "platform/Defaults.h"
#include "platform/Log.h"
#include "platform/Platform.h"
#include "store/ClipboardStore.h"
#include "store/ImageClipStore.h"
#include "store/StoreHealth.h"
#include "ui/Look.h"

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

// The plugins of `wanted` ("wayland;xcb") that this Qt has, in their order.
// Qt aborts when none of them loads; knowing beforehand lets Zettly say what
// to install instead.
std::string installedQtPlatforms(const std::string& wanted) {
    const QString folder =
        QLibraryInfo::path(QLibraryInfo::PluginsPath) + QStringLiteral("/platforms/");
    std::string out;
    for (const QString& name : QString::fromStdString(wanted).split(QLatin1Char(';'))) {
        // The Wayland plugin's file is named after its shell integration.
        const QString file = name == QLatin1String("wayland")
                                 ? QStringLiteral("libqwayland-generic.so")
                                 : QStringLiteral("libq%1.so").arg(name);
        if (QFileInfo::exists(folder + file))
            out += (out.empty() ? "" : ";") + name.toStdString();
    }
    return out;
}

struct Options {
    std::optional<std::string> platform;  // --platform NAME
    bool toggle = false;                  // --toggle
    bool version = false;
    bool help = false;
    std::string error;
    // What is left for Qt: it would take --platform for its own option and
    // look for a Qt plugin of that name.
    std::vector<char*> qtArguments;
};

Options parseOptions(int argc, char** argv) {
    Options options;
    options.qtArguments.push_back(argv[0]);
    for (int i = 1; i < argc; ++i) {
        std::string_view arg = argv[i];
        if (arg == "--version") {
            options.version = true;
        } else if (arg == "--help" || arg == "-h") {
            options.help = true;
        } else if (arg == "--toggle") {
            options.toggle = true;
        } else if (arg == "--platform" && i + 1 < argc) {
            options.platform = argv[++i];
        } else if (arg.starts_with("--platform=")) {
            options.platform = std::string(arg.substr(std::string_view("--platform=").size()));
        } else {
            options.error = "unknown argument \"" + std::string(arg) + "\"";
        }
    }
    options.qtArguments.push_back(nullptr);
    return options;
}

void printUsage(std::FILE* to) {
    std::string names;
    for (std::string_view name : zettly::backendNames())
        names += (names.empty() ? "" : ", ") + std::string(name);
    std::fprintf(to,
                 "usage: zettly [--toggle] [--platform NAME] [--version]\n"
                 "  --toggle         open or close the history window of the running Zettly\n"
                 "                   (bind it to a key where Zettly has no shortcut of its own)\n"
                 "  --platform NAME  use this desktop backend instead of the one the session\n"
                 "                   suggests: %s\n",
                 names.c_str());
}

}  // namespace

// Zettly from its Qt application to its last window; `restart` asks the
// caller to start Zettly again once everything here is closed.
int runApplication(Options& options, const zettly::BackendChoice& choice, bool& restart) {
    int qtArgc = static_cast<int>(options.qtArguments.size()) - 1;
    QApplication app(qtArgc, options.qtArguments.data());
    QApplication::setApplicationName(QStringLiteral("Zettly"));
    QApplication::setApplicationVersion(QStringLiteral(ZETTLY_VERSION));
    zettly::installTranslations(app, QLocale::system());
    QApplication::setWindowIcon(
        QIcon(QStringLiteral(":/icons/hicolor/scalable/apps/org.zettly.Zettly.svg")));
    QApplication::setDesktopFileName(
        QString::fromUtf8(zettly::AppIdentifier.data(), zettly::AppIdentifier.size()));
    QApplication::setQuitOnLastWindowClosed(false);
    QApplication::setPalette(zettly::look::settledPalette(QApplication::palette()));

    zettly::SingleInstance instance;
    if (!instance.claim()) {
        using Request = zettly::SingleInstance::Request;
        if (instance.notifyRunning(options.toggle ? Request::toggle : Request::activate))
            return 0;
        std::fprintf(stderr, "[Zettly] another instance holds the lock but does not answer\n");
        return 1;
    }

    auto platform = zettly::makePlatform(choice, zettly::StderrLog::instance());
    std::fprintf(stderr, "[Zettly] desktop backend: %s\n", std::string(platform->name()).c_str());
    zettly::Defaults defaults(platform->folders().configDirectory() / "defaults.json",
                              zettly::SystemClock::instance(), zettly::StderrLog::instance());
    zettly::StoreHealth health(zettly::StderrLog::instance());
    zettly::StoreContext stores{
        defaults, [&platform] { return platform->folders().containerURL(); },
        zettly::SystemClock::instance(), zettly::StderrLog::instance(), &health};
    zettly::ImageWorkerClient imageWorker(imageWorkerPath());
    zettly::ClipboardStore texts(stores);
    zettly::ImageClipStore images(stores, imageWorker);
    zettly::AppDelegate delegate(*platform, defaults, texts, images, health);
    delegate.applicationDidFinishLaunching();
    if (options.toggle)
        delegate.toggleRequested();
    QObject::connect(&instance, &zettly::SingleInstance::activated, &delegate,
                     &zettly::AppDelegate::secondLaunch);
    QObject::connect(&instance, &zettly::SingleInstance::toggled, &delegate,
                     &zettly::AppDelegate::toggleRequested);
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &delegate,
                     &zettly::AppDelegate::applicationWillTerminate);
    quitOnSignals();
    const int status = QApplication::exec();
    restart = delegate.restartRequested();
    return status;
}

int main(int argc, char** argv) {
    // Two heap arenas are plenty for a tray app with a few background
    // workers; glibc's default (eight per core) keeps freed memory resident
    // per thread.
    mallopt(M_ARENA_MAX, 2);
    // A copied image passes through as one buffer of megabytes, read on one
    // thread and freed on another. A fixed threshold keeps such buffers
    // mapped on their own and returned when freed; glibc's own would rise
    // after the first one and leave the next ones resident in a heap.
    mallopt(M_MMAP_THRESHOLD, 256 * 1024);
    // Answered before Qt starts, so they work without a display (packaging
    // checks, bug reports from a terminal).
    Options options = parseOptions(argc, argv);
    if (!options.error.empty()) {
        std::fprintf(stderr, "zettly: %s\n", options.error.c_str());
        printUsage(stderr);
        return 2;
    }
    if (options.help) {
        printUsage(stdout);
        return 0;
    }
    if (options.version) {
        std::printf("zettly %s\n", ZETTLY_VERSION);
        return 0;
    }
    auto chosen = zettly::chooseBackend(options.platform, zettly::SessionEnvironment::current());
    if (auto* why = std::get_if<std::string>(&chosen)) {
        std::fprintf(stderr, "zettly: %s\n", why->c_str());
        return 1;
    }
    const auto choice = std::get<zettly::BackendChoice>(chosen);
    // The backend and Qt's windows must speak to the same display server.
    const std::string qtPlatforms = installedQtPlatforms(choice.qtPlatform);
    if (qtPlatforms.empty()) {
        std::fprintf(stderr,
                     "zettly: Qt has no platform plugin for this session (%s); install Qt's "
                     "Wayland or X11 platform plugin (Debian: qt6-wayland, qt6-qpa-plugins)\n",
                     choice.qtPlatform.c_str());
        return 1;
    }
    qputenv("QT_QPA_PLATFORM", QByteArray::fromStdString(qtPlatforms));

    bool restart = false;
    const int status = runApplication(options, choice, restart);
    if (restart) {
        // A new process rather than a new backend in this one: every part of
        // the app was built for the backend it started with.
        std::fprintf(stderr, "[Zettly] starting again\n");
        ::execv("/proc/self/exe", argv);
        std::fprintf(stderr, "[Zettly] could not start again (%s)\n", std::strerror(errno));
        return 1;
    }
    return status;
}
