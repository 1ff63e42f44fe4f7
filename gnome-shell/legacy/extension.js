// The entry point GNOME Shell 43 loads, for the tests on Debian 12: the
// same bridge as a legacy gjs module. Not installed.
/* exported init */
const {Clutter, Gio, GLib, Meta, Shell} = imports.gi;

const Main = imports.ui.main;
const Config = imports.misc.config;
const Me = imports.misc.extensionUtils.getCurrentExtension();

class ZettlyBridgeLegacy {
    enable() {
        this._bridge = Me.imports.bridge.createBridge({
            GLib, Gio, Meta, Clutter, Shell, Main, global,
            // GLib 2.74 keeps the Unix helpers in GLib and Gio.
            GLibUnix: null, GioUnix: null,
            metadata: Me.metadata,
            shellVersion: Config.PACKAGE_VERSION,
            log: message => console.warn(`Zettly Bridge: ${message}`),
            createClipboard: Me.imports.clipboard.createClipboard,
            createDesktop: Me.imports.desktop.createDesktop,
            createInput: Me.imports.input.createInput,
        });
        this._bridge.enable();
    }

    disable() {
        this._bridge.disable();
        this._bridge = null;
    }
}

function init() {
    return new ZettlyBridgeLegacy();
}
