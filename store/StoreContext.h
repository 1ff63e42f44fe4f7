#pragma once

#include <filesystem>
#include <functional>
#include <optional>

namespace zettly {

class Clock;
class Defaults;
class Log;
class StoreHealth;

// What a store needs from its surroundings. The application passes the
// user's defaults, the session's container folder and the system clock;
// tests give each store its own temporary folder, defaults file and clock.
struct StoreContext {
    Defaults& defaults;
    // The application's container folder (AppFolders::containerURL), asked on
    // every open attempt; none means that no database can be opened now.
    std::function<std::optional<std::filesystem::path>()> container;
    const Clock& clock;
    Log& log;
    // Told of captures that could not be saved and of files that had to be
    // rebuilt; none where nobody shows them (benchmarks).
    StoreHealth* health = nullptr;
};

}  // namespace zettly
