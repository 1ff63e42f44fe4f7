// Stands in for GNOME Shell 43's imports.misc.config.
/* exported PACKAGE_VERSION */
var PACKAGE_VERSION = '0.0-stub';
