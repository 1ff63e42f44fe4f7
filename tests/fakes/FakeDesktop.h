#pragma once

#include <optional>
#include <vector>

#include "platform/Desktop.h"

namespace zettly::test {

// A desktop with one 1440 × 900 screen (a 25-point panel at the top) whose
// front window, pointer and key rights a test sets; it records activations
// and synthesised pastes.
class FakeDesktop final : public Desktop {
public:
    std::vector<ScreenInfo> screenList{{Rect{0, 0, 1440, 900}, Rect{0, 0, 1440, 875}}};
    Point mouse{700, 450};
    std::optional<AppWindow> front;
    bool keysAllowed = true;

    std::vector<AppWindow> activated;
    std::vector<bool> pastes;  // withShift of each paste, in order

    std::vector<ScreenInfo> screens() override { return screenList; }
    Point mouseLocation() override { return mouse; }
    std::optional<AppWindow> frontmostWindow() override { return front; }
    void activate(const AppWindow& window) override {
        activated.push_back(window);
        front = window;
    }
    bool canSendKeys() override { return keysAllowed; }
    void sendPasteKeystroke(bool withShift) override { pastes.push_back(withShift); }
};

}  // namespace zettly::test
