#pragma once

#include <cstdint>

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
};

}  // namespace zettly
