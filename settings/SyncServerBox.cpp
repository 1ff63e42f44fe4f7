#include "settings/SyncServerBox.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QVBoxLayout>

#include "platform/Defaults.h"
#include "settings/PageParts.h"
#include "settings/PassphraseDialog.h"
#include "settings/StrengthMeter.h"
#include "store/PrefKeys.h"
#include "ui/Look.h"

namespace zettly {
namespace {

QString trimmed(const QLineEdit* field) {
    return field->text().trimmed();
}

}  // namespace

SyncServerBox::SyncServerBox(SettingsContext& context, QWidget* parent)
    //: Settings › Sync: title of the section with the sync server's address and sign-in.
    : QGroupBox(tr("Sync Server"), parent), context_(context) {
    auto* column = new QVBoxLayout(this);
    auto* form = new QFormLayout;

    url_ = new QLineEdit(this);
    url_->setObjectName(QStringLiteral("serverUrl"));
    //: Settings › Sync: example of a sync server address (a CouchDB database URL).
    url_->setPlaceholderText(tr("https://couch.example.org/zettly"));
    //: Settings › Sync: label of the sync server's address (a CouchDB database URL).
    form->addRow(tr("Database address:"), url_);

    user_ = new QLineEdit(this);
    user_->setObjectName(QStringLiteral("serverUser"));
    //: Settings › Sync: label of the user name on the sync server.
    form->addRow(tr("User name:"), user_);

    password_ = new QLineEdit(this);
    password_->setObjectName(QStringLiteral("serverPassword"));
    password_->setEchoMode(QLineEdit::Password);
    //: Settings › Sync: label of the password on the sync server.
    form->addRow(tr("Password:"), password_);

    passphrase_ = new QLineEdit(this);
    passphrase_->setObjectName(QStringLiteral("passphrase"));
    passphrase_->setEchoMode(QLineEdit::Password);
    //: Settings › Sync: label of the passphrase that encrypts the history on the server.
    form->addRow(tr("Passphrase:"), passphrase_);
    // A hint only: a passphrase already in use on the other devices is
    // what it is.
    meter_ = new StrengthMeter(this);
    form->addRow(QString(), meter_);
    column->addLayout(form);

    auto* passphraseNote = pageparts::noteLabel({}, this);
    //: Settings › Sync: explains the passphrase.
    passphraseNote->setText(
        tr("Your history is encrypted with the passphrase before it leaves this computer; the "
           "server never sees it. Use the same passphrase on every device. It cannot be "
           "recovered."));
    column->addWidget(passphraseNote);

    //: Settings › Sync: button that opens the dialog changing the passphrase on every device.
    changePassphrase_ = new QPushButton(tr("Change Passphrase…"), this);
    changePassphrase_->setObjectName(QStringLiteral("changePassphraseButton"));
    changePassphrase_->setVisible(static_cast<bool>(context_.syncServer.changePassphrase));
    auto* changeRow = new QHBoxLayout;
    changeRow->addWidget(changePassphrase_);
    changeRow->addStretch(1);
    column->addLayout(changeRow);

    problem_ = pageparts::problemLabel(this);
    problem_->setObjectName(QStringLiteral("serverProblem"));
    column->addWidget(problem_);

    auto* row = new QHBoxLayout;
    //: Settings › Sync: button that tries to reach the sync server with these settings.
    test_ = new QPushButton(tr("Test Connection"), this);
    test_->setObjectName(QStringLiteral("testConnection"));
    testResult_ = new QLabel(this);
    testResult_->setObjectName(QStringLiteral("testResult"));
    testResult_->setWordWrap(true);
    testResult_->setTextFormat(Qt::PlainText);
    testResult_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    row->addWidget(test_);
    row->addWidget(testResult_, 1);
    column->addLayout(row);
    test_->setVisible(static_cast<bool>(context_.syncServer.testConnection));

    if (context_.syncServer.secretsWhere) {
        auto* where = pageparts::noteLabel({}, this);
        //: Settings › Sync: where the password and passphrase are stored. %1 is a place such as
        //: "the Secret Service" or a file path.
        where->setText(tr("The password and passphrase are kept in %1.")
                           .arg(QString::fromStdString(context_.syncServer.secretsWhere())));
        column->addWidget(where);
    }

    connect(url_, &QLineEdit::editingFinished, this, [this] { saveUrl(); });
    connect(user_, &QLineEdit::editingFinished, this, [this] { saveUser(); });
    connect(password_, &QLineEdit::editingFinished, this,
            [this] { saveSecret(SyncSecret::password, password_); });
    connect(passphrase_, &QLineEdit::editingFinished, this,
            [this] { saveSecret(SyncSecret::passphrase, passphrase_); });
    connect(test_, &QPushButton::clicked, this, [this] { testConnection(); });
    connect(passphrase_, &QLineEdit::textChanged, meter_,
            [this](const QString& text) { meter_->rate(text); });
    connect(changePassphrase_, &QPushButton::clicked, this, [this] { changePassphrase(); });
    reload();
}

void SyncServerBox::reload() {
    url_->setText(
        QString::fromStdString(context_.defaults.string(prefkey::syncServerURL).value_or("")));
    user_->setText(
        QString::fromStdString(context_.defaults.string(prefkey::syncServerUser).value_or("")));
    auto secret = [this](SyncSecret which) {
        if (!context_.syncServer.readSecret)
            return QString();
        return QString::fromStdString(context_.syncServer.readSecret(which).value_or(""));
    };
    password_->setText(secret(SyncSecret::password));
    passphrase_->setText(secret(SyncSecret::passphrase));
    test_->setEnabled(!testing_);
    enableChange();
}

void SyncServerBox::enableChange() {
    const bool configured =
        !context_.defaults.string(prefkey::syncServerURL).value_or("").empty() &&
        !context_.defaults.string(prefkey::syncServerUser).value_or("").empty() &&
        context_.syncServer.readSecret &&
        !context_.syncServer.readSecret(SyncSecret::passphrase).value_or("").empty();
    changePassphrase_->setEnabled(configured);
}

void SyncServerBox::changePassphrase() {
    if (!context_.syncServer.changePassphrase)
        return;
    // The dialog checks against the stored passphrase: what is typed counts.
    saveUrl();
    saveUser();
    saveSecret(SyncSecret::password, password_);
    saveSecret(SyncSecret::passphrase, passphrase_);
    enableChange();
    if (!changePassphrase_->isEnabled())
        return;
    PassphraseDialog dialog(context_, this);
    dialog.exec();
    if (dialog.changed())
        passphrase_->setText(QString::fromStdString(
            context_.syncServer.readSecret(SyncSecret::passphrase).value_or("")));
}

void SyncServerBox::saveUrl() {
    const std::string url = trimmed(url_).toStdString();
    if (url == context_.defaults.string(prefkey::syncServerURL).value_or(""))
        return;
    if (!url.empty() && context_.syncServer.urlProblem) {
        // The old address stays in use until a usable one is typed.
        if (auto problem = context_.syncServer.urlProblem(url)) {
            showProblem(QString::fromStdString(*problem));
            return;
        }
    }
    showProblem({});
    context_.defaults.setString(prefkey::syncServerURL, url);
    enableChange();
    if (context_.syncServer.changed)
        context_.syncServer.changed();
}

void SyncServerBox::saveUser() {
    const std::string user = trimmed(user_).toStdString();
    if (user == context_.defaults.string(prefkey::syncServerUser).value_or(""))
        return;
    context_.defaults.setString(prefkey::syncServerUser, user);
    enableChange();
    if (context_.syncServer.changed)
        context_.syncServer.changed();
}

void SyncServerBox::saveSecret(SyncSecret which, QLineEdit* field) {
    if (!context_.syncServer.writeSecret || !context_.syncServer.readSecret)
        return;
    const std::string value = field->text().toStdString();
    if (value == context_.syncServer.readSecret(which).value_or(""))
        return;
    if (!context_.syncServer.writeSecret(which, value)) {
        //: Settings › Sync: the password or passphrase could not be stored.
        showProblem(
            tr("Zettly could not store this secret. Check that your keyring is unlocked "
               "and try again."));
        return;
    }
    showProblem({});
    enableChange();
    if (context_.syncServer.changed)
        context_.syncServer.changed();
}

void SyncServerBox::testConnection() {
    if (testing_ || !context_.syncServer.testConnection)
        return;
    // What is typed counts, also when the field was not left yet.
    saveUrl();
    saveUser();
    saveSecret(SyncSecret::password, password_);
    saveSecret(SyncSecret::passphrase, passphrase_);
    testing_ = true;
    test_->setEnabled(false);
    //: Settings › Sync: shown while the connection test runs.
    testResult_->setText(tr("Connecting…"));
    QPointer<SyncServerBox> self(this);
    context_.syncServer.testConnection([self](bool ok, std::string message) {
        if (!self)
            return;
        self->testing_ = false;
        self->test_->setEnabled(true);
        self->testResult_->setText((ok ? QStringLiteral("\u2713 ") : QStringLiteral("\u2717 ")) +
                                   QString::fromStdString(message));
    });
}

void SyncServerBox::showProblem(const QString& text) {
    problem_->setText(text);
    problem_->setVisible(!text.isEmpty());
}

}  // namespace zettly
