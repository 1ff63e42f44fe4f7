#include "store/ChipOrder.h"

#include <algorithm>
#include <unordered_set>

#include "platform/Defaults.h"
#include "store/PrefKeys.h"

namespace zettly {

namespace {

bool isCategoryKey(const std::string& key) {
    return key.starts_with(ChipOrder::categoryPrefix);
}

}  // namespace

std::vector<std::string> ChipOrder::defaultOrder(
    const std::vector<ClipboardStore::Category>& categories) {
    std::vector<std::string> order{"all", "pinned"};
    for (const auto& category : categories)
        order.push_back(std::string(categoryPrefix) + category.id);
    order.insert(order.end(), {"text", "links", "images"});
    return order;
}

std::vector<std::string> ChipOrder::merge(const std::vector<std::string>& stored,
                                          const std::vector<ClipboardStore::Category>& categories) {
    std::vector<std::string> defaults = defaultOrder(categories);
    if (stored.empty())
        return defaults;

    std::unordered_set<std::string> known(defaults.begin(), defaults.end());
    std::unordered_set<std::string> taken;
    std::vector<std::string> order;
    for (const std::string& key : stored)
        if (known.contains(key) && taken.insert(key).second)
            order.push_back(key);

    for (const std::string& key : defaults) {
        if (taken.contains(key))
            continue;
        taken.insert(key);
        if (!isCategoryKey(key)) {
            order.push_back(key);
            continue;
        }
        auto lastCategory = std::find_if(order.rbegin(), order.rend(), isCategoryKey);
        if (lastCategory != order.rend()) {
            order.insert(lastCategory.base(), key);
        } else if (auto pinned = std::find(order.begin(), order.end(), "pinned");
                   pinned != order.end()) {
            order.insert(pinned + 1, key);
        } else {
            order.push_back(key);
        }
    }
    return order;
}

std::vector<std::string> ChipOrder::current(
    const std::vector<ClipboardStore::Category>& categories) const {
    return merge(
        defaults_.stringArray(prefkey::clipboardChipOrder).value_or(std::vector<std::string>{}),
        categories);
}

void ChipOrder::save(const std::vector<std::string>& order) {
    store_.saveChipOrder(order);
    std::vector<std::string> wanted;
    for (const std::string& key : order)
        if (isCategoryKey(key))
            wanted.push_back(key.substr(categoryPrefix.size()));
    std::vector<std::string> stored;
    for (const auto& category : store_.categories())
        stored.push_back(category.id);
    if (wanted != stored)
        store_.reorderCategories(wanted);
}

}  // namespace zettly
