// The entry point GNOME Shell 45 and later load. All the work is in
// bridge.js and its parts, which get the libraries from here.
import Clutter from 'gi://Clutter';
import Gio from 'gi://Gio';
import GLib from 'gi://GLib';
import Meta from 'gi://Meta';
import Shell from 'gi://Shell';

import {Extension} from 'resource:///org/gnome/shell/extensions/extension.js';
import * as Main from 'resource:///org/gnome/shell/ui/main.js';
import * as Config from 'resource:///org/gnome/shell/misc/config.js';

import {createBridge} from './bridge.js';
import {createClipboard} from './clipboard.js';
import {createDesktop} from './desktop.js';
import {createInput} from './input.js';

// GLib 2.80 (GNOME 46) moved the Unix streams and fd helpers to GioUnix and
// GLibUnix; GNOME 45 has neither namespace and keeps them in Gio and GLib.
const GioUnix = await import('gi://GioUnix').then(module => module.default, () => null);
const GLibUnix = await import('gi://GLibUnix').then(module => module.default, () => null);

export default class ZettlyBridge extends Extension {
    enable() {
        this._bridge = createBridge({
            GLib, Gio, Meta, Clutter, Shell, Main, global, GLibUnix, GioUnix,
            metadata: this.metadata,
            shellVersion: Config.PACKAGE_VERSION,
            log: message => console.warn(`Zettly Bridge: ${message}`),
            createClipboard, createDesktop, createInput,
        });
        this._bridge.enable();
    }

    disable() {
        this._bridge.disable();
        this._bridge = null;
    }
}
