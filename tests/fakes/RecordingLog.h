#pragma once

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Log.h"

namespace zettly::test {

class RecordingLog final : public Log {
public:
    void line(std::string_view text) override {
        std::lock_guard lock(mutex_);
        lines_.emplace_back(text);
    }
    std::vector<std::string> lines() const {
        std::lock_guard lock(mutex_);
        return lines_;
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};

}  // namespace zettly::test
