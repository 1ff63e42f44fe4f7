#include "platform/Defaults.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/Clock.h"
#include "platform/Crypto.h"
#include "platform/Files.h"
#include "platform/Log.h"

namespace zettly {

using nlohmann::json;

namespace {

constexpr const char* kDataKey = "$data";

struct FileContents {
    std::optional<std::string> text;  // none: it could not be read
    std::uintmax_t size = 0;          // as the open file reported it
};

// One buffer of the file's size, and nothing read when that is over `limit`.
FileContents readFile(const std::filesystem::path& file, std::uintmax_t limit) {
    FileContents contents;
    int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return contents;
    struct stat st {};
    if (::fstat(fd, &st) == 0) {
        contents.size = static_cast<std::uintmax_t>(st.st_size);
        if (contents.size <= limit) {
            std::string text(contents.size, '\0');
            std::size_t done = 0;
            while (done < text.size()) {
                ssize_t n = ::read(fd, text.data() + done, text.size() - done);
                if (n < 0 && errno == EINTR)
                    continue;
                if (n <= 0)
                    break;
                done += static_cast<std::size_t>(n);
            }
            // Writers replace the file by renaming, so an open file does not
            // change; a short read is a failed one.
            if (done == text.size())
                contents.text = std::move(text);
        }
    }
    ::close(fd);
    return contents;
}

std::optional<std::int64_t> parseInteger(const std::string& s) {
    errno = 0;
    char* end = nullptr;
    long long v = std::strtoll(s.c_str(), &end, 10);
    if (end == s.c_str() || errno == ERANGE)
        return std::nullopt;
    return static_cast<std::int64_t>(v);
}

std::int64_t clampToInteger(double d) {
    if (std::isnan(d))
        return 0;
    if (d >= 9.2233720368547758e18)
        return std::numeric_limits<std::int64_t>::max();
    if (d <= -9.2233720368547758e18)
        return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(d);
}

}  // namespace

Defaults::Defaults(std::filesystem::path file, const Clock& clock, Log& log)
    : file_(std::move(file)), clock_(clock), log_(log) {}

void Defaults::refreshLocked() const {
    struct stat st {};
    std::optional<Stamp> current;
    if (::stat(file_.c_str(), &st) == 0)
        current = Stamp{
            st.st_dev, st.st_ino, st.st_size,
            static_cast<std::int64_t>(st.st_mtim.tv_sec) * 1'000'000'000 + st.st_mtim.tv_nsec};
    if (loaded_ && current == stamp_)
        return;
    stamp_ = current;
    loaded_ = true;
    if (!current) {
        root_ = json::object();
        return;
    }
    loadLocked();
}

void Defaults::loadLocked() const {
    FileContents contents = readFile(file_, maxFileBytes);
    json parsed;
    if (contents.text)
        parsed = json::parse(*contents.text, nullptr, /*allow_exceptions=*/false);
    if (!contents.text || parsed.is_discarded() || !parsed.is_object()) {
        // Keep the damaged file for the user and carry on with the defaults.
        std::string problem = contents.size > maxFileBytes
                                  ? " is too large to read (" + std::to_string(contents.size) +
                                        " bytes, the limit is " + std::to_string(maxFileBytes) + ")"
                                  : " could not be read";
        auto aside = files::moveAside(file_, clock_.now());
        log_.line("[Zettly] preferences file " + file_.string() + problem + "; " +
                  (aside ? "moved aside to " + aside->string() : std::string("left in place")) +
                  "; using the defaults");
        root_ = json::object();
        // When the rename failed the stamp stays, so the same damaged file is
        // not read (and reported) again on every access.
        if (aside)
            stamp_.reset();
        return;
    }
    root_ = std::move(parsed);
}

std::optional<json> Defaults::valueLocked(std::string_view key) const {
    refreshLocked();
    auto it = root_.find(key);
    if (it == root_.end() || it->is_null())
        return std::nullopt;
    return *it;
}

bool Defaults::contains(std::string_view key) const {
    std::lock_guard lock(mutex_);
    return valueLocked(key).has_value();
}

bool Defaults::boolValue(std::string_view key) const {
    std::lock_guard lock(mutex_);
    auto v = valueLocked(key);
    if (!v)
        return false;
    if (v->is_boolean())
        return v->get<bool>();
    if (v->is_number())
        return v->get<double>() != 0;
    if (v->is_string()) {
        std::string s = v->get<std::string>();
        if (s == "YES" || s == "yes" || s == "true" || s == "TRUE" || s == "Y" || s == "y")
            return true;
        auto n = parseInteger(s);
        return n && *n != 0;
    }
    return false;
}

std::int64_t Defaults::integer(std::string_view key) const {
    std::lock_guard lock(mutex_);
    auto v = valueLocked(key);
    if (!v)
        return 0;
    if (v->is_boolean())
        return v->get<bool>() ? 1 : 0;
    if (v->is_number_integer()) {
        if (v->is_number_unsigned() &&
            v->get<std::uint64_t>() >
                static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
            return std::numeric_limits<std::int64_t>::max();
        return v->get<std::int64_t>();
    }
    if (v->is_number_float())
        return clampToInteger(v->get<double>());
    if (v->is_string())
        return parseInteger(v->get<std::string>()).value_or(0);
    return 0;
}

double Defaults::doubleValue(std::string_view key) const {
    std::lock_guard lock(mutex_);
    auto v = valueLocked(key);
    if (!v)
        return 0;
    if (v->is_boolean())
        return v->get<bool>() ? 1 : 0;
    if (v->is_number())
        return v->get<double>();
    if (v->is_string()) {
        std::string s = v->get<std::string>();
        char* end = nullptr;
        double d = std::strtod(s.c_str(), &end);
        return end == s.c_str() ? 0 : d;
    }
    return 0;
}

std::optional<bool> Defaults::boolObject(std::string_view key) const {
    std::lock_guard lock(mutex_);
    auto v = valueLocked(key);
    if (!v || !v->is_boolean())
        return std::nullopt;
    return v->get<bool>();
}

std::optional<double> Defaults::doubleObject(std::string_view key) const {
    std::lock_guard lock(mutex_);
    auto v = valueLocked(key);
    if (!v || !v->is_number())
        return std::nullopt;
    return v->get<double>();
}

std::optional<std::string> Defaults::string(std::string_view key) const {
    std::lock_guard lock(mutex_);
    auto v = valueLocked(key);
    if (!v)
        return std::nullopt;
    if (v->is_string())
        return v->get<std::string>();
    return std::nullopt;
}

std::optional<std::vector<std::string>> Defaults::stringArray(std::string_view key) const {
    std::lock_guard lock(mutex_);
    auto v = valueLocked(key);
    if (!v || !v->is_array())
        return std::nullopt;
    std::vector<std::string> out;
    out.reserve(v->size());
    for (const json& element : *v) {
        if (!element.is_string())
            return std::nullopt;
        out.push_back(element.get<std::string>());
    }
    return out;
}

std::optional<Defaults::Bytes> Defaults::data(std::string_view key) const {
    std::lock_guard lock(mutex_);
    auto v = valueLocked(key);
    if (!v || !v->is_object() || v->size() != 1)
        return std::nullopt;
    auto it = v->find(kDataKey);
    if (it == v->end() || !it->is_string())
        return std::nullopt;
    return crypto::base64Decode(it->get<std::string>());
}

void Defaults::setBool(std::string_view key, bool value) {
    set(key, value);
}
void Defaults::setInteger(std::string_view key, std::int64_t value) {
    set(key, value);
}
void Defaults::setDouble(std::string_view key, double value) {
    // JSON has no NaN or infinity; such a value is not stored at all.
    if (!std::isfinite(value))
        return;
    set(key, value);
}
void Defaults::setString(std::string_view key, std::string_view value) {
    set(key, std::string(value));
}
void Defaults::setStringArray(std::string_view key, const std::vector<std::string>& value) {
    set(key, value);
}
void Defaults::setData(std::string_view key, const Bytes& value) {
    set(key, json{{kDataKey, crypto::base64Encode(value)}});
}

void Defaults::remove(std::string_view key) {
    std::lock_guard lock(mutex_);
    refreshLocked();
    auto it = root_.find(key);
    if (it == root_.end())
        return;
    root_.erase(it);
    writeLocked();
}

void Defaults::set(std::string_view key, json value) {
    std::lock_guard lock(mutex_);
    refreshLocked();  // start from what another process may have written
    // Sync rewrites its status after every pass, mostly unchanged ("Sync is
    // not set up" every 29 s): no file write for a value already stored.
    if (auto it = root_.find(key); it != root_.end() && *it == value)
        return;
    root_[std::string(key)] = std::move(value);
    writeLocked();
}

void Defaults::writeLocked() {
    // A text that is not valid UTF-8 cannot be written as JSON; replace the
    // broken bytes rather than lose the whole file.
    std::string text = root_.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
    std::error_code ec;
    files::createPrivateDirectories(file_.parent_path(), ec);
    auto written = files::writeAtomically(file_, text, ec);
    if (!written) {
        log_.line("[Zettly] could not write preferences to " + file_.string() + ": " +
                  ec.message());
        return;  // keep the values in memory; the next write tries again
    }
    stamp_ = Stamp{written->st_dev, written->st_ino, written->st_size,
                   static_cast<std::int64_t>(written->st_mtim.tv_sec) * 1'000'000'000 +
                       written->st_mtim.tv_nsec};
}

}  // namespace zettly
