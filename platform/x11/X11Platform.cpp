#include "platform/x11/X11Platform.h"

#include "platform/Backends.h"
#include "platform/Log.h"
#include "platform/linux/SecretServiceStore.h"

namespace zettly {

std::unique_ptr<X11Platform> X11Platform::open(Log& log) {
    auto main = XcbConnection::open();
    auto reads = XcbConnection::open();
    if (!main || !reads)
        return nullptr;
    return std::unique_ptr<X11Platform>(new X11Platform(std::move(main), std::move(reads), log));
}

X11Platform::X11Platform(std::unique_ptr<XcbConnection> main, std::unique_ptr<XcbConnection> reads,
                         Log& log)
    : x11_(std::move(main)),
      pasteboard_(std::move(reads)),
      workspace_(*x11_),
      desktop_(*x11_, std::string(AppIdentifier), mainQueue_,
               [this] { pasteboard_.copyToPrimary(); }),
      layout_(*x11_),
      hotKey_(layout_, log),
      autostart_(XdgAutostart::forThisProcess()) {}

std::unique_ptr<SecretStore> X11Platform::openSecretStore(Log& log) {
    return openDesktopSecretStore(folders_.configDirectory() / "secrets.json", log);
}

std::vector<Limitation> X11Platform::limitations() {
    std::vector<Limitation> out;
    if (!SessionEnvironment::current().waylandDisplay.empty())
        out.push_back(Limitation::x11ApplicationsOnly);
    if (!desktop_.canPaste())
        out.push_back(Limitation::noXTest);
    return out;
}

}  // namespace zettly
