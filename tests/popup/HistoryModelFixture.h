#pragma once

#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "popup/PopupModel.h"
#include "store/ChipOrder.h"
#include "store/ClipboardStore.h"
#include "store/ImageClipStore.h"
#include "tests/fakes/ManualMainQueue.h"
#include "tests/fakes/StoreFixture.h"
#include "tests/fakes/TestImages.h"

namespace zettly::test {

// A history window's model over real stores, with the background search
// run by hand (searches, then queue).
class HistoryWindowModel : public ::testing::Test {
protected:
    using Filter = PopupModel::Filter;

    // Each item is a minute newer than the one before; `name` is how the
    // test refers to it.
    std::string addText(const std::string& text) {
        env.clock.advance(60);
        EXPECT_EQ(texts.insert(text), ClipboardStore::InsertResult::inserted);
        std::string id =
            texts.fetch(1, 0, std::nullopt, false, ClipboardStore::CategoryFilter::any(), true)
                .at(0)
                .id;
        names["t" + id] = text;
        return id;
    }
    std::string addImage(const std::string& name, bool sameSecond = false) {
        if (!sameSecond)
            env.clock.advance(60);
        // Sizes differ, so no two pictures are taken for one.
        int size = 20 + static_cast<int>(names.size());
        EXPECT_EQ(images.save(png(size, 20, solid({200, 100, 50}))),
                  ImageClipStore::SaveResult::saved);
        for (const auto& item : images.fetchAll()) {
            if (!names.contains("i" + item.id)) {
                names["i" + item.id] = name;
                return item.id;
            }
        }
        ADD_FAILURE() << "the image was not listed";
        return "";
    }
    std::string category(const std::string& name) { return texts.createCategory(name).value().id; }

    std::vector<std::string> listed(const std::vector<PopupModel::Entry>& entries) {
        std::vector<std::string> out;
        for (const auto& entry : entries)
            out.push_back(names.at(entry.id()));
        return out;
    }
    std::vector<std::string> listedAll() {
        std::vector<std::string> out;
        for (std::size_t i = 0; i < model.allCount(); ++i)
            out.push_back(names.at(model.allAt(i).id()));
        return out;
    }
    std::vector<std::string> shown() { return listed(model.entries()); }
    std::vector<std::string> shownUnder(const Filter& filter) {
        model.setFilter(filter);
        return shown();
    }
    std::vector<std::string> chipKeys() {
        std::vector<std::string> keys;
        for (const auto& filter : model.filters())
            keys.push_back(filter.key());
        return keys;
    }

    StoreEnvironment env;
    ClipboardStore texts{env.context()};
    ImageClipStore images{env.context()};
    ChipOrder order{env.defaults, texts};
    ManualMainQueue queue{env.clock};
    ManualExecutor searches;
    PopupModel model{texts, images, order, searches, queue};
    std::map<std::string, std::string> names;  // entry id -> name
};

}  // namespace zettly::test
