#pragma once

#include "platform/Desktop.h"
#include "platform/Pasteboard.h"

namespace zettly {

class ShellBridge;

// The desktop as Zettly's GNOME Shell extension shows it: the Shell's
// monitors with their work areas, its pointer, the focused window and its
// application, and the paste keys pressed through the Shell's own virtual
// keyboard. Main thread.
class GnomeDesktop final : public Desktop, public Workspace {
public:
    explicit GnomeDesktop(ShellBridge& bridge) : bridge_(bridge) {}

    std::vector<ScreenInfo> screens() override;
    Point mouseLocation() override;
    std::optional<AppWindow> frontmostWindow() override;
    void activate(const AppWindow& window) override;
    bool canPaste() override { return true; }
    void paste(const AppWindow& target, const std::vector<PasteChordChoice>& chosen) override;

    std::optional<std::string> frontmostApplicationId() override;
    std::vector<RunningApp> runningApplications() override;

    // The X keysyms of a chord, modifiers first, as the Shell's virtual
    // keyboard takes them.
    static std::vector<std::uint32_t> keysyms(PasteChord chord);

private:
    ShellBridge& bridge_;
};

}  // namespace zettly
