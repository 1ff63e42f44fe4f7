// Stands in for GNOME Shell's extensions/extension.js: the base class the
// entry point extends, with the metadata the Shell gives it.
export class Extension {
    constructor(metadata) {
        this.metadata = metadata;
    }
}
