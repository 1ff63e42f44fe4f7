#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "store/ImageClipStore.h"
#include "tests/fakes/SqlRows.h"
#include "tests/fakes/StoreFixture.h"
#include "tests/fakes/TestImages.h"

namespace zettly::test {

inline Bytes contents(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}
// A distinct picture per number: sizes differ, so no two are ever taken for one image.
inline Bytes numbered(int n) {
    return png(20 + n, 20, solid({200, 100, 50}));
}

// An image history in a private container, and the ways its tests look
// into it: its rows through a connection of their own, its folder.
class ImageHistoryFixture : public ::testing::Test {
protected:
    StoreEnvironment env;
    ImageClipStore store{env.context()};

    std::filesystem::path folder() const { return env.library() / "clipmedia"; }
    std::vector<Row> sql(const std::string& query) {
        return rows(env.library() / "clipmedia.sqlite", query);
    }
    std::size_t files() const {
        return std::filesystem::exists(folder())
                   ? std::distance(std::filesystem::directory_iterator(folder()), {})
                   : 0;
    }
};

}  // namespace zettly::test
