// Stands in for GNOME Shell's misc/config.js.
export const PACKAGE_VERSION = '0.0-stub';
