// The bridge's own logic, with the Shell stood in by fakes: its pure
// helpers, then the D-Bus service on the private session bus that
// dbus-run-session gives this test, called from a second connection of this
// same process (so the caller's executable is gjs's).
//   dbus-run-session -- gjs -m bridge-test.js EXTENSION_DIR
import Clutter from 'gi://Clutter';
import Gio from 'gi://Gio';
import GLib from 'gi://GLib';
import System from 'system';

const dir = Gio.File.new_for_path(ARGV[0]);
const load = name => import(dir.get_child(name).get_uri());
const {createBridge, executableFromLink, allowedExecutables, BUS_NAME, OBJECT_PATH} = await load('bridge.js');
const {createClipboard} = await load('clipboard.js');
const {createDesktop, appIdOf} = await load('desktop.js');
const {createInput, modifiersHeld} = await load('input.js');

const failures = [];
function expect(condition, what) {
    if (!condition)
        failures.push(what);
}
function expectEqual(actual, expected, what) {
    const [a, e] = [JSON.stringify(actual), JSON.stringify(expected)];
    expect(a === e, `${what}: got ${a}, expected ${e}`);
}

// --- Pure helpers ---

expectEqual(executableFromLink('/usr/bin/zettly (deleted)'), '/usr/bin/zettly',
    'an upgraded executable is still the path it was started from');
expectEqual(executableFromLink('/opt/a (deleted)/zettly'), '/opt/a (deleted)/zettly',
    'only a trailing mark is the kernel\'s');
expectEqual(allowedExecutables({'zettly-executables': ['/usr/bin/zettly', '/b/zettly']}),
    ['/usr/bin/zettly', '/b/zettly'], 'absolute paths are allowed');
for (const listed of [undefined, [], ['zettly'], '/usr/bin/zettly', [7]])
    expectEqual(allowedExecutables({'zettly-executables': listed}), null, `${listed} allows none`);

const M = Clutter.ModifierType;
for (const mask of [M.SHIFT_MASK, M.CONTROL_MASK, M.MOD1_MASK, M.MOD4_MASK, M.SUPER_MASK, M.META_MASK])
    expect(modifiersHeld(mask | M.MOD2_MASK, Clutter), `modifier mask ${mask} is held`);
expect(!modifiersHeld(M.LOCK_MASK | M.MOD2_MASK | M.BUTTON1_MASK, Clutter),
    'Caps Lock, Num Lock and a mouse button do not delay the paste');

function fakeWindow(gtkId, wmClass) {
    return {get_gtk_application_id: () => gtkId, get_wm_class: () => wmClass};
}
function trackerWith(id, windowBacked = false) {
    const app = id === null ? null : {get_id: () => id, is_window_backed: () => windowBacked};
    return {get_window_app: () => app};
}
expectEqual(appIdOf(fakeWindow('org.gtk', 'cls'), trackerWith('org.gnome.Terminal.desktop')),
    'org.gnome.Terminal', 'the desktop file names the app');
expectEqual(appIdOf(fakeWindow('org.gtk', 'cls'), trackerWith('window:3', true)), 'org.gtk',
    'a window the tracker could not match goes by its GTK id');
expectEqual(appIdOf(fakeWindow(null, 'xterm'), trackerWith(null)), 'xterm', 'then by WM_CLASS');
expectEqual(appIdOf(fakeWindow(null, null), trackerWith(null)), '', 'else it is unknown');

// --- The service, with fakes of the Shell ---

// GObject-like signals: connect, disconnect, emit.
class Signals {
    handlers = new Map();
    nextId = 1;

    connect(name, handler) {
        this.handlers.set(this.nextId, {name, handler});
        return this.nextId++;
    }

    disconnect(id) {
        if (!this.handlers.delete(id))
            throw new Error(`no handler ${id}`);
    }

    emit(name, ...args) {
        [...this.handlers.values()].filter(h => h.name === name).forEach(h => h.handler(this, ...args));
    }

    count(name) {
        return [...this.handlers.values()].filter(h => h.name === name).length;
    }
}

const CLIPBOARD = 1;
class FakeSelection extends Signals {
    set_owner(type, source) {
        this.owner = source;
        this.emit('owner-changed', type, source);
    }

    get_mimetypes(type) {
        return type === CLIPBOARD && this.owner ? [this.owner.mimeType] : [];
    }

    // Like Mutter's: at most `size` bytes of the owner's content.
    transfer_async(type, mimeType, size, output, cancellable, callback) {
        output.write_bytes(new GLib.Bytes(Uint8Array.from(this.owner.content.slice(0, size))), null);
        Promise.resolve().then(() => callback(this, null));
    }

    transfer_finish() {
        return true;
    }
}

// Refuses '<Super>taken' and any combination held.
class FakeDisplay extends Signals {
    selection = new FakeSelection();
    grabs = new Map();
    nextAction = 100;

    get_selection() {
        return this.selection;
    }

    grab_accelerator(accelerator) {
        if (accelerator === '<Super>taken' || [...this.grabs.values()].includes(accelerator))
            return 0;
        this.grabs.set(this.nextAction, accelerator);
        return this.nextAction++;
    }

    ungrab_accelerator(action) {
        return this.grabs.delete(action);
    }
}

const display = new FakeDisplay();
const typed = [];
let pointerMask = 0;
let pointerReads = 0;
const keyboard = {
    notify_keyval: (time, keyval, state) => typed.push([keyval, state, pointerMask]),
    run_dispose: () => {},
};
const fakeGlobal = {
    display,
    get_pointer() {
        pointerReads += 1;
        return [0, 0, pointerMask];
    },
    stage: {context: {get_backend: () => ({get_default_seat: () => ({create_virtual_device: () => keyboard})})}},
};
const fakeMeta = {
    SelectionType: {SELECTION_CLIPBOARD: CLIPBOARD},
    SelectionSourceMemory: {new: (mimeType, bytes) => ({mimeType, content: [...bytes.toArray()]})},
    KeyBindingAction: {NONE: 0},
    KeyBindingFlags: {NONE: 0},
    external_binding_name_for_action: action => `external-grab-${action}`,
};
const allowedModes = new Map();
const fakeMain = {wm: {allowKeybinding: (name, modes) => allowedModes.set(name, modes)}};
const fakeShell = {
    ActionMode: {NONE: 0, NORMAL: 1, OVERVIEW: 2},
    WindowTracker: {get_default: () => trackerWith(null)},
};
const logged = [];

function bridgeFor(executables) {
    return createBridge({
        GLib, Gio, Clutter, Meta: fakeMeta, Shell: fakeShell, Main: fakeMain, global: fakeGlobal,
        GLibUnix: null, GioUnix: null,
        metadata: {'zettly-executables': executables},
        shellVersion: '0.0-test',
        log: message => logged.push(message),
        createClipboard, createDesktop, createInput,
    });
}

const address = GLib.getenv('DBUS_SESSION_BUS_ADDRESS');
function connect() {
    return Gio.DBusConnection.new_for_address_sync(address,
        Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION,
        null, null);
}

// [out arguments] or the D-Bus error's name.
function call(connection, method, args = null, fdList = null) {
    return new Promise(resolve => {
        connection.call_with_unix_fd_list(BUS_NAME, OBJECT_PATH, BUS_NAME, method, args, null,
            Gio.DBusCallFlags.NONE, -1, fdList, null, (source, result) => {
                try {
                    resolve(source.call_with_unix_fd_list_finish(result)[0].deepUnpack());
                } catch (e) {
                    resolve(Gio.DBusError.get_remote_error(e) ?? e.message);
                }
            });
    });
}

function signalsTo(connection) {
    const received = [];
    connection.signal_subscribe(null, BUS_NAME, null, OBJECT_PATH, null, Gio.DBusSignalFlags.NONE,
        (_c, _sender, _path, _iface, signal, parameters) => received.push([signal, parameters.deepUnpack()]));
    return received;
}

// Runs the main loop until `condition` holds; a bound against hanging only.
async function until(condition, what) {
    for (let waited = 0; !condition(); waited += 10) {
        if (waited > 10000) {
            failures.push(`gave up waiting: ${what}`);
            return;
        }
        await new Promise(resolve => GLib.timeout_add(GLib.PRIORITY_DEFAULT, 10, () => resolve()));
    }
}

async function readThroughPipe(client, mimeType, maxBytes) {
    const cat = Gio.Subprocess.new(['cat'], Gio.SubprocessFlags.STDIN_PIPE | Gio.SubprocessFlags.STDOUT_PIPE);
    const stdin = cat.get_stdin_pipe();
    const pipe = GLib.file_read_link(`/proc/self/fd/${stdin.get_fd()}`);
    const fdList = Gio.UnixFDList.new();
    fdList.append(stdin.get_fd());
    stdin.close(null);
    const reply = await call(client, 'ReadClipboard', new GLib.Variant('(suh)', [mimeType, maxBytes, 0]), fdList);
    fdList.steal_fds().forEach(fd => GLib.close(fd));
    // The bridge runs in this process: none of its copies may outlive the
    // reply, or the app would wait for the end of the data.
    const fds = Gio.File.new_for_path('/proc/self/fd').enumerate_children('standard::symlink-target', 0, null);
    for (let info; (info = fds.next_file(null));)
        expect(info.get_symlink_target() !== pipe, `${mimeType}: the pipe is still open`);
    // The output ends only once the bridge closed its end too.
    const out = [];
    for (;;) {
        const bytes = await new Promise(resolve => cat.get_stdout_pipe().read_bytes_async(4096,
            GLib.PRIORITY_DEFAULT, null, (stream, result) => resolve(stream.read_bytes_finish(result))));
        if (bytes.get_size() === 0)
            return [reply, out];
        out.push(...bytes.toArray());
    }
}

const ownExecutable = GLib.file_read_link('/proc/self/exe');
const NOT_REGISTERED = `${BUS_NAME}.Error.NotRegistered`;

const first = connect();
let nameOwned = false;
Gio.bus_watch_name_on_connection(first, BUS_NAME, Gio.BusNameWatcherFlags.NONE,
    () => (nameOwned = true), () => (nameOwned = false));

const stranger = bridgeFor(['/nonexistent/zettly']);
stranger.enable();
await until(() => nameOwned, 'the bus name');
expectEqual(await call(first, 'Hello'), `${BUS_NAME}.Error.AccessDenied`,
    'a process that is not a listed executable is refused');
expect(logged.length === 1 && logged[0].includes(ownExecutable), 'the refusal is logged');
logged.length = 0;
stranger.disable();
await until(() => !nameOwned, 'disable to give up the bus name');

const bridge = bridgeFor([ownExecutable]);
bridge.enable();
await until(() => nameOwned, 'the bus name');
expectEqual(await call(first, 'GetClipboard'), NOT_REGISTERED, 'calls before Hello are refused');
expectEqual(display.selection.count('owner-changed'), 0, 'nothing is watched before a client registers');
const firstSignals = signalsTo(first);
expectEqual(await call(first, 'Hello'), [1, '0.0-test'], 'Hello answers the versions');

display.selection.set_owner(CLIPBOARD, {mimeType: 'text/plain', content: [...'0123456789'].map(c => c.charCodeAt(0))});
await until(() => firstSignals.length === 1, 'ClipboardChanged');
expectEqual(firstSignals[0], ['ClipboardChanged', [1, ['text/plain']]], 'a copy elsewhere is signalled');
expectEqual(await call(first, 'GetClipboard'), [1, ['text/plain']], 'GetClipboard tells the same');
expectEqual(await readThroughPipe(first, 'text/plain', 4), [[], [48, 49, 50, 51, 52]],
    'a read writes one byte more than asked for and closes the pipe');
expectEqual((await readThroughPipe(first, 'image/png', 4))[0], `${BUS_NAME}.Error.NotOffered`,
    'a type not offered is refused');

const text = new GLib.Variant('(say)', ['text/plain;charset=utf-8', new TextEncoder().encode('hi')]);
expectEqual(await call(first, 'SetClipboard', text), [2], 'SetClipboard answers the serial it made');
expectEqual(display.selection.owner.content, [104, 105], 'the bytes are offered');

expectEqual(await call(first, 'BindHotKey', new GLib.Variant('(s)', ['<Alt>v'])), [true], 'a free shortcut binds');
expectEqual(allowedModes.get('external-grab-100'), 3, 'it works in the overview too');
display.emit('accelerator-activated', 100, null, 0);
await until(() => firstSignals.some(([signal]) => signal === 'HotKeyActivated'), 'HotKeyActivated');
expectEqual(await call(first, 'BindHotKey', new GLib.Variant('(s)', ['<Super>taken'])), [false],
    'a taken shortcut is refused');
expectEqual([...display.grabs.values()], [], 'and the old one is let go all the same');

pointerMask = M.CONTROL_MASK;
const pasted = call(first, 'Paste', new GLib.Variant('(tau)', [0, [0xffe3, 0x76]]));
await until(() => pointerReads >= 3, 'the paste to look at the modifiers');
pointerMask = 0;
expectEqual(await pasted, [], 'Paste answers once typed');
expectEqual(typed.map(([keyval, state]) => [keyval, state]),
    [[0xffe3, Clutter.KeyState.PRESSED], [0x76, Clutter.KeyState.PRESSED],
        [0x76, Clutter.KeyState.RELEASED], [0xffe3, Clutter.KeyState.RELEASED]],
    'keys go down in order and up in reverse');
expect(typed.every(([, , mask]) => mask === 0), 'nothing is typed while the user holds Control');

// A second process of the app takes over; the first is no client any more.
const second = connect();
const secondSignals = signalsTo(second);
await call(second, 'Hello');
await call(second, 'BindHotKey', new GLib.Variant('(s)', ['<Alt>v']));
display.selection.set_owner(CLIPBOARD, {mimeType: 'image/png', content: []});
await until(() => secondSignals.length === 1, 'ClipboardChanged to the second client');
expectEqual(await call(first, 'GetClipboard'), NOT_REGISTERED, 'the replaced client is refused');
// That answer came after any signal the bridge sent the first client.
expect(!firstSignals.some(([, [serial]]) => serial === 3), 'signals go to the client only');

second.close_sync(null);
await until(() => display.selection.count('owner-changed') === 0, 'the client leaving');
expectEqual([...display.grabs.values()], [], 'the shortcut goes with the client');

bridge.disable();
await until(() => !nameOwned, 'disable to give up the bus name');
expectEqual(display.handlers.size, 0, 'no signal of the display is left connected');
expectEqual(logged, [], 'nothing went wrong on the way');

for (const failure of failures)
    printerr(`FAILED: ${failure}`);
System.exit(failures.length === 0 ? 0 : 1);
