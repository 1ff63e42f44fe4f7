#pragma once

#include <string>
#include <vector>

#include "store/ClipboardStore.h"

namespace zettly {

class Defaults;

// The user's order of the history window's filter chips, stored as keys:
// "all", "pinned", "text", "links", "images" and "cat:" + category id.
class ChipOrder {
public:
    ChipOrder(Defaults& defaults, ClipboardStore& store) : defaults_(defaults), store_(store) {}

    // The stored order merged with the chips and categories that exist now.
    std::vector<std::string> current(const std::vector<ClipboardStore::Category>& categories) const;

    // Stores the order (marking it for sync) and, when the categories in it
    // are in another order than the store's, reorders the categories to match.
    void save(const std::vector<std::string>& order);

    // The merge rule: stored keys that still exist, in stored order and
    // without repeats; then each missing key of the default order, a
    // category right after the last category key (or after "pinned", or at
    // the end), anything else at the end.
    static std::vector<std::string> merge(const std::vector<std::string>& stored,
                                          const std::vector<ClipboardStore::Category>& categories);
    static std::vector<std::string> defaultOrder(
        const std::vector<ClipboardStore::Category>& categories);

    static constexpr std::string_view categoryPrefix = "cat:";

private:
    Defaults& defaults_;
    ClipboardStore& store_;
};

}  // namespace zettly
