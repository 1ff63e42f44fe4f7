#pragma once

#include <QImage>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zettly {

// What one write of Zettly's offers the other applications: the formats
// the X11 backend offers through Qt for the same write, and the bytes for
// each. An image is re-encoded into another format only when an
// application first asks for that format, on the thread that answers it.
// Any thread.
class ClipPayload {
public:
    using Bytes = std::vector<std::uint8_t>;

    static std::shared_ptr<ClipPayload> text(std::string_view utf8);
    // None when the bytes are no image Qt can read. `type` names the
    // bytes' own format, offered first with the bytes unchanged.
    static std::shared_ptr<ClipPayload> image(std::span<const std::uint8_t> encoded,
                                              std::string_view type);

    // In the order they are offered, the most faithful first.
    const std::vector<std::string>& types() const { return types_; }
    // The contents as `type`; none when that type is not offered or the
    // image could not be encoded in it.
    std::optional<Bytes> bytes(const std::string& type);

private:
    ClipPayload() = default;

    std::vector<std::string> types_;
    QImage image_;  // null for a text
    std::mutex mutex_;
    std::map<std::string, Bytes> ready_;
};

}  // namespace zettly
