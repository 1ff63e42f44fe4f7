#include "platform/wayland/WaylandPlatform.h"

#include "platform/Log.h"
#include "platform/WindowHints.h"
#include "platform/linux/CompositorConfigHotKey.h"
#include "platform/linux/PortalGlobalShortcuts.h"
#include "platform/linux/PortalRemoteDesktop.h"
#include "platform/linux/PortalRequest.h"
#include "platform/linux/SecretServiceStore.h"
#include "platform/wayland/DataControlPasteboard.h"
#include "platform/wayland/ForeignToplevels.h"
#include "platform/wayland/KWinFakeInputTyper.h"
#include "platform/wayland/VirtualKeyboardTyper.h"
#include "platform/wayland/WaylandConnection.h"
#include "platform/wayland/WaylandDesktop.h"

namespace zettly {

namespace {

// Compositors always composite, and only they place windows.
class WaylandWindowHints final : public WindowHints {
public:
    bool translucentWindows() override { return true; }
    void preparePanel(std::uint64_t) override {}
    bool placesWindows() override { return false; }
};

}  // namespace

std::unique_ptr<WaylandPlatform> WaylandPlatform::open(Log& log) {
    std::unique_ptr<WaylandPlatform> platform(new WaylandPlatform(log));
    if (!platform->wayland_ || !platform->pasteboard_)
        return nullptr;
    return platform;
}

WaylandPlatform::WaylandPlatform(Log& log)
    : log_(log),
      autostart_(XdgAutostart::forThisProcess()),
      wayland_(WaylandConnection::open(log)),
      hints_(std::make_unique<WaylandWindowHints>()) {
    if (!wayland_)
        return;
    pasteboard_ = DataControlPasteboard::create(*wayland_, mainQueue_, log);
    if (!pasteboard_)
        return;
    // Knows nothing where the compositor keeps its window list to itself
    // (KWin): limitations() says so.
    toplevels_ = std::make_unique<ForeignToplevels>(*wayland_, std::string(AppIdentifier), log);
    wayland_->start();

    // The quiet ways first; the portal asks the user, once.
    auto typingConnection = [&]() -> WaylandConnection* {
        auto connection = WaylandConnection::open(log);
        if (!connection)
            return nullptr;
        typingConnections_.push_back(std::move(connection));
        return typingConnections_.back().get();
    };
    if (VirtualKeyboardTyper::offeredBy(*wayland_))
        if (auto* connection = typingConnection())
            typers_.push_back(std::make_unique<VirtualKeyboardTyper>(*connection, log));
    if (KWinFakeInputTyper::offeredBy(*wayland_))
        if (auto* connection = typingConnection())
            typers_.push_back(std::make_unique<KWinFakeInputTyper>(*connection, log));
    for (auto& connection : typingConnections_)
        connection->start();
    // Portals answer on the session bus; asking whether they are there may
    // start xdg-desktop-portal, once, at start-up.
    QDBusConnection bus =
        portal::openConnection(QString::fromUtf8(AppIdentifier.data(), AppIdentifier.size()), log);
    if (PortalRemoteDesktop::available(bus))
        typers_.push_back(std::make_unique<PortalRemoteDesktop>(
            bus, folders_.configDirectory() / "remote-desktop-token", log));
    std::vector<KeyTyper*> typers;
    for (auto& typer : typers_)
        typers.push_back(typer.get());
    desktop_ = std::make_unique<WaylandDesktop>(toplevels_.get(), std::move(typers));

    if (auto version = PortalGlobalShortcuts::version(bus)) {
        portalShortcuts_ = true;
        hotKey_ = std::make_unique<PortalGlobalShortcuts>(bus, *version, layout_, log,
                                                          sessionDesktopNames());
    } else {
        hotKey_ = std::make_unique<CompositorConfigHotKey>(layout_, log);
    }
}

WaylandPlatform::~WaylandPlatform() = default;

Pasteboard& WaylandPlatform::pasteboard() {
    return *pasteboard_;
}

Workspace& WaylandPlatform::workspace() {
    return *toplevels_;
}

Desktop& WaylandPlatform::desktop() {
    return *desktop_;
}

std::unique_ptr<SecretStore> WaylandPlatform::openSecretStore(Log& log) {
    return openDesktopSecretStore(folders_.configDirectory() / "secrets.json", log);
}

std::vector<Limitation> WaylandPlatform::limitations() {
    std::vector<Limitation> out{Limitation::noWindowPlacement};
    if (!portalShortcuts_)
        out.push_back(Limitation::noGlobalShortcut);
    if (!toplevels_->available()) {
        out.push_back(Limitation::noFrontmostApp);
        out.push_back(Limitation::noWindowActivation);
    }
    if (!desktop_->canPaste()) {
        out.push_back(Limitation::noPaste);
        out.push_back(Limitation::noKeyTypingProtocol);
    }
    return out;
}

}  // namespace zettly
