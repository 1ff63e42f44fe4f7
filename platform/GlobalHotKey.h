#pragma once

#include <functional>
#include <string>

#include "platform/HotKeyCombo.h"

namespace zettly {

// What became of the shortcut Zettly asked the desktop for. X11 answers at
// once; a desktop portal may answer much later, after asking the user.
struct HotKeyState {
    enum class Kind {
        waiting,    // asked for; no answer yet
        bound,      // pressing it opens the history window
        taken,      // another application holds the combination
        noSuchKey,  // no key of this keyboard is at the stored position
        // This session gives applications no shortcuts of their own: the
        // user binds `detail` (a command) in the desktop's keyboard settings.
        inDesktopSettings,
        failed,  // refused for another reason; `detail` says which
    };
    Kind kind = Kind::waiting;
    // bound: how the desktop shows the key it bound (it may differ from
    // the one asked for); inDesktopSettings: the command, or the whole line
    // to add to `configFile`; failed: the reason.
    std::string detail;
    // inDesktopSettings: the compositor's configuration file the line goes
    // into (e.g. "~/.config/sway/config"); empty when a settings dialog
    // takes the command.
    std::string configFile;
    // inDesktopSettings: the part of `configFile` the line belongs in
    // ("binds { }", "[command]"); empty when it may go anywhere. Defaulted,
    // so that states naming only the fields above stay complete.
    std::string configSection = {};
    bool operator==(const HotKeyState&) const = default;
};

// The one system-wide shortcut that opens the history window. Main thread.
class GlobalHotKey {
public:
    virtual ~GlobalHotKey() = default;

    // Asks for `combo` in place of any earlier wish. `pressed` runs on the
    // main thread for each press; `answered` runs on the main thread with
    // each new state, the first time possibly before bind() returns.
    virtual void bind(HotKeyCombo combo, std::function<void()> pressed,
                      std::function<void(const HotKeyState&)> answered) = 0;
    // Lets go of the shortcut; pressing it does nothing until the next bind.
    virtual void release() = 0;

    // Whether the desktop, not Zettly, decides which key it is (a portal
    // that asks the user); then Settings shows the desktop's choice and
    // openDesktopDialog() where to change it.
    virtual bool desktopChoosesKey() const { return false; }
    virtual void openDesktopDialog() {}
};

}  // namespace zettly
