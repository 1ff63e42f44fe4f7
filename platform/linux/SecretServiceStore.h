#pragma once

#include <filesystem>
#include <memory>

#include "platform/SecretStore.h"

namespace zettly {

// The desktop's Secret Service (GNOME Keyring, KWallet) when the session bus
// offers one that answers within a few seconds, else the private file at
// `fallbackFile`. Logs one line saying which it chose.
std::unique_ptr<SecretStore> openDesktopSecretStore(const std::filesystem::path& fallbackFile,
                                                    Log& log);

}  // namespace zettly
