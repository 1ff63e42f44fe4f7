#pragma once

#include "platform/WindowHints.h"

namespace zettly {

// EWMH hints set on Qt's own X connection, so that they reach the server
// in order with Qt's requests for the same window (mapping it above all).
class X11WindowHints final : public WindowHints {
public:
    // A compositing manager owns the selection _NET_WM_CM_S<screen> while
    // it runs.
    bool translucentWindows() override;
    // _NET_WM_DESKTOP all and the sticky, skip-taskbar and skip-pager
    // states, merged into the states Qt sets itself.
    void preparePanel(std::uint64_t nativeWindow) override;
};

}  // namespace zettly
