#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zettly {

// What a read of the clipboard came to. Another application owns what was
// copied and answers each read itself, so a read can fail in ways a file
// read cannot.
enum class ReadStatus {
    ok,
    absent,      // not offered, or the owner refused this format
    noAnswer,    // the owner stopped answering (nothing arrived for a while)
    tooLarge,    // more than the read limit
    superseded,  // the clipboard changed while the read was under way
};

template <typename T>
struct ReadResult {
    ReadStatus status = ReadStatus::absent;
    T value{};

    static ReadResult success(T value) { return {ReadStatus::ok, std::move(value)}; }
    static ReadResult failure(ReadStatus status) { return {status, T{}}; }
    bool ok() const { return status == ReadStatus::ok; }
};

// The system clipboard as the capture and pick paths see it. Types are the
// clipboard's own format names (MIME types and the X11 target names, see
// pbtype below).
//
// Threads: reads may block for as long as the owner takes to answer, so
// capture calls them on a thread of its own, one read at a time; everything
// else belongs to the main thread, except changeCount(), which any thread
// may call.
class Pasteboard {
public:
    using Bytes = std::vector<std::uint8_t>;
    virtual ~Pasteboard() = default;

    // Raised on every change of the clipboard's owner or contents.
    virtual std::int64_t changeCount() = 0;
    // Whether this clipboard says when it changed. When it does, the handler
    // runs on the main thread after each change (possibly once for several
    // quick ones); when it does not, the change count has to be polled.
    virtual bool signalsChanges() const = 0;
    virtual void setChangeHandler(std::function<void()> handler) = 0;

    // ---- reads: on the capture thread ------------------------------------
    // The formats offered now; empty with `absent` when nobody owns it.
    virtual ReadResult<std::vector<std::string>> types() = 0;
    // The plain text, from the first text format that answers; `absent`
    // when no text format is offered or every one was refused.
    virtual ReadResult<std::string> string() = 0;
    virtual ReadResult<Bytes> data(const std::string& type) = 0;
    // Ends a read under way and refuses later ones at once (at quit).
    virtual void interruptReads() = 0;

    // ---- writes: on the main thread ----------------------------------------
    virtual void clear() = 0;
    virtual void writeString(std::string_view text) = 0;
    // Offers an image (encoded bytes, e.g. JPEG) in the usual image formats,
    // its own `type` (image/png, image/jpeg...) first and with the bytes
    // unchanged, so that a picture pastes as it was copied; false when the
    // bytes are not an image.
    virtual bool writeImage(std::span<const std::uint8_t> data, std::string_view type) = 0;
};

// Format names, as the Linux desktop spells them.
namespace pbtype {
inline constexpr std::string_view png = "image/png";
inline constexpr std::string_view jpeg = "image/jpeg";
inline constexpr std::string_view heic = "image/heic";
inline constexpr std::string_view tiff = "image/tiff";
inline constexpr std::string_view uriList = "text/uri-list";
inline constexpr std::string_view gnomeCopiedFiles = "x-special/gnome-copied-files";
// Text formats in order of preference, as on X11. Latin-1 STRING is the
// last resort of old X clients (through XWayland); the others are UTF-8.
inline constexpr std::string_view textTypes[] = {"text/plain;charset=utf-8", "UTF8_STRING",
                                                 "text/plain", "TEXT", "STRING"};
}  // namespace pbtype

// A window of a running application, offered when the user picks an app to
// ignore instead of typing its id.
struct RunningApp {
    std::string appId;
    std::string title;
};

// Which application is in front. Main thread.
class Workspace {
public:
    virtual ~Workspace() = default;
    // The application id of the active window (Flatpak id, GTK application
    // id, desktop file name or WM_CLASS), none when unknown.
    virtual std::optional<std::string> frontmostApplicationId() = 0;
    // The applications with open windows, oldest first; empty when the
    // session does not tell.
    virtual std::vector<RunningApp> runningApplications() = 0;
};

}  // namespace zettly
