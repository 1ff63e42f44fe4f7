#pragma once

#include <optional>
#include <vector>

#include "platform/Desktop.h"

namespace zettly::test {

// A desktop with one 1440 × 900 screen (a 25-point panel at the top) whose
// front window, pointer and key rights a test sets; it records activations
// and pastes with the chord the desktop would type.
class FakeDesktop final : public Desktop {
public:
    std::vector<ScreenInfo> screenList{{Rect{0, 0, 1440, 900}, Rect{0, 0, 1440, 875}}};
    Point mouse{700, 450};
    std::optional<AppWindow> front;
    bool keysAllowed = true;

    struct Paste {
        AppWindow target;
        PasteChord chord;
    };
    std::vector<AppWindow> activated;
    std::vector<Paste> pastes;

    std::vector<ScreenInfo> screens() override { return screenList; }
    Point mouseLocation() override { return mouse; }
    std::optional<AppWindow> frontmostWindow() override { return front; }
    void activate(const AppWindow& window) override {
        activated.push_back(window);
        front = window;
    }
    bool canPaste() override { return keysAllowed; }
    void paste(const AppWindow& target, const std::vector<PasteChordChoice>& chosen) override {
        pastes.push_back({target, pasteChordFor(target.appId, chosen)});
    }
};

}  // namespace zettly::test
