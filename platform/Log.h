#pragma once

#include <string_view>

namespace zettly {

// A sink for the few diagnostic lines the program writes. On Linux they go to
// stderr, where journald picks them up for a desktop session; tests record
// them to check that a failure was reported exactly once.
class Log {
public:
    virtual ~Log() = default;
    virtual void line(std::string_view text) = 0;
};

class StderrLog final : public Log {
public:
    void line(std::string_view text) override;

    static StderrLog& instance();
};

}  // namespace zettly
