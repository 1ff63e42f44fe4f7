#include "store/ClipPrefs.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "platform/Defaults.h"
#include "store/PrefKeys.h"

namespace zettly {

namespace {

bool fitsUint32(std::int64_t v) {
    return v >= 0 && v <= std::numeric_limits<std::uint32_t>::max();
}

// A hand-edited file can hold any number, and a numeric string may even be
// "inf" or "nan": one the window cannot take would make it vanish or fill the
// screen (1e308 became a negative size).
double sideWithin(double stored, double fallback, double min, double max) {
    if (!(stored > 0) || !std::isfinite(stored))
        return fallback;
    return std::clamp(stored, min, max);
}

}  // namespace

HotKeyCombo ClipPrefs::hotKey() const {
    if (!defaults_.contains(prefkey::hotKeyCode))
        return HotKeyCombo{};
    std::int64_t code = defaults_.integer(prefkey::hotKeyCode);
    std::int64_t modifiers = defaults_.integer(prefkey::hotKeyMods);
    // Cut to 32 bits, a damaged number would silently name some real key
    // (2^32 + 9 is V); it reads as if nothing were stored.
    if (!fitsUint32(code) || !fitsUint32(modifiers))
        return HotKeyCombo{};
    return HotKeyCombo{static_cast<std::uint32_t>(code), static_cast<std::uint32_t>(modifiers)};
}

void ClipPrefs::setHotKey(HotKeyCombo combo) {
    defaults_.setInteger(prefkey::hotKeyCode, combo.keyCode);
    defaults_.setInteger(prefkey::hotKeyMods, combo.modifiers);
}

ClipPrefs::PopupPosition ClipPrefs::popupPosition() const {
    return defaults_.string(prefkey::popupPosition) == "center" ? PopupPosition::center
                                                                : PopupPosition::cursor;
}

void ClipPrefs::setPopupPosition(PopupPosition position) {
    defaults_.setString(prefkey::popupPosition,
                        position == PopupPosition::center ? "center" : "cursor");
}

ClipPrefs::PopupSize ClipPrefs::popupSize() const {
    return PopupSize{sideWithin(defaults_.doubleValue(prefkey::popupWidth), defaultPopupSize.width,
                                minPopupSize.width, maxPopupSize.width),
                     sideWithin(defaults_.doubleValue(prefkey::popupHeight),
                                defaultPopupSize.height, minPopupSize.height, maxPopupSize.height)};
}

void ClipPrefs::setPopupSize(PopupSize size) {
    defaults_.setDouble(prefkey::popupWidth,
                        std::clamp(size.width, minPopupSize.width, maxPopupSize.width));
    defaults_.setDouble(prefkey::popupHeight,
                        std::clamp(size.height, minPopupSize.height, maxPopupSize.height));
}

bool ClipPrefs::saveImages() const {
    return defaults_.boolObject(prefkey::saveImages).value_or(true);
}

std::int64_t ClipPrefs::imageOriginalLimitMB() const {
    // 0 is a choice (off) here, so only a missing value or one of another
    // kind reads as the default.
    if (!defaults_.doubleObject(prefkey::imageOriginalLimitMB))
        return defaultImageOriginalLimitMB;
    std::int64_t megabytes = defaults_.integer(prefkey::imageOriginalLimitMB);
    return megabytes < 0 ? defaultImageOriginalLimitMB : megabytes;
}

void ClipPrefs::setImageOriginalLimitMB(std::int64_t megabytes) {
    defaults_.setInteger(prefkey::imageOriginalLimitMB, std::max<std::int64_t>(megabytes, 0));
}

double ClipPrefs::previewDelay() const {
    // The file holds only finite numbers (its parser refuses overflowing
    // ones), so a clamp is all a stored delay needs.
    return std::clamp(defaults_.doubleObject(prefkey::previewDelay).value_or(defaultPreviewDelay),
                      0.0, maxPreviewDelay);
}

std::int64_t ClipPrefs::clipboardLimit() const {
    // A negative limit would make the trim delete every unpinned row,
    // including the one just copied; it is treated like a missing one.
    std::int64_t limit = defaults_.integer(prefkey::clipboardLimit);
    return limit < 1 ? defaultLimit : limit;
}

std::int64_t ClipPrefs::clipboardRetentionMinutes() const {
    std::int64_t minutes = defaults_.integer(prefkey::clipboardRetentionMinutes);
    return minutes < 1 ? defaultRetentionMinutes : minutes;
}

bool ClipPrefs::clearOnQuit() const {
    return defaults_.boolValue(prefkey::clearOnQuit);
}

bool ClipPrefs::pasteAutomatically() const {
    return defaults_.boolValue(prefkey::pasteAutomatically);
}

std::vector<PasteChordChoice> ClipPrefs::pasteChords() const {
    std::vector<PasteChordChoice> choices;
    for (const std::string& entry :
         defaults_.stringArray(prefkey::pasteShortcuts).value_or(std::vector<std::string>{})) {
        auto equals = entry.rfind('=');
        if (equals == std::string::npos || equals == 0)
            continue;
        auto chord = chordNamed(std::string_view(entry).substr(equals + 1));
        if (!chord)
            continue;
        std::string appId = entry.substr(0, equals);
        std::erase_if(choices,
                      [&](const PasteChordChoice& c) { return sameAppId(c.appId, appId); });
        choices.push_back({std::move(appId), *chord});
    }
    return choices;
}

void ClipPrefs::setPasteChords(const std::vector<PasteChordChoice>& choices) {
    // An entry this version cannot read (keys a newer one knows) stays for
    // the version that wrote it, unless the application has a choice now.
    std::vector<std::string> entries;
    for (const std::string& entry :
         defaults_.stringArray(prefkey::pasteShortcuts).value_or(std::vector<std::string>{})) {
        auto equals = entry.rfind('=');
        if (equals == std::string::npos || equals == 0 ||
            chordNamed(std::string_view(entry).substr(equals + 1)))
            continue;
        std::string_view appId = std::string_view(entry).substr(0, equals);
        if (std::none_of(choices.begin(), choices.end(),
                         [&](const PasteChordChoice& c) { return sameAppId(c.appId, appId); }))
            entries.push_back(entry);
    }
    for (const PasteChordChoice& choice : choices)
        entries.push_back(choice.appId + "=" + std::string(chordName(choice.chord)));
    defaults_.setStringArray(prefkey::pasteShortcuts, entries);
}

bool ClipPrefs::clipboardCloudSync() const {
    return defaults_.boolValue(prefkey::clipboardCloudSync);
}

std::optional<std::vector<std::string>> ClipPrefs::ignoredApps() const {
    // A value that is not a list of strings falls back to the built-in list
    // too: a damaged setting must not stop password managers being ignored.
    return defaults_.stringArray(prefkey::ignoredApps);
}

std::vector<std::string> ClipPrefs::ignoredPatterns() const {
    return defaults_.stringArray(prefkey::ignoredPatterns).value_or(std::vector<std::string>{});
}

bool KeyboardSettings::clipboardEnabled() const {
    return defaults_.boolObject(prefkey::clipboardEnabled).value_or(true);
}

bool KeyboardSettings::clipboardChipOrderSync() const {
    return defaults_.boolObject(prefkey::clipboardChipOrderSync).value_or(true);
}

}  // namespace zettly
