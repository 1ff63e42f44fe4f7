#include "settings/PageParts.h"

#include <QLabel>

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

}  // namespace zettly::pageparts
