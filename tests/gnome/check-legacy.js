// Loads the GNOME 43 extension as that Shell would (legacy modules through
// the importer, the Shell's modules stood in by legacy-stubs/).
//   gjs check-legacy.js EXTENSION_DIR STUBS_DIR
const {Gio, GLib} = imports.gi;
const System = imports.system;

const [extensionPath, stubsPath] = ARGV;
const failures = [];
function expect(condition, what) {
    if (!condition)
        failures.push(what);
}

const dir = Gio.File.new_for_path(extensionPath);
const [, contents] = GLib.file_get_contents(dir.get_child('metadata.json').get_path());
const metadata = JSON.parse(new TextDecoder().decode(contents));
expect(metadata.uuid === dir.get_basename(),
    `the uuid ${metadata.uuid} is the folder's name ${dir.get_basename()}`);
expect(JSON.stringify(metadata['shell-version']) === '["43"]',
    `shell-version ${JSON.stringify(metadata['shell-version'])} is 43 only`);

// As GNOME Shell 43's extensionUtils.installImporter does.
const searchPath = imports.searchPath.slice();
imports.searchPath = [dir.get_parent().get_path()];
const extensionImports = imports[dir.get_basename()];
imports.searchPath = [stubsPath, ...searchPath];
globalThis.zettlyCurrentExtension = {imports: extensionImports, metadata, path: extensionPath};

const exported = {
    bridge: ['createBridge', 'BUS_NAME'],
    clipboard: ['createClipboard'],
    desktop: ['createDesktop'],
    input: ['createInput'],
};
for (const [module, names] of Object.entries(exported)) {
    try {
        for (const name of names) {
            expect(extensionImports[module][name] !== undefined,
                `${module}.js exports ${name} as a legacy module`);
        }
    } catch (e) {
        failures.push(`${module}.js does not load as a legacy module: ${e}\n${e.stack}`);
    }
}
try {
    const extension = extensionImports.extension.init();
    for (const method of ['enable', 'disable'])
        expect(typeof extension[method] === 'function', `init() gives an object with ${method}()`);
} catch (e) {
    failures.push(`extension.js does not load: ${e}\n${e.stack}`);
}

for (const failure of failures)
    printerr(`FAILED: ${failure}`);
System.exit(failures.length === 0 ? 0 : 1);
