#!/usr/bin/env bash
# Figures of the running app on a private Xvfb: idle CPU and wake-ups,
# resident memory (idle and with a full history), copy-to-stored latency of
# xclip copies and how many of a quick burst of copies are kept.
#
#   bench/app_bench.sh [path/to/zettly]      (default build/app/zettly)
#
# Inside a Wayland compositor (tests/wayland/run-in-compositor.sh sway --
# bench/app_bench.sh) it measures the native Wayland app instead, with
# wl-copy making the copies.
#
# It builds nothing. IDLE_SECONDS shortens the idle window for a quick look;
# the figure is only meaningful over the full 60 s. OPEN_SECONDS (10) is how
# long the wake-ups of the open, untouched history window are counted.
# TEXTS (500) is the size of the history the memory figures are taken with;
# TEXTS=100000 shows what a large history costs beside the default run.
set -euo pipefail

app=${1:-build/app/zettly}
idle_seconds=${IDLE_SECONDS:-60}
open_seconds=${OPEN_SECONDS:-10}
copies=100
texts_wanted=${TEXTS:-500}
images_wanted=15

session=x11
copier=xclip
if [ -n "${WAYLAND_DISPLAY:-}" ]; then
    session=wayland
    copier=wl-copy
    # The app gets a runtime folder of its own below; libwayland takes the
    # socket's whole path.
    case "$WAYLAND_DISPLAY" in /*) ;; *) export WAYLAND_DISPLAY="$XDG_RUNTIME_DIR/$WAYLAND_DISPLAY" ;; esac
fi
for tool in $([ $session = x11 ] && echo Xvfb xdotool) $copier python3; do
    command -v "$tool" >/dev/null || { echo "app_bench: $tool is missing (scripts/setup)" >&2; exit 1; }
done
[ -x "$app" ] || { echo "app_bench: no executable at $app" >&2; exit 1; }
app=$(realpath "$app")

work=$(mktemp -d "${TMPDIR:-/tmp}/zettly-bench-XXXXXX")
app_pid=
xvfb_pid=
cleanup() {
    for pid in $app_pid $xvfb_pid; do
        kill "$pid" 2>/dev/null && wait "$pid" 2>/dev/null || true
    done
    rm -rf "$work"
}
trap cleanup EXIT

# Polls until "$@" succeeds, for at most $1 seconds.
wait_for() {
    local seconds=$1
    shift
    local end=$((SECONDS + seconds))
    until "$@"; do
        ((SECONDS < end)) || return 1
        sleep 0.05
    done
}

if [ $session = x11 ]; then
    # -displayfd lets the server pick a display number nobody else holds.
    Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp 3>"$work/display" 2>"$work/xvfb.log" &
    xvfb_pid=$!
    wait_for 10 test -s "$work/display" || { echo "app_bench: Xvfb did not start" >&2; cat "$work/xvfb.log" >&2; exit 1; }
    export DISPLAY=":$(head -n1 "$work/display")"
    qt_platform=xcb
    where="Xvfb $DISPLAY"
else
    unset DISPLAY
    qt_platform=wayland
    where="Wayland $WAYLAND_DISPLAY"
fi

export XDG_CONFIG_HOME="$work/config" XDG_DATA_HOME="$work/data" XDG_RUNTIME_DIR="$work/run"
mkdir -m 0700 -p "$XDG_CONFIG_HOME/Zettly" "$XDG_DATA_HOME" "$XDG_RUNTIME_DIR"
# The default history keeps 200 texts; the full-history figure needs more.
limit=$((texts_wanted > 1000 ? texts_wanted : 1000))
echo "{\"clipboardLimit\": $limit, \"saveImages\": true}" >"$XDG_CONFIG_HOME/Zettly/defaults.json"
library="$XDG_DATA_HOME/Zettly/Library"

QT_QPA_PLATFORM=$qt_platform "$app" 2>"$work/app.log" &
app_pid=$!
wait_for 10 test -S "$XDG_RUNTIME_DIR/zettly.sock" || { echo "app_bench: the app did not start" >&2; cat "$work/app.log" >&2; exit 1; }

thread_switches() {  # "tid count" per thread: its context switches, each one a wake-up
    for task in /proc/"$app_pid"/task/*; do
        awk -v tid="${task##*/}" '$1 ~ /_ctxt_switches:$/ { n += $2 } END { print tid, n + 0 }' \
            "$task/status" 2>/dev/null || true
    done
}
wakeups_between() {  # before-file after-file: new threads count in full, ended ones not at all
    awk 'NR == FNR { before[$1] = $2; next } { n += $2 - (($1 in before) ? before[$1] : 0) } END { print n + 0 }' "$1" "$2"
}
cpu_ticks() {  # utime + stime; the fields after the command name, which may hold spaces
    local rest
    rest=$(sed 's/^.*) //' "/proc/$app_pid/stat")
    awk '{ print $12 + $13 }' <<<"$rest"
}
rss_mb() {  # field: VmRSS, RssAnon or RssFile
    awk -v f="${1:-VmRSS}:" '$1 == f { printf "%.1f", $2 * 1024 / 1e6 }' "/proc/$app_pid/status"
}
print_rss() {  # label
    local rss
    rss=$(rss_mb)
    printf '%-33s%7s MB                (target < 60 MB)   %s  [anonymous %s MB, files %s MB]\n' \
        "resident memory, $1:" "$rss" "$(verdict "$rss" 60)" "$(rss_mb RssAnon)" "$(rss_mb RssFile)"
}
pss_mb() {  # proportional set size: the app's share of what it has resident
    awk '$1 == "Pss:" { printf "%.1f", $2 * 1024 / 1e6 }' "/proc/$app_pid/smaps_rollup"
}
toggle_window() {
    QT_QPA_PLATFORM=$qt_platform "$app" --toggle 2>>"$work/app.log"
}
window_shown() {  # only X11 can tell; elsewhere the wait below has to do
    [ $session != x11 ] || xdotool search --onlyvisible --name '^Zettly$' >/dev/null 2>&1
}
open_window() {
    toggle_window
    wait_for 10 window_shown || { echo "app_bench: the history window did not open" >&2; exit 1; }
    sleep 2  # the opening's own work (reading the history, the first paints) is over
}
window_hidden() { [ $session != x11 ] || ! window_shown; }
close_window() {
    toggle_window
    wait_for 10 window_hidden || { echo "app_bench: the history window did not close" >&2; exit 1; }
    sleep 1
}
print_open_wakeups() {  # counts over open_seconds with the window open and untouched
    thread_switches >"$work/switches.before"
    sleep "$open_seconds"
    thread_switches >"$work/switches.after"
    local woken rate
    woken=$(wakeups_between "$work/switches.before" "$work/switches.after")
    rate=$(awk -v d="$woken" -v s="$open_seconds" 'BEGIN { printf "%.2f", d / s }')
    # The text cursor's blink is the one thing allowed. It repaints twice a
    # second, and each repaint is about five context switches on X11: the
    # timer, and the round trip that hands the shared-memory image to the
    # server, which wakes Qt's event reader too. With the blink off
    # (QApplication::setCursorFlashTime(0) through gdb) the open window
    # makes none at all.
    printf '%-33s%7s per second      (target <= 12)     %s  [%d context switches of %d threads]\n' \
        "window open, wake-ups over $open_seconds s:" "$rate" \
        "$(awk -v r="$rate" 'BEGIN { print (r <= 12) ? "ok" : "OVER TARGET" }')" \
        "$woken" "$(ls /proc/"$app_pid"/task | wc -l)"
}
print_pss() {  # label, target in MB
    local pss
    pss=$(pss_mb)
    printf '%-33s%7s MB                (target < %s MB)  %s\n' "PSS, $1:" "$pss" "$2" "$(verdict "$pss" "$2")"
}
verdict() {  # value, limit
    awk -v v="$1" -v t="$2" 'BEGIN { print (v < t) ? "ok" : "OVER TARGET" }'
}

cat >"$work/helper.py" <<'EOF'
import os, random, sqlite3, struct, subprocess, sys, time, uuid, zlib, hashlib

library = os.environ["LIBRARY"]
texts_db = os.path.join(library, "clipboard.sqlite")
media_db = os.path.join(library, "clipmedia.sqlite")
xclips = []
wayland = os.environ.get("COPIER") == "wl-copy"

def count(db, table, where="1", args=()):
    # The app creates its files and tables on the first capture.
    try:
        with sqlite3.connect(f"file:{db}?mode=ro", uri=True, timeout=1) as c:
            return c.execute(f"SELECT count(*) FROM {table} WHERE {where}", args).fetchone()[0]
    except sqlite3.OperationalError:
        return 0

def xclip(args, data):
    for p in xclips:
        p.poll()
    if wayland:  # the same copy made by a Wayland client
        command = ["wl-copy", "--foreground"] + (["--type", args[1]] if args[0] == "-t" else [])
    else:
        command = ["xclip", "-quiet", "-selection", "clipboard", *args]
    p = subprocess.Popen(command,
                         stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    p.stdin.write(data)
    p.stdin.close()
    xclips.append(p)

def wait(ready, what, seconds=10):
    end = time.monotonic() + seconds
    while not ready():
        if time.monotonic() > end:
            sys.exit(f"app_bench: {what} never reached the database")
        time.sleep(0.005)

def copy_text(text):
    xclip(["-i"], text.encode())
    wait(lambda: count(texts_db, "items", "text = ?", (text,)) > 0, repr(text))

def png(w, h):
    raw = b"".join(b"\0" + os.urandom(w * 3) for _ in range(h))
    chunk = lambda kind, data: (struct.pack(">I", len(data)) + kind + data
                                + struct.pack(">I", zlib.crc32(kind + data)))
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", w, h, 8, 2, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(raw, 1)) + chunk(b"IEND", b""))

def latency(n):
    copy_text(f"warm-up {uuid.uuid4()}")  # opens the database, not counted
    samples = []
    for i in range(n):
        # A random pause puts each copy at a random point of the poll cycle;
        # copying right after the previous capture would always wait a full cycle.
        time.sleep(random.uniform(0, 0.5))
        text = f"bench copy {i} {uuid.uuid4()}"
        start = time.monotonic()
        copy_text(text)
        samples.append((time.monotonic() - start) * 1000)
    samples.sort()
    rank = lambda p: samples[max(0, -(-p * len(samples) // 100) - 1)]
    print(f"copy-to-stored latency p50:      {rank(50):7.0f} ms    ({n} {os.environ['COPIER']} copies at random moments)")
    print(f"copy-to-stored latency p99:      {rank(99):7.0f} ms    (min {samples[0]:.0f} ms, max {samples[-1]:.0f} ms)")

def burst(n):
    # Copies 50 ms apart, each by its own xclip, as fast typing of Ctrl+C does.
    stamp = uuid.uuid4()
    made = [f"burst {i} {stamp}" for i in range(n)]
    for text in made:
        xclip(["-i"], text.encode())
        time.sleep(0.05)
    time.sleep(2)  # the last one has time to arrive
    kept = sum(count(texts_db, "items", "text = ?", (t,)) for t in made)
    print(f"copies kept of {n} made 50 ms apart:  {kept:4d}")

def texts(total):
    captured = count(texts_db, "items")
    inserted = total - 1 - captured  # the last one is a capture again, below
    now = time.time()
    # 50 to 2,000 bytes, most of them short.
    entries = [f"history entry {i}: " + "lorem ipsum dolor sit amet " * (1 + (i * i) % 71 // (1 + i % 4))
               for i in range(inserted)]
    # Rows shaped exactly as the app's own insert writes them (no sync key, so no rid).
    with sqlite3.connect(texts_db, timeout=10) as c:
        c.executemany("INSERT INTO items(id, text, hash, type, created, pinned, modified, dirty, rid) "
                      "VALUES(?, ?, ?, 'text', ?, 0, ?, 1, NULL)",
                      [(str(uuid.uuid4()).upper(), t, hashlib.sha256(t.encode()).hexdigest(),
                        now - 1000 + i, now - 1000 + i) for i, t in enumerate(entries)])
    copy_text(f"last copy {uuid.uuid4()}")
    print(f"history now: {count(texts_db, 'items')} texts ({captured + 1} captured from xclip "
          f"copies, {inserted} inserted with SQL into the live database)")

def long_texts(n):
    # The largest texts the store takes, newest of all so that the history
    # window lists them: prose with capitals (a folded copy would differ
    # from it), every tenth with accents.
    rng = random.Random(7)
    words = ["the", "Meeting", "notes", "build", "Review", "deploy", "server", "and", "London",
             "function", "return", "value", "Anna", "draft", "invoice", "Thursday"]
    now = time.time()
    rows = []
    for i in range(n):
        parts, size = [f"Long entry {i}:"], 0
        while size < 99_000:
            word = rng.choice(words) if i % 10 or rng.random() > 0.05 else "Café"
            parts.append(word)
            size += len(word.encode()) + 1
        t = " ".join(parts)[:99_900]
        rows.append((str(uuid.uuid4()).upper(), t, hashlib.sha256(t.encode()).hexdigest(),
                     now + i, now + i))
    with sqlite3.connect(texts_db, timeout=10) as c:
        c.executemany("INSERT INTO items(id, text, hash, type, created, pinned, modified, dirty, rid) "
                      "VALUES(?, ?, ?, 'text', ?, 0, ?, 1, NULL)", rows)
    total = sum(len(r[1].encode()) for r in rows)
    print(f"history now: {count(texts_db, 'items')} texts, {n} of them of about 100 KB "
          f"({total / 1e6:.0f} MB, inserted with SQL)")

def images(n):
    for i in range(n):
        w, h = 960 + 16 * i, 640 + 8 * i  # distinct sizes: never taken for the same picture
        before = count(media_db, "media")
        xclip(["-t", "image/png", "-i"], png(w, h))
        wait(lambda: count(media_db, "media") > before, f"image {i}")
    print(f"history now: {count(texts_db, 'items')} texts, {count(media_db, 'media')} images "
          f"(captured from xclip copies of {n} random-pixel PNGs, 960x640 to "
          f"{960 + 16 * (n - 1)}x{640 + 8 * (n - 1)})")

try:
    {"latency": latency, "burst": burst, "texts": texts, "long_texts": long_texts,
     "images": images}[sys.argv[1]](int(sys.argv[2]))
finally:
    for p in xclips:
        if p.poll() is None:
            p.terminate()
            p.wait()
EOF
export LIBRARY="$library" COPIER="$copier"

echo "Zettly app benchmark: $app on $where, $(nproc) CPUs"
sleep 5  # lets start-up work finish before the idle window opens
hz=$(getconf CLK_TCK)
before=$(cpu_ticks)
thread_switches >"$work/switches.before"
sleep "$idle_seconds"
after=$(cpu_ticks)
thread_switches >"$work/switches.after"
woken=$(wakeups_between "$work/switches.before" "$work/switches.after")
cpu=$(awk -v d=$((after - before)) -v hz="$hz" -v s="$idle_seconds" 'BEGIN { printf "%.3f", d / hz / s * 100 }')
printf '%-33s%7s %% of one core   (target < 0.1 %%)  %s  [%d/%s s of CPU time]\n' \
    "idle CPU over $idle_seconds s:" "$cpu" "$(verdict "$cpu" 0.1)" $((after - before)) "$hz"
rate=$(awk -v d="$woken" -v s="$idle_seconds" 'BEGIN { printf "%.2f", d / s }')
printf '%-33s%7s per second      (target 0)         %s  [%d context switches of %d threads]\n' \
    "idle wake-ups over $idle_seconds s:" "$rate" \
    "$(awk -v r="$rate" 'BEGIN { print (r < 0.05) ? "ok" : "OVER TARGET" }')" \
    "$woken" "$(ls /proc/"$app_pid"/task | wc -l)"
print_rss "idle"

python3 "$work/helper.py" latency "$copies"
python3 "$work/helper.py" burst 30
python3 "$work/helper.py" texts "$texts_wanted"
print_rss "$texts_wanted texts"
python3 "$work/helper.py" images "$images_wanted"
sleep 3  # let the last image's save finish
print_rss "+ $images_wanted images"
worker=$(pgrep -P "$app_pid" -f zettly-image-worker || true)
if [ -n "$worker" ]; then
    awk '$1 == "VmHWM:" { printf "image worker (separate process, exits 30 s after the last image): peak %.1f MB\n", $2 * 1024 / 1e6 }' \
        "/proc/$worker/status"
fi

echo "  (the history is read when the history window opens; these figures are the app after"
echo "   those captures: the SQLite pages it touched and the shared libraries it mapped ('files');"
echo "   images are decoded in zettly-image-worker, which is not part of the app's figure)"

open_window
print_open_wakeups
print_pss "window open" 120
close_window

# A separate step, so that the figures above stay comparable between runs.
python3 "$work/helper.py" long_texts 500
open_window
print_pss "window open, 500 x 100 KB" 120
close_window
print_pss "window closed again" 120
