#include "store/ImageCodec.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <mutex>
#include <string_view>

#include <malloc.h>
#include <vips/vips.h>

namespace zettly {

namespace {

struct ImageRef {
    VipsImage* image = nullptr;
    ImageRef() = default;
    ImageRef(const ImageRef&) = delete;
    ImageRef& operator=(const ImageRef&) = delete;
    ~ImageRef() {
        if (image)
            g_object_unref(image);
    }
    VipsImage** out() {
        if (image)
            g_object_unref(image);
        image = nullptr;
        return &image;
    }
    VipsImage* get() const { return image; }
};

// libvips reports through a process-wide error buffer; nothing here shows
// it to anyone, and a long-running process must not let it grow.
template <typename T>
T failed(T value) {
    vips_error_clear();
    return value;
}

bool isAcceptedFormat(std::span<const std::uint8_t> data) {
    const char* loader = vips_foreign_find_load_buffer(data.data(), data.size());
    if (!loader)
        return false;
    static constexpr std::string_view kAccepted[] = {
        "VipsForeignLoadPngBuffer", "VipsForeignLoadJpegBuffer", "VipsForeignLoadHeifBuffer",
        "VipsForeignLoadTiffBuffer", "VipsForeignLoadWebpBuffer"};
    for (std::string_view accepted : kAccepted)
        if (accepted == loader)
            return true;
    return false;
}

std::optional<ImageCodec::Jpeg> encodeJpeg(VipsImage* image) {
    void* buffer = nullptr;
    std::size_t length = 0;
    // No metadata: the orientation is already applied (a kept EXIF tag would
    // turn it again), and a copied photo's location has no business in a
    // clipboard history or its cloud copy.
    if (vips_jpegsave_buffer(image, &buffer, &length, "Q", ImageCodec::jpegQuality, "strip", TRUE,
                             nullptr) != 0)
        return failed(std::nullopt);
    std::unique_ptr<void, decltype(&g_free)> owned(buffer, g_free);
    auto* bytes = static_cast<const std::uint8_t*>(buffer);
    return ImageCodec::Jpeg{ImageCodec::Bytes(bytes, bytes + length), vips_image_get_width(image),
                            vips_image_get_height(image)};
}

// 8-bit sRGB without alpha, held in memory so that both the JPEG and the
// thumbnail are made from one decode.
bool normalise(ImageRef& image) {
    ImageRef next;
    // To 8-bit sRGB first (16-bit, grey and CMYK inputs included; an alpha
    // band is carried along and scaled), so white is 255 in every band.
    if (vips_colourspace(image.get(), next.out(), VIPS_INTERPRETATION_sRGB, nullptr) != 0)
        return false;
    std::swap(image.image, next.image);
    if (vips_image_hasalpha(image.get())) {
        double white[] = {255, 255, 255};
        VipsArrayDouble* background = vips_array_double_new(white, 3);
        int rc = vips_flatten(image.get(), next.out(), "background", background, nullptr);
        vips_area_unref(VIPS_AREA(background));
        if (rc != 0)
            return false;
        std::swap(image.image, next.image);
    }
    if (vips_cast_uchar(image.get(), next.out(), nullptr) != 0)
        return false;
    std::swap(image.image, next.image);
    VipsImage* inMemory = vips_image_copy_memory(image.get());
    if (!inMemory)
        return false;
    *next.out() = inMemory;
    std::swap(image.image, next.image);
    return true;
}

}  // namespace

void ImageCodec::initialize() {
    static std::once_flag once;
    std::call_once(once, [] {
        vips_init("zettly");
        // Clipboard images rarely repeat; a cache would only hold memory.
        vips_cache_set_max(0);
        // Two workers at most: a camera photo decodes within a tenth of a
        // second, and every further worker keeps its own buffers and heap
        // alive in a tray app that should stay small.
        if (!g_getenv("VIPS_CONCURRENCY"))
            vips_concurrency_set(std::min(vips_concurrency_get(), 2));
        vips_block_untrusted_set(TRUE);
        // Damaged clipboard images are refused anyway; libvips' warnings
        // about them would only fill the user's journal.
        g_log_set_handler(
            "VIPS", G_LOG_LEVEL_WARNING,
            [](const gchar*, GLogLevelFlags, const gchar*, gpointer) {}, nullptr);
    });
}

std::optional<ImageCodec::Reduced> ImageCodec::reduce(std::span<const std::uint8_t> input,
                                                      int maxPixel, std::optional<int> thumbPixel,
                                                      bool withFingerprint) {
    auto reduced = reduceInMemory(input, maxPixel, thumbPixel);
    if (reduced && withFingerprint)
        reduced->fingerprint = fingerprint(reduced->full.bytes);
    // Decoding freed tens of megabytes; hand them back to the system rather
    // than keep them resident until the next copied image.
    malloc_trim(0);
    return reduced;
}

std::optional<ImageCodec::Reduced> ImageCodec::reduceInMemory(std::span<const std::uint8_t> input,
                                                              int maxPixel,
                                                              std::optional<int> thumbPixel) {
    initialize();
    if (input.empty() || maxPixel < 1 || !isAcceptedFormat(input))
        return failed(std::nullopt);
    {
        // Reading the header decodes no pixels, so a decompression bomb is
        // caught here, before it can claim gigabytes.
        ImageRef header;
        header.image = vips_image_new_from_buffer(input.data(), input.size(), "", nullptr);
        if (!header.get())
            return failed(std::nullopt);
        std::int64_t pixels =
            std::int64_t{vips_image_get_width(header.get())} * vips_image_get_height(header.get());
        if (pixels <= 0 || pixels > maxPixels)
            return failed(std::nullopt);
    }
    ImageRef image;
    // Truncated or damaged data fails instead of being stored half grey.
    // The loader option, not thumbnail's own fail_on: libvips 8.14 does not
    // pass that one on when reading from memory.
    if (vips_thumbnail_buffer(const_cast<std::uint8_t*>(input.data()), input.size(), image.out(),
                              maxPixel, "height", maxPixel, "size", VIPS_SIZE_DOWN, "option_string",
                              "fail_on=error", nullptr) != 0 ||
        !normalise(image))
        return failed(std::nullopt);

    Reduced reduced;
    auto full = encodeJpeg(image.get());
    if (!full)
        return std::nullopt;
    reduced.full = std::move(*full);
    if (thumbPixel) {
        ImageRef small;
        if (vips_thumbnail_image(image.get(), small.out(), *thumbPixel, "height", *thumbPixel,
                                 "size", VIPS_SIZE_DOWN, nullptr) != 0)
            return failed(std::nullopt);
        reduced.thumb = encodeJpeg(small.get());
        if (!reduced.thumb)
            return std::nullopt;
    }
    return reduced;
}

ImageCodec::Fingerprint ImageCodec::differenceHash(std::span<const std::uint8_t, 17 * 16> grey) {
    Fingerprint hash{};
    for (int r = 0; r < 16; ++r) {
        for (int x = 0; x < 16; ++x) {
            if (grey[r * 17 + x] < grey[r * 17 + x + 1]) {
                int bit = r * 16 + x;
                hash[bit / 8] |= static_cast<std::uint8_t>(1u << (bit % 8));
            }
        }
    }
    return hash;
}

std::optional<ImageCodec::Fingerprint> ImageCodec::fingerprint(std::span<const std::uint8_t> jpeg) {
    initialize();
    if (jpeg.empty() || !isAcceptedFormat(jpeg))
        return failed(std::nullopt);
    ImageRef image, next;
    if (vips_thumbnail_buffer(const_cast<std::uint8_t*>(jpeg.data()), jpeg.size(), image.out(), 17,
                              "height", 16, "size", VIPS_SIZE_FORCE, nullptr) != 0)
        return failed(std::nullopt);
    if (vips_colourspace(image.get(), next.out(), VIPS_INTERPRETATION_B_W, nullptr) != 0)
        return failed(std::nullopt);
    std::swap(image.image, next.image);
    if (vips_cast_uchar(image.get(), next.out(), nullptr) != 0)
        return failed(std::nullopt);
    std::swap(image.image, next.image);
    std::size_t size = 0;
    std::unique_ptr<void, decltype(&g_free)> pixels(vips_image_write_to_memory(image.get(), &size),
                                                    g_free);
    if (!pixels || size != 17 * 16 || vips_image_get_bands(image.get()) != 1)
        return failed(std::nullopt);
    std::array<std::uint8_t, 17 * 16> grey{};
    std::memcpy(grey.data(), pixels.get(), grey.size());
    return differenceHash(grey);
}

}  // namespace zettly
