#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace zettly {

// Image decoding and encoding for the image history, on libvips.
//
// Inputs are decoded through libvips' thumbnail path: JPEG and HEIC shrink
// while they load, PNG, TIFF and WebP stream through in strips, so no input
// is ever held as a full-size bitmap. Only PNG, JPEG, HEIC, TIFF and WebP
// are read (clipboard bytes are untrusted: no SVG, PDF or other loaders that
// fetch, run or render), and an image whose header claims more than 100
// megapixels is refused before any pixel is decoded.
//
// All functions are safe to call from any thread.
class ImageCodec {
public:
    using Bytes = std::vector<std::uint8_t>;
    using Fingerprint = std::array<std::uint8_t, 32>;

    struct Jpeg {
        Bytes bytes;
        int width = 0;
        int height = 0;
    };

    static constexpr std::int64_t maxPixels = 100'000'000;
    static constexpr int jpegQuality = 70;

    // The input scaled to at most `maxPixel` on its long side (never
    // enlarged), turned upright by its EXIF orientation, transparency
    // flattened onto white, as a JPEG without metadata. Also gives the same
    // picture reduced to `thumbPixel` (from the reduced image, not by
    // decoding the input again) when asked. None for anything unreadable.
    struct Reduced {
        Jpeg full;
        std::optional<Jpeg> thumb;
        // Of the full-size JPEG, when asked for (see fingerprint below).
        std::optional<Fingerprint> fingerprint;
    };
    static std::optional<Reduced> reduce(std::span<const std::uint8_t> input, int maxPixel,
                                         std::optional<int> thumbPixel = std::nullopt,
                                         bool withFingerprint = false);

    // The difference hash of a stored JPEG: scaled to fill 17 x 16 grey
    // pixels; bit r*16+x (least significant bit first within each byte) is
    // set when pixel (x, r) is darker than pixel (x+1, r).
    static std::optional<Fingerprint> fingerprint(std::span<const std::uint8_t> jpeg);
    static Fingerprint differenceHash(std::span<const std::uint8_t, 17 * 16> grey);

private:
    static void initialize();
    static std::optional<Reduced> reduceInMemory(std::span<const std::uint8_t> input, int maxPixel,
                                                 std::optional<int> thumbPixel);
};

}  // namespace zettly
