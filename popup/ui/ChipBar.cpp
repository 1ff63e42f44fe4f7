#include "popup/ui/ChipBar.h"

#include <QAction>
#include <QApplication>
#include <QContextMenuEvent>
#include <QDrag>
#include <QHBoxLayout>
#include <QLinearGradient>
#include <QMimeData>
#include <QMouseEvent>
#include <QPainter>
#include <QToolButton>
#include <QToolTip>
#include <QWheelEvent>

#include "popup/PopupController.h"
#include "ui/Look.h"

namespace zettly {
namespace {

constexpr int padX = 12;
constexpr int spacing = 6;
constexpr int marginY = 5;
constexpr int fade = 18;
// A chip's name is cut with "…" after about fourteen average characters:
// every built-in chip ("Pinned", "Angeheftet") and most category names stay
// whole, and the narrowest window (320 points) still shows two long
// categories beside the first chips instead of one chip wider than the bar.
// Counted in characters of the chip's font, so it grows with the user's font.
constexpr int longestTitle = 14;
constexpr int rowSpacing = 4;

}  // namespace

class ChipBar::Strip : public QWidget {
public:
    Strip(PopupModel& model, PopupController& controller, BusyCounter& busy, QWidget* parent)
        : QWidget(parent), model_(model), controller_(controller), busy_(busy) {
        setFont(look::scaledFont(font(), 0.93));
        setMouseTracking(true);
        setAcceptDrops(true);
        setFocusPolicy(Qt::NoFocus);
        setFixedHeight(chipHeight() + 2 * marginY);
        setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    }

    int chipHeight() const { return fontMetrics().height() + 10; }
    QRect visibleRect(std::size_t index) const {
        return index < chips_.size() ? shown(int(index)).intersected(rect()) : QRect();
    }

    int contentWidth() const { return contentWidth_; }
    QString shownTitle(std::size_t index) const {
        return index < chips_.size() ? chips_[index].shown : QString();
    }
    // The whole name where the chip shows it cut.
    QString toolTip(std::size_t index) const {
        if (index >= chips_.size() || chips_[index].shown == chips_[index].title)
            return {};
        return chips_[index].title;
    }
    // The chips not wholly in sight, in their order.
    std::vector<std::size_t> hidden() const {
        std::vector<std::size_t> out;
        for (std::size_t i = 0; i < chips_.size(); ++i)
            if (!rect().contains(shown(int(i))))
                out.push_back(i);
        return out;
    }
    const PopupModel::Filter& filter(std::size_t index) const { return chips_[index].filter; }

    void refresh() {
        chips_.clear();
        const QFontMetrics metrics = fontMetrics();
        const int widest = metrics.averageCharWidth() * longestTitle;
        int x = 0;
        for (const auto& filter : model_.filters()) {
            QString title = QString::fromStdString(model_.title(filter));
            QString shown = metrics.elidedText(title, Qt::ElideRight, widest);
            const int w = metrics.horizontalAdvance(shown) + 2 * padX;
            chips_.push_back(
                {filter, std::move(title), std::move(shown), QRect(x, marginY, w, chipHeight())});
            x += w + spacing;
        }
        contentWidth_ = std::max(0, x - spacing);
        setOffset(offset_);
        revealActive();
        update();
    }

    void revealActive() {
        const int active = indexOf(model_.filter());
        if (active >= 0)
            reveal(active);
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        const int dragged = indexOf(model_.dragging());
        for (std::size_t i = 0; i < chips_.size(); ++i) {
            p.setOpacity(int(i) == dragged ? 0.35 : 1.0);
            paintChip(p, chips_[i], shown(int(i)), int(i) == hovered_);
        }
        p.setOpacity(1);
        if (dropTarget_ >= 0 && dragged >= 0 && dropTarget_ != dragged) {
            // The dragged chip lands after the target when it comes from its left.
            const QRect t = shown(dropTarget_);
            const int x = dragged < dropTarget_ ? t.right() + spacing / 2 : t.left() - spacing / 2;
            p.setPen(Qt::NoPen);
            p.setBrush(palette().color(QPalette::Highlight));
            p.drawRoundedRect(QRectF(x - 1.5, t.top() - 2, 3, t.height() + 4), 1.5, 1.5);
        }
        // Soft edges where chips continue out of sight.
        const QColor window = palette().color(QPalette::Window);
        QColor clear = window;
        clear.setAlpha(0);
        if (offset_ > 0) {
            QLinearGradient g(0, 0, fade, 0);
            g.setColorAt(0, window);
            g.setColorAt(1, clear);
            p.fillRect(QRect(0, 0, fade, height()), g);
        }
        if (offset_ < maxOffset()) {
            QLinearGradient g(width() - fade, 0, width(), 0);
            g.setColorAt(0, clear);
            g.setColorAt(1, window);
            p.fillRect(QRect(width() - fade, 0, fade, height()), g);
        }
    }

    void mousePressEvent(QMouseEvent* event) override {
        pressed_ = event->button() == Qt::LeftButton ? chipAt(event->position().toPoint()) : -1;
        pressPos_ = event->position().toPoint();
    }

    void mouseMoveEvent(QMouseEvent* event) override {
        const QPoint pos = event->position().toPoint();
        if (pressed_ >= 0 && (event->buttons() & Qt::LeftButton) &&
            (pos - pressPos_).manhattanLength() >= QApplication::startDragDistance()) {
            const int index = std::exchange(pressed_, -1);
            startDrag(index);
            return;
        }
        setHovered(chipAt(pos));
    }

    void mouseReleaseEvent(QMouseEvent* event) override {
        const int index = std::exchange(pressed_, -1);
        if (index >= 0 && index == chipAt(event->position().toPoint())) {
            PopupModel::Filter filter = chips_[std::size_t(index)].filter;
            model_.setFilter(std::move(filter));
        }
    }

    void leaveEvent(QEvent*) override { setHovered(-1); }
    // The strip learns its width only once the window is laid out: the
    // active chip is brought into sight again then.
    void resizeEvent(QResizeEvent*) override {
        setOffset(offset_);
        revealActive();
    }

    bool event(QEvent* event) override {
        if (event->type() != QEvent::ToolTip)
            return QWidget::event(event);
        auto* help = static_cast<QHelpEvent*>(event);
        const int index = chipAt(help->pos());
        const QString tip = index >= 0 ? toolTip(std::size_t(index)) : QString();
        if (tip.isEmpty())
            QToolTip::hideText();
        else
            QToolTip::showText(help->globalPos(), tip, this, shown(index));
        return true;
    }

    void wheelEvent(QWheelEvent* event) override {
        const QPoint d = event->angleDelta();
        const int delta = std::abs(d.x()) > std::abs(d.y()) ? d.x() : d.y();
        if (maxOffset() == 0 || delta == 0) {
            event->ignore();
            return;
        }
        setOffset(offset_ - delta / 2);
        event->accept();
    }

    void contextMenuEvent(QContextMenuEvent* event) override {
        const int index = chipAt(event->pos());
        if (index < 0 || !chips_[std::size_t(index)].filter.isCategory())
            return;
        const std::string id = chips_[std::size_t(index)].filter.categoryId();
        ActionMenu menu(this);
        //: Context menu of a category chip: rename the category.
        menu.add(ChipBar::tr("Rename\u2026"), [this, id] { controller_.renameCategory(id); });
        //: Delete button or menu item (removes an item or a category). Short.
        menu.add(ChipBar::tr("Delete"), [this, id] { controller_.deleteCategory(id); });
        menu.exec(event->globalPos(), busy_);
    }

    void dragEnterEvent(QDragEnterEvent* event) override {
        if (event->mimeData()->hasFormat(QString::fromLatin1(mimeType)))
            event->acceptProposedAction();
    }

    void dragMoveEvent(QDragMoveEvent* event) override {
        const QPoint pos = event->position().toPoint();
        if (pos.x() < fade)
            setOffset(offset_ - 8);
        else if (pos.x() > width() - fade)
            setOffset(offset_ + 8);
        dropTarget_ = chipAt(pos);
        update();
        event->acceptProposedAction();
    }

    void dragLeaveEvent(QDragLeaveEvent*) override {
        dropTarget_ = -1;
        update();
    }

    void dropEvent(QDropEvent* event) override {
        const int target = chipAt(event->position().toPoint());
        dropTarget_ = -1;
        const auto from = PopupModel::Filter::fromKey(
            event->mimeData()->data(QString::fromLatin1(mimeType)).toStdString());
        if (!from || target < 0)
            return;
        const PopupModel::Filter to = chips_[std::size_t(target)].filter;
        event->acceptProposedAction();
        model_.moveChip(*from, to);
    }

private:
    struct Chip {
        PopupModel::Filter filter;
        QString title;
        QString shown;  // the title, cut to fit
        QRect rect;     // unscrolled
    };

    void paintChip(QPainter& p, const Chip& chip, const QRect& r, bool hovered) const {
        const QPalette& pal = palette();
        const bool active = chip.filter == model_.filter();
        QColor fill = active ? pal.color(QPalette::Highlight) : look::subtleFill(pal);
        if (hovered && !active)
            fill.setAlphaF(std::min(1.0, fill.alphaF() * 1.8));
        p.setPen(Qt::NoPen);
        p.setBrush(fill);
        p.drawRoundedRect(QRectF(r), r.height() / 2.0, r.height() / 2.0);
        p.setPen(pal.color(active ? QPalette::HighlightedText : QPalette::Text));
        p.drawText(r, Qt::AlignCenter, chip.shown);
    }

    QPixmap chipPixmap(int index) const {
        const Chip& chip = chips_[std::size_t(index)];
        const qreal dpr = devicePixelRatioF();
        QPixmap pixmap(chip.rect.size() * dpr);
        pixmap.setDevicePixelRatio(dpr);
        pixmap.fill(Qt::transparent);
        QPainter p(&pixmap);
        p.setRenderHint(QPainter::Antialiasing);
        p.setFont(font());
        paintChip(p, chip, QRect(QPoint(0, 0), chip.rect.size()), true);
        return pixmap;
    }

    void startDrag(int index) {
        const PopupModel::Filter filter = chips_[std::size_t(index)].filter;
        auto* mime = new QMimeData;
        mime->setData(QString::fromLatin1(mimeType), QByteArray::fromStdString(filter.key()));
        auto* drag = new QDrag(this);  // Qt deletes it when the drag ends
        drag->setMimeData(mime);
        drag->setPixmap(chipPixmap(index));
        drag->setHotSpot(pressPos_ - shown(index).topLeft());
        BusyScope scope(busy_);
        model_.setDragging(filter);
        drag->exec(Qt::MoveAction);
        dropTarget_ = -1;
        model_.setDragging(std::nullopt);
        update();
    }

    int indexOf(const std::optional<PopupModel::Filter>& filter) const {
        for (std::size_t i = 0; filter && i < chips_.size(); ++i)
            if (chips_[i].filter == *filter)
                return int(i);
        return -1;
    }
    QRect shown(int index) const { return chips_[std::size_t(index)].rect.translated(-offset_, 0); }
    int chipAt(QPoint pos) const {
        for (std::size_t i = 0; i < chips_.size(); ++i)
            if (shown(int(i)).contains(pos))
                return int(i);
        return -1;
    }
    int maxOffset() const { return std::max(0, contentWidth_ - width()); }
    void setOffset(int offset) {
        offset = std::clamp(offset, 0, maxOffset());
        if (offset != offset_) {
            offset_ = offset;
            update();
        }
    }
    void reveal(int index) {
        const QRect r = chips_[std::size_t(index)].rect;
        if (r.left() - fade < offset_)
            setOffset(r.left() - fade);
        else if (r.right() + fade > offset_ + width())
            setOffset(r.right() + fade - width());
    }
    void setHovered(int index) {
        if (index != hovered_) {
            hovered_ = index;
            update();
        }
    }

    PopupModel& model_;
    PopupController& controller_;
    BusyCounter& busy_;
    std::vector<Chip> chips_;
    int contentWidth_ = 0;
    int offset_ = 0;
    int hovered_ = -1;
    int pressed_ = -1;
    int dropTarget_ = -1;
    QPoint pressPos_;
};

ChipBar::ChipBar(PopupModel& model, PopupController& controller, BusyCounter& busy, QWidget* parent)
    : QWidget(parent), model_(model), busy_(busy) {
    strip_ = new Strip(model, controller, busy, this);
    auto button = [this](const QString& tip) {
        auto* b = new QToolButton(this);
        b->setAutoRaise(true);
        b->setFocusPolicy(Qt::NoFocus);
        b->setFixedSize(strip_->chipHeight(), strip_->chipHeight());
        b->setToolTip(tip);
        return b;
    };
    //: Button at the end of the filter chips when not all fit: lists the chips out of sight.
    more_ = button(tr("More chips"));
    more_->hide();
    connect(more_, &QToolButton::clicked, this, &ChipBar::showHidden);
    //: Placeholder or dialog title for creating a new category of clipboard items.
    add_ = button(tr("New category"));
    connect(add_, &QToolButton::clicked, this, [&controller] { controller.createCategory(); });

    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(rowSpacing);
    row->addWidget(strip_, 1);
    row->addWidget(more_);
    row->addWidget(add_);
    paintIcons();
}

void ChipBar::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        paintIcons();
}

void ChipBar::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    updateOverflow();
}

void ChipBar::paintIcons() {
    const QColor ink = look::secondaryText(palette());
    more_->setIcon(look::glyphIcon(look::Glyph::chevron, ink, 16));
    add_->setIcon(look::glyphIcon(look::Glyph::plus, ink, 16));
}

void ChipBar::refresh() {
    strip_->refresh();
    updateOverflow();
}

void ChipBar::updateOverflow() {
    // Decided on the room without the button, so that showing it (which
    // narrows the strip) never flips the decision back.
    const int room = width() - add_->width() - rowSpacing;
    more_->setVisible(strip_->contentWidth() > room);
}

void ChipBar::showHidden() {
    ActionMenu menu(this);
    for (std::size_t index : hiddenChips()) {
        PopupModel::Filter filter = strip_->filter(index);
        QString title = strip_->toolTip(index);
        if (title.isEmpty())
            title = strip_->shownTitle(index);
        QAction* action = menu.add(title, [this, filter] { model_.setFilter(filter); });
        action->setCheckable(true);
        action->setChecked(filter == model_.filter());
    }
    menu.exec(more_->mapToGlobal(QPoint(0, more_->height())), busy_);
}

std::vector<std::size_t> ChipBar::hiddenChips() const {
    return strip_->hidden();
}

QRect ChipBar::chipRect(std::size_t index) const {
    return strip_->visibleRect(index).translated(strip_->pos());
}

QString ChipBar::chipTitle(std::size_t index) const {
    return strip_->shownTitle(index);
}

QString ChipBar::chipToolTip(std::size_t index) const {
    return strip_->toolTip(index);
}

}  // namespace zettly
