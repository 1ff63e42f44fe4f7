#pragma once

#include <QIcon>

namespace zettly {

// The status icon in its three states, rendered from the SVGs under
// data/icons/tray (compiled in as resources) at every size a panel asks for.
// With updateAvailable a small red dot sits in the top right corner.
enum class TrayState { normal, paused, skipNext };
QIcon trayIcon(TrayState state, bool updateAvailable = false);

}  // namespace zettly
