#pragma once

#include <memory>

#include "platform/AppFolders.h"
#include "platform/Autostart.h"
#include "platform/Platform.h"
#include "platform/linux/QtMainQueue.h"
#include "platform/x11/X11Desktop.h"
#include "platform/x11/X11HotKey.h"
#include "platform/x11/X11Pasteboard.h"
#include "platform/x11/X11WindowHints.h"
#include "platform/x11/X11Workspace.h"
#include "platform/x11/XcbConnection.h"
#include "platform/x11/XkbKeyboardLayout.h"

namespace zettly {

// An X11 session (or XWayland): XFixes tells of each new clipboard owner,
// XGrabKey holds the shortcut, EWMH names and raises windows, XTEST types
// the paste. Needs the Qt application on the xcb platform plugin.
class X11Platform final : public Platform {
public:
    // None when no X server answers on DISPLAY.
    static std::unique_ptr<X11Platform> open(Log& log);

    std::string_view name() const override { return "x11"; }
    Pasteboard& pasteboard() override { return pasteboard_; }
    Workspace& workspace() override { return workspace_; }
    Desktop& desktop() override { return desktop_; }
    GlobalHotKey& hotKey() override { return hotKey_; }
    KeyboardLayout& keyboardLayout() override { return layout_; }
    MainQueue& mainQueue() override { return mainQueue_; }
    AppFolders& folders() override { return folders_; }
    Autostart& autostart() override { return autostart_; }
    WindowHints& windowHints() override { return hints_; }
    std::unique_ptr<SecretStore> openSecretStore(Log& log) override;
    std::vector<Limitation> limitations() override;

private:
    X11Platform(std::unique_ptr<XcbConnection> main, std::unique_ptr<XcbConnection> reads,
                Log& log);

    // Main thread: the window in front, activation, paste, key names.
    std::unique_ptr<XcbConnection> x11_;
    QtMainQueue mainQueue_;
    X11Pasteboard pasteboard_;
    X11Workspace workspace_;
    X11Desktop desktop_;
    XkbKeyboardLayout layout_;
    X11HotKey hotKey_;
    X11WindowHints hints_;
    XdgAppFolders folders_;
    XdgAutostart autostart_;
};

}  // namespace zettly
