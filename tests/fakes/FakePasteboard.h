#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/Pasteboard.h"

namespace zettly::test {

// A clipboard a test fills the way another application would: each copy
// raises the change count and replaces every type.
class FakePasteboard final : public Pasteboard {
public:
    // Another application copies: types and their contents, in order.
    void copy(std::vector<std::pair<std::string, Bytes>> entries) {
        ++count_;
        entries_ = std::move(entries);
    }
    void copyText(const std::string& text) {
        copy({{"text/plain;charset=utf-8", Bytes(text.begin(), text.end())}});
    }

    std::int64_t changeCount() override { return count_; }
    std::vector<std::string> types() override {
        std::vector<std::string> out;
        for (const auto& [type, _] : entries_)
            out.push_back(type);
        return out;
    }
    std::optional<std::string> string() override {
        for (const auto& [type, data] : entries_)
            if (type.starts_with("text/plain") || type == "UTF8_STRING")
                return std::string(data.begin(), data.end());
        return std::nullopt;
    }
    std::optional<Bytes> data(const std::string& type) override {
        for (const auto& [t, data] : entries_)
            if (t == type)
                return data;
        return std::nullopt;
    }
    void clear() override {
        ++count_;
        entries_.clear();
    }
    void writeString(std::string_view text) override {
        ++count_;
        entries_ = {{"text/plain;charset=utf-8", Bytes(text.begin(), text.end())}};
    }
    bool writeImage(std::span<const std::uint8_t> data) override {
        // Enough of an image check for the monitor's purpose: JPEG or PNG magic.
        bool image = data.size() > 3 &&
                     ((data[0] == 0xff && data[1] == 0xd8) || (data[0] == 0x89 && data[1] == 'P'));
        if (!image)
            return false;
        ++count_;
        entries_ = {{"image/png", Bytes(data.begin(), data.end())}};
        return true;
    }

private:
    std::int64_t count_ = 7;
    std::vector<std::pair<std::string, Bytes>> entries_;
};

class FakeWorkspace final : public Workspace {
public:
    std::optional<std::string> frontmost;
    std::optional<std::string> frontmostApplicationId() override { return frontmost; }
};

}  // namespace zettly::test
