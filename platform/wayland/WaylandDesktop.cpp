#include "platform/wayland/WaylandDesktop.h"

#include <algorithm>
#include <utility>

#include "platform/linux/KeyTyper.h"
#include "platform/linux/QtScreens.h"
#include "platform/wayland/ForeignToplevels.h"

namespace zettly {

WaylandDesktop::WaylandDesktop(ForeignToplevels* toplevels, std::vector<KeyTyper*> typers)
    : toplevels_(toplevels), typers_(std::move(typers)) {}

std::vector<ScreenInfo> WaylandDesktop::screens() {
    return qtscreens::screens();
}

Point WaylandDesktop::mouseLocation() {
    // Before the pointer ever crossed one of our windows Qt has no place at
    // all (Qt 6 starts from infinity); the main screen's centre is a place
    // the window rules can use.
    const Point seen = qtscreens::pointer();
    const std::vector<ScreenInfo> all = screens();
    if (all.empty() || std::any_of(all.begin(), all.end(),
                                   [&](const ScreenInfo& s) { return s.frame.contains(seen); }))
        return seen;
    return Point{all.front().frame.midX(), all.front().frame.midY()};
}

std::optional<AppWindow> WaylandDesktop::frontmostWindow() {
    return toplevels_ ? toplevels_->frontmostWindow() : std::nullopt;
}

void WaylandDesktop::activate(const AppWindow& window) {
    if (toplevels_)
        toplevels_->activate(window);
}

KeyTyper* WaylandDesktop::readyTyper() {
    auto typer =
        std::find_if(typers_.begin(), typers_.end(), [](KeyTyper* t) { return t && t->ready(); });
    return typer == typers_.end() ? nullptr : *typer;
}

bool WaylandDesktop::canPaste() {
    return readyTyper() != nullptr;
}

void WaylandDesktop::paste(const AppWindow& target, const std::vector<PasteChordChoice>& chosen) {
    // The typer keeps the user's held modifiers out of the chord (see
    // KeyTyper::type), so the keys go out at once.
    if (KeyTyper* typer = readyTyper())
        typer->type(pasteChordFor(target.appId, chosen));
}

}  // namespace zettly
