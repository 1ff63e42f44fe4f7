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
    std::string detail;
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
};

}  // namespace zettly
