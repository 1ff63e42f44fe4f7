#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zettly {

// The system clipboard as the capture and pick paths see it. Types are the
// clipboard's own format names (on X11 the selection's MIME targets, see
// pbtype below).
class Pasteboard {
public:
    using Bytes = std::vector<std::uint8_t>;
    virtual ~Pasteboard() = default;

    // Raised on every change of the clipboard's owner or contents.
    virtual std::int64_t changeCount() = 0;
    virtual std::vector<std::string> types() = 0;
    // The plain-text contents, if any are offered.
    virtual std::optional<std::string> string() = 0;
    virtual std::optional<Bytes> data(const std::string& type) = 0;

    virtual void clear() = 0;
    virtual void writeString(std::string_view text) = 0;
    // Offers an image (encoded bytes, e.g. JPEG) in the usual image formats;
    // false when the bytes are not an image.
    virtual bool writeImage(std::span<const std::uint8_t> data) = 0;
};

// Format names, as the Linux desktop spells them.
namespace pbtype {
inline constexpr std::string_view png = "image/png";
inline constexpr std::string_view jpeg = "image/jpeg";
inline constexpr std::string_view heic = "image/heic";
inline constexpr std::string_view tiff = "image/tiff";
inline constexpr std::string_view uriList = "text/uri-list";
inline constexpr std::string_view gnomeCopiedFiles = "x-special/gnome-copied-files";
}  // namespace pbtype

// Which application is in front.
class Workspace {
public:
    virtual ~Workspace() = default;
    // The application id of the active window (Flatpak id, GTK application
    // id, desktop file name or WM_CLASS), none when unknown.
    virtual std::optional<std::string> frontmostApplicationId() = 0;
};

}  // namespace zettly
