#pragma once

#include <memory>

#include "platform/GlobalHotKey.h"
#include "platform/Keyboard.h"
#include "platform/Log.h"

namespace zettly {

// The system-wide shortcut, grabbed on the root window of Qt's own X
// connection (the connection that grabs is the one that gets the presses).
// The X server answers at once: the grab is held, or another client holds
// it. Every X11HotKey shares one dispatcher, so that two instances wanting
// the same combination share its grab; a press runs the newest live wish
// for its combination, later on the Qt event loop. Main thread only; needs a
// QGuiApplication on xcb.
class X11HotKey final : public GlobalHotKey {
public:
    // `layout` only names the shortcut in the line logged when it cannot be
    // had.
    X11HotKey(KeyboardLayout& layout, Log& log);
    ~X11HotKey() override;
    X11HotKey(const X11HotKey&) = delete;
    X11HotKey& operator=(const X11HotKey&) = delete;

    void bind(HotKeyCombo combo, std::function<void()> pressed,
              std::function<void(const HotKeyState&)> answered) override;
    void release() override;

    // The answer to the last bind; `waiting` before the first one.
    const HotKeyState& state() const;

private:
    class Holder;
    KeyboardLayout& layout_;
    Log& log_;
    std::unique_ptr<Holder> holder_;
};

}  // namespace zettly
