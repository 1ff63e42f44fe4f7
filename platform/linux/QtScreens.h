#pragma once

#include <vector>

#include "platform/Geometry.h"

namespace zettly::qtscreens {

// The screens as Qt knows them, the primary one first, in the y-up
// coordinates of the window placement rules.
std::vector<ScreenInfo> screens();
// Where the pointer is. Where the session keeps it from applications
// (Wayland), Qt answers with the last place it saw over our own windows.
Point pointer();

}  // namespace zettly::qtscreens
