#pragma once

#include <QDBusConnection>

#include "platform/Platform.h"

namespace zettly {

class Log;

// Zettly's extension as GNOME Shell's extension manager
// (org.gnome.Shell.Extensions) sees it, and the steps Settings and the tray
// offer when it is not running.
namespace shellextensions {

enum class State {
    on,
    off,      // installed, turned off
    missing,  // not known to the running Shell
    failed,   // an error, or not made for this Shell version
};

State state(const QDBusConnection& bus);

// The limitation that says so; none when the extension is on.
std::optional<Limitation> limitationFor(State state);

// Turns the extension on; Zettly then has to start again to use it.
RemedyResult turnOn(const QDBusConnection& bus, Log& log);
// Opens GNOME's Extensions app, where the user sees the extension (once
// the Shell has loaded it) and any error it had.
RemedyResult openExtensionsApp(const QDBusConnection& bus, Log& log);

}  // namespace shellextensions
}  // namespace zettly
