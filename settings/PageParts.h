#pragma once

#include <QColor>
#include <QString>

class QLabel;
class QWidget;

namespace zettly::pageparts {

// Strong enough to read as "wrong" on light and dark themes alike.
inline const QColor problemRed(0xd7, 0x26, 0x38);

// A wrapping line of secondary text under a control: what it does, or why
// it cannot work here.
QLabel* noteLabel(const QString& text, QWidget* parent);
// A wrapping line in red for what the user must fix; hidden while empty.
QLabel* problemLabel(QWidget* parent);

}  // namespace zettly::pageparts
