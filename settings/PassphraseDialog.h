#pragma once

#include <QDialog>
#include <optional>
#include <string>

#include "settings/SettingsContext.h"

class QLabel;
class QLineEdit;
class QPushButton;

namespace zettly {

class StrengthMeter;

// Settings › Sync › Change Passphrase: the new passphrase twice, how hard it
// is to guess, and what changing it means for the other devices. A
// passphrase rated below "Fair", two that differ or the one in use already
// are refused with the reason; a good one goes to the context's hook, and
// the dialog shows the progress and the outcome.
class PassphraseDialog : public QDialog {
    Q_OBJECT
public:
    explicit PassphraseDialog(SettingsContext& context, QWidget* parent = nullptr);

    // What "Change Passphrase" does.
    void submit();
    bool changing() const { return changing_; }
    bool changed() const { return changed_; }

    QLineEdit* newField() const { return new_; }
    QLineEdit* repeatField() const { return repeat_; }
    StrengthMeter* meter() const { return meter_; }
    QLabel* problem() const { return problem_; }
    QLabel* result() const { return result_; }
    QPushButton* changeButton() const { return change_; }

private:
    void finish(const std::optional<std::string>& error);
    void showProblem(const QString& text);

    SettingsContext& context_;
    QLineEdit* new_;
    QLineEdit* repeat_;
    StrengthMeter* meter_;
    QLabel* problem_;
    QLabel* result_;
    QPushButton* change_;
    QPushButton* close_;
    bool changing_ = false;
    bool changed_ = false;
};

}  // namespace zettly
