#!/usr/bin/python3
# gnome-screenshot.py OUT.png
#
# Saves a screenshot of the whole GNOME Shell session on the session bus to
# OUT.png. grim has nothing to talk to (mutter offers no wlr-screencopy), and
# GNOME Shell 43 answers org.gnome.Shell.Screenshot only to the bus names on
# its allow list, one of which is org.gnome.Screenshot: owning that name is
# what makes this caller allowed. The shell itself writes the file, so its
# user must be able to write OUT.png.
import os
import sys

import dbus

ALLOWED_NAME = "org.gnome.Screenshot"
SHELL = "org.gnome.Shell.Screenshot"


def main():
    if len(sys.argv) != 2:
        print("usage: gnome-screenshot.py OUT.png", file=sys.stderr)
        return 2
    # The shell puts a relative name under the user's Pictures folder.
    out = os.path.abspath(sys.argv[1])
    bus = dbus.SessionBus()
    reply = bus.request_name(ALLOWED_NAME, dbus.bus.NAME_FLAG_DO_NOT_QUEUE)
    if reply not in (dbus.bus.REQUEST_NAME_REPLY_PRIMARY_OWNER,
                     dbus.bus.REQUEST_NAME_REPLY_ALREADY_OWNER):
        print(f"gnome-screenshot: {ALLOWED_NAME} is taken by another client",
              file=sys.stderr)
        return 1
    shell = bus.get_object(SHELL, "/org/gnome/Shell/Screenshot")
    try:
        success, written = shell.Screenshot(False, False, out,
                                            dbus_interface=SHELL)
    except dbus.DBusException as error:
        print(f"gnome-screenshot: {error.get_dbus_message()}", file=sys.stderr)
        return 1
    if not success:
        print(f"gnome-screenshot: the shell could not write {out}",
              file=sys.stderr)
        return 1
    if written != out:
        print(f"gnome-screenshot: the shell wrote {written}, not {out}",
              file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
