#include "platform/Files.h"

#include <cerrno>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>

#include <fcntl.h>
#include <unistd.h>

namespace zettly::files {

namespace fs = std::filesystem;

bool createPrivateDirectories(const fs::path& dir, std::error_code& ec) {
    ec.clear();
    if (dir.empty())
        return true;
    if (fs::is_directory(dir, ec))
        return true;
    fs::path partial;
    for (const auto& part : dir) {
        partial /= part;
        if (::mkdir(partial.c_str(), 0700) != 0 && errno != EEXIST) {
            ec = std::error_code(errno, std::generic_category());
            return false;
        }
    }
    if (!fs::is_directory(dir, ec)) {
        if (!ec)
            ec = std::make_error_code(std::errc::not_a_directory);
        return false;
    }
    return true;
}

bool ensurePrivateFile(const fs::path& file) {
    int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0)
        return false;
    ::close(fd);
    return true;
}

std::optional<struct stat> writeAtomically(const fs::path& file, const void* data, std::size_t size,
                                           std::error_code& ec) {
    std::string pattern = (file.parent_path() / ("." + file.filename().string() + ".XXXXXX"));
    int fd = ::mkostemp(pattern.data(), O_CLOEXEC);  // mode 0600
    if (fd < 0) {
        ec = std::error_code(errno, std::generic_category());
        return std::nullopt;
    }
    auto fail = [&](int error) -> std::optional<struct stat> {
        ec = std::error_code(error, std::generic_category());
        ::close(fd);
        ::unlink(pattern.c_str());
        return std::nullopt;
    };
    const char* p = static_cast<const char*>(data);
    std::size_t left = size;
    while (left > 0) {
        ssize_t n = ::write(fd, p, left);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return fail(errno);
        }
        p += n;
        left -= static_cast<std::size_t>(n);
    }
    if (::fsync(fd) != 0)
        return fail(errno);
    struct stat st {};
    if (::fstat(fd, &st) != 0)
        return fail(errno);
    if (::rename(pattern.c_str(), file.c_str()) != 0)
        return fail(errno);
    ::close(fd);
    ec.clear();
    return st;
}

std::optional<fs::path> moveAside(const fs::path& file, double now, std::string_view why) {
    fs::path aside = file;
    aside += "." + std::string(why) + "-" + std::to_string(static_cast<std::int64_t>(now));
    std::error_code ec;
    fs::rename(file, aside, ec);
    if (ec)
        return std::nullopt;
    return aside;
}

std::optional<std::vector<std::uint8_t>> readAll(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in)
        return std::nullopt;
    std::vector<std::uint8_t> data{std::istreambuf_iterator<char>(in), {}};
    if (in.bad())
        return std::nullopt;
    return data;
}

}  // namespace zettly::files
