#pragma once

#include <QAbstractListModel>
#include <QListView>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "popup/PopupModel.h"
#include "popup/ui/Thumbnails.h"

namespace zettly {

using TextRanges = std::vector<std::pair<int, int>>;  // [begin, end) in UTF-16 units

// What a row shows of its entry: at most two lines of at most 300
// characters of the text, with blank lines dropped and runs of blanks
// collapsed (a 100 KB log is never measured), and where the search matches.
struct RowText {
    QString snippet;  // lines separated by '\n'
    QString label;
    TextRanges matches;
    TextRanges labelMatches;
    int lineCount = 0;  // lines of the whole text that are not blank
};

QString snippetOf(std::string_view utf8);
// One pass over the text, so a 100 KB log costs little more than its size.
int nonBlankLines(std::string_view utf8);
// When the query only matches further down the text, the snippet starts a
// little before the first match (with a leading ellipsis). `knownLines` is
// the text's line count when the caller has it already.
RowText rowTextOf(const PopupModel::Entry& entry, std::string_view foldedQuery,
                  std::optional<int> knownLines = std::nullopt);

// The model's entries as a Qt list model; reset whenever they change.
class EntryListModel : public QAbstractListModel {
public:
    explicit EntryListModel(PopupModel& model, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;

    void reload();
    const PopupModel& popupModel() const { return model_; }
    // Built on first use and kept until the next reload.
    const RowText& rowText(int row) const;

private:
    // The list asks every row's height on each keystroke, and counting the
    // lines of 500 texts of 100 KB takes milliseconds; a text only changes
    // when the model reads the stores again.
    int linesOf(const ClipboardStore::Item& item) const;

    PopupModel& model_;
    std::string foldedQuery_;
    mutable std::vector<std::optional<RowText>> texts_;
    mutable std::unordered_map<std::string, int> lineCounts_;  // by item id
    int lineCountsOf_ = -1;                                    // the model's loads()
};

// The history list. It never takes the keyboard (typing stays in the search
// field); the highlight is the model's selection, not the view's.
class HistoryList : public QListView {
    Q_OBJECT
public:
    explicit HistoryList(PopupModel& model, QWidget* parent = nullptr);

    EntryListModel& rows() { return rows_; }
    ThumbnailCache& thumbnails() { return thumbnails_; }
    void reload();
    void followSelection();
    // The rows the viewport shows whole, at least 1.
    int rowsPerPage() const;
    // The message shown instead of rows, empty while there are rows.
    QString emptyText() const;

Q_SIGNALS:
    void rowClicked(int row, bool invert);
    void rowMenuRequested(int row, const QPoint& globalPos);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;

private:
    PopupModel& model_;
    EntryListModel rows_;
    ThumbnailCache thumbnails_;
    int pressedRow_ = -1;
};

}  // namespace zettly
