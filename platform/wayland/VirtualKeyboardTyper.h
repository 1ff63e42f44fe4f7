#pragma once

#include <memory>

#include "platform/linux/KeyTyper.h"

namespace zettly {

class Log;
class WaylandConnection;

// Types the paste chord through a virtual keyboard of the wlroots
// compositors (zwp_virtual_keyboard_manager_v1: Sway, Hyprland, labwc,
// Wayfire, niri). The keyboard carries a US keymap of ours, so the chord's
// keys are the same whatever layout the user types in.
//
// A compositor that allows virtual keyboards only to some clients (Phosh's
// phoc) answers the others with a protocol error, and a protocol error ends
// the whole connection: give the typer a WaylandConnection of its own, so
// that a refusal costs the paste and not the clipboard. The constructor
// finds out at once (a roundtrip) and ready() says so.
class VirtualKeyboardTyper final : public KeyTyper {
public:
    static bool offeredBy(const WaylandConnection& connection);

    // Makes the keyboard on the connection's seat and uploads the keymap;
    // before connection.start().
    VirtualKeyboardTyper(WaylandConnection& connection, Log& log);
    ~VirtualKeyboardTyper() override;
    VirtualKeyboardTyper(const VirtualKeyboardTyper&) = delete;
    VirtualKeyboardTyper& operator=(const VirtualKeyboardTyper&) = delete;

    // False without the protocol or a seat, when the keymap could not be
    // made, and once the compositor has closed the connection.
    bool ready() override;
    void type(PasteChord chord) override;

    // The event thread's side, defined in the .cpp.
    struct Keyboard;

private:
    WaylandConnection& connection_;
    std::shared_ptr<Keyboard> keyboard_;
};

}  // namespace zettly
