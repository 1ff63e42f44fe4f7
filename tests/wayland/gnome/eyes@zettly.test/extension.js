/* exported init */
// The tests' eyes: in unsafe mode the shell answers org.gnome.Shell.Eval,
// and tests read window positions, the focus and the pointer from it. Only
// ever loaded by run-in-compositor.sh gnome.
function init() {
    return {
        enable() {
            global.context.unsafe_mode = true;
        },
        disable() {
            global.context.unsafe_mode = false;
        },
    };
}
