#pragma once

#include <optional>
#include <string>

#include "platform/Desktop.h"
#include "platform/linux/XcbConnection.h"

namespace zettly {

// Screens and the pointer come from Qt; the window in front, activation and
// the synthetic paste go through our own X connection (EWMH and XTEST).
class X11Desktop final : public Desktop {
public:
    // `ownAppId` is what our own windows report: Qt does not always label
    // them with the desktop file name the rest of the program uses.
    X11Desktop(XcbConnection& connection, std::string ownAppId);

    std::vector<ScreenInfo> screens() override;
    Point mouseLocation() override;

    std::optional<AppWindow> frontmostWindow() override;
    void activate(const AppWindow& window) override;

    bool canSendKeys() override;
    void sendPasteKeystroke(bool withShift) override;

private:
    // Whether a window manager runs that takes _NET_ACTIVE_WINDOW requests.
    bool windowManagerActivates();

    XcbConnection& connection_;
    std::string ownAppId_;
    std::optional<bool> hasXTest_;
};

}  // namespace zettly
