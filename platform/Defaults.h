#pragma once

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

namespace zettly {

class Clock;
class Log;

// The user-defaults store: one JSON object in a file, key to value, with
// booleans, integers, doubles (always written with a fraction or exponent),
// strings, arrays of strings, and binary data as {"$data": "<base64>"}.
//
// Every read goes to the file's current contents: the store notices when
// another process replaced the file and reads it again, so a change made by
// a second instance (or by hand) takes effect at the next read. Writes go to
// a temporary file that is renamed into place, so a crash never leaves half a
// file. A file that cannot be parsed, or one over maxFileBytes (left
// unread), is moved aside as
// "<name>.corrupt-<time>" with one log line, and the defaults apply.
//
// Safe to use from any thread.
class Defaults {
public:
    using Bytes = std::vector<std::uint8_t>;

    // Real preferences are a few kilobytes (switches, a shortcut, the ignore
    // lists, the sync status); even thousands of ignore patterns stay far
    // below this. A larger file is damage or a runaway writer, and parsing
    // it would take several times its size in memory.
    static constexpr std::uintmax_t maxFileBytes = 4 * 1024 * 1024;

    Defaults(std::filesystem::path file, const Clock& clock, Log& log);

    const std::filesystem::path& file() const { return file_; }

    // Whether any value is stored under the key (the "object for key").
    bool contains(std::string_view key) const;

    // Plain typed getters: a missing or unconvertible value reads as false,
    // 0 or 0.0. Numbers, booleans and numeric strings convert into each other
    // the way the platform's defaults do ("YES"/"true" are true).
    bool boolValue(std::string_view key) const;
    std::int64_t integer(std::string_view key) const;
    double doubleValue(std::string_view key) const;

    // Object getters: a value only when one of exactly that kind is stored.
    std::optional<bool> boolObject(std::string_view key) const;
    std::optional<double> doubleObject(std::string_view key) const;  // any number
    std::optional<std::string> string(std::string_view key) const;
    // None when the value is not an array or holds anything but strings.
    std::optional<std::vector<std::string>> stringArray(std::string_view key) const;
    std::optional<Bytes> data(std::string_view key) const;

    void setBool(std::string_view key, bool value);
    void setInteger(std::string_view key, std::int64_t value);
    void setDouble(std::string_view key, double value);
    void setString(std::string_view key, std::string_view value);
    void setStringArray(std::string_view key, const std::vector<std::string>& value);
    void setData(std::string_view key, const Bytes& value);
    void remove(std::string_view key);

private:
    struct Stamp {
        dev_t device = 0;
        ino_t inode = 0;
        off_t size = -1;
        std::int64_t mtimeNanos = 0;
        bool operator==(const Stamp&) const = default;
    };

    // Re-reads the file when it is not the one last read or written.
    void refreshLocked() const;
    void loadLocked() const;
    void set(std::string_view key, nlohmann::json value);
    void writeLocked();
    std::optional<nlohmann::json> valueLocked(std::string_view key) const;

    std::filesystem::path file_;
    const Clock& clock_;
    Log& log_;
    mutable std::mutex mutex_;
    mutable nlohmann::json root_ = nlohmann::json::object();
    mutable std::optional<Stamp> stamp_;  // none: the file did not exist
    mutable bool loaded_ = false;
};

}  // namespace zettly
