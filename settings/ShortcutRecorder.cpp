#include "settings/ShortcutRecorder.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QPushButton>
#include <array>
#include <utility>

#include "platform/UsKeyboardLayout.h"
#include "settings/SettingsContext.h"
#include "store/ClipPrefs.h"
#include "ui/KeyEvents.h"

namespace zettly {

ShortcutRecorder::ShortcutRecorder(SettingsContext& context, QWidget* parent)
    : QWidget(parent), context_(context) {
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    record_ = new QPushButton(this);
    //: Accessible name of the button that shows and records the shortcut opening the history.
    record_->setAccessibleName(tr("Shortcut"));
    record_->setMinimumWidth(150);
    record_->installEventFilter(this);
    //: Button beside the shortcut: sets the shortcut back to Alt+V. Short.
    reset_ = new QPushButton(tr("Reset"), this);
    row->addWidget(record_);
    row->addWidget(reset_);
    row->addStretch(1);

    connect(record_, &QPushButton::clicked, this, [this] {
        if (recording_)
            stop();
        else
            start();
    });
    connect(reset_, &QPushButton::clicked, this, [this] { save(HotKeyCombo{}); });
    reload();
}

void ShortcutRecorder::reload() {
    const HotKeyCombo combo = ClipPrefs(context_.defaults).hotKey();
    if (!recording_)
        record_->setText(displayText(combo));
    reset_->setEnabled(combo != HotKeyCombo{});
}

QString ShortcutRecorder::displayText(HotKeyCombo combo) const {
    return displayText(combo, context_.layout);
}

QString ShortcutRecorder::displayText(HotKeyCombo combo, KeyboardLayout* keyboard) {
    UsKeyboardLayout us;
    KeyboardLayout& layout = keyboard ? *keyboard : us;
    //: Name of the space bar in a shortcut, as in "Ctrl+Space".
    const std::string space = tr("Space").toStdString();
    return QString::fromStdString(combo.display(layout, space));
}

void ShortcutRecorder::start() {
    recording_ = true;
    //: The shortcut button while it waits for the user to press the new shortcut.
    record_->setText(tr("Press a shortcut\u2026"));
    record_->setFocus(Qt::OtherFocusReason);
    // While the keyboard is grabbed, the desktop and the app's own global
    // shortcut see none of the keys, so pressing the old or the new
    // combination cannot open the history in the middle of recording.
    record_->grabKeyboard();
}

void ShortcutRecorder::stop() {
    if (!recording_)
        return;
    recording_ = false;
    record_->releaseKeyboard();
    reload();
}

void ShortcutRecorder::save(HotKeyCombo combo) {
    ClipPrefs(context_.defaults).setHotKey(combo);
    stop();
    reload();
    if (context_.hotKeyChanged)
        context_.hotKeyChanged();
}

bool ShortcutRecorder::eventFilter(QObject* watched, QEvent* event) {
    if (watched != record_ || !recording_)
        return QWidget::eventFilter(watched, event);
    switch (event->type()) {
        case QEvent::ShortcutOverride:
            // Every key is for the recorder, not for the window's shortcuts.
            event->accept();
            return true;
        case QEvent::KeyPress: {
            auto* key = static_cast<QKeyEvent*>(event);
            const KeyPress press = keyPressFrom(*key, context_.layout);
            switch (HotKeyCombo::record(press.keyCode, press.modifiers)) {
                case HotKeyCombo::Recording::cancel:
                    stop();
                    break;
                case HotKeyCombo::Recording::save:
                    // Ctrl pressed on its way to Ctrl+Shift+K arrives as a key
                    // press of its own with Ctrl held; modifier keys, like keys
                    // with no place on a Mac keyboard, have no stored form.
                    if (press.keyCode != unknownKeyCode)
                        save(HotKeyCombo{press.keyCode, press.modifiers});
                    break;
                case HotKeyCombo::Recording::ignore:
                    break;
            }
            return true;
        }
        case QEvent::KeyRelease:
            return true;
        case QEvent::FocusOut:
        case QEvent::Hide:
            stop();
            return false;
        default:
            return QWidget::eventFilter(watched, event);
    }
}

}  // namespace zettly
