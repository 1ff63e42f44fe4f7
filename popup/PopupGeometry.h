#pragma once

#include <optional>
#include <vector>

#include "platform/Geometry.h"
#include "store/ClipPrefs.h"

namespace zettly {

// Where the history window and its preview go. Pure arithmetic in y-up
// coordinates, so every placement rule is tested without a display.
namespace popupgeometry {

inline constexpr Size minimumSize{320, 260};
inline constexpr Size maximumSize{600, 800};
inline constexpr double edgeMargin = 6;

// The tray icon the window opens from: its bounds and the visible frame of
// the screen it is on.
struct Anchor {
    Rect bounds;
    Rect visibleFrame;
};

struct Placement {
    std::optional<Anchor> anchor;
    std::vector<ScreenInfo> screens;  // the first is the main screen
    Point mouse;
    ClipPrefs::PopupPosition position = ClipPrefs::PopupPosition::cursor;
    Size preferred;  // ClipPrefs::popupSize
};

// The window's frame: under the tray icon (above it when the icon sits in a
// panel at the bottom of the screen), at the pointer, or in the centre.
Rect popupFrame(const Placement& placement);

// The preview panel's size for a text (380 × 360) or an image of the given
// pixel size (scaled to fit 460, never enlarged).
Size previewSize(bool isImage, double imageWidth = 0, double imageHeight = 0);

// Beside the history window `popup` within a screen's usable area, all in
// logical points: to the right when it fits, else to the left, else over the
// window against the screen edge on the side with more room. Top edges
// aligned; the whole kept `edgeMargin` inside `visibleFrame`, and a preview
// larger than that area is cut down to it.
Rect placePreview(Size size, const Rect& popup, const Rect& visibleFrame);

// placePreview() on the screen that the window is on.
Rect previewFrame(Size size, const Rect& popup, const std::vector<ScreenInfo>& screens);

}  // namespace popupgeometry
}  // namespace zettly
