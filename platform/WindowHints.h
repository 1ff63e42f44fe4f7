#pragma once

#include <cstdint>
#include <string_view>

namespace zettly {

// How the history window and its preview fit into this session's window
// management: both are frameless panels that float over everything.
// Main thread.
class WindowHints {
public:
    virtual ~WindowHints() = default;
    // Whether a compositor draws translucent windows, so that the panels
    // can have rounded corners instead of black ones.
    virtual bool translucentWindows() = 0;
    // Called before each showing with the panel's native window id: puts it
    // on every workspace and keeps it off the taskbar and pager.
    virtual void preparePanel(std::uint64_t nativeWindow) = 0;
    // Whether a panel's position is its own to choose. Wayland leaves it to
    // the compositor: the history window then keeps a fixed size while shown
    // (tiling compositors float fixed-size windows rather than tile them, and
    // centre them), and the preview becomes a popup of the history window,
    // the one kind of window placed relative to another.
    virtual bool placesWindows() { return true; }
    // Called after each showing of a panel that cannot place itself
    // (placesWindows() false), with its title and the top-left corner it
    // was meant to have, in the desktop's y-down pixels: a session whose
    // shell moves windows for us (GNOME with Zettly's extension) puts it
    // there and gives it the keyboard.
    virtual void placePanel(std::string_view /*title*/, int /*x*/, int /*y*/) {}
};

}  // namespace zettly
