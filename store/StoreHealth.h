#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace zettly {

class Log;

// Whether the history's files take what the user copies, shared by the text
// and image stores and shown by the app (tray tooltip, Settings › Storage,
// a notification). A store reports each capture's outcome; a failure is
// logged once with its cause, not once per copy, and the next capture that
// is saved clears it: the warning goes away by itself once the disk has
// room again or the folder can be written.
//
// Safe to use from any thread; the listener runs on the reporting thread.
class StoreHealth {
public:
    enum class Problem {
        none,
        diskFull,   // no space left (or the user's quota is used up)
        readOnly,   // the folder or the file cannot be written
        locked,     // another program holds the database
        diskError,  // the disk or file system reported an error
        damaged,    // the file is damaged and could not be rebuilt
    };

    struct Status {
        Problem problem = Problem::none;
        std::filesystem::path file;  // the database or image file that failed
        bool operator==(const Status&) const = default;
    };

    // A history file that could not be used as it was: its readable rows
    // went into a new file and the old one was kept beside it.
    struct Rescue {
        enum class Kind { damaged, foreign };
        Kind kind = Kind::damaged;
        std::filesystem::path file;   // the history file, now the new one
        std::filesystem::path aside;  // where the old file is kept
        std::int64_t kept = 0;        // rows carried over
        std::int64_t unreadable = 0;  // rows found but not readable
        bool operator==(const Rescue&) const = default;
    };

    explicit StoreHealth(Log& log);

    // A copy could not be saved to `file`: SQLite's result code (0 when the
    // failure came from a plain file write) and the system's errno.
    void saveFailed(const std::filesystem::path& file, int resultCode, int systemErrno);
    // A copy was saved to `file`.
    void saved(const std::filesystem::path& file);
    void rescued(Rescue rescue);

    // The first store with a problem, or none.
    Status status() const;
    // The rescues not yet told to the user, oldest first; each is handed
    // out once.
    std::vector<Rescue> takeRescues();

    // Called after every change of status and every rescue; none to stop.
    void setListener(std::function<void()> listener);

    static Problem classify(int resultCode, int systemErrno);
    // "the disk is full", for the log.
    static std::string_view describe(Problem problem);

private:
    void notify();

    Log& log_;
    mutable std::mutex mutex_;
    std::map<std::filesystem::path, Problem> problems_;
    std::vector<Rescue> rescues_;
    std::function<void()> listener_;
};

}  // namespace zettly
