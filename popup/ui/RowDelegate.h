#pragma once

#include <QIcon>
#include <QStyledItemDelegate>
#include <vector>

#include "popup/ui/HistoryList.h"

class QListView;

namespace zettly {

class ThumbnailCache;

// Paints one history row: type icon, name, up to two lines of text with the
// search matches marked, category tag, pin and the Ctrl+1…9 hint. Only rows
// on screen are painted, and a row's height comes from cheap estimates
// rather than text measurement, so a list of 500 long texts lays out at once.
class RowDelegate : public QStyledItemDelegate {
public:
    RowDelegate(EntryListModel& rows, ThumbnailCache& thumbnails, QListView* view);

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;

private:
    int hintWidth(const QFont& small) const;
    void paintThumbnail(QPainter& p, const ImageClipStore::Item& image, const QRect& box,
                        const QPalette& palette) const;

    EntryListModel& rows_;
    ThumbnailCache& thumbnails_;
    QListView* view_;
    // Type icons by glyph, made again when the palette changes.
    mutable std::vector<QIcon> icons_;
    mutable QColor iconColour_;
};

}  // namespace zettly
