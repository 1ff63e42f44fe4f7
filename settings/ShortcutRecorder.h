#pragma once

#include <QWidget>

#include "platform/HotKeyCombo.h"

class QPushButton;

namespace zettly {

struct SettingsContext;

// The global shortcut as a button: a click makes it wait for a key press
// ("Press a shortcut…") with the keyboard grabbed, so that neither the old
// shortcut nor the settings window's own keys fire meanwhile. A press with
// Ctrl, Alt or Super is stored and the app registers it again; Escape, a
// click elsewhere or the window losing the keyboard stop without a change;
// a key alone or with Shift alone is not a shortcut, and waiting goes on.
class ShortcutRecorder : public QWidget {
    Q_OBJECT
public:
    explicit ShortcutRecorder(SettingsContext& context, QWidget* parent = nullptr);

    // Shows the stored shortcut again.
    void reload();
    bool isRecording() const { return recording_; }

    // As the user's keyboard names the keys, e.g. "Ctrl+Shift+K".
    // As the user reads it, with the space bar's name in their language;
    // US key names without a layout.
    static QString displayText(HotKeyCombo combo, KeyboardLayout* layout);
    QString displayText(HotKeyCombo combo) const;

    QPushButton* recordButton() const { return record_; }
    QPushButton* resetButton() const { return reset_; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void start();
    void stop();
    void save(HotKeyCombo combo);

    SettingsContext& context_;
    QPushButton* record_;
    QPushButton* reset_;
    bool recording_ = false;
};

}  // namespace zettly
