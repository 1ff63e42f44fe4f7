/* exported init */
// Owns a bus name while enabled: the test's proof that GNOME Shell loaded
// this extension and called enable(), not only that it lists it.
const { Gio } = imports.gi;

function init() {
    let ownerId = 0;
    return {
        enable() {
            ownerId = Gio.bus_own_name(Gio.BusType.SESSION, 'org.zettly.TestProbe',
                Gio.BusNameOwnerFlags.NONE, null, null, null);
        },
        disable() {
            Gio.bus_unown_name(ownerId);
            ownerId = 0;
        },
    };
}
