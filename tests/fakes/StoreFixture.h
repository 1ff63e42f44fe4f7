#pragma once

#include <filesystem>
#include <memory>
#include <optional>

#include "platform/Defaults.h"
#include "store/StoreContext.h"
#include "store/StoreHealth.h"
#include "tests/fakes/FakeClock.h"
#include "tests/fakes/RecordingLog.h"
#include "tests/fakes/TempDir.h"

namespace zettly::test {

// Everything a store needs, private to one test: a temporary container
// folder, a defaults file inside it, a clock that moves only when told and a
// log that records its lines.
struct StoreEnvironment {
    TempDir dir;
    FakeClock clock;
    RecordingLog log;
    Defaults defaults{dir / "config/defaults.json", clock, log};
    StoreHealth health{log};
    std::filesystem::path container = dir / "container";
    bool containerAvailable = true;

    StoreContext context() {
        return StoreContext{defaults,
                            [this]() -> std::optional<std::filesystem::path> {
                                if (!containerAvailable)
                                    return std::nullopt;
                                std::filesystem::create_directories(container);
                                return container;
                            },
                            clock, log, &health};
    }
    std::filesystem::path library() const { return container / "Library"; }
};

}  // namespace zettly::test
