#pragma once

#include <QWidget>

class QCheckBox;
class QComboBox;
class QLabel;

namespace zettly {

struct SettingsContext;
class ShortcutRecorder;

// Settings › General: pasting right away, the preview delay, where the
// history window opens, its shortcut and starting at login. Every change is
// stored at once.
class GeneralPage : public QWidget {
    Q_OBJECT
public:
    explicit GeneralPage(SettingsContext& context, QWidget* parent = nullptr);

    // Shows the stored preferences and the login entry as they are now.
    void reload();

    // The preview delays offered, in seconds; 0 opens the preview only with
    // its shortcut.
    static constexpr double previewDelays[] = {0, 0.5, 1.5, 3};

    QCheckBox* pasteSwitch() const { return paste_; }
    // Why pasting cannot work in this session; hidden when it can.
    QLabel* pasteNote() const { return pasteNote_; }
    QComboBox* previewPicker() const { return preview_; }
    QComboBox* positionPicker() const { return position_; }
    ShortcutRecorder* shortcutRecorder() const { return recorder_; }
    // Absent when the app offers no way to start at login.
    QCheckBox* launchAtLoginSwitch() const { return launch_; }
    // What went wrong the last time the login entry was changed.
    QLabel* launchError() const { return launchError_; }

private:
    void reloadPreview();
    void setLaunchAtLogin(bool on);

    SettingsContext& context_;
    QCheckBox* paste_;
    QLabel* pasteNote_;
    QComboBox* preview_;
    QComboBox* position_;
    ShortcutRecorder* recorder_;
    QCheckBox* launch_ = nullptr;
    QLabel* launchError_ = nullptr;
};

}  // namespace zettly
