#include <gtest/gtest.h>

#include "popup/PopupGeometry.h"

namespace zettly {
namespace {

using namespace popupgeometry;

const ScreenInfo laptop{Rect{0, 0, 1440, 900}, Rect{0, 0, 1440, 875}};
const Rect fullScreen{0, 0, 1440, 900};

Placement atPointer(Point mouse, Rect visible, Size preferred = {400, 500}) {
    Placement p;
    p.screens = {ScreenInfo{visible, visible}};
    p.mouse = mouse;
    p.preferred = preferred;
    return p;
}

Rect onTray(Rect button, Rect visible) {
    Placement p;
    p.anchor = Anchor{button, visible};
    p.preferred = {400, 500};
    return popupFrame(p);
}

TEST(PopupFrame, OnATrayIconTheWindowKeepsFourPointsFromItAndShrinksButNeverBelowNothing) {
    // Under a top panel icon 400 points above the bottom of the usable area: 388 fit.
    EXPECT_EQ(onTray(Rect{1300, 400, 24, 24}, Rect{0, 0, 1440, 400}),
              (Rect{1440 - 400 - 6, 8, 400, 388}));
    EXPECT_EQ(onTray(Rect{2, 875, 24, 25}, laptop.visibleFrame),
              (Rect{6, 875 - 500 - 4, 400, 500}));
    // Over a bottom panel icon; on a short screen it ends 12 points under the top.
    EXPECT_EQ(onTray(Rect{100, 8, 24, 24}, Rect{0, 40, 1440, 860}), (Rect{100, 36, 400, 500}));
    EXPECT_EQ(onTray(Rect{100, 8, 24, 24}, Rect{0, 40, 1440, 400}),
              (Rect{100, 36, 400, 440 - 32 - 12}));
    EXPECT_EQ(onTray(Rect{0, 5, 10, 10}, Rect{0, 0, 800, 10}).height, 0);
}

TEST(PopupFrame, AtThePointerTheWindowHangsStandsOrShrinksAndKeepsSixPointsFromEachSide) {
    EXPECT_EQ(popupFrame(atPointer({300, 700}, fullScreen)), (Rect{300, 200, 400, 500}));
    EXPECT_EQ(popupFrame(atPointer({300, 100}, fullScreen)), (Rect{300, 100, 400, 500}));
    // Too low either way: it takes the larger side, growing up from the pointer at most.
    Rect low{0, 0, 1440, 400};
    EXPECT_EQ(popupFrame(atPointer({300, 200}, low)), (Rect{300, 6, 400, 260}));
    EXPECT_EQ(popupFrame(atPointer({300, 150}, low)), (Rect{300, 400 - 6 - 260, 400, 260}));

    EXPECT_EQ(popupFrame(atPointer({1300, 700}, fullScreen)).x, 900);
    EXPECT_EQ(popupFrame(atPointer({1435, 700}, fullScreen)).x, 1440 - 400 - 6);
    EXPECT_EQ(popupFrame(atPointer({2, 700}, fullScreen)).x, 6);
}

TEST(PopupFrame, CentredWindowsUseThePointersScreenAndAreLiftedByAnEighthButNeverPastTheTop) {
    Placement p = atPointer({2000, 700}, laptop.frame);
    p.screens = {laptop, ScreenInfo{Rect{1440, 0, 1920, 1080}, Rect{1440, 0, 1920, 1050}}};
    p.position = ClipPrefs::PopupPosition::center;
    EXPECT_EQ(popupFrame(p).x, 1440 + 960 - 200);
    p.mouse = {-50, -50};  // off every screen: the main one
    EXPECT_EQ(popupFrame(p).x, 720 - 200);

    p.screens = {ScreenInfo{fullScreen, fullScreen}};
    p.preferred = {400, 540};
    EXPECT_EQ(popupFrame(p), (Rect{520, 450 - 270 + 112.5, 400, 540}));
    p.preferred = {400, 800};
    p.screens = {laptop};
    EXPECT_EQ(popupFrame(p).maxY(), 875);
    // Taller than the screen: 12 points shorter than it.
    p.screens = {ScreenInfo{Rect{0, 0, 800, 500}, Rect{0, 0, 800, 500}}};
    EXPECT_EQ(popupFrame(p), (Rect{200, 12, 400, 488}));
    // Without any screen, a frame of the window's own size.
    p.screens = {};
    p.preferred = {400, 540};
    EXPECT_EQ(popupFrame(p), (Rect{0, 12, 400, 528}));
    p.position = ClipPrefs::PopupPosition::cursor;
    EXPECT_GE(popupFrame(p).height, 260);
}

TEST(PreviewPlacement, TextsHaveOneSizeAndImagesShrinkToFitButNeverGrow) {
    EXPECT_EQ(previewSize(false), (Size{380, 360}));
    EXPECT_EQ(previewSize(true, 1000, 500), (Size{460 + 24, 230 + 48}));
    EXPECT_EQ(previewSize(true, 500, 2300), (Size{200, 460 + 48}));
    EXPECT_EQ(previewSize(true, 300, 100), (Size{324, 148}));
    EXPECT_EQ(previewSize(true, 0, 0), (Size{200, 48}));
}

TEST(PreviewPlacement, SitsBesideTheWindowOnItsScreenRightIfThereIsRoomWithTopsAligned) {
    const std::vector<ScreenInfo> screens{
        laptop, ScreenInfo{Rect{1440, 0, 800, 600}, Rect{1440, 0, 800, 600}}};
    const Size text{380, 360};
    EXPECT_EQ(previewFrame(text, Rect{500, 300, 400, 540}, screens), (Rect{906, 480, 380, 360}));
    EXPECT_EQ(previewFrame(text, Rect{1000, 300, 400, 540}, screens).x, 1000 - 380 - 6);
    // Kept on the screen with the window's margin of six points.
    EXPECT_EQ(previewFrame(text, Rect{500, 10, 400, 200}, screens).y, 6);
    EXPECT_EQ(previewFrame(text, Rect{500, 400, 400, 500}, screens).maxY(), 875 - 6);
    // On the narrow right-hand screen it fits on neither side and covers
    // the window at the screen's left edge, never reaching the other screen.
    EXPECT_EQ(previewFrame(text, Rect{1800, 50, 400, 500}, screens).x, 1440 + 6);
    EXPECT_EQ(previewFrame(text, Rect{1800, 50, 400, 500}, {}), (Rect{2206, 190, 380, 360}));
}

TEST(PreviewPlacement, GoesLeftOnlyWithoutRoomOnTheRightAndOverTheWindowWithoutRoomOnEitherSide) {
    const Rect screen{0, 0, 1280, 800};
    const Size text{380, 360};
    // At the left edge: right of the window.
    EXPECT_EQ(placePreview(text, Rect{6, 200, 420, 560}, screen), (Rect{432, 400, 380, 360}));
    // At the right edge: left of it.
    EXPECT_EQ(placePreview(text, Rect{854, 200, 420, 560}, screen), (Rect{468, 400, 380, 360}));
    // A 1920 × 1080 screen at twice the scale is 960 × 540 points: a wide
    // image fits on neither side and covers the window from the roomier
    // side, against the screen's edge, never past it.
    const Rect doubled{0, 0, 960, 540};
    const Size image{484, 508};
    EXPECT_EQ(placePreview(image, Rect{100, 10, 420, 500}, doubled), (Rect{470, 6, 484, 508}));
    EXPECT_EQ(placePreview(image, Rect{440, 10, 420, 500}, doubled), (Rect{6, 6, 484, 508}));
    EXPECT_EQ(placePreview(text, Rect{6, 30, 420, 500}, doubled).x, 432);
    EXPECT_EQ(placePreview(text, Rect{534, 30, 420, 500}, doubled).x, 148);
}

TEST(PreviewPlacement, StaysOnTheWindowsOwnScreenAndIsCutDownToIt) {
    // A second monitor at x = 1280, at twice the scale.
    const std::vector<ScreenInfo> screens{
        ScreenInfo{Rect{0, 0, 1280, 1024}, Rect{0, 0, 1280, 1000}},
        ScreenInfo{Rect{1280, 0, 960, 540}, Rect{1280, 0, 960, 510}}};
    const Size image{484, 508};
    // Left of the window would be on the first monitor: it covers the window instead.
    EXPECT_EQ(previewFrame(image, Rect{1400, 6, 420, 500}, screens), (Rect{1750, 6, 484, 498}));
    EXPECT_EQ(previewFrame({380, 360}, Rect{2240 - 426, 6, 420, 500}, screens),
              (Rect{2240 - 426 - 6 - 380, 144, 380, 360}));
    // Taller and wider than the screen: cut down to its usable area.
    EXPECT_EQ(placePreview({2000, 3000}, Rect{100, 100, 420, 500}, Rect{0, 40, 1280, 760}),
              (Rect{6, 46, 1268, 748}));
}

}  // namespace
}  // namespace zettly
