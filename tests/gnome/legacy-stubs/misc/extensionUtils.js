// Stands in for GNOME Shell 43's imports.misc.extensionUtils: the extension
// being loaded is the one check-legacy.js put in globalThis.
/* exported getCurrentExtension */
function getCurrentExtension() {
    return globalThis.zettlyCurrentExtension;
}
