// Loads the GNOME 45+ extension as the Shell would (its entry point with the
// Shell's modules stood in by stubs.gresource) and checks its metadata.
//   gjs -m check-entry.js STUBS.gresource EXTENSION_DIR
import Gio from 'gi://Gio';
import GLib from 'gi://GLib';
import System from 'system';

const [resourcePath, extensionPath] = ARGV;
const failures = [];
function expect(condition, what) {
    if (!condition)
        failures.push(what);
}

Gio.Resource.load(resourcePath)._register();
const dir = Gio.File.new_for_path(extensionPath);

try {
    const {default: Entry} = await import(dir.get_child('extension.js').get_uri());
    const {Extension} = await import('resource:///org/gnome/shell/extensions/extension.js');
    expect(typeof Entry === 'function' && Entry.prototype instanceof Extension,
        'the default export is a subclass of Extension');
    for (const method of ['enable', 'disable'])
        expect(typeof Entry?.prototype[method] === 'function', `the extension has ${method}()`);
} catch (e) {
    failures.push(`extension.js does not load: ${e}\n${e.stack}`);
}

const [, contents] = GLib.file_get_contents(dir.get_child('metadata.json').get_path());
const metadata = JSON.parse(new TextDecoder().decode(contents));
expect(metadata.uuid === dir.get_basename(),
    `the uuid ${metadata.uuid} is the folder's name ${dir.get_basename()}`);
expect(JSON.stringify(metadata['shell-version']) === JSON.stringify(['45', '46', '47', '48', '49', '50']),
    `shell-version ${JSON.stringify(metadata['shell-version'])} lists 45 to 50`);
const executables = metadata['zettly-executables'];
expect(Array.isArray(executables) && executables.length > 0 &&
    executables.every(path => path.startsWith('/') && GLib.path_get_basename(path) === 'zettly'),
    `zettly-executables ${JSON.stringify(executables)} are absolute paths of zettly`);

for (const failure of failures)
    printerr(`FAILED: ${failure}`);
System.exit(failures.length === 0 ? 0 : 1);
