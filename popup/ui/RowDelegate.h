#pragma once

#include <QIcon>
#include <QStyledItemDelegate>
#include <optional>
#include <vector>

#include "popup/ui/HistoryList.h"
#include "popup/ui/RowLayout.h"

class QListView;

namespace zettly {

class ThumbnailCache;

// Paints one history row: type icon, name, up to two lines of text with the
// search matches marked, how many lines are left out, category tag, pin and
// the Ctrl+1…9 hint. Height and painting come from one RowLayout per row,
// kept until the rows or the width change; only a row's short snippet is
// ever measured, so a list of 500 long texts lays out at once.
class RowDelegate : public QStyledItemDelegate {
public:
    RowDelegate(EntryListModel& rows, ThumbnailCache& thumbnails, QListView* view);

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    // The layout of `row` at `width` in the list's `font`; none for a row
    // that is not there.
    const RowLayout* layoutOf(const QFont& font, int row, int width) const;

private:
    void paintThumbnail(QPainter& p, const ImageClipStore::Item& image, const QRect& box,
                        const QPalette& palette) const;

    EntryListModel& rows_;
    ThumbnailCache& thumbnails_;
    QListView* view_;
    // Type icons by glyph, made again when the palette changes.
    mutable std::vector<QIcon> icons_;
    mutable QColor iconColour_;
    mutable std::vector<std::optional<RowLayout>> layouts_;
    mutable int layoutWidth_ = -1;
    mutable QFont layoutFont_;
};

}  // namespace zettly
