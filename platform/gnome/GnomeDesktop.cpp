#include "platform/gnome/GnomeDesktop.h"

#include "platform/gnome/ShellBridge.h"
#include "platform/linux/QtGeometry.h"
#include "platform/linux/QtScreens.h"

namespace zettly {

namespace {

constexpr std::uint32_t kControlL = 0xffe3;
constexpr std::uint32_t kShiftL = 0xffe1;
constexpr std::uint32_t kV = 0x0076;
constexpr std::uint32_t kInsert = 0xff63;

}  // namespace

std::vector<ScreenInfo> GnomeDesktop::screens() {
    // Qt sees the monitors too, but not the top bar and the dock: the Shell
    // knows each monitor's work area.
    std::vector<ScreenInfo> out;
    for (const auto& monitor : bridge_.monitors())
        out.push_back({qtgeometry::fromQt(monitor.frame), qtgeometry::fromQt(monitor.workArea)});
    return out.empty() ? qtscreens::screens() : out;
}

Point GnomeDesktop::mouseLocation() {
    // Qt knows the pointer only while it is over one of our windows.
    if (auto at = bridge_.pointer())
        return qtgeometry::fromQt(*at);
    return qtscreens::pointer();
}

std::optional<AppWindow> GnomeDesktop::frontmostWindow() {
    auto window = bridge_.focusedWindow();
    if (!window)
        return std::nullopt;
    AppWindow out;
    out.id = window->id;
    if (!window->appId.isEmpty())
        out.appId = window->appId.toStdString();
    return out;
}

void GnomeDesktop::activate(const AppWindow& window) {
    if (window.id != 0)
        bridge_.activateWindow(window.id);
}

std::vector<std::uint32_t> GnomeDesktop::keysyms(PasteChord chord) {
    switch (chord) {
        case PasteChord::ctrlV:
            return {kControlL, kV};
        case PasteChord::ctrlShiftV:
            return {kControlL, kShiftL, kV};
        case PasteChord::shiftInsert:
            return {kShiftL, kInsert};
    }
    return {kControlL, kV};
}

void GnomeDesktop::paste(const AppWindow& target, const std::vector<PasteChordChoice>& chosen) {
    bridge_.paste(target.id, keysyms(pasteChordFor(target.appId, chosen)));
}

std::optional<std::string> GnomeDesktop::frontmostApplicationId() {
    auto window = bridge_.focusedWindow();
    if (!window || window->appId.isEmpty())
        return std::nullopt;
    return window->appId.toStdString();
}

std::vector<RunningApp> GnomeDesktop::runningApplications() {
    std::vector<RunningApp> out;
    for (const auto& window : bridge_.windows())
        out.push_back({window.appId.toStdString(), window.title.toStdString()});
    return out;
}

}  // namespace zettly
