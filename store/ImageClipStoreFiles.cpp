// Reclaiming picture files that no row of the image history names: what a
// crash between writing a picture and committing its row leaves behind.
#include <unordered_set>

#include "platform/Log.h"
#include "store/ImageClipStore.h"

namespace zettly {

namespace fs = std::filesystem;

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
