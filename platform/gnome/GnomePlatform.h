#pragma once

#include <QDBusConnection>
#include <memory>

#include "platform/AppFolders.h"
#include "platform/Autostart.h"
#include "platform/Platform.h"
#include "platform/UsKeyboardLayout.h"
#include "platform/linux/QtMainQueue.h"

namespace zettly {

class GnomeDesktop;
class GnomePasteboard;
class ShellBridge;

// GNOME Shell on Wayland. Mutter lends other clients neither the clipboard
// nor the pointer, window placement or key presses; Zettly's Shell
// extension (gnome-shell/) does, through ShellBridge. The shortcut comes
// from the GlobalShortcuts portal where GNOME has one (48 and later), else
// from the extension. Needs the Qt application on the wayland plugin.
class GnomePlatform final : public Platform {
public:
    // This backend when the extension answers; otherwise the fallback,
    // whose limitations say what is wrong with the extension and offer the
    // step that mends it.
    static std::unique_ptr<Platform> open(Log& log);
    ~GnomePlatform() override;

    std::string_view name() const override { return "gnome"; }
    Pasteboard& pasteboard() override;
    Workspace& workspace() override;
    Desktop& desktop() override;
    GlobalHotKey& hotKey() override { return *hotKey_; }
    KeyboardLayout& keyboardLayout() override { return layout_; }
    MainQueue& mainQueue() override { return mainQueue_; }
    AppFolders& folders() override { return folders_; }
    Autostart& autostart() override { return autostart_; }
    WindowHints& windowHints() override { return *hints_; }
    std::unique_ptr<SecretStore> openSecretStore(Log& log) override;
    std::vector<Limitation> limitations() override;
    bool hasRemedy(Limitation limitation) const override;
    RemedyResult remedy(Limitation limitation) override;

private:
    GnomePlatform(Log& log, QDBusConnection bus, std::unique_ptr<ShellBridge> bridge);

    Log& log_;
    QDBusConnection bus_;
    QtMainQueue mainQueue_;
    XdgAppFolders folders_;
    XdgAutostart autostart_;
    UsKeyboardLayout layout_;
    std::unique_ptr<ShellBridge> bridge_;
    std::unique_ptr<GnomePasteboard> pasteboard_;
    std::unique_ptr<GnomeDesktop> desktop_;
    std::unique_ptr<GlobalHotKey> hotKey_;
    std::unique_ptr<WindowHints> hints_;
    bool portalShortcuts_ = false;
    // The extension was turned off while Zettly ran.
    bool bridgeGone_ = false;
};

}  // namespace zettly
