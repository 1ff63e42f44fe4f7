// Stands in for GNOME Shell's ui/main.js, which the entry point only passes
// on to the bridge.
export const wm = null;
