// The image history's picture files beyond writing them: reading them back,
// the copies kept as copied, and reclaiming files that no row names (what a
// crash between writing a picture and committing its row leaves behind).
#include <algorithm>
#include <unordered_set>

#include "platform/Files.h"
#include "platform/Log.h"
#include "platform/Pasteboard.h"
#include "store/ClipPrefs.h"
#include "store/ImageClipStore.h"

namespace zettly {

namespace fs = std::filesystem;

namespace {

// The formats capture reads, each kept under an ending of its own so that
// the file name alone tells the type back.
constexpr std::pair<std::string_view, std::string_view> kOriginalEndings[] = {
    {pbtype::png, "png"}, {pbtype::jpeg, "jpg"}, {pbtype::heic, "heic"}, {pbtype::tiff, "tiff"}};

std::optional<std::string> typeOfOriginal(const fs::path& path) {
    const std::string name = path.filename().string();
    const auto at = name.rfind(ImageClipStore::originalInfix);
    if (at == std::string::npos)
        return std::nullopt;
    const std::string_view ending =
        std::string_view(name).substr(at + ImageClipStore::originalInfix.size());
    for (auto [type, known] : kOriginalEndings)
        if (known == ending)
            return std::string(type);
    return std::nullopt;
}

}  // namespace

std::optional<std::string_view> ImageClipStore::originalExtension(std::string_view type) {
    for (auto [known, ending] : kOriginalEndings)
        if (known == type)
            return ending;
    return std::nullopt;
}

std::optional<ImageClipStore::Copied> ImageClipStore::keptOriginal(
    std::span<const std::uint8_t> data, std::string_view type) {
    auto ending = originalExtension(type);
    const std::int64_t limitMB = ClipPrefs(context_.defaults).imageOriginalLimitMB();
    if (!ending || limitMB == 0)
        return std::nullopt;
    // A limit typed into the file by hand must not wrap around; no copy is
    // anywhere near a terabyte.
    const std::uint64_t limit = std::min<std::uint64_t>(limitMB, std::uint64_t{1} << 20) << 20;
    if (static_cast<std::uint64_t>(data.size()) > limit) {
        context_.log.line("[Zettly] a copied image of " + std::to_string(data.size()) +
                          " bytes is kept only reduced: originals are kept up to " +
                          std::to_string(limitMB) + " MB (Settings > Storage)");
        return std::nullopt;
    }
    return Copied{data, *ending};
}

std::optional<std::string> ImageClipStore::pathOf(const std::string& id, std::string_view column) {
    std::lock_guard lock(mutex_);
    if (!ensureOpenLocked())
        return std::nullopt;
    sql::Statement st = db_.prepare("SELECT " + std::string(column) + " FROM media WHERE id = ?");
    st.bind(1, id);
    if (st.step() != SQLITE_ROW)
        return std::nullopt;
    return st.optionalText(0);
}

std::optional<ImageClipStore::Bytes> ImageClipStore::fileData(const std::string& id) {
    auto path = pathOf(id, "file");
    return path ? files::readAll(*path) : std::nullopt;
}

std::optional<ImageClipStore::Original> ImageClipStore::originalData(const std::string& id) {
    auto path = pathOf(id, "orig");
    if (!path)
        return std::nullopt;
    auto type = typeOfOriginal(*path);
    auto data = type ? files::readAll(*path) : std::nullopt;
    if (!data) {
        context_.log.line("[Zettly] the image as copied (" + fs::path(*path).filename().string() +
                          ") could not be read; its reduced copy is used");
        return std::nullopt;
    }
    return Original{std::move(*data), std::move(*type)};
}

// Every file in the folder is written under the store's mutex right before
// the statement that names it, and the upload's reduced copies live in the
// temporary folder, so under the mutex a file no row names belongs to no one.
void ImageClipStore::sweepOrphansLocked() {
    auto folder = libraryPath(context_, "clipmedia");
    std::error_code error;
    if (!folder || !fs::is_directory(*folder, error))
        return;
    // Rows hold absolute paths; matching by name alone also keeps the
    // pictures of rows written while the folder was reached by another path
    // (a moved home folder, a link).
    std::unordered_set<std::string> named;
    sql::Statement rows = db_.prepare("SELECT file, thumb, orig FROM media");
    int rc;
    while ((rc = rows.step()) == SQLITE_ROW)
        for (int column : {0, 1, 2})
            if (auto path = rows.optionalText(column))
                named.insert(fs::path(*path).filename().string());
    rows = {};
    if (rc != SQLITE_DONE) {
        context_.log.line(std::string("[Zettly] clipmedia.sqlite could not be read (") +
                          sqlite3_errstr(rc) + "); picture files no row names are kept");
        return;
    }

    std::vector<fs::path> orphans;
    for (fs::directory_iterator it(*folder, error), end; !error && it != end; it.increment(error)) {
        std::error_code gone;  // removed meanwhile: nothing to reclaim
        if (it->symlink_status(gone).type() == fs::file_type::regular &&
            !named.contains(it->path().filename().string()))
            orphans.push_back(it->path());
    }
    if (orphans.empty())
        return;
    // A database that was damaged and moved aside may name these files (rows
    // a rebuild could not read); the user can still restore it.
    for (fs::directory_iterator it(folder->parent_path(), error), end; !error && it != end;
         it.increment(error)) {
        std::string name = it->path().filename().string();
        if (name.starts_with("clipmedia.sqlite.corrupt-") ||
            name.starts_with("clipmedia.sqlite.damaged-")) {
            context_.log.line("[Zettly] " + std::to_string(orphans.size()) +
                              " picture files no row names are kept while " + name +
                              " lies beside the database");
            return;
        }
    }

    std::size_t files = 0;
    std::uintmax_t bytes = 0;
    std::string failure;
    for (const fs::path& orphan : orphans) {
        std::error_code unknownSize, kept;
        std::uintmax_t size = fs::file_size(orphan, unknownSize);
        if (fs::remove(orphan, kept)) {
            ++files;
            bytes += unknownSize ? 0 : size;
        } else if (failure.empty()) {
            failure = "; " + orphan.filename().string() + " stays: " + kept.message();
        }
    }
    context_.log.line("[Zettly] reclaimed " + std::to_string(files) +
                      " picture files that no image row named (" + std::to_string(bytes) +
                      " bytes)" + failure);
}

}  // namespace zettly
