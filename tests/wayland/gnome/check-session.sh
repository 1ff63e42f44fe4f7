#!/bin/sh
# Run by run-in-compositor.sh gnome with ZETTLY_GNOME_EXTENSION naming
# probe@zettly.test: checks the session that the app's GNOME tests rely on.
# Every failed check is printed; the exit status counts them.
failures=0
fail() {
    echo "FAILED: $*" >&2
    failures=$((failures + 1))
}
shell_property() {
    gdbus call --session --dest org.gnome.Shell --object-path /org/gnome/Shell \
        --method org.freedesktop.DBus.Properties.Get org.gnome.Shell "$1"
}

[ -S "$XDG_RUNTIME_DIR/$WAYLAND_DISPLAY" ] || fail "no Wayland socket $WAYLAND_DISPLAY"
[ "$XDG_CURRENT_DESKTOP" = GNOME ] || fail "XDG_CURRENT_DESKTOP is '$XDG_CURRENT_DESKTOP'"
version=$(shell_property ShellVersion) || fail "org.gnome.Shell does not answer"
echo "GNOME Shell $version"
# A window opened over the overview would not get the keyboard.
[ "$(shell_property OverviewActive)" = "(<false>,)" ] || fail "the overview is open"

# enable() ran: the probe owns its name.
owned=$(gdbus call --session --dest org.freedesktop.DBus --object-path /org/freedesktop/DBus \
    --method org.freedesktop.DBus.NameHasOwner org.zettly.TestProbe)
[ "$owned" = "(true,)" ] || fail "the probe extension was not enabled"

# The extension was told to trust this script, where it runs from, and
# still trusts what it listed itself.
/usr/bin/python3 - "$XDG_DATA_HOME/gnome-shell/extensions/probe@zettly.test/metadata.json" \
    "$(realpath "$0")" <<'EOF' || fail "zettly-executables in the installed metadata.json"
import json, sys
trusted = json.load(open(sys.argv[1]))["zettly-executables"]
print("zettly-executables:", trusted)
sys.exit(0 if trusted == ["/usr/bin/zettly", sys.argv[2]] else 1)
EOF

# wl-clipboard needs a keyboard on the seat and focus for its window.
wl-copy --paste-once "copied in GNOME" || fail "wl-copy"
pasted=$(wl-paste --no-newline) || fail "wl-paste"
[ "$pasted" = "copied in GNOME" ] || fail "wl-paste read '$pasted'"

shot="$XDG_RUNTIME_DIR/screenshot.png"
"$ZETTLY_SCREENSHOT_CMD" "$shot" || fail "the screenshot helper"
/usr/bin/python3 - "$shot" <<'EOF' || fail "the screenshot is not a 1280x800 PNG"
import struct, sys
data = open(sys.argv[1], "rb").read(24)
width, height = struct.unpack(">II", data[16:24])
print(f"screenshot: {width}x{height}")
sys.exit(0 if data[:8] == b"\x89PNG\r\n\x1a\n" and (width, height) == (1280, 800) else 1)
EOF

exit "$failures"
