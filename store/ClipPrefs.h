#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/HotKeyCombo.h"
#include "platform/PasteChord.h"

namespace zettly {

class Defaults;

// Typed access to the settings. Nothing is cached: every call reads the
// defaults store, so a change made in the settings window takes effect at the
// next read (the next insert, the next opening of the history window).
class ClipPrefs {
public:
    enum class PopupPosition { cursor, center };
    struct PopupSize {
        double width = 0;
        double height = 0;
        bool operator==(const PopupSize&) const = default;
    };

    static constexpr std::int64_t defaultLimit = 200;
    static constexpr std::int64_t defaultRetentionMinutes = 43200;  // 30 days
    static constexpr PopupSize defaultPopupSize{400, 540};
    static constexpr PopupSize minPopupSize{320, 360};
    static constexpr PopupSize maxPopupSize{600, 800};
    static constexpr double defaultPreviewDelay = 1.5;
    // A 4K screenshot as PNG fits; a history of 115 kept images stays far
    // from filling a disk.
    static constexpr std::int64_t defaultImageOriginalLimitMB = 10;
    // Nobody waits a minute for a preview; the cap also keeps the delay
    // within what a millisecond timer can hold.
    static constexpr double maxPreviewDelay = 60;

    explicit ClipPrefs(Defaults& defaults) : defaults_(defaults) {}

    // The default combination when none is stored, or when the key code or
    // the modifier mask does not fit in 32 bits.
    HotKeyCombo hotKey() const;
    void setHotKey(HotKeyCombo combo);

    // "center" (exactly, case-sensitive) is center; anything else the cursor.
    PopupPosition popupPosition() const;
    void setPopupPosition(PopupPosition position);

    // A value that is missing, not a number, infinite or not above 0 reads
    // as the default; any other is clamped to the window's minimum and
    // maximum size, on reading as on writing.
    PopupSize popupSize() const;
    void setPopupSize(PopupSize size);

    bool saveImages() const;
    // MiB up to which a copied image is also kept as copied; 0 means only
    // the reduced JPEG is kept. Missing, not a number or negative: the default.
    std::int64_t imageOriginalLimitMB() const;
    void setImageOriginalLimitMB(std::int64_t megabytes);
    // Seconds the selection rests before the preview opens; 0 means only when
    // asked for. Below 0 reads as 0, more than a minute as a minute;
    // anything but a number reads as the default.
    double previewDelay() const;

    // The history limit; 0, a negative number or a missing value mean 200.
    std::int64_t clipboardLimit() const;
    // Retention in minutes; anything below 1 means 43200 (30 days).
    std::int64_t clipboardRetentionMinutes() const;
    bool clearOnQuit() const;
    bool pasteAutomatically() const;
    // Entries that do not read as "<app id>=<chord>" are left out; a later
    // entry for the same application (ids compared as pasteChordFor does)
    // wins. Storing keeps the entries that could not be read.
    std::vector<PasteChordChoice> pasteChords() const;
    void setPasteChords(const std::vector<PasteChordChoice>& choices);
    bool clipboardCloudSync() const;

    // None when the user never stored a list (the built-in list applies then).
    std::optional<std::vector<std::string>> ignoredApps() const;
    std::vector<std::string> ignoredPatterns() const;

private:
    Defaults& defaults_;
};

// The switches that the companion keyboard app shares with this program.
class KeyboardSettings {
public:
    explicit KeyboardSettings(Defaults& defaults) : defaults_(defaults) {}

    // Both default to on, also when something other than a boolean is stored.
    bool clipboardEnabled() const;
    bool clipboardChipOrderSync() const;

private:
    Defaults& defaults_;
};

}  // namespace zettly
