#include "platform/fallback/FallbackPlatform.h"

#include <QGuiApplication>
#include <algorithm>

#include "platform/linux/QtScreens.h"
#include "platform/linux/SecretServiceStore.h"

namespace zettly {

namespace {

// The desktop is known only as far as Qt sees it: screens and the pointer.
class QtOnlyDesktop final : public Desktop {
public:
    std::vector<ScreenInfo> screens() override { return qtscreens::screens(); }
    Point mouseLocation() override { return qtscreens::pointer(); }
    std::optional<AppWindow> frontmostWindow() override { return std::nullopt; }
    void activate(const AppWindow&) override {}
    bool canPaste() override { return false; }
    void paste(const AppWindow&, const std::vector<PasteChordChoice>&) override {}
};

class UnknownWorkspace final : public Workspace {
public:
    std::optional<std::string> frontmostApplicationId() override { return std::nullopt; }
    std::vector<RunningApp> runningApplications() override { return {}; }
};

// No shortcut of our own: the desktop's keyboard settings can still start
// `zettly --toggle`, which opens or closes the running Zettly's window.
class DesktopSettingsHotKey final : public GlobalHotKey {
public:
    void bind(HotKeyCombo, std::function<void()>,
              std::function<void(const HotKeyState&)> answered) override {
        if (answered)
            answered(HotKeyState{HotKeyState::Kind::inDesktopSettings, "zettly --toggle", {}});
    }
    void release() override {}
};

// Wayland compositors always composite; on X11 nothing says so here.
class QtWindowHints final : public WindowHints {
public:
    bool translucentWindows() override {
        return QGuiApplication::platformName() == QLatin1String("wayland");
    }
    void preparePanel(std::uint64_t) override {}
};

}  // namespace

class FallbackPlatform::Parts {
public:
    QtOnlyDesktop desktop;
    UnknownWorkspace workspace;
    DesktopSettingsHotKey hotKey;
    QtWindowHints hints;
};

FallbackPlatform::FallbackPlatform(Reason reason)
    : pasteboard_(mainQueue_),
      autostart_(XdgAutostart::forThisProcess()),
      parts_(std::make_unique<Parts>()),
      reason_(std::move(reason)) {}

FallbackPlatform::~FallbackPlatform() = default;

Workspace& FallbackPlatform::workspace() {
    return parts_->workspace;
}

Desktop& FallbackPlatform::desktop() {
    return parts_->desktop;
}

GlobalHotKey& FallbackPlatform::hotKey() {
    return parts_->hotKey;
}

WindowHints& FallbackPlatform::windowHints() {
    return parts_->hints;
}

std::unique_ptr<SecretStore> FallbackPlatform::openSecretStore(Log& log) {
    return openDesktopSecretStore(folders_.configDirectory() / "secrets.json", log);
}

std::vector<Limitation> FallbackPlatform::limitations() {
    // The reason first: it explains the rest.
    std::vector<Limitation> out = reason_.limitations;
    out.insert(out.end(), {Limitation::noGlobalShortcut, Limitation::noPaste,
                           Limitation::noFrontmostApp, Limitation::noWindowActivation});
    // Qt on X11 sees every copy; on Wayland only while it has the keyboard.
    if (QGuiApplication::platformName() != QLatin1String("xcb"))
        out.push_back(Limitation::captureOnlyWhileFocused);
    // Qt's Wayland windows go where the compositor puts them.
    if (QGuiApplication::platformName().startsWith(QLatin1String("wayland")))
        out.push_back(Limitation::noWindowPlacement);
    return out;
}

bool FallbackPlatform::hasRemedy(Limitation limitation) const {
    return reason_.remedy && std::find(reason_.limitations.begin(), reason_.limitations.end(),
                                       limitation) != reason_.limitations.end();
}

RemedyResult FallbackPlatform::remedy(Limitation limitation) {
    if (!hasRemedy(limitation))
        return Platform::remedy(limitation);
    return reason_.remedy(limitation);
}

}  // namespace zettly
