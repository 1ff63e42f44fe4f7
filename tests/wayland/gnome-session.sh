# shellcheck shell=bash
# The variables come from run-in-compositor.sh, and it reads those set here.
# shellcheck disable=SC2154,SC2034
#
# GNOME Shell for run-in-compositor.sh, which sources this file and calls
# gnome_prepare before the session bus starts, gnome_start after it and
# gnome_wait once the Wayland socket exists. Uses its variables: work,
# runtime, home, here, log, socket, test_user, as_user, session_env,
# staged_programs, startup_timeout.
#
# GNOME Shell 43 runs headless on mutter's virtual monitor. It aborts
# without a system bus and asks logind for its session, so it gets a system
# bus of its own with python-dbusmock's logind on it. Its settings come from
# a keyfile (GSETTINGS_BACKEND=keyfile), not from the user's dconf, and keep
# a fresh session from greeting anyone: no welcome tour, no notification
# about the missing screen lock, no animations, no idle blanking.

gnome_extension_uuid=

# Settings, the extension, and the environment of the shell and COMMAND.
gnome_prepare() {
    local settings="$home/.config/glib-2.0/settings"
    local shell_data="$home/.local/share/gnome-shell"
    mkdir -p "$settings" "$shell_data/extensions"
    # The shell tells about the missing screen lock once per user.
    touch "$shell_data/lock-warning-shown"

    # The helpers run as the test user, who may not reach this folder.
    mkdir -m 0755 "$work/gnome"
    cp "$here/gnome-keyboard.py" "$here/gnome-screenshot.py" "$work/gnome/"
    chmod 0755 "$work/gnome/"*

    # The tests' eyes: unsafe mode, in which the shell answers Eval.
    cp -r "$here/gnome/eyes@zettly.test" "$shell_data/extensions/"
    local enabled="['eyes@zettly.test']"
    if [ -n "${ZETTLY_GNOME_EXTENSION:-}" ]; then
        gnome_install_extension "$ZETTLY_GNOME_EXTENSION" "$shell_data/extensions"
        enabled="['eyes@zettly.test', '$gnome_extension_uuid']"
    fi

    cat >"$settings/keyfile" <<EOF
[org/gnome/shell]
enabled-extensions=$enabled
disable-user-extensions=false
welcome-dialog-last-shown-version='999'

[org/gnome/desktop/interface]
enable-animations=false

[org/gnome/desktop/background]
picture-options='none'

[org/gnome/desktop/session]
idle-delay=uint32 0

[org/gnome/desktop/screensaver]
lock-enabled=false
EOF
    if [ ${#as_user[@]} -gt 0 ]; then
        chown -R "$test_user:" "$home/.config" "$home/.local"
    fi

    session_env+=(
        XDG_CURRENT_DESKTOP=GNOME
        GSETTINGS_BACKEND=keyfile
        DBUS_SYSTEM_BUS_ADDRESS="unix:path=$runtime/system_bus"
        ZETTLY_SCREENSHOT_CMD="$work/gnome/gnome-screenshot.py"
    )
}

# Copies the extension folder DIR (named after its uuid) to the test user's
# extensions and lets it trust the programs the test runs: their paths are
# appended to the list under "zettly-executables" when metadata.json has one.
gnome_install_extension() {
    local source=${1%/} extensions=$2
    if [ ! -f "$source/metadata.json" ]; then
        echo "run-in-compositor: ZETTLY_GNOME_EXTENSION=$1 is not an extension folder (no metadata.json)" >&2
        exit 2
    fi
    gnome_extension_uuid=$(basename "$source")
    local target="$extensions/$gnome_extension_uuid"
    cp -r "$source" "$target"
    /usr/bin/python3 - "$target/metadata.json" "$gnome_extension_uuid" "${staged_programs[@]}" <<'EOF' || exit 2
import json
import sys

path, uuid, programs = sys.argv[1], sys.argv[2], sys.argv[3:]
with open(path, encoding="utf-8") as file:
    metadata = json.load(file)
# The shell would only log this and leave the extension out.
if metadata.get("uuid") != uuid:
    sys.exit(f"run-in-compositor: {path} names the uuid {metadata.get('uuid')!r}, "
             f"its folder {uuid!r}")
if "zettly-executables" in metadata:
    metadata["zettly-executables"] += [p for p in programs
                                       if p not in metadata["zettly-executables"]]
    with open(path, "w", encoding="utf-8") as file:
        json.dump(metadata, file, indent=2)
EOF
}

gnome_call() {
    run_as_user gdbus call --session --dest org.gnome.Shell --object-path /org/gnome/Shell "$@"
}

gnome_fail() {
    gnome_fail_with "$log" "$1"
}

# gnome_fail_with LOG MESSAGE
gnome_fail_with() {
    echo "run-in-compositor: $2; its log:" >&2
    sed 's/^/    /' "$1" >&2
    exit 125
}

# The system bus with logind on it, then the shell. Sets compositor_pid and
# system_bus_pid, logind_pid for the cleanup.
gnome_start() {
    if ! command -v gnome-shell >/dev/null; then
        echo "run-in-compositor: gnome-shell is not installed" >&2
        exit 125
    fi
    if ! /usr/bin/python3 -c 'import dbusmock' 2>/dev/null; then
        echo "run-in-compositor: python3-dbusmock is not installed" >&2
        exit 125
    fi
    # No service folders: nothing is activated on this bus, every name on
    # it is one this script started.
    cat >"$work/system-bus.conf" <<EOF
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path=$runtime/system_bus</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_type="method_call"/>
    <allow send_type="signal"/>
    <allow send_requested_reply="true" send_type="method_return"/>
    <allow send_requested_reply="true" send_type="error"/>
    <allow receive_type="method_call"/>
    <allow receive_type="method_return"/>
    <allow receive_type="error"/>
    <allow receive_type="signal"/>
  </policy>
</busconfig>
EOF
    setsid "${as_user[@]}" env "${session_env[@]}" \
        dbus-daemon --config-file="$work/system-bus.conf" --nofork --nopidfile \
        >"$work/system-bus.log" 2>&1 &
    system_bus_pid=$!
    # dbusmock connects once, at start: the bus must be listening by then.
    local deadline=$((SECONDS + startup_timeout))
    until [ -S "$runtime/system_bus" ]; do
        if [ $SECONDS -ge $deadline ] || ! kill -0 "$system_bus_pid" 2>/dev/null; then
            gnome_fail_with "$work/system-bus.log" "the private system bus did not start"
        fi
        sleep 0.1
    done
    setsid "${as_user[@]}" env "${session_env[@]}" \
        /usr/bin/python3 -m dbusmock --system --template logind \
        >"$work/logind.log" 2>&1 &
    logind_pid=$!
    run_as_user gdbus wait --system --timeout "$startup_timeout" org.freedesktop.login1 ||
        gnome_fail_with "$work/logind.log" "the logind mock did not start"

    setsid "${as_user[@]}" env "${session_env[@]}" \
        gnome-shell --headless --wayland --no-x11 --wayland-display="$socket" \
        --virtual-monitor 1280x800 >"$log" 2>&1 &
    compositor_pid=$!
}

# Waits until the shell has finished starting and the extension is enabled,
# hides the overview the shell starts in (a window opened over it gets no
# keyboard focus) and gives the seat a keyboard. Sets keyboard_pid.
gnome_wait() {
    local deadline=$((SECONDS + startup_timeout))
    # The log line follows the startup animation; the D-Bus objects exist
    # from before it, and the overview shows at its start.
    until grep -q "GNOME Shell started at" "$log"; do
        kill -0 "$compositor_pid" 2>/dev/null || gnome_fail "GNOME Shell exited"
        [ $SECONDS -lt $deadline ] || gnome_fail "GNOME Shell did not finish starting"
        sleep 0.1
    done
    [ -z "$gnome_extension_uuid" ] || gnome_wait_for_extension "$deadline"

    gnome_call --method org.freedesktop.DBus.Properties.Set \
        org.gnome.Shell OverviewActive "<false>" >/dev/null ||
        gnome_fail "GNOME Shell did not answer on the session bus"
    until gnome_call --method org.freedesktop.DBus.Properties.Get \
        org.gnome.Shell OverviewActive | grep -q false; do
        [ $SECONDS -lt $deadline ] || gnome_fail "the overview did not close"
        sleep 0.1
    done

    setsid "${as_user[@]}" env "${session_env[@]}" \
        /usr/bin/python3 "$work/gnome/gnome-keyboard.py" >"$work/keyboard.log" 2>&1 &
    keyboard_pid=$!
    until grep -qs '^ready$' "$work/keyboard.log"; do
        kill -0 "$keyboard_pid" 2>/dev/null ||
            gnome_fail_with "$work/keyboard.log" "GNOME Shell's seat got no keyboard"
        [ $SECONDS -lt $deadline ] || gnome_fail "GNOME Shell's seat got no keyboard"
        sleep 0.1
    done
    # Mutter adds the keyboard to the seat a moment after the key event.
    # wl-paste needs it and then keyboard focus for its own window: its
    # answer, even "No selection", shows both work.
    local answer
    while :; do
        answer=$(run_as_user WAYLAND_DISPLAY="$socket" timeout 10 wl-paste --list-types 2>&1) &&
            break
        case "$answer" in
            *"No selection"*) break ;;
            *"has no keyboard"*) ;;
            *) gnome_fail "wl-paste found no working clipboard in GNOME Shell: ${answer:-no answer}" ;;
        esac
        [ $SECONDS -lt $deadline ] || gnome_fail "GNOME Shell's seat got no keyboard"
        sleep 0.1
    done
}

# Waits until the extension is enabled; fails when the shell gave up on it.
gnome_wait_for_extension() {
    local deadline=$1 info state
    while :; do
        info=$(gnome_call --method org.gnome.Shell.Extensions.GetExtensionInfo \
            "$gnome_extension_uuid") || gnome_fail "GNOME Shell did not answer on the session bus"
        state=$(sed -n "s/.*'state': <\([0-9]*\)\(\.0\)\?>.*/\1/p" <<<"$info")
        case "$state" in
            1) return 0 ;;
            3) gnome_fail "the extension $gnome_extension_uuid failed: $info" ;;
            4) gnome_fail "the extension $gnome_extension_uuid does not list $(gnome-shell --version) in its shell-version: $info" ;;
        esac
        [ $SECONDS -lt "$deadline" ] ||
            gnome_fail "the extension $gnome_extension_uuid was not enabled: $info"
        sleep 0.1
    done
}
