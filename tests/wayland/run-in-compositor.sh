#!/usr/bin/env bash
# Runs COMMAND in a Wayland compositor of its own, started for it and
# stopped after it:
#
#     tests/wayland/run-in-compositor.sh sway|kwin|gnome -- COMMAND [ARGS...]
#
# sway runs headless (wlroots' headless backend, software rendering, no
# input devices: only virtual ones); kwin runs with its virtual backend;
# gnome is GNOME Shell 43 headless on mutter's virtual monitor. Each gets a
# 1280x800 output, a fresh XDG_RUNTIME_DIR, a private HOME and a D-Bus
# session bus of their own, shared with COMMAND, so nothing of the user's
# session (or of another test run) is touched.
#
# gnome (see gnome-session.sh) also gets a private system bus with a mock
# logind on it (DBUS_SYSTEM_BUS_ADDRESS), GSettings from a keyfile in the
# private HOME (GSETTINGS_BACKEND=keyfile), a virtual keyboard that mutter's
# remote desktop API lends to the seat (without a keyboard no client gets
# focus, and wl-copy/wl-paste refuse to run), and the overview closed.
# Tests may ask the shell through org.gnome.Shell.Eval (a test-only
# extension, gnome/eyes@zettly.test, turns on unsafe mode). COMMAND starts
# once the shell is up; there ZETTLY_SCREENSHOT_CMD names a
# program that saves a screenshot of the session: `"$ZETTLY_SCREENSHOT_CMD"
# OUT.png` (grim cannot: mutter has no screencopy). With
# ZETTLY_GNOME_EXTENSION naming an extension folder (named after its uuid,
# with metadata.json), the shell starts with a copy of it enabled, and
# COMMAND only once it is; a list under "zettly-executables" in its
# metadata.json gets the paths COMMAND and the programs in ZETTLY_STAGE run
# from. An extension in error ends the run with 125.
#
# As root the compositor and COMMAND run as the system user zettly-test
# (created when missing): compositors refuse root or misbehave under it, and
# a desktop app never runs as root. That user must be able to execute
# COMMAND; a build tree under /root (mode 0700) is not readable by it, so an
# executable it cannot run is copied into the private folder first and run
# from there (fine for a test binary linked against Zettly's static
# libraries; a COMMAND that reads more of the build tree needs a build tree
# the user can read, e.g. under /work with mode 0755). Not as root,
# everything runs as the current user.
#
# Exit status: COMMAND's; 125 when the compositor did not start (its log is
# printed), 2 on bad usage.
set -euo pipefail

usage() {
    echo "usage: $0 sway|kwin|gnome -- COMMAND [ARGS...]" >&2
    exit 2
}

[ $# -ge 3 ] || usage
compositor=$1
[ "$2" = "--" ] || usage
shift 2
case "$compositor" in sway | kwin | gnome) ;; *) usage ;; esac

here=$(cd "$(dirname "$0")" && pwd)
test_user=zettly-test
# GNOME Shell takes a few seconds on a busy machine, more than the others.
startup_timeout=30
[ "$compositor" = gnome ] && startup_timeout=60

work=$(mktemp -d /tmp/zettly-compositor.XXXXXX)
chmod 0755 "$work"
runtime="$work/runtime"
home="$work/home"
mkdir -m 0700 "$runtime" "$home"

compositor_pid=
bus_pid=
keyboard_pid=
logind_pid=
system_bus_pid=
cleanup() {
    # The compositor and the buses run in process groups of their own
    # (setsid): whatever they started goes with them.
    local pids="$keyboard_pid $compositor_pid $logind_pid $system_bus_pid $bus_pid"
    for pid in $pids; do
        kill -TERM -- "-$pid" 2>/dev/null || true
    done
    for pid in $pids; do
        for _ in $(seq 50); do
            kill -0 "$pid" 2>/dev/null || break
            sleep 0.1
        done
        kill -KILL -- "-$pid" 2>/dev/null || true
    done
    rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

if [ "$(id -u)" -eq 0 ]; then
    if ! id "$test_user" >/dev/null 2>&1; then
        # Another run may create it at the same moment.
        useradd --system --create-home --shell /usr/sbin/nologin "$test_user" 2>/dev/null ||
            id "$test_user" >/dev/null
    fi
    chown "$test_user:" "$runtime" "$home"
    as_user=(setpriv --reuid="$test_user" --regid="$(id -g "$test_user")" --init-groups)
else
    as_user=()
fi

# What COMMAND and the compositor see. DISPLAY goes: nothing may reach an X
# server by accident.
session_env=(
    -u DISPLAY -u WAYLAND_SOCKET
    HOME="$home"
    XDG_RUNTIME_DIR="$runtime"
    XDG_CONFIG_HOME="$home/.config"
    XDG_DATA_HOME="$home/.local/share"
    XDG_CACHE_HOME="$home/.cache"
    XDG_STATE_HOME="$home/.local/state"
    XDG_SESSION_TYPE=wayland
    DBUS_SESSION_BUS_ADDRESS="unix:path=$runtime/bus"
)

run_as_user() {
    "${as_user[@]}" env "${session_env[@]}" "$@"
}

# An executable the test user cannot reach (a build tree under /root) runs
# from a copy in the private folder, and so do the programs COMMAND starts,
# named in ZETTLY_STAGE (space-separated paths): COMMAND then finds their
# copies in the folder ZETTLY_STAGED_BIN names. staged_programs lists where
# COMMAND and those programs run from, copies or not.
command=("$@")
# COMMAND runs in the private HOME: a relative path must not lose its way.
case "${command[0]}" in
    /*) ;;
    */*) command[0]="$PWD/${command[0]}" ;;
esac
staged=()
staged_programs=()
if [ ${#as_user[@]} -gt 0 ] && ! "${as_user[@]}" test -x "${command[0]}" 2>/dev/null &&
    [ -f "${command[0]}" ]; then
    mkdir -m 0755 "$work/bin"
    for file in "${command[0]}" ${ZETTLY_STAGE:-}; do
        cp "$file" "$work/bin/"
        chmod 0755 "$work/bin/$(basename "$file")"
        staged_programs+=("$(realpath "$work/bin/$(basename "$file")")")
    done
    command[0]="$work/bin/$(basename "${command[0]}")"
    staged=(ZETTLY_STAGED_BIN="$work/bin")
else
    for file in "${command[0]}" ${ZETTLY_STAGE:-}; do
        staged_programs+=("$(realpath -m "$(command -v "$file" || echo "$file")")")
    done
fi

log="$work/compositor.log"
if [ "$compositor" = gnome ]; then
    socket=wayland-zettly
    # shellcheck source-path=SCRIPTDIR source=gnome-session.sh
    . "$here/gnome-session.sh"
    gnome_prepare
fi

setsid "${as_user[@]}" env "${session_env[@]}" \
    dbus-daemon --session --nofork --nopidfile --address="unix:path=$runtime/bus" \
    >"$work/dbus.log" 2>&1 &
bus_pid=$!

case "$compositor" in
    sway)
        socket=
        cat >"$work/sway.config" <<'EOF'
output HEADLESS-1 resolution 1280x800 position 0 0
xwayland disable
default_border none
EOF
        setsid "${as_user[@]}" env "${session_env[@]}" XDG_CURRENT_DESKTOP=sway \
            WLR_BACKENDS=headless WLR_LIBINPUT_NO_DEVICES=1 WLR_RENDERER=pixman \
            sway --config "$work/sway.config" >"$log" 2>&1 &
        compositor_pid=$!
        desktop=sway
        ;;
    kwin)
        socket=wayland-zettly
        kwin=$(command -v kwin_wayland || true)
        if [ -z "$kwin" ]; then
            echo "run-in-compositor: kwin_wayland is not installed (Debian: kwin-wayland)" >&2
            exit 125
        fi
        # Debian gives kwin_wayland the file capability CAP_SYS_RESOURCE. In
        # a container whose bounding set lacks it, the kernel refuses to
        # execute the file at all ("Operation not permitted"); a copy carries
        # no capabilities and runs (KWin only uses it to raise its locked-
        # memory limit).
        if ! run_as_user "$kwin" --version >/dev/null 2>&1; then
            cp "$kwin" "$work/kwin_wayland"
            kwin="$work/kwin_wayland"
        fi
        # The test binaries have no desktop file that grants them KWin's
        # restricted interfaces: without this KWin (5.27) does not even list
        # org_kde_kwin_fake_input to them.
        setsid "${as_user[@]}" env "${session_env[@]}" XDG_CURRENT_DESKTOP=KDE \
            KWIN_WAYLAND_NO_PERMISSION_CHECKS=1 KWIN_COMPOSE=Q \
            "$kwin" --virtual --no-lockscreen --no-global-shortcuts --no-kactivities \
            --width 1280 --height 800 --socket "$socket" >"$log" 2>&1 &
        compositor_pid=$!
        desktop=KDE
        ;;
    gnome)
        gnome_start
        desktop=GNOME
        ;;
esac

found=
for _ in $(seq $((startup_timeout * 10))); do
    if ! kill -0 "$compositor_pid" 2>/dev/null; then
        break
    fi
    if [ -n "$socket" ]; then
        [ -S "$runtime/$socket" ] && found=$socket
    else
        for candidate in "$runtime"/wayland-*; do
            [ -S "$candidate" ] && found=$(basename "$candidate") && break
        done
    fi
    [ -n "$found" ] && break
    sleep 0.1
done
if [ -z "$found" ]; then
    echo "run-in-compositor: $compositor did not start; its log:" >&2
    sed 's/^/    /' "$log" >&2
    exit 125
fi
[ "$compositor" = gnome ] && gnome_wait

cd "$home"
status=0
run_as_user WAYLAND_DISPLAY="$found" XDG_CURRENT_DESKTOP="$desktop" "${staged[@]}" \
    "${command[@]}" || status=$?
if [ "$status" -ne 0 ]; then
    echo "run-in-compositor: the command failed ($status); the end of $compositor's log:" >&2
    tail -n 30 "$log" | sed 's/^/    /' >&2
fi
exit "$status"
