#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/MainQueue.h"
#include "platform/TextSearch.h"
#include "popup/DeepSearch.h"
#include "store/ClipboardStore.h"
#include "store/ImageClipStore.h"

namespace zettly {

class ChipOrder;

// The state behind the history window: the merged list of text and image
// entries, the filter chips in the user's order, the active chip, the search
// query and the highlighted row. It reads the two stores on reload only;
// typing and chip changes refilter the cached list in memory at once.
//
// The cached list holds the newest texts only, so a query also searches
// the whole text history in the background (DeepSearch); what that finds
// beyond the cached texts is merged into the list as it arrives, a page at
// a time: the next page comes when the highlight nears the end of the list
// or the view asks (showMore). A new query or chip, a reload or an opening
// starts over.
//
// Main thread only.
class PopupModel {
public:
    class Filter {
    public:
        enum class Kind { category, all, pinned, text, links, images };

        static Filter all() { return Filter(Kind::all); }
        static Filter pinned() { return Filter(Kind::pinned); }
        static Filter text() { return Filter(Kind::text); }
        static Filter links() { return Filter(Kind::links); }
        static Filter images() { return Filter(Kind::images); }
        static Filter category(std::string id) { return Filter(Kind::category, std::move(id)); }

        // "all", "pinned", "text", "links", "images" or "cat:" + id; none
        // for any other key.
        static std::optional<Filter> fromKey(std::string_view key);
        std::string key() const;

        Kind kind() const { return kind_; }
        bool isCategory() const { return kind_ == Kind::category; }
        // The category id; empty for the built-in chips.
        const std::string& categoryId() const { return id_; }

        bool operator==(const Filter&) const = default;

    private:
        explicit Filter(Kind kind, std::string id = {}) : kind_(kind), id_(std::move(id)) {}
        Kind kind_;
        std::string id_;
    };

    struct Entry {
        std::variant<ClipboardStore::Item, ImageClipStore::Item> item;

        // "t" + the text item's id or "i" + the image item's id.
        std::string id() const;
        bool isText() const { return item.index() == 0; }
        bool isImage() const { return item.index() == 1; }
        const ClipboardStore::Item* text() const { return std::get_if<0>(&item); }
        const ImageClipStore::Item* image() const { return std::get_if<1>(&item); }
        // The fields both kinds share.
        const std::string& storeId() const;
        bool pinned() const;
        const std::optional<std::string>& category() const;
        const std::optional<std::string>& label() const;
        double createdAt() const;
        bool isLink() const;  // a text whose type is "url"

        bool operator==(const Entry&) const = default;
    };

    // What changed, for the views (bits of `changes` in onChange).
    enum Change : unsigned {
        entriesChanged = 1,
        filtersChanged = 2,  // the chips or the category list
        filterChanged = 4,
        queryChanged = 8,
        selectionChanged = 16,
        draggingChanged = 32,
        opened = 64,  // openCount went up
        searchingChanged = 128,
    };

    // Localised titles of the built-in chips; the default gives English.
    using TitleFunction = std::function<std::string(Filter::Kind)>;
    static std::string englishTitle(Filter::Kind kind);

    static constexpr std::int64_t textLimit = 500;
    // How close to the end of the list the highlight comes before the
    // search of the whole history goes on with its next page.
    static constexpr std::size_t nearEnd = 20;

    // The search of the whole history runs on `searchExecutor` and reports
    // through `mainQueue`.
    PopupModel(ClipboardStore& texts, ImageClipStore& images, ChipOrder& chipOrder,
               Executor& searchExecutor, MainQueue& mainQueue,
               TitleFunction title = &PopupModel::englishTitle);

    // ---- published state ------------------------------------------------
    const std::string& query() const { return query_; }
    const Filter& filter() const { return filter_; }
    const std::vector<Entry>& entries() const { return entries_; }
    const std::vector<ClipboardStore::Category>& categories() const { return categories_; }
    const std::vector<Filter>& filters() const { return filters_; }
    const std::optional<Filter>& dragging() const { return dragging_; }
    std::size_t selection() const { return selection_; }
    int openCount() const { return openCount_; }
    // Goes up each time the entries are read afresh from the stores: what a
    // view derived from an entry's text holds until then.
    int loads() const { return loads_; }
    // The merged, sorted list before filtering: its length and its entries.
    std::size_t allCount() const { return all_.size(); }
    const Entry& allAt(std::size_t index) const;
    // The search of the whole history is still reading; "nothing found"
    // is final only once it is not.
    bool searching() const { return deepSearch_.state() == DeepSearch::State::running; }

    // Both rebuild the list and put the highlight on the first row.
    void setQuery(std::string query);
    void setFilter(Filter filter);
    // Calls onSelectionChanged when the value differs from the current one.
    void setSelection(std::size_t index);
    void setDragging(std::optional<Filter> filter);
    // The view scrolled near the end of the list: the next page of finds.
    void showMore();
    // The window closed: the search of the whole history stops.
    void stopSearching();

    // Called after `selection` changed to a different value (the controller
    // moves the preview with it).
    std::function<void()> onSelectionChanged;
    // Called after any published field changed, with the Change bits.
    std::function<void(unsigned changes)> onChange;

    // ---- operations -----------------------------------------------------
    // Rebuilds categories, chips and the list from the stores; re-selects the
    // entry with the given Entry id when it is listed.
    void reload(const std::optional<std::string>& keeping = std::nullopt);
    // A fresh opening: empty search, fresh data, the first chip.
    void reset();
    // Refilters `all` by the filter and the query and clamps the selection.
    void rebuild();
    // Moves the highlight, clamped to the list (no wrap-around).
    void move(int delta);
    // The next (+1) or previous (-1) chip, wrapping around.
    void cycleFilter(int step);
    std::optional<Entry> entry(std::ptrdiff_t index) const;
    // The entry at the selection, if any.
    std::optional<Entry> selectedEntry() const {
        return entry(static_cast<std::ptrdiff_t>(selection_));
    }

    std::string title(const Filter& filter) const;
    // The category name to show on the row; none under that category's own
    // chip or for an entry without a (known) category.
    std::optional<std::string> categoryTag(const Entry& entry) const;
    // Drag and drop in the chip bar: `from` takes the place of `to`; the new
    // order is stored through ChipOrder.
    void moveChip(const Filter& from, const Filter& to);

    // Whether one entry passes the filter rule (exposed for the views' counts).
    static bool passes(const Entry& entry, const Filter& filter);

private:
    // The public operations call these and report once, at the end.
    void reloadInto(const std::optional<std::string>& keeping, unsigned& changes);
    void rebuildInto(unsigned& changes);
    void applyQuery(std::string query, unsigned& changes);
    void applyFilter(Filter filter, unsigned& changes);
    void assignSelection(std::size_t index, unsigned& changes);
    // Brings `entries_` in line with the last rebuild.
    void materialize(unsigned& changes);
    void finish(unsigned changes);
    bool matchesQuery(std::size_t index) const;
    // The window's order: pinned entries outside categories first, then
    // newest first.
    static bool listedBefore(const Entry& a, const Entry& b);
    static SearchKey searchKey(const Entry& entry);
    // The search of the whole history (PopupModelSearch.cpp).
    void restartDeepSearch();
    void dropDeepResults();
    void receive(std::vector<ClipboardStore::Item> found);
    void mergeDeepResults(std::vector<ClipboardStore::Item> found, unsigned& changes);

    ClipboardStore& texts_;
    ImageClipStore& images_;
    ChipOrder& chipOrder_;
    TitleFunction titleFunction_;

    std::string query_;
    Filter filter_ = Filter::all();
    std::vector<Entry> entries_;
    std::vector<ClipboardStore::Category> categories_;
    std::vector<Filter> filters_;
    std::optional<Filter> dragging_;
    std::size_t selection_ = 0;
    int openCount_ = 0;
    int loads_ = 0;
    // Each entry of the merged list lives in one place only: in `entries_`
    // while it is shown, else here (a shown one leaves a moved-from husk).
    // With 100 KB clips a second copy of the shown list would double the
    // window's memory, and copying it on a keystroke would cost more than
    // the search.
    std::vector<Entry> all_;
    static constexpr std::size_t notShown = static_cast<std::size_t>(-1);
    std::vector<std::size_t> rowOf_;  // by index of `all_`: its row in `entries_`
    // Search keys of `all_`, index for index, made once per reload.
    std::vector<SearchKey> keys_;
    std::string foldedQuery_;
    // A rebuild picks indices of `all_`; `entries_` is brought in line only
    // before a callback and at the end of an operation.
    std::vector<std::size_t> pending_;
    std::vector<std::size_t> shown_;  // what `entries_` holds
    bool entriesStale_ = false;       // `entries_` comes from an older `all_`

    DeepSearch deepSearch_;
    // By index of `all_`: found by the search of the whole history rather
    // than loaded; those go when the query or the chip changes.
    std::vector<bool> isDeep_;
    std::size_t deepCount_ = 0;
    // The ids of the loaded texts, which the search passes over; made once
    // per reload, as 500 ids take longer to gather than a keystroke's filter.
    std::shared_ptr<const DeepSearch::IdSet> loadedIds_;
    // The query, chip or list changed since the search last started.
    bool searchStale_ = false;
    bool searchingReported_ = false;  // what onChange last told of searching()
    // A reload kept an entry id that only the running search can bring
    // back; it is selected when it arrives, unless the user moved on.
    std::optional<std::string> awaitedId_;
};

}  // namespace zettly
