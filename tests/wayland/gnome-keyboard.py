#!/usr/bin/python3
# Gives a headless GNOME Shell a keyboard and keeps it until terminated.
#
# Headless mutter has no input devices, so its wl_seat offers no keyboard
# and no client can get keyboard focus: wl-copy and wl-paste refuse to run
# ("This seat has no keyboard") and a window never receives the selection.
# A remote desktop session of mutter's own D-Bus API owns a virtual keyboard,
# created with the session's first key event and removed when the session
# ends, so this holds one session open. Prints "ready" once the keyboard
# exists; exits with 1 when mutter closes the session (the panel's "stop
# sharing" button does that).
import sys

import dbus
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

MUTTER = "org.gnome.Mutter.RemoteDesktop"
SESSION = MUTTER + ".Session"
SHIFT_L = 0xFFE1


def main():
    DBusGMainLoop(set_as_default=True)
    bus = dbus.SessionBus()
    remote = bus.get_object(MUTTER, "/org/gnome/Mutter/RemoteDesktop")
    path = remote.CreateSession(dbus_interface=MUTTER)
    session = dbus.Interface(bus.get_object(MUTTER, path), SESSION)
    loop = GLib.MainLoop()
    closed = []

    def on_closed():
        closed.append(True)
        loop.quit()

    session.connect_to_signal("Closed", on_closed)
    session.Start()
    # A modifier alone types nothing into whatever has focus.
    session.NotifyKeyboardKeysym(SHIFT_L, True)
    session.NotifyKeyboardKeysym(SHIFT_L, False)
    print("ready", flush=True)
    loop.run()
    if closed:
        print("gnome-keyboard: mutter closed the remote desktop session; "
              "the seat has no keyboard any more", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
