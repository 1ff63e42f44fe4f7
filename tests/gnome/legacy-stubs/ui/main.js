// Stands in for GNOME Shell 43's imports.ui.main, which the entry point
// only passes on to the bridge.
/* exported wm */
var wm = null;
