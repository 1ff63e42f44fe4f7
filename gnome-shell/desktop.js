// What the app needs to know about the desktop and its windows: the window
// in front and its application, the other applications' windows, the
// pointer, the monitors, and placing the app's own window where it asks.
// No imports (see bridge.js).

// How long a placement waits for its window to be shown.
const PLACEMENT_WAIT_MS = 2000;

// The application a window belongs to as the app names it: the desktop
// file's id without ".desktop", else the GTK application id, else WM_CLASS.
// The tracker makes up an app ("window:N") for windows it cannot match to a
// desktop file; that name means nothing to the app.
export function appIdOf(window, tracker) {
    const app = tracker.get_window_app(window);
    if (app && !app.is_window_backed()) {
        const id = app.get_id();
        if (id)
            return id.endsWith('.desktop') ? id.slice(0, -'.desktop'.length) : id;
    }
    return window.get_gtk_application_id() || window.get_wm_class() || '';
}

// Monitor indices, the primary one first.
function monitorOrder(count, primary) {
    const order = [];
    for (let index = 0; index < count; index++) {
        if (index !== primary)
            order.push(index);
    }
    if (primary >= 0 && primary < count)
        order.unshift(primary);
    return order;
}

// deps: {GLib, Meta, Shell, Main, global, log}.
export function createDesktop({GLib, Meta, Shell, Main, global, log}) {
    const display = global.display;
    const tracker = Shell.WindowTracker.get_default();
    let clientPid = 0;
    // Placements waiting for their window, by title: {x, y, timeoutId}.
    const placements = new Map();
    // The client's windows not shown yet, with their "shown" handler.
    const candidates = new Map();
    let windowCreatedId = 0;

    function windowById(windowId) {
        return display.list_all_windows().find(window => window.get_id() === windowId) ?? null;
    }

    // Whether the window is on screen already. Its actor stays hidden until
    // the window is shown for the first time.
    function isShown(window) {
        return window.get_compositor_private()?.visible ?? false;
    }

    function moveAndFocus(window, x, y) {
        window.move_frame(true, x, y);
        Main.activateWindow(window);
    }

    function stopWatching() {
        for (const [window, handlerId] of candidates)
            window.disconnect(handlerId);
        candidates.clear();
        if (windowCreatedId) {
            display.disconnect(windowCreatedId);
            windowCreatedId = 0;
        }
    }

    function dropPlacement(title) {
        const placement = placements.get(title);
        if (!placement)
            return;
        if (placement.timeoutId)
            GLib.source_remove(placement.timeoutId);
        placements.delete(title);
        if (placements.size === 0)
            stopWatching();
    }

    function onShown(window) {
        const title = window.get_title();
        const placement = placements.get(title);
        if (!placement)
            return;
        moveAndFocus(window, placement.x, placement.y);
        dropPlacement(title);
    }

    function watchCandidate(window) {
        if (window.get_pid() !== clientPid || candidates.has(window) || isShown(window))
            return;
        candidates.set(window, window.connect('shown', onShown));
    }

    return {
        start(pid) {
            clientPid = pid;
        },

        stop() {
            for (const title of [...placements.keys()])
                dropPlacement(title);
            clientPid = 0;
        },

        // [id, appId] of the focused window; [0, ''] when none has the focus.
        focusedWindow() {
            const window = display.get_focus_window();
            return window ? [window.get_id(), appIdOf(window, tracker)] : [0, ''];
        },

        // [appId, title] of the other applications' normal windows, oldest
        // first.
        listWindows() {
            return display.list_all_windows()
                .filter(window => window.get_window_type() === Meta.WindowType.NORMAL &&
                    !window.is_skip_taskbar() && window.get_pid() !== clientPid)
                .sort((a, b) => a.get_stable_sequence() - b.get_stable_sequence())
                .map(window => [appIdOf(window, tracker), window.get_title() ?? '']);
        },

        activate(windowId) {
            const window = windowById(windowId);
            if (window)
                Main.activateWindow(window);
            return window !== null;
        },

        // Gives the window the keyboard unless it has it; false when it is gone.
        focus(windowId) {
            if (display.get_focus_window()?.get_id() === windowId)
                return true;
            return this.activate(windowId);
        },

        pointer() {
            const [x, y] = global.get_pointer();
            return [x, y];
        },

        // Per monitor, primary first: frame then work area, x, y, w, h each.
        monitors() {
            const workspace = global.workspace_manager.get_active_workspace();
            return monitorOrder(display.get_n_monitors(), display.get_primary_monitor())
                .map(index => {
                    const frame = display.get_monitor_geometry(index);
                    const work = workspace.get_work_area_for_monitor(index);
                    return [frame.x, frame.y, frame.width, frame.height,
                        work.x, work.y, work.width, work.height];
                });
        },

        // Moves the client's window titled `title` to x, y and focuses it,
        // now when it is on screen, else once it is shown (within 2 s).
        place(title, x, y) {
            dropPlacement(title);
            const windows = display.list_all_windows().filter(window => window.get_pid() === clientPid);
            const shown = windows.find(window => window.get_title() === title && isShown(window));
            if (shown) {
                moveAndFocus(shown, x, y);
                return;
            }
            const timeoutId = GLib.timeout_add(GLib.PRIORITY_DEFAULT, PLACEMENT_WAIT_MS, () => {
                placements.get(title).timeoutId = 0;
                dropPlacement(title);
                log(`no window titled "${title}" was shown within ${PLACEMENT_WAIT_MS} ms; not placed`);
                return GLib.SOURCE_REMOVE;
            });
            placements.set(title, {x, y, timeoutId});
            if (!windowCreatedId) {
                windowCreatedId = display.connect('window-created',
                    (_display, window) => watchCandidate(window));
                windows.forEach(watchCandidate);
            }
        },
    };
}
