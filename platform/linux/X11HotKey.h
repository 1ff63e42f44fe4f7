#pragma once

#include <cstdint>
#include <functional>

#include "platform/HotKeyCombo.h"
#include "platform/Keyboard.h"
#include "platform/Log.h"

namespace zettly {

// The one system-wide shortcut, grabbed on the root window of Qt's own X
// connection (the connection that grabs is the one that gets the presses).
// Each instance holds one registration under an id of its own; a press runs
// the handler of the newest live registration of that combination, later on
// the Qt event loop. Main thread only; needs a QGuiApplication on xcb.
class X11HotKey final {
public:
    // `layout` only names the shortcut in the line logged when it cannot be
    // had (another application grabbed it first, or no X11 session).
    X11HotKey(HotKeyCombo combo, std::function<void()> handler, KeyboardLayout& layout, Log& log);
    ~X11HotKey();
    X11HotKey(const X11HotKey&) = delete;
    X11HotKey& operator=(const X11HotKey&) = delete;

    // False when the grab was refused: the shortcut then does nothing.
    bool isRegistered() const { return registered_; }

private:
    std::uint32_t id_ = 0;
    bool registered_ = false;
};

}  // namespace zettly
