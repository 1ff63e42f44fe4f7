#pragma once

#include <string>

#include <gtest/gtest.h>

#include "capture/PasteboardMonitor.h"
#include "store/ClipboardStore.h"
#include "store/ImageClipStore.h"
#include "tests/fakes/FakePasteboard.h"
#include "tests/fakes/ManualMainQueue.h"
#include "tests/fakes/StoreFixture.h"

namespace zettly::test {

// Both stores and a pasteboard monitor over fakes: what the history window
// needs besides its view and the desktop. Tests derive from it beside
// ::testing::Test, so these members exist before the test's own.
struct HistoryEnvironment {
    StoreEnvironment env;
    FakePasteboard pasteboard;
    FakeWorkspace workspace;
    ManualMainQueue queue{env.clock};
    ManualExecutor reader;
    ManualExecutor executor;
    ClipboardStore texts{env.context()};
    ImageClipStore images{env.context()};
    PasteboardMonitor monitor{{pasteboard, workspace, queue, reader, executor, texts, images,
                               env.defaults, env.clock, env.log}};

    ClipboardStore::Item textItem(const std::string& text) {
        for (const auto& item : texts.fetch(100, 0))
            if (item.text == text)
                return item;
        ADD_FAILURE() << text << " is not in the history";
        return {};
    }
};

}  // namespace zettly::test
