#pragma once

#include <string_view>

// Keys of the user-defaults store. They are shared with the companion apps'
// formats and with files users already have, so they never change.
namespace zettly::prefkey {

inline constexpr std::string_view clipboardEnabled = "clipboardEnabled";
inline constexpr std::string_view clipboardLimit = "clipboardLimit";
inline constexpr std::string_view clipboardRetentionMinutes = "clipboardRetentionMinutes";
inline constexpr std::string_view saveImages = "saveImages";
// The largest copied image, in MiB, kept as copied beside its JPEG; 0 keeps none.
inline constexpr std::string_view imageOriginalLimitMB = "imageOriginalLimitMB";
inline constexpr std::string_view clearOnQuit = "clearOnQuit";
inline constexpr std::string_view pasteAutomatically = "pasteAutomatically";
// The user's paste shortcut per application, "<app id>=<chord>" each (the
// chords as chordName() writes them).
inline constexpr std::string_view pasteShortcuts = "pasteShortcuts";
inline constexpr std::string_view popupPosition = "popupPosition";
inline constexpr std::string_view popupWidth = "popupWidth";
inline constexpr std::string_view popupHeight = "popupHeight";
inline constexpr std::string_view previewDelay = "previewDelay";
inline constexpr std::string_view hotKeyCode = "hotKeyCode";
inline constexpr std::string_view hotKeyMods = "hotKeyMods";
inline constexpr std::string_view ignoredApps = "ignoredApps";
inline constexpr std::string_view ignoredPatterns = "ignoredPatterns";
inline constexpr std::string_view clipboardCloudSync = "clipboardCloudSync";
inline constexpr std::string_view clipboardChipOrderSync = "clipboardChipOrderSync";
inline constexpr std::string_view clipboardChipOrder = "clipboardChipOrder";
// The self-hosted sync server: the database URL and the user name. The
// password and passphrase are kept in the secret store, never here.
inline constexpr std::string_view syncServerURL = "syncServerURL";
inline constexpr std::string_view syncServerUser = "syncServerUser";
inline constexpr std::string_view clipSyncKey = "clipSyncKey";
inline constexpr std::string_view clipSyncUser = "clipSyncUser";
inline constexpr std::string_view clipSyncLastAt = "clipSyncLastAt";
inline constexpr std::string_view clipSyncLastError = "clipSyncLastError";
inline constexpr std::string_view syncToken = "clipSync.token";
inline constexpr std::string_view syncZoneReady = "clipSync.zoneReady";
inline constexpr std::string_view syncSetAside = "clipSync.setAside";
inline constexpr std::string_view syncOrderDirty = "clipSync.orderDirty";
inline constexpr std::string_view syncOrderModified = "clipSync.orderModified";
inline constexpr std::string_view syncOrderCK = "clipSync.orderCK";
inline constexpr std::string_view syncOrderRemote = "clipSync.orderRemote";
inline constexpr std::string_view syncOrderRemoteModified = "clipSync.orderRemoteModified";

}  // namespace zettly::prefkey
