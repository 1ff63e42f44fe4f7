#pragma once

#include <QIcon>

namespace zettly {

// The status icon in its three states, drawn in code so that it is crisp at
// every size a panel asks for and needs no image files.
enum class TrayState { normal, paused, skipNext };
QIcon trayIcon(TrayState state);

}  // namespace zettly
