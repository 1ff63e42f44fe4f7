#pragma once

#include <QStringList>
#include <QWidget>
#include <optional>
#include <vector>

#include "platform/Platform.h"

class QCheckBox;
class QComboBox;
class QFormLayout;
class QLabel;
class QPushButton;

namespace zettly {

struct SettingsContext;
class PasteKeysBox;
class ShortcutRecorder;

// Settings › General: what this session cannot do, pasting right away and
// with which keys, the preview delay, where the history window opens, its
// shortcut and starting at login. Every change is stored at once.
class GeneralPage : public QWidget {
    Q_OBJECT
public:
    explicit GeneralPage(SettingsContext& context, QWidget* parent = nullptr);

    // Shows the stored preferences and the login entry as they are now.
    void reload();

    // The preview delays offered, in seconds; 0 opens the preview only with
    // its shortcut.
    static constexpr double previewDelays[] = {0, 0.5, 1.5, 3};

    // One sentence for each thing this session cannot do and what follows
    // from it; none for one another sentence already covers.
    static QStringList limitationLines(const std::vector<Limitation>& limits);
    // The button for the step against `limitation`, where it has one.
    static QString remedyLabel(Limitation limitation);

    // The limitations of this session; hidden when there are none.
    QWidget* sessionNote() const { return sessionNote_; }
    // The step against the first limitation that has one; hidden otherwise.
    QPushButton* remedyButton() const { return remedy_; }
    // What the desktop said of the shortcut when it cannot be used as
    // recorded; hidden otherwise.
    QLabel* shortcutProblem() const { return shortcutProblem_; }
    QLabel* shortcutHelp() const { return shortcutHelp_; }
    // The command to bind in the desktop's keyboard settings, or the line
    // for the compositor's configuration file, selectable.
    QLabel* shortcutCommand() const { return shortcutCommand_; }
    // Copies shortcutCommand() to the clipboard.
    QPushButton* copyShortcutCommand() const { return copyCommand_; }
    // Where the desktop decides the key: that the recorded one is only
    // proposed, and the button to the desktop's own settings.
    QLabel* shortcutWish() const { return shortcutWish_; }
    QPushButton* desktopShortcutsButton() const { return desktopShortcuts_; }
    QCheckBox* pasteSwitch() const { return paste_; }
    // Why pasting cannot work in this session; hidden when it can.
    QLabel* pasteNote() const { return pasteNote_; }
    // Hidden where nothing can be pasted.
    PasteKeysBox* pasteKeys() const { return pasteKeys_; }
    QComboBox* previewPicker() const { return preview_; }
    QComboBox* positionPicker() const { return position_; }
    // Why the position cannot be chosen in this session; hidden when it can.
    QLabel* positionNote() const { return positionNote_; }
    ShortcutRecorder* shortcutRecorder() const { return recorder_; }
    // Absent when the app offers no way to start at login.
    QCheckBox* launchAtLoginSwitch() const { return launch_; }
    // What went wrong the last time the login entry was changed.
    QLabel* launchError() const { return launchError_; }

private:
    void reloadSessionNote(const std::vector<Limitation>& limits);
    void reloadShortcutNote();
    void reloadPreview();
    void setLaunchAtLogin(bool on);

    SettingsContext& context_;
    QFormLayout* form_;
    QWidget* sessionNote_;
    QWidget* sessionLines_;
    QPushButton* remedy_;
    std::optional<Limitation> remedyFor_;
    QLabel* shortcutProblem_;
    QLabel* shortcutHelp_;
    QLabel* shortcutCommand_;
    QWidget* shortcutCommandRow_;
    QPushButton* copyCommand_;
    QLabel* shortcutWish_;
    QPushButton* desktopShortcuts_;
    QCheckBox* paste_;
    QLabel* pasteNote_;
    PasteKeysBox* pasteKeys_;
    QComboBox* preview_;
    QComboBox* position_;
    QLabel* positionNote_;
    ShortcutRecorder* recorder_;
    QCheckBox* launch_ = nullptr;
    QLabel* launchError_ = nullptr;
};

}  // namespace zettly
