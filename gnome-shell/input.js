// Keys in and out: the global shortcut that opens the history window, and
// the paste keys typed into the window in front through a virtual keyboard.
// No imports (see bridge.js).

// The paste waits this long for the user to let go of the modifiers still
// held from picking an entry, looking this often, then types anyway.
const RELEASE_WAIT_MS = 2000;
const RELEASE_POLL_MS = 15;

// Whether a modifier that would change the typed keys is held: Shift,
// Control, Alt, Super or Meta. Caps Lock and Num Lock are states, not keys
// held, and do not count.
export function modifiersHeld(mask, Clutter) {
    const held = Clutter.ModifierType.SHIFT_MASK | Clutter.ModifierType.CONTROL_MASK |
        Clutter.ModifierType.MOD1_MASK | Clutter.ModifierType.MOD4_MASK |
        Clutter.ModifierType.SUPER_MASK | Clutter.ModifierType.META_MASK;
    return (mask & held) !== 0;
}

// deps: {GLib, Clutter, Meta, Shell, Main, global, bridgeError}.
export function createInput({GLib, Clutter, Meta, Shell, Main, global, bridgeError}) {
    const display = global.display;
    let hotKeyPressed = null;
    // The shortcut held: {accelerator, action, name}.
    let hotKey = null;
    let acceleratorId = 0;
    let keyboard = null;
    // Pastes run one after the other; those queued when the client goes
    // are dropped (stop() counts the clients).
    let pastes = Promise.resolve();
    let clients = 0;
    // The wait of the paste under way: {timeoutId, reject}.
    let waiting = null;

    // Since Mutter 47 the backend is the stage's context's; the global
    // getter is all older ones have.
    function seat() {
        const context = global.stage.context;
        const backend = context?.get_backend ? context.get_backend() : Clutter.get_default_backend();
        return backend.get_default_seat();
    }

    function waitForRelease() {
        return new Promise((resolve, reject) => {
            const deadline = GLib.get_monotonic_time() + RELEASE_WAIT_MS * 1000;
            const released = () => !modifiersHeld(global.get_pointer()[2], Clutter);
            if (released()) {
                resolve();
                return;
            }
            const timeoutId = GLib.timeout_add(GLib.PRIORITY_DEFAULT, RELEASE_POLL_MS, () => {
                if (!released() && GLib.get_monotonic_time() < deadline)
                    return GLib.SOURCE_CONTINUE;
                waiting = null;
                resolve();
                return GLib.SOURCE_REMOVE;
            });
            waiting = {timeoutId, reject};
        });
    }

    async function type(keyvals) {
        await waitForRelease();
        for (const keyval of keyvals)
            keyboard.notify_keyval(GLib.get_monotonic_time(), keyval, Clutter.KeyState.PRESSED);
        for (const keyval of [...keyvals].reverse())
            keyboard.notify_keyval(GLib.get_monotonic_time(), keyval, Clutter.KeyState.RELEASED);
    }

    function grab(accelerator) {
        const action = display.grab_accelerator(accelerator, Meta.KeyBindingFlags.NONE);
        if (action === Meta.KeyBindingAction.NONE)
            return null;
        const name = Meta.external_binding_name_for_action(action);
        Main.wm.allowKeybinding(name, Shell.ActionMode.NORMAL | Shell.ActionMode.OVERVIEW);
        return {accelerator, action, name};
    }

    function ungrab(held) {
        display.ungrab_accelerator(held.action);
        Main.wm.allowKeybinding(held.name, Shell.ActionMode.NONE);
    }

    function releaseHotKey() {
        if (!hotKey)
            return;
        ungrab(hotKey);
        hotKey = null;
        display.disconnect(acceleratorId);
        acceleratorId = 0;
    }

    return {
        // `pressed()` runs on each press of the bound shortcut.
        start(pressed) {
            hotKeyPressed = pressed;
            // Made now, not at the first paste: where it is the seat's only
            // keyboard (a headless Shell), applications get their keyboard
            // only once it appears, and would miss the first keys typed.
            keyboard = seat().create_virtual_device(Clutter.InputDeviceType.KEYBOARD_DEVICE);
        },

        stop() {
            clients += 1;
            releaseHotKey();
            hotKeyPressed = null;
            if (waiting) {
                GLib.source_remove(waiting.timeoutId);
                waiting.reject(bridgeError('Failed', 'the paste was cancelled'));
                waiting = null;
            }
            // Lets go of any key it still holds now rather than at the next
            // garbage collection.
            keyboard?.run_dispose();
            keyboard = null;
        },

        // Presses `keyvals` in order and releases them in reverse once the
        // user's modifiers are up; resolves when they were typed.
        paste(keyvals) {
            const client = clients;
            const typed = pastes.then(() => {
                if (client !== clients)
                    throw bridgeError('Failed', 'the paste was cancelled');
                return type(keyvals);
            });
            pastes = typed.catch(() => {});
            return typed;
        },

        // Binds `accelerator` in place of the shortcut held ("" binds none);
        // false when the Shell refuses it, and then none is held. The old
        // one goes first: the Shell would refuse the same keys spelt
        // differently as taken.
        bindHotKey(accelerator) {
            if (accelerator === (hotKey?.accelerator ?? ''))
                return true;
            releaseHotKey();
            if (accelerator === '')
                return true;
            hotKey = grab(accelerator);
            if (!hotKey)
                return false;
            acceleratorId = display.connect('accelerator-activated', (_display, action) => {
                if (action === hotKey?.action)
                    hotKeyPressed?.();
            });
            return true;
        },
    };
}
