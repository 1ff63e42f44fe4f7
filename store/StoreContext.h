#pragma once

#include <filesystem>
#include <functional>
#include <optional>

namespace zettly {

class Clock;
class Defaults;
class Log;

// What a store needs from its surroundings. The shared stores use the
// process-wide defaults, the XDG container folder and the system clock;
// tests give each store its own temporary folder, defaults file and clock.
struct StoreContext {
    Defaults& defaults;
    // The application's container folder (AppGroup::containerURL), asked on
    // every open attempt; none means that no database can be opened now.
    std::function<std::optional<std::filesystem::path>()> container;
    const Clock& clock;
    Log& log;

    static StoreContext standard();
};

}  // namespace zettly
