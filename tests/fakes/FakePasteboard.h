#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/Pasteboard.h"

namespace zettly::test {

// A clipboard a test fills the way another application would: each copy
// raises the change count and replaces every type. Reads of the types in
// `failing` end that way (an owner that stops answering, or refuses);
// "TARGETS" stands for the list of types itself.
class FakePasteboard final : public Pasteboard {
public:
    // Whether it says when it changed; without, the monitor polls.
    bool signals = false;
    std::map<std::string, ReadStatus> failing;
    int reads = 0;  // every read, of the types or of contents

    // Another application copies: types and their contents, in order.
    void copy(std::vector<std::pair<std::string, Bytes>> entries) {
        entries_ = std::move(entries);
        changed();
    }
    void copyText(const std::string& text) {
        copy({{"text/plain;charset=utf-8", Bytes(text.begin(), text.end())}});
    }

    std::int64_t changeCount() override { return count_; }
    bool signalsChanges() const override { return signals; }
    void setChangeHandler(std::function<void()> handler) override { handler_ = std::move(handler); }

    ReadResult<std::vector<std::string>> types() override {
        ++reads;
        if (auto failure = failing.find("TARGETS"); failure != failing.end())
            return ReadResult<std::vector<std::string>>::failure(failure->second);
        if (entries_.empty())
            return ReadResult<std::vector<std::string>>::failure(ReadStatus::absent);
        std::vector<std::string> out;
        for (const auto& [type, _] : entries_)
            out.push_back(type);
        return ReadResult<std::vector<std::string>>::success(std::move(out));
    }
    ReadResult<std::string> string() override {
        for (const auto& [type, data] : entries_) {
            if (!type.starts_with("text/plain") && type != "UTF8_STRING")
                continue;
            auto read = this->data(type);
            if (read.ok())
                return ReadResult<std::string>::success(std::string(data.begin(), data.end()));
            if (read.status != ReadStatus::absent)
                return ReadResult<std::string>::failure(read.status);
        }
        return ReadResult<std::string>::failure(ReadStatus::absent);
    }
    ReadResult<Bytes> data(const std::string& type) override {
        ++reads;
        if (auto failure = failing.find(type); failure != failing.end())
            return ReadResult<Bytes>::failure(failure->second);
        for (const auto& [t, data] : entries_)
            if (t == type)
                return ReadResult<Bytes>::success(data);
        return ReadResult<Bytes>::failure(ReadStatus::absent);
    }
    void interruptReads() override {}

    void clear() override {
        entries_.clear();
        changed();
    }
    void writeString(std::string_view text) override {
        entries_ = {{"text/plain;charset=utf-8", Bytes(text.begin(), text.end())}};
        changed();
    }
    bool writeImage(std::span<const std::uint8_t> data, std::string_view type) override {
        // Enough of an image check for the monitor's purpose: JPEG or PNG magic.
        bool image = data.size() > 3 &&
                     ((data[0] == 0xff && data[1] == 0xd8) || (data[0] == 0x89 && data[1] == 'P'));
        if (!image)
            return false;
        entries_ = {{std::string(type), Bytes(data.begin(), data.end())}};
        changed();
        return true;
    }

    // The plain text on it now, as another application would paste it.
    std::optional<std::string> text() const {
        for (const auto& [type, data] : entries_)
            if (type.starts_with("text/plain"))
                return std::string(data.begin(), data.end());
        return std::nullopt;
    }
    bool empty() const { return entries_.empty(); }

private:
    void changed() {
        ++count_;
        if (signals && handler_)
            handler_();
    }

    std::int64_t count_ = 7;
    std::vector<std::pair<std::string, Bytes>> entries_;
    std::function<void()> handler_;
};

class FakeWorkspace final : public Workspace {
public:
    std::optional<std::string> frontmost;
    std::vector<RunningApp> running;
    std::optional<std::string> frontmostApplicationId() override { return frontmost; }
    std::vector<RunningApp> runningApplications() override { return running; }
};

}  // namespace zettly::test
