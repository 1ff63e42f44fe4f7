#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <vips/vips.h>

namespace zettly::test {

using Bytes = std::vector<std::uint8_t>;

struct Rgba {
    std::uint8_t r = 0, g = 0, b = 0, a = 255;
};
// A picture as the colour of each pixel, so a test can draw exactly what it needs.
using Paint = std::function<Rgba(int x, int y)>;

struct ImageDeleter {
    void operator()(VipsImage* image) const { g_object_unref(image); }
};
using Image = std::unique_ptr<VipsImage, ImageDeleter>;

// Thrown rather than giving empty bytes, so a broken helper never passes for a refused input.
inline void check(bool ok, const std::string& what) {
    if (!ok)
        throw std::runtime_error(what + ": " + vips_error_buffer());
}

inline void start() {
    static const bool started = vips_init("zettly-test") == 0;
    check(started, "vips_init");
}

inline Paint gradient(int width) {  // black on the left to white on the right
    return [width](int x, int) {
        auto v = static_cast<std::uint8_t>(x * 255 / std::max(width - 1, 1));
        return Rgba{v, v, v};
    };
}
inline Paint solid(Rgba colour) {
    return [colour](int, int) { return colour; };
}
// Hard to compress, so cutting the file short lands in the middle of the pixels.
inline Paint noise(std::uint32_t seed) {
    return [seed](int x, int y) {
        std::uint32_t h = ((std::uint32_t(x) * 73856093u) ^ (std::uint32_t(y) * 19349663u) ^ seed);
        h = (h ^ (h >> 15)) * 2246822519u;
        h ^= h >> 13;
        return Rgba{std::uint8_t(h), std::uint8_t(h >> 8), std::uint8_t(h >> 16)};
    };
}

// Blocks of 10x10 pixels growing brighter to the right, for a picture of 170x160
// (or `scale` times 17x16); each darkened block, at most 5, flips exactly one bit of the
// image history's fingerprint: a screenshot that changed in a small area.
inline Paint blocks(int darkened, int scale = 10) {
    return [=](int x, int y) {
        int bx = x / scale, by = y / scale;
        bool dark = by == bx - 1 && by % 3 == 1 && by / 3 < darkened;
        auto v = static_cast<std::uint8_t>(dark ? 10 * bx : 40 + 10 * bx);
        return Rgba{v, v, v};
    };
}

inline Image image(int width, int height, const Paint& paint, bool alpha = false) {
    start();
    const int bands = alpha ? 4 : 3;
    Bytes pixels(std::size_t(width) * height * bands);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            Rgba c = paint(x, y);
            std::uint8_t* p = &pixels[(std::size_t(y) * width + x) * bands];
            p[0] = c.r, p[1] = c.g, p[2] = c.b;
            if (alpha)
                p[3] = c.a;
        }
    }
    Image made(vips_image_new_from_memory_copy(pixels.data(), pixels.size(), width, height, bands,
                                               VIPS_FORMAT_UCHAR));
    check(made != nullptr, "image");
    made->Type = VIPS_INTERPRETATION_sRGB;
    return made;
}

// `suffix` picks the format and may carry options: ".png[bitdepth=1,compression=9]".
inline Bytes encode(VipsImage* image, const std::string& suffix) {
    void* buffer = nullptr;
    std::size_t length = 0;
    check(vips_image_write_to_buffer(image, suffix.c_str(), &buffer, &length, nullptr) == 0,
          suffix);
    std::unique_ptr<void, decltype(&g_free)> owned(buffer, g_free);
    return Bytes(static_cast<std::uint8_t*>(buffer), static_cast<std::uint8_t*>(buffer) + length);
}

inline Bytes png(int width, int height, const Paint& paint, bool alpha = false) {
    return encode(image(width, height, paint, alpha).get(), ".png");
}
// `orientation` (1-8) is written into the EXIF data, as a camera would.
inline Bytes jpeg(int width, int height, const Paint& paint, int orientation = 0) {
    Image made = image(width, height, paint);
    if (orientation)
        vips_image_set_int(made.get(), "orientation", orientation);
    return encode(made.get(), ".jpg");
}

// Decoded into memory at once, so the image does not depend on `bytes` staying alive.
inline Image decode(const Bytes& bytes) {
    start();
    Image lazy(vips_image_new_from_buffer(bytes.data(), bytes.size(), "", nullptr));
    check(lazy != nullptr, "decode");
    Image loaded(vips_image_copy_memory(lazy.get()));
    check(loaded != nullptr, "decode");
    return loaded;
}

inline Rgba pixel(VipsImage* image, int x, int y) {
    double* v = nullptr;
    int n = 0;
    check(vips_getpoint(image, &v, &n, x, y, nullptr) == 0, "pixel");
    auto at = [&](int i) { return static_cast<std::uint8_t>(v[std::min(i, n - 1)]); };
    Rgba c{at(0), at(1), at(2)};
    g_free(v);
    return c;
}

}  // namespace zettly::test
