#include "store/StoreHealth.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include <sqlite3.h>

#include "platform/Log.h"

namespace zettly {

StoreHealth::StoreHealth(Log& log) : log_(log) {}

StoreHealth::Problem StoreHealth::classify(int resultCode, int systemErrno) {
    // The errno is the more precise of the two: SQLite reports a journal that
    // cannot be created in a read-only folder as "unable to open".
    switch (systemErrno) {
        case ENOSPC:
        case EDQUOT:
            return Problem::diskFull;
        case EROFS:
        case EACCES:
        case EPERM:
            return Problem::readOnly;
        default:
            break;
    }
    switch (resultCode & 0xff) {
        case SQLITE_FULL:
            return Problem::diskFull;
        case SQLITE_READONLY:
        case SQLITE_PERM:
        case SQLITE_AUTH:
            return Problem::readOnly;
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return Problem::locked;
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
            return Problem::damaged;
        default:
            return Problem::diskError;
    }
}

std::string_view StoreHealth::describe(Problem problem) {
    switch (problem) {
        case Problem::none:
            return "saved";
        case Problem::diskFull:
            return "the disk is full";
        case Problem::readOnly:
            return "the folder cannot be written";
        case Problem::locked:
            return "another program holds the database";
        case Problem::diskError:
            return "the disk reported an error";
        case Problem::damaged:
            return "the file is damaged";
    }
    return "unknown";
}

void StoreHealth::saveFailed(const std::filesystem::path& file, int resultCode, int systemErrno) {
    const Problem problem = classify(resultCode, systemErrno);
    {
        std::lock_guard lock(mutex_);
        Problem& known = problems_[file];
        if (known == problem)
            return;
        known = problem;
    }
    std::string cause;
    if (resultCode != 0)
        cause = sqlite3_errstr(resultCode);
    if (systemErrno != 0)
        cause += (cause.empty() ? "" : "; ") + std::string(std::strerror(systemErrno));
    log_.line("[Zettly] new copies are not being saved to " + file.string() + ": " +
              std::string(describe(problem)) + (cause.empty() ? "" : " (" + cause + ")"));
    notify();
}

void StoreHealth::saved(const std::filesystem::path& file) {
    {
        std::lock_guard lock(mutex_);
        auto it = problems_.find(file);
        if (it == problems_.end())
            return;
        problems_.erase(it);
    }
    log_.line("[Zettly] copies are being saved to " + file.string() + " again");
    notify();
}

void StoreHealth::rescued(Rescue rescue) {
    {
        std::lock_guard lock(mutex_);
        rescues_.push_back(std::move(rescue));
    }
    notify();
}

void StoreHealth::setListener(std::function<void()> listener) {
    std::lock_guard lock(mutex_);
    listener_ = std::move(listener);
}

void StoreHealth::notify() {
    std::function<void()> listener;
    {
        std::lock_guard lock(mutex_);
        listener = listener_;
    }
    if (listener)
        listener();
}

StoreHealth::Status StoreHealth::status() const {
    std::lock_guard lock(mutex_);
    for (const auto& [file, problem] : problems_)
        if (problem != Problem::none)
            return Status{problem, file};
    return {};
}

std::vector<StoreHealth::Rescue> StoreHealth::takeRescues() {
    std::lock_guard lock(mutex_);
    return std::exchange(rescues_, {});
}

}  // namespace zettly
