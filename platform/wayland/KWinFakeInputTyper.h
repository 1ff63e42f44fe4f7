#pragma once

#include <memory>

#include "platform/linux/KeyTyper.h"

namespace zettly {

class Log;
class WaylandConnection;

// Types the paste chord through KWin's fake input (org_kde_kwin_fake_input,
// version 4 for keys). KWin lists the interface only to clients whose
// desktop file names it in X-KDE-Wayland-Interfaces, which
// data/org.zettly.Zettly.desktop does; KWin finds the file from the
// executable, so a zettly started from a build tree is not offered it.
//
// Fake keys go through KWin's own keymap, the user's layout, so the keys are
// looked up in the keymap KWin hands our connection's keyboard. KWin keeps
// one modifier state for all its keyboards: type() lets go of the modifier
// keys before the chord, so that Alt still held from Alt+Return stays out.
class KWinFakeInputTyper final : public KeyTyper {
public:
    static bool offeredBy(const WaylandConnection& connection);

    // Binds the interface and authenticates once; before connection.start().
    KWinFakeInputTyper(WaylandConnection& connection, Log& log);
    ~KWinFakeInputTyper() override;
    KWinFakeInputTyper(const KWinFakeInputTyper&) = delete;
    KWinFakeInputTyper& operator=(const KWinFakeInputTyper&) = delete;

    // False without the interface, with a KWin too old for keys, and once
    // the compositor has closed the connection.
    bool ready() override;
    void type(PasteChord chord) override;

    // The event thread's side, defined in the .cpp.
    struct Input;

private:
    WaylandConnection& connection_;
    std::shared_ptr<Input> input_;
};

}  // namespace zettly
