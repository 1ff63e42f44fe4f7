#pragma once

#include <QColor>
#include <QFrame>
#include <QString>

class QLabel;
class QVBoxLayout;
class QWidget;

namespace zettly::pageparts {

// Strong enough to read as "wrong" on light and dark themes alike.
inline const QColor problemRed(0xd7, 0x26, 0x38);

// A wrapping line of secondary text under a control: what it does, or why
// it cannot work here.
QLabel* noteLabel(const QString& text, QWidget* parent);
// A wrapping line in red for what the user must fix; hidden while empty.
QLabel* problemLabel(QWidget* parent);

// A softly filled panel with an information mark, for what this session
// cannot do: nothing the user did wrong, so neither red nor a dialog, but
// set apart from the controls it speaks about.
class NoteBox : public QFrame {
public:
    explicit NoteBox(QWidget* parent);
    // Where the panel's labels go, beside the mark.
    QVBoxLayout* content() const { return content_; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QVBoxLayout* content_;
};

}  // namespace zettly::pageparts
