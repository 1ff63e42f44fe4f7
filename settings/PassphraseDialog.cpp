#include "settings/PassphraseDialog.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QVBoxLayout>

#include "settings/PageParts.h"
#include "settings/StrengthMeter.h"

namespace zettly {

PassphraseDialog::PassphraseDialog(SettingsContext& context, QWidget* parent)
    : QDialog(parent), context_(context) {
    //: Title of the dialog that changes the sync passphrase (Settings › Sync).
    setWindowTitle(tr("Change Passphrase"));
    setObjectName(QStringLiteral("passphraseDialog"));
    auto* column = new QVBoxLayout(this);

    //: Change Passphrase dialog: what changing the passphrase does.
    column->addWidget(pageparts::noteLabel(
        tr("The copy on the sync server is encrypted again with the new passphrase: it is "
           "deleted there, and this computer uploads its history again. Your other devices stop "
           "syncing and say that the passphrase was changed until you enter the new one in "
           "their Sync settings. The history on every device stays."),
        this));

    auto* form = new QFormLayout;
    new_ = new QLineEdit(this);
    new_->setObjectName(QStringLiteral("newPassphrase"));
    new_->setEchoMode(QLineEdit::Password);
    //: Change Passphrase dialog: label of the field for the new passphrase.
    form->addRow(tr("New passphrase:"), new_);
    meter_ = new StrengthMeter(this);
    form->addRow(QString(), meter_);
    repeat_ = new QLineEdit(this);
    repeat_->setObjectName(QStringLiteral("repeatPassphrase"));
    repeat_->setEchoMode(QLineEdit::Password);
    //: Change Passphrase dialog: label of the field where the new passphrase is typed again.
    form->addRow(tr("Repeat it:"), repeat_);
    column->addLayout(form);

    problem_ = pageparts::problemLabel(this);
    problem_->setObjectName(QStringLiteral("passphraseProblem"));
    column->addWidget(problem_);
    result_ = new QLabel(this);
    result_->setObjectName(QStringLiteral("passphraseResult"));
    result_->setWordWrap(true);
    result_->setTextFormat(Qt::PlainText);
    result_->setVisible(false);
    column->addWidget(result_);

    auto* buttons = new QDialogButtonBox(this);
    //: Change Passphrase dialog: the button that changes it.
    change_ = buttons->addButton(tr("Change Passphrase"), QDialogButtonBox::AcceptRole);
    change_->setObjectName(QStringLiteral("changePassphrase"));
    close_ = buttons->addButton(QDialogButtonBox::Cancel);
    column->addWidget(buttons);

    connect(new_, &QLineEdit::textChanged, this, [this](const QString& text) {
        meter_->rate(text);
        showProblem({});
    });
    connect(repeat_, &QLineEdit::textChanged, this, [this] { showProblem({}); });
    connect(change_, &QPushButton::clicked, this, [this] { submit(); });
    connect(close_, &QPushButton::clicked, this, [this] { changed_ ? accept() : reject(); });
}

void PassphraseDialog::submit() {
    if (changing_ || changed_ || !context_.syncServer.changePassphrase)
        return;
    const QString passphrase = new_->text();
    if (passphrase.isEmpty()) {
        //: Change Passphrase dialog: the new passphrase field is empty.
        showProblem(tr("Enter the new passphrase."));
        return;
    }
    const PassphraseStrength strength = ratePassphrase(passphrase.toStdString());
    if (!strength.acceptable()) {
        //: Change Passphrase dialog: the new passphrase is refused; %1 says why, e.g. "It is a
        //: run of neighbouring keys."
        showProblem(tr("This passphrase is too easy to guess. %1")
                        .arg(StrengthMeter::reason(strength.weakness)));
        return;
    }
    if (repeat_->text() != passphrase) {
        //: Change Passphrase dialog: the two fields hold different passphrases.
        showProblem(tr("The two passphrases differ. Type the same one in both fields."));
        return;
    }
    if (context_.syncServer.readSecret &&
        context_.syncServer.readSecret(SyncSecret::passphrase) == passphrase.toStdString()) {
        //: Change Passphrase dialog: the new passphrase is the one in use.
        showProblem(tr("This is the passphrase in use already."));
        return;
    }
    showProblem({});
    changing_ = true;
    change_->setEnabled(false);
    close_->setEnabled(false);
    new_->setEnabled(false);
    repeat_->setEnabled(false);
    //: Change Passphrase dialog: shown while the server's copy is encrypted again.
    result_->setText(tr("Changing the passphrase…"));
    result_->setVisible(true);
    // The answer may come after the dialog has gone.
    context_.syncServer.changePassphrase(
        passphrase.toStdString(),
        [dialog = QPointer<PassphraseDialog>(this)](std::optional<std::string> error) {
            if (dialog)
                dialog->finish(error);
        });
}

void PassphraseDialog::finish(const std::optional<std::string>& error) {
    changing_ = false;
    close_->setEnabled(true);
    if (error) {
        change_->setEnabled(true);
        new_->setEnabled(true);
        repeat_->setEnabled(true);
        //: Change Passphrase dialog: it failed; %1 is the reason. The old passphrase stays.
        result_->setText(tr("The passphrase was not changed: %1 The old one stays in use.")
                             .arg(QString::fromStdString(*error)));
        return;
    }
    changed_ = true;
    change_->setVisible(false);
    //: Change Passphrase dialog: the button that closes it once the passphrase was changed.
    close_->setText(tr("Close"));
    //: Change Passphrase dialog: the passphrase was changed.
    result_->setText(
        tr("The passphrase was changed. This computer uploads its history again; enter the new "
           "passphrase on your other devices."));
}

void PassphraseDialog::showProblem(const QString& text) {
    problem_->setText(text);
    problem_->setVisible(!text.isEmpty());
}

}  // namespace zettly
