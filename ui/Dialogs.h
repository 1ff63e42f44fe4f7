#pragma once

#include <QString>
#include <optional>

class QWidget;

namespace zettly::dialogs {

// Modal dialogs over the history window. Each is parented to it (and kept on
// top, as the window is), brought to the front with the keyboard, and
// returns when the user answered.

// Save / Cancel around a one-line field (280 × 24) or a plain-text box
// (340 × 160, where Ctrl+Return saves) holding `value`, selected. None when
// cancelled; the text as entered otherwise.
std::optional<QString> ask(QWidget* parent, const QString& title,
                           const std::optional<QString>& message, const QString& value,
                           bool multiline);
void inform(QWidget* parent, const QString& message);
// True only when `button` (the first, destructive one) was chosen.
bool confirm(QWidget* parent, const QString& title, const QString& detail, const QString& button);

}  // namespace zettly::dialogs
