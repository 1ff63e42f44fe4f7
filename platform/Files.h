#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string_view>
#include <system_error>
#include <vector>

#include <sys/stat.h>

namespace zettly::files {

// History and preferences are private to the user: folders are created mode
// 0700 and files 0600 (the umask can only narrow this further). Folders that
// already exist keep their mode.
bool createPrivateDirectories(const std::filesystem::path& dir, std::error_code& ec);

// Creates an empty file with mode 0600 unless it exists, so that a library
// that creates files with wider permissions (SQLite uses 0644) never gets to.
bool ensurePrivateFile(const std::filesystem::path& file);

// Writes to a temporary file beside `file`, flushes it to disk and renames it
// into place. Returns the written file's status, or none with ec set (the
// temporary file is removed then).
std::optional<struct stat> writeAtomically(const std::filesystem::path& file, const void* data,
                                           std::size_t size, std::error_code& ec);
inline std::optional<struct stat> writeAtomically(const std::filesystem::path& file,
                                                  std::string_view contents, std::error_code& ec) {
    return writeAtomically(file, contents.data(), contents.size(), ec);
}
inline std::optional<struct stat> writeAtomically(const std::filesystem::path& file,
                                                  std::span<const std::uint8_t> contents,
                                                  std::error_code& ec) {
    return writeAtomically(file, contents.data(), contents.size(), ec);
}

// The whole file, or none when it cannot be opened or a read fails.
std::optional<std::vector<std::uint8_t>> readAll(const std::filesystem::path& file);

// Renames a file that cannot be used to "<name>.<why>-<seconds>" ("corrupt",
// "damaged", "foreign") so the user keeps it. Returns the new path, or none
// when the rename failed.
std::optional<std::filesystem::path> moveAside(const std::filesystem::path& file, double now,
                                               std::string_view why = "corrupt");

}  // namespace zettly::files
