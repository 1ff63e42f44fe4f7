#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace zettly {

class Log;

// Where the sync server's password, the passphrase and the key derived from
// it are kept: a desktop keyring where the session has one, else a file
// readable only by the user beside the preferences. Secrets are strings;
// they are addressed by name, e.g. "password https://couch.example.org/zettly ann".
// Safe to use from any thread.
class SecretStore {
public:
    virtual ~SecretStore() = default;

    virtual std::optional<std::string> read(std::string_view name) = 0;
    // False when it could not be stored; the caller tells the user.
    virtual bool write(std::string_view name, std::string_view secret) = 0;
    virtual bool remove(std::string_view name) = 0;
    // "Secret Service" or the file's path, for the log and the Sync tab.
    virtual std::string where() const = 0;
};

// The private JSON file (mode 0600). A damaged file is moved aside with one
// log line, and one that cannot be read is never written over.
std::unique_ptr<SecretStore> fileSecretStore(const std::filesystem::path& path, Log& log);

// The environment wins for unattended use: ZETTLY_SYNC_PASSWORD and
// ZETTLY_SYNC_PASSPHRASE, when set, stand for the stored password and
// passphrase.
std::optional<std::string> syncPassword(SecretStore& store, std::string_view name);
std::optional<std::string> syncPassphrase(SecretStore& store, std::string_view name);

}  // namespace zettly
