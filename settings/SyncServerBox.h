#pragma once

#include <QGroupBox>

#include "settings/SettingsContext.h"

class QLabel;
class QLineEdit;
class QPushButton;

namespace zettly {

class StrengthMeter;

// Settings › Sync › Server: where the history syncs to and the passphrase
// that seals it. The address and user name are preferences; the password
// and passphrase go to the secret store. Each field is kept when the user
// leaves it, and the app then talks to the server anew. The passphrase's
// strength shows as a hint; changing the passphrase of a server in use has
// a dialog of its own.
class SyncServerBox : public QGroupBox {
    Q_OBJECT
public:
    explicit SyncServerBox(SettingsContext& context, QWidget* parent = nullptr);

    void reload();
    // Runs the context's connection test and shows its answer.
    void testConnection();
    // Opens the dialog that changes the passphrase on the server; the field
    // shows the new one afterwards.
    void changePassphrase();

    QLineEdit* urlField() const { return url_; }
    QLineEdit* userField() const { return user_; }
    QLineEdit* passwordField() const { return password_; }
    QLineEdit* passphraseField() const { return passphrase_; }
    QLabel* problem() const { return problem_; }
    QLabel* testResult() const { return testResult_; }
    StrengthMeter* meter() const { return meter_; }
    QPushButton* changePassphraseButton() const { return changePassphrase_; }

private:
    void saveUrl();
    void saveUser();
    void saveSecret(SyncSecret which, QLineEdit* field);
    void showProblem(const QString& text);
    // Only a server that is set up has a passphrase to change.
    void enableChange();

    SettingsContext& context_;
    QLineEdit* url_;
    QLineEdit* user_;
    QLineEdit* password_;
    QLineEdit* passphrase_;
    StrengthMeter* meter_;
    QPushButton* changePassphrase_;
    QLabel* problem_;
    QPushButton* test_;
    QLabel* testResult_;
    bool testing_ = false;
};

}  // namespace zettly
