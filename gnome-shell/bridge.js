// The bridge between Zettly and GNOME Shell: a D-Bus service on the session
// bus that only the Zettly executables may use. It gives the app what GNOME
// on Wayland keeps from applications: the clipboard while another window has
// the keyboard, the windows, the pointer, a global shortcut and typed keys.
//
// No file of the bridge imports anything: the entry points (extension.js for
// GNOME 45 and later, legacy/extension.js for GNOME 43) pass the libraries
// in, so the same code runs as an ES module and as a legacy gjs module.
// Top-level names are therefore only `export function` and `export const`,
// which the legacy build rewrites to `function` and `var`.

export const BUS_NAME = 'org.zettly.Zettly.ShellBridge';
export const OBJECT_PATH = '/org/zettly/Zettly/ShellBridge';
export const PROTOCOL_VERSION = 1;

// The callers' checks are remembered per unique name; unique names are
// never reused, so an entry is only ever stale, never wrong. The bound
// keeps a stream of short-lived callers from growing the map.
const CALLER_CACHE_SIZE = 64;

const INTERFACE_XML = `<node>
  <interface name="${BUS_NAME}">
    <method name="Hello">
      <arg type="u" name="version" direction="out"/>
      <arg type="s" name="shellVersion" direction="out"/>
    </method>
    <method name="GetClipboard">
      <arg type="t" name="serial" direction="out"/>
      <arg type="as" name="mimeTypes" direction="out"/>
    </method>
    <method name="ReadClipboard">
      <arg type="s" name="mimeType" direction="in"/>
      <arg type="u" name="maxBytes" direction="in"/>
      <arg type="h" name="fd" direction="in"/>
    </method>
    <method name="SetClipboard">
      <arg type="s" name="mimeType" direction="in"/>
      <arg type="ay" name="data" direction="in"/>
      <arg type="t" name="serial" direction="out"/>
    </method>
    <method name="GetFocusedWindow">
      <arg type="t" name="windowId" direction="out"/>
      <arg type="s" name="appId" direction="out"/>
    </method>
    <method name="ListWindows">
      <arg type="a(ss)" name="windows" direction="out"/>
    </method>
    <method name="ActivateWindow">
      <arg type="t" name="windowId" direction="in"/>
      <arg type="b" name="found" direction="out"/>
    </method>
    <method name="GetPointer">
      <arg type="i" name="x" direction="out"/>
      <arg type="i" name="y" direction="out"/>
    </method>
    <method name="GetMonitors">
      <arg type="a(iiiiiiii)" name="monitors" direction="out"/>
    </method>
    <method name="PlaceWindow">
      <arg type="s" name="title" direction="in"/>
      <arg type="i" name="x" direction="in"/>
      <arg type="i" name="y" direction="in"/>
    </method>
    <method name="Paste">
      <arg type="t" name="windowId" direction="in"/>
      <arg type="au" name="keyvals" direction="in"/>
    </method>
    <method name="BindHotKey">
      <arg type="s" name="accelerator" direction="in"/>
      <arg type="b" name="bound" direction="out"/>
    </method>
    <signal name="ClipboardChanged">
      <arg type="t" name="serial"/>
      <arg type="as" name="mimeTypes"/>
    </signal>
    <signal name="HotKeyActivated"/>
  </interface>
</node>`;

// An error the caller receives as `${BUS_NAME}.Error.${name}`.
export function bridgeError(name, message) {
    const error = new Error(message);
    error.dbusName = `${BUS_NAME}.Error.${name}`;
    return error;
}

// The executable a /proc/PID/exe link names. The kernel appends " (deleted)"
// once the file was replaced, as a package upgrade does under a running app.
export function executableFromLink(link) {
    const deleted = ' (deleted)';
    return link.endsWith(deleted) ? link.slice(0, -deleted.length) : link;
}

// metadata.json's "zettly-executables", or null when it is not a list of
// absolute paths (then every caller is refused).
export function allowedExecutables(metadata) {
    const listed = metadata['zettly-executables'];
    if (!Array.isArray(listed) || listed.length === 0)
        return null;
    if (!listed.every(path => typeof path === 'string' && path.startsWith('/')))
        return null;
    return listed;
}

// Who is calling, by unique name: {pid, executable, allowed}. A refusal is
// logged once per caller: a build or install that lists the wrong path shows
// up there.
function createCallerCheck({GLib, Gio, connection, allowed, log}) {
    const cache = new Map();

    function processIdOf(sender) {
        return new Promise((resolve, reject) => {
            connection.call('org.freedesktop.DBus', '/org/freedesktop/DBus',
                'org.freedesktop.DBus', 'GetConnectionUnixProcessID',
                new GLib.Variant('(s)', [sender]), new GLib.VariantType('(u)'),
                Gio.DBusCallFlags.NONE, -1, null, (bus, result) => {
                    try {
                        resolve(bus.call_finish(result).deepUnpack()[0]);
                    } catch (e) {
                        reject(e);
                    }
                });
        });
    }

    async function identify(sender) {
        const pid = await processIdOf(sender);
        let executable;
        try {
            executable = executableFromLink(GLib.file_read_link(`/proc/${pid}/exe`));
        } catch (e) {
            // A process of another user, or one that has just ended.
            executable = `process ${pid}`;
        }
        const known = allowed !== null && allowed.includes(executable);
        if (!known)
            log(`refused the calls of ${executable} (pid ${pid}): not a Zettly executable of metadata.json`);
        return {pid, executable, allowed: known};
    }

    return {
        check(sender) {
            let known = cache.get(sender);
            if (!known) {
                if (cache.size >= CALLER_CACHE_SIZE)
                    cache.delete(cache.keys().next().value);
                known = identify(sender);
                cache.set(sender, known);
                // A failed look-up (the caller left) is not remembered.
                known.catch(() => cache.delete(sender));
            }
            return known;
        },
    };
}

// deps: {GLib, Gio, Meta, Clutter, Shell, Main, global, GLibUnix, GioUnix
// (null before GLib 2.80), metadata, shellVersion, log, createClipboard,
// createDesktop, createInput}. Returns {enable(), disable()}.
export function createBridge(deps) {
    const {GLib, Gio, metadata, shellVersion, log} = deps;
    const parts = {...deps, bridgeError};
    let connection = null;
    let exported = null;
    let nameId = 0;
    let callers = null;
    let clipboard = null;
    let desktop = null;
    let input = null;
    // The registered client: {name, pid, watchId}.
    let client = null;

    function emitToClient(signal, parameters) {
        if (!client)
            return;
        try {
            connection.emit_signal(client.name, OBJECT_PATH, BUS_NAME, signal, parameters);
        } catch (e) {
            log(`could not send ${signal}: ${e.message}`);
        }
    }

    function stopClient() {
        if (!client)
            return;
        Gio.bus_unwatch_name(client.watchId);
        clipboard.stop();
        desktop.stop();
        input.stop();
        client = null;
    }

    function startClient(name, pid) {
        const watchId = Gio.bus_watch_name_on_connection(connection, name,
            Gio.BusNameWatcherFlags.NONE, null, () => {
                if (client?.name === name)
                    stopClient();
            });
        client = {name, pid, watchId};
        clipboard.start((serial, mimeTypes) => emitToClient('ClipboardChanged',
            new GLib.Variant('(tas)', [serial, mimeTypes])));
        desktop.start(pid);
        input.start(() => emitToClient('HotKeyActivated', null));
    }

    // Each handler takes the call's arguments and returns the out arguments
    // as a list (or a promise of one).
    const handlers = {
        Hello(sender, pid) {
            if (client?.name !== sender) {
                stopClient();
                startClient(sender, pid);
            }
            return [PROTOCOL_VERSION, shellVersion];
        },
        GetClipboard: () => clipboard.get(),
        ReadClipboard: (mimeType, maxBytes, fdIndex, fdList) =>
            clipboard.read(mimeType, maxBytes, fdIndex, fdList).then(() => []),
        SetClipboard: (mimeType, data) => clipboard.set(mimeType, data),
        GetFocusedWindow: () => desktop.focusedWindow(),
        ListWindows: () => [desktop.listWindows()],
        ActivateWindow: windowId => [desktop.activate(windowId)],
        GetPointer: () => desktop.pointer(),
        GetMonitors: () => [desktop.monitors()],
        PlaceWindow(title, x, y) {
            desktop.place(title, x, y);
            return [];
        },
        async Paste(windowId, keyvals) {
            if (windowId !== 0 && !desktop.focus(windowId))
                throw bridgeError('Failed', `window ${windowId} no longer exists`);
            await input.paste(keyvals);
            return [];
        },
        BindHotKey: accelerator => [input.bindHotKey(accelerator)],
    };

    async function dispatch(method, args, invocation, fdList) {
        const sender = invocation.get_sender();
        const caller = await callers.check(sender);
        if (!connection)
            throw bridgeError('Failed', 'the bridge was switched off');
        if (!caller.allowed) {
            throw bridgeError('AccessDenied',
                `${caller.executable} is not one of this extension's Zettly executables`);
        }
        if (method === 'Hello')
            return handlers.Hello(sender, caller.pid);
        if (client?.name !== sender)
            throw bridgeError('NotRegistered', 'call Hello first: another process is the client');
        return handlers[method](...args, fdList);
    }

    function call(info, method, args, invocation, fdList) {
        dispatch(method, args, invocation, fdList).then(values => {
            const outArgs = info.lookup_method(method).out_args;
            if (outArgs.length === 0) {
                invocation.return_value(null);
                return;
            }
            const signature = outArgs.map(arg => arg.signature).join('');
            invocation.return_value(new GLib.Variant(`(${signature})`, values));
        }).catch(e => {
            if (!e.dbusName) {
                log(`${method} failed: ${e.message}`);
                invocation.return_dbus_error(`${BUS_NAME}.Error.Failed`, e.message);
                return;
            }
            if (e.dbusName.endsWith('.Failed'))
                log(`${method} failed: ${e.message}`);
            invocation.return_dbus_error(e.dbusName, e.message);
        });
    }

    return {
        enable() {
            connection = Gio.DBus.session;
            const allowed = allowedExecutables(metadata);
            if (allowed === null)
                log('metadata.json lists no absolute "zettly-executables"; every call is refused');
            callers = createCallerCheck({GLib, Gio, connection, allowed, log});
            clipboard = deps.createClipboard(parts);
            desktop = deps.createDesktop(parts);
            input = deps.createInput(parts);

            const info = Gio.DBusInterfaceInfo.new_for_xml(INTERFACE_XML);
            const implementation = {};
            for (const method of info.methods) {
                implementation[`${method.name}Async`] = (args, invocation, fdList) =>
                    call(info, method.name, args, invocation, fdList);
            }
            exported = Gio.DBusExportedObject.wrapJSObject(info, implementation);
            exported.export(connection, OBJECT_PATH);
            nameId = Gio.bus_own_name_on_connection(connection, BUS_NAME,
                Gio.BusNameOwnerFlags.NONE, null,
                () => log(`the session bus name ${BUS_NAME} is taken; Zettly cannot use this bridge`));
        },

        disable() {
            if (nameId) {
                Gio.bus_unown_name(nameId);
                nameId = 0;
            }
            stopClient();
            if (exported) {
                exported.unexport();
                exported = null;
            }
            clipboard = desktop = input = callers = null;
            connection = null;
        },
    };
}
