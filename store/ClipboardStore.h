#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "store/Sql.h"
#include "store/StoreContext.h"
#include "store/StoreDatabase.h"

namespace zettly {

// The text history: one SQLite database, "Library/clipboard.sqlite" in the
// application's container folder, opened lazily by the first operation and
// kept open for the life of the object.
//
// Every public operation runs under one mutex, so all statements on the
// connection are strictly serialised; callers may come from the main thread
// and from sync threads. Helpers whose names end in Locked assume the mutex
// is held. Operations never throw: a failure gives an empty list, none, false
// or a failure result, and leaves the data as it was. Captures that cannot
// be saved, and a damaged file that had to be rebuilt, are reported to the
// context's StoreHealth.
class ClipboardStore {
public:
    using Bytes = std::vector<std::uint8_t>;

    enum class InsertResult { inserted, movedToTop, tooLarge, disabled, failed };

    struct Item {
        std::string id;
        std::string text;
        std::string type;
        double createdAt = 0;  // seconds since 1970
        bool pinned = false;
        std::optional<std::string> category;
        std::optional<std::string> label;
        bool operator==(const Item&) const = default;
    };

    struct Category {
        std::string id;
        std::string name;
        bool operator==(const Category&) const = default;
    };

    // The category condition of fetch().
    class CategoryFilter {
    public:
        static CategoryFilter any() { return CategoryFilter(Kind::any, {}); }
        static CategoryFilter uncategorized() { return CategoryFilter(Kind::uncategorized, {}); }
        static CategoryFilter only(std::string id) {
            return CategoryFilter(Kind::only, std::move(id));
        }
        enum class Kind { any, uncategorized, only };
        Kind kind() const { return kind_; }
        const std::string& id() const { return id_; }

    private:
        CategoryFilter(Kind kind, std::string id) : kind_(kind), id_(std::move(id)) {}
        Kind kind_;
        std::string id_;
    };

    static constexpr std::size_t maxTextBytes = 100000;
    static constexpr std::size_t maxLabelCharacters = 40;
    static constexpr std::size_t maxCategoryNameCharacters = 40;

    explicit ClipboardStore(StoreContext context);
    ClipboardStore(const ClipboardStore&) = delete;
    ClipboardStore& operator=(const ClipboardStore&) = delete;

    // Called after every insert (whatever its result) and after each local
    // edit, on the caller's thread and outside the store's lock; the
    // application schedules a sync from it. Set once, before the store is
    // used from more than one thread.
    std::function<void()> didChangeLocally;

    // ---- capture --------------------------------------------------------
    // Stores a copied text, or moves an equal one to the top.
    InsertResult insert(std::string_view text, std::optional<std::string> type = std::nullopt);
    // The next step of a selection that grows on the clipboard: `text`
    // takes the place of the row holding `previous`, when that row is still
    // as capture made it (no pin, name or category), and becomes the newest
    // (`inserted`). When `text` is in the history already, that row moves to
    // the top and the row of `previous` goes (`movedToTop`). Otherwise, or
    // when `previous` is gone, it is a plain insert.
    InsertResult replaceRecent(std::string_view previous, std::string_view text);

    // SHA-256 of the UTF-8 text exactly as given, 64 lower-case hex digits.
    static std::string hash(std::string_view text);
    // "url", "number" or "text".
    static std::string detectType(std::string_view text);
    // "c_" + HMAC-SHA-256 of the text under the 32-byte sync key; none
    // without a key or with a key of another length.
    static std::optional<std::string> recordName(std::string_view text,
                                                 const std::optional<Bytes>& key);

    // The condition that holds for rows kept by age, and the assignment list
    // of a metadata change; both embed the current time.
    std::string liveSQL() const;
    std::string metaTouchSQL() const;
    // The same assignment list for a given time; the image store ends its
    // metadata edits with it too.
    static std::string metaTouchSQL(double now);

    // ---- items ----------------------------------------------------------
    std::vector<Item> fetch(std::int64_t limit, std::int64_t offset,
                            const std::optional<std::vector<std::string>>& types = std::nullopt,
                            bool pinnedOnly = false,
                            const CategoryFilter& category = CategoryFilter::any(),
                            bool byRecencyOnly = false);
    void setPinned(const std::string& id, bool pinned);
    // `delete` in the original naming; a reserved word here.
    void deleteItem(const std::string& id);
    void clear(bool keepPinned);
    void setLabel(const std::string& id, const std::optional<std::string>& label);
    // A label as stored: one line, trimmed, at most 40 characters; none
    // when nothing is left.
    static std::optional<std::string> prepareLabel(const std::optional<std::string>& label);
    void setCategory(const std::string& id, const std::optional<std::string>& category);
    bool updateText(const std::string& id, std::string_view text);

    // ---- search ---------------------------------------------------------
    // The history window lists the newest rows; a search goes through the
    // whole history in two steps, so that a large history is searched in
    // slices without holding its texts.
    //
    //   auto rows = store.searchCandidates(search::foldQuery(typed), {.pinned = false});
    //   for (slice of rows) show(store.searchMatches(folded, slice));
    //
    // Which rows a search considers, by the window's chip.
    struct SearchFilter {
        std::optional<bool> pinned;           // All: false; Pinned: true
        std::optional<bool> link;             // Links: true; Text: false
        std::optional<std::string> category;  // a category's chip
    };
    // The rows that may hold the folded query (search::foldQuery; empty
    // matches every row), in the window's order: pinned rows outside
    // categories first, then newest first; rows due to expire are left out.
    std::vector<std::int64_t> searchCandidates(std::string_view foldedQuery,
                                               const SearchFilter& filter);
    // Those of `rows` whose text, or failing that label, contains the folded
    // query, in the given order; rows gone meanwhile are skipped, and so are
    // rows whose id `skip` names (the caller has them already).
    std::vector<Item> searchMatches(std::string_view foldedQuery,
                                    const std::vector<std::int64_t>& rows,
                                    const std::function<bool(const std::string& id)>& skip = {});
    // Deleted texts leave postings in the search index until it is
    // rewritten. This rewrites it (and indexes what is queued) when a
    // deletion the user made (delete, clear, edit, a deletion from another
    // device) or a day since the last time calls for it; otherwise it only
    // indexes what is queued (a sync's downloads, which no capture
    // indexes). A rewrite takes seconds for 100,000 texts, with the store locked:
    // the app runs it off the main thread a short while after such a
    // change; open() runs it too. False when the database refused.
    bool purgeSearchIndex();

    // ---- categories -----------------------------------------------------
    std::vector<Category> categories();
    std::optional<Category> createCategory(std::string_view name);
    void renameCategory(const std::string& id, std::string_view name);
    void deleteCategory(const std::string& id);
    void reorderCategories(const std::vector<std::string>& ids);
    std::map<std::string, std::int64_t> categoryCounts();

    // Stores the user's chip order and marks it for sync.
    void saveChipOrder(const std::vector<std::string>& order);

    // Where the database lives, once the container is known.
    std::optional<std::filesystem::path> databasePath() const;
    // Opens (checking, and rebuilding a damaged file) now rather than at the
    // first operation: the app calls it at start-up, off the main thread, so
    // a damaged history is found before the user looks.
    bool open();

    // ---- sync bookkeeping -----------------------------------------------
    // What the sync engine exchanges with the cloud. Times are seconds since
    // 1970; `ck` is the engine's saved server data of the record (opaque
    // here), none when no server copy is known. None of these operations
    // calls didChangeLocally: what arrives from the cloud is not a local
    // change to be sent back.
    struct SyncItem {
        std::string rid;  // record name: recordName() of the text
        std::string text;
        std::string type;
        double created = 0;
        double modified = 0;
        double mm = 0;  // last change of pin, category or label; 0 = never
        bool pinned = false;
        std::optional<std::string> category;
        std::optional<std::string> label;
        std::optional<Bytes> ck;
        bool operator==(const SyncItem&) const = default;
    };

    struct SyncCategory {
        std::string id;
        std::string name;
        double sort = 0;
        double created = 0;
        double modified = 0;
        std::optional<Bytes> ck;
        bool operator==(const SyncCategory&) const = default;
    };

    // A deletion still to be reported: an item's rid or a category's id.
    struct SyncTombstone {
        std::string key;
        std::string kind;  // "item" or "category"
        double at = 0;
        bool operator==(const SyncTombstone&) const = default;
    };

    // What taking in one record from the cloud did.
    enum class SyncApplied {
        unchanged,
        changed,  // the history changed (the history window must refresh)
        failed,   // the database refused it; nothing changed
    };

    struct SyncPending {
        std::vector<SyncItem> items;            // newest first, at most `limit`
        std::vector<SyncCategory> categories;   // every dirty one
        std::vector<SyncTombstone> tombstones;  // at most `limit`
        bool empty() const { return items.empty() && categories.empty() && tombstones.empty(); }
    };

    // The unsent changes. First names the rows that have no record name yet
    // (when a sync key is stored) and drops deletions older than 30 days
    // unsent. A negative limit counts as 0.
    SyncPending syncPending(std::int64_t limit);
    // Confirms a send of the version with this `modified`: the server data is
    // kept, and the row is clean unless it changed again meanwhile.
    void syncMarkSentItem(const std::string& rid, double modified, const std::optional<Bytes>& ck);
    // One confirmed send of an item, for syncMarkSentItems().
    struct SyncSent {
        std::string rid;
        double modified = 0;
        std::optional<Bytes> ck;
        bool operator==(const SyncSent&) const = default;
    };
    // syncMarkSentItem() for a whole answer at once, in one transaction. A
    // row the database refuses stays dirty and is simply sent again.
    void syncMarkSentItems(const std::vector<SyncSent>& sent);
    void syncMarkSentCategory(const std::string& id, double modified,
                              const std::optional<Bytes>& ck);
    // The server no longer knows the record: the next send makes a new one.
    void syncForgetItemTag(const std::string& rid);
    void syncForgetCategoryTag(const std::string& id);
    void syncRemoveTombstone(const std::string& key);
    // Takes in a record from the cloud, merged with the local copy. True
    // when the local history changed (the history window must refresh).
    bool syncApply(const SyncItem& item);
    // syncApply() for each item in order, in one transaction, with the
    // history's limit applied once after all of them: the same rows and
    // deletions as taking them in one by one. One result per item; all
    // failed, with nothing changed, when the database refuses the batch.
    std::vector<SyncApplied> syncApplyItems(const std::vector<SyncItem>& items);
    SyncApplied syncApply(const SyncCategory& category);
    // A deletion from the cloud. Rows and categories with unsent local
    // changes survive it. `changed` when something was deleted.
    SyncApplied syncApplyDeletion(const std::string& key, bool isCategory);
    // The server's version of this record cannot be believed (it fails the
    // end-to-end check, or was deleted by something without the key): the
    // local copy, if there is one, goes up again over `ck`. False when there
    // is no local copy (or the database refused).
    bool syncReuploadItem(const std::string& rid, const std::optional<Bytes>& ck);
    bool syncReuploadCategory(const std::string& id, const std::optional<Bytes>& ck);
    // Whether this computer's clock agrees with the sync server's. While it
    // does not, its idea of "old" cannot be trusted: nothing expires, here
    // or on receipt. On at first (and without sync).
    void syncSetClockTrusted(bool on) { clockTrusted_ = on; }
    // Under a new 32-byte sync key every row gets its new record name and
    // everything is sent again; pending deletions are dropped (their record
    // names belong to the old key). False, with nothing changed, for a key
    // of another length or when the database refuses the change.
    bool syncPrepareFullUpload(const Bytes& key);
    // The server's copy is gone or belongs to someone else (zone deleted,
    // account changed): everything is sent again as new records.
    void syncForgetServerState();

private:
    bool ensureOpenLocked();
    // None when `previous` is not there as capture made it (or the
    // database failed), and nothing was changed.
    std::optional<InsertResult> replaceLocked(std::string_view previous, std::string_view text,
                                              double now);
    InsertResult insertLocked(std::string_view text, const std::optional<std::string>& type,
                              double now);
    // Opens the file, runs `save` (with the time), runs it once more on a
    // file rebuilt because it turned out damaged, and tells StoreHealth how
    // the capture went.
    template <typename Save>
    InsertResult saveLocked(Save&& save);
    void trimLocked(double now);
    // Adds a batch of queued rows to the search index once enough have
    // gathered; after a capture's commit, so that a failure costs no copy.
    void indexBatchLocked();
    bool purgeSearchIndexLocked();
    void expireLocked(double now);
    void tombstoneLocked(std::string_view condition, double now);
    bool fillRecordNamesLocked(const Bytes& key);
    // The row work of syncApply(item) inside the caller's transaction,
    // without the trim. Sets `inserted` when a new row was added (the
    // history's limit must then be applied); false from a failed statement
    // means the transaction must not be committed.
    struct ApplyOutcome {
        bool ok = false;
        bool changed = false;
        bool inserted = false;
    };
    ApplyOutcome syncApplyLocked(const SyncItem& item, double now);
    bool syncMarkSentItemLocked(const std::string& rid, double modified,
                                const std::optional<Bytes>& ck);
    std::optional<Bytes> syncKey() const;
    std::int64_t retentionMinutes() const;
    std::string liveSQL(double now) const;
    void notifyLocalChange();
    // Runs `edit` under the lock if the store opens, then notifies.
    template <typename Edit>
    void editLocked(Edit&& edit);

    StoreContext context_;
    std::mutex mutex_;
    std::atomic<bool> clockTrusted_{true};
    bool searchIndexFailureLogged_ = false;
    StoreDatabase file_;
    sql::Database& db_ = file_.db();
};

}  // namespace zettly
