#include "settings/PageParts.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QStyle>
#include <QVBoxLayout>

#include "ui/Look.h"

namespace zettly::pageparts {

QLabel* noteLabel(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setWordWrap(true);
    label->setTextFormat(Qt::PlainText);
    QPalette palette = label->palette();
    palette.setColor(QPalette::WindowText, look::secondaryText(palette));
    label->setPalette(palette);
    return label;
}

QLabel* problemLabel(QWidget* parent) {
    auto* label = new QLabel(parent);
    label->setWordWrap(true);
    label->setTextFormat(Qt::PlainText);
    QPalette palette = label->palette();
    palette.setColor(QPalette::WindowText, problemRed);
    label->setPalette(palette);
    label->hide();
    return label;
}

NoteBox::NoteBox(QWidget* parent) : QFrame(parent), content_(new QVBoxLayout) {
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(10, 9, 12, 9);
    row->setSpacing(10);
    auto* mark = new QLabel(this);
    const int size = style()->pixelMetric(QStyle::PM_SmallIconSize, nullptr, this);
    mark->setPixmap(style()
                        ->standardIcon(QStyle::SP_MessageBoxInformation, nullptr, this)
                        .pixmap(size, size, QIcon::Normal));
    row->addWidget(mark, 0, Qt::AlignTop);
    content_->setContentsMargins(0, 0, 0, 0);
    content_->setSpacing(4);
    row->addLayout(content_, 1);
}

void NoteBox::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(look::subtleFill(palette()));
    painter.drawRoundedRect(QRectF(rect()), 6, 6);
}

}  // namespace zettly::pageparts
