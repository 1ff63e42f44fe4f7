#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace zettly {

class AppFolders;
class Autostart;
class Desktop;
class GlobalHotKey;
class KeyboardLayout;
class Log;
class MainQueue;
class Pasteboard;
class SecretStore;
class WindowHints;
class Workspace;

// What Zettly cannot do in this session, so that the tray and the settings
// can say so instead of failing without a word.
enum class Limitation {
    // No shortcut of our own; the user binds `zettly --toggle` in the
    // desktop's keyboard settings instead.
    noGlobalShortcut,
    // Nothing can type into other applications: a pick only copies.
    noPaste,
    // The X server lacks XTEST, which typing into other windows needs.
    noXTest,
    // The clipboard can only be read while a Zettly window has the keyboard.
    captureOnlyWhileFocused,
    // The application in front is unknown: ignored applications cannot be
    // recognised (patterns and password-manager marks still apply).
    noFrontmostApp,
    // The window that was in front cannot be given the keyboard back.
    noWindowActivation,
    // Zettly reaches this Wayland session through XWayland: the shortcut,
    // capture and paste work with X11 applications only.
    x11ApplicationsOnly,
    // Wayland lets no application place its own windows: the history
    // window opens where the compositor puts it, whatever the position
    // chosen in the settings.
    noWindowPlacement,
    // The compositor offers no way to type keys (no virtual keyboard, no
    // KWin fake input, no RemoteDesktop portal). Always reported together
    // with noPaste, which it explains.
    noKeyTypingProtocol,
    // GNOME Shell runs Zettly's extension only once it is turned on; until
    // then Zettly runs without desktop integration (the limits above say
    // what that costs). The remedy turns it on.
    shellExtensionOff,
    // GNOME Shell has not loaded Zettly's extension: it is not installed,
    // or was installed after login (the Shell looks for extensions only
    // then). The remedy opens the Extensions app.
    shellExtensionMissing,
    // GNOME Shell could not run Zettly's extension (an error, a Shell
    // version it was not made for, or it refused this Zettly). The remedy
    // opens the Extensions app, which shows why.
    shellExtensionFailed,
};

// What the step offered next to a limitation (remedy()) came to.
struct RemedyResult {
    bool done = false;
    // Zettly has to start again to make use of it.
    bool restart = false;
    // Why it was not done, for the user.
    std::string error = {};
};

// Everything the application needs from the session it runs in. One
// backend per kind of session fills it (platform/x11, platform/fallback, see
// docs/ARCHITECTURE.md); app/ builds the application from it and names no
// backend's types. Lives as long as the application.
class Platform {
public:
    virtual ~Platform() = default;

    // As `zettly --platform NAME` takes it.
    virtual std::string_view name() const = 0;

    virtual Pasteboard& pasteboard() = 0;
    virtual Workspace& workspace() = 0;
    virtual Desktop& desktop() = 0;
    virtual GlobalHotKey& hotKey() = 0;
    virtual KeyboardLayout& keyboardLayout() = 0;
    virtual MainQueue& mainQueue() = 0;
    virtual AppFolders& folders() = 0;
    virtual Autostart& autostart() = 0;
    virtual WindowHints& windowHints() = 0;
    // Where the sync secrets are kept. Called on the sync thread: probing a
    // desktop keyring can take seconds.
    virtual std::unique_ptr<SecretStore> openSecretStore(Log& log) = 0;

    // Asked afresh each time: some limits show only once the session has
    // been looked at (an X server without XTEST).
    virtual std::vector<Limitation> limitations() = 0;
    // Whether Zettly can take a step for the user against `limitation`
    // (Settings and the tray then offer it as a button), and taking it.
    virtual bool hasRemedy(Limitation) const { return false; }
    virtual RemedyResult remedy(Limitation) { return {false, false, "Nothing to do."}; }
};

}  // namespace zettly
