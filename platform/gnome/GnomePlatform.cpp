#include "platform/gnome/GnomePlatform.h"

#include "platform/Log.h"
#include "platform/WindowHints.h"
#include "platform/fallback/FallbackPlatform.h"
#include "platform/gnome/GnomeDesktop.h"
#include "platform/gnome/GnomePasteboard.h"
#include "platform/gnome/ShellBridge.h"
#include "platform/gnome/ShellExtensions.h"
#include "platform/gnome/ShellHotKey.h"
#include "platform/linux/CompositorConfigHotKey.h"
#include "platform/linux/PortalGlobalShortcuts.h"
#include "platform/linux/PortalRequest.h"
#include "platform/linux/SecretServiceStore.h"

namespace zettly {

namespace {

// Mutter composites and places windows itself; the extension moves the
// history window to where Zettly meant it to go and gives it the keyboard.
class ShellWindowHints final : public WindowHints {
public:
    explicit ShellWindowHints(ShellBridge& bridge) : bridge_(bridge) {}
    bool translucentWindows() override { return true; }
    void preparePanel(std::uint64_t) override {}
    bool placesWindows() override { return false; }
    void placePanel(std::string_view title, int x, int y) override {
        bridge_.placeWindow(QString::fromUtf8(title.data(), static_cast<qsizetype>(title.size())),
                            QPoint(x, y));
    }

private:
    ShellBridge& bridge_;
};

}  // namespace

std::unique_ptr<Platform> GnomePlatform::open(Log& log) {
    QDBusConnection bus =
        portal::openConnection(QString::fromUtf8(AppIdentifier.data(), AppIdentifier.size()), log);
    const shellextensions::State state = shellextensions::state(bus);
    auto fallBack = [&](Limitation why) -> std::unique_ptr<Platform> {
        FallbackPlatform::Reason reason;
        reason.limitations = {why};
        reason.remedy = [bus, &log](Limitation limitation) {
            return limitation == Limitation::shellExtensionOff
                       ? shellextensions::turnOn(bus, log)
                       : shellextensions::openExtensionsApp(bus, log);
        };
        return std::make_unique<FallbackPlatform>(std::move(reason));
    };
    if (auto limitation = shellextensions::limitationFor(state)) {
        log.line(std::string("[Zettly] Zettly's GNOME Shell extension (") + ShellBridge::uuid +
                 ") is " +
                 (state == shellextensions::State::off       ? "turned off"
                  : state == shellextensions::State::missing ? "not loaded by GNOME Shell"
                                                             : "failing") +
                 "; starting without desktop integration");
        return fallBack(*limitation);
    }
    auto bridge = std::make_unique<ShellBridge>(bus, log);
    const ShellBridge::Greeting greeting = bridge->hello();
    if (!greeting.ok) {
        // Most likely an extension installed for another Zettly binary than
        // this one (a build of one's own beside the packaged one).
        log.line("[Zettly] Zettly's GNOME Shell extension refused this Zettly (" +
                 greeting.errorName.toStdString() + ": " + greeting.error.toStdString() +
                 "); starting without desktop integration");
        return fallBack(Limitation::shellExtensionFailed);
    }
    log.line("[Zettly] GNOME Shell " + greeting.shellVersion.toStdString() +
             " with Zettly's extension");
    return std::unique_ptr<Platform>(new GnomePlatform(log, bus, std::move(bridge)));
}

GnomePlatform::GnomePlatform(Log& log, QDBusConnection bus, std::unique_ptr<ShellBridge> bridge)
    : log_(log),
      bus_(std::move(bus)),
      autostart_(XdgAutostart::forThisProcess()),
      bridge_(std::move(bridge)),
      pasteboard_(std::make_unique<GnomePasteboard>(*bridge_, log)),
      desktop_(std::make_unique<GnomeDesktop>(*bridge_)),
      hints_(std::make_unique<ShellWindowHints>(*bridge_)) {
    QObject::connect(bridge_.get(), &ShellBridge::clipboardChanged, bridge_.get(),
                     [this](quint64 serial, const QStringList& types) {
                         std::vector<std::string> offered;
                         for (const QString& type : types)
                             offered.push_back(type.toStdString());
                         pasteboard_->ownerChanged(serial, std::move(offered));
                     });
    // Turned off and on again in the Extensions app: the extension forgets
    // its client, so Zettly says hello again.
    QObject::connect(bridge_.get(), &ShellBridge::presenceChanged, bridge_.get(),
                     [this](bool present) {
                         bridgeGone_ = !present;
                         if (!present) {
                             log_.line("[Zettly] Zettly's GNOME Shell extension went away");
                             pasteboard_->bridgeGone();
                             return;
                         }
                         if (bridge_->hello().ok) {
                             log_.line("[Zettly] Zettly's GNOME Shell extension is back");
                             pasteboard_->bridgeBack();
                         }
                     });
    if (auto version = PortalGlobalShortcuts::version(bus_)) {
        portalShortcuts_ = true;
        hotKey_ = std::make_unique<PortalGlobalShortcuts>(bus_, *version, layout_, log,
                                                          sessionDesktopNames());
    } else {
        hotKey_ = std::make_unique<ShellHotKey>(*bridge_, layout_, log);
    }
}

GnomePlatform::~GnomePlatform() = default;

Pasteboard& GnomePlatform::pasteboard() {
    return *pasteboard_;
}

Workspace& GnomePlatform::workspace() {
    return *desktop_;
}

Desktop& GnomePlatform::desktop() {
    return *desktop_;
}

std::unique_ptr<SecretStore> GnomePlatform::openSecretStore(Log& log) {
    return openDesktopSecretStore(folders_.configDirectory() / "secrets.json", log);
}

std::vector<Limitation> GnomePlatform::limitations() {
    if (!bridgeGone_)
        return {};
    // Turned off while Zettly runs: nothing of the desktop works until it
    // is on again.
    return {Limitation::shellExtensionOff, Limitation::noPaste, Limitation::noFrontmostApp,
            Limitation::noWindowActivation};
}

bool GnomePlatform::hasRemedy(Limitation limitation) const {
    return bridgeGone_ && limitation == Limitation::shellExtensionOff;
}

RemedyResult GnomePlatform::remedy(Limitation limitation) {
    if (!hasRemedy(limitation))
        return Platform::remedy(limitation);
    // This backend picks the extension up again by itself once it is on.
    RemedyResult result = shellextensions::turnOn(bus_, log_);
    result.restart = false;
    return result;
}

}  // namespace zettly
