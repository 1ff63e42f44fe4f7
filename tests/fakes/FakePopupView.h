#pragma once

#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "popup/PopupView.h"

namespace zettly::test {

// The history window without a screen: it keeps what the controller shows
// and answers dialogs from answers the test queued (a dialog nobody
// prepared for counts as cancelled). `onDialog` runs while a dialog is up,
// so a test can look at the controller from inside it.
class FakePopupView final : public PopupView {
public:
    struct Dialog {
        std::string kind;  // "ask", "inform" or "confirm"
        std::string title;
        std::optional<std::string> message;  // the ask's message, the confirm's detail
        std::string value;                   // the ask's value, the confirm's button
        bool multiline = false;
    };

    std::deque<std::optional<std::string>> askAnswers;
    std::deque<bool> confirmAnswers;
    std::deque<std::optional<CategoryChoice>> categoryAnswers;
    std::function<void()> onDialog;

    bool panelVisible = false;
    int pageRows = 3;
    Rect frame;
    int panelShown = 0;
    int madeKey = 0;
    bool previewVisible = false;
    std::optional<PopupModel::Entry> previewed;
    Rect previewFrame;
    std::vector<Dialog> dialogs;

    void showPanel(const Rect& f) override {
        panelVisible = true;
        frame = f;
        ++panelShown;
    }
    void hidePanel() override { panelVisible = false; }
    bool isPanelVisible() const override { return panelVisible; }
    int rowsPerPage() const override { return pageRows; }
    Rect panelFrame() const override { return frame; }
    void makePanelKey() override { ++madeKey; }

    void showPreview(const PopupModel::Entry& entry, const Rect& f) override {
        previewVisible = true;
        previewed = entry;
        previewFrame = f;
    }
    void hidePreview() override { previewVisible = false; }
    bool isPreviewVisible() const override { return previewVisible; }

    std::optional<std::string> ask(const std::string& title,
                                   const std::optional<std::string>& message,
                                   const std::string& value, bool multiline) override {
        dialogs.push_back({"ask", title, message, value, multiline});
        up();
        return next(askAnswers, std::optional<std::string>());
    }
    void inform(const std::string& message) override {
        dialogs.push_back({"inform", message, std::nullopt, "", false});
        up();
    }
    bool confirm(const std::string& title, const std::string& detail,
                 const std::string& button) override {
        dialogs.push_back({"confirm", title, detail, button, false});
        up();
        return next(confirmAnswers, false);
    }
    std::optional<CategoryChoice> chooseCategory(
        const PopupModel::Entry&, const std::vector<ClipboardStore::Category>&) override {
        up();
        return next(categoryAnswers, std::optional<CategoryChoice>());
    }

private:
    void up() {
        if (onDialog)
            onDialog();
    }
    template <typename T>
    static T next(std::deque<T>& queue, T fallback) {
        if (queue.empty())
            return fallback;
        T answer = std::move(queue.front());
        queue.pop_front();
        return answer;
    }
};

}  // namespace zettly::test
