#include "settings/StrengthMeter.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QVBoxLayout>

#include "settings/PageParts.h"

namespace zettly {

StrengthMeter::StrengthMeter(QWidget* parent) : QWidget(parent) {
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    auto* row = new QHBoxLayout;
    bar_ = new QProgressBar(this);
    bar_->setObjectName(QStringLiteral("strengthBar"));
    // One step per score, and one more so that "Too weak" is not empty.
    bar_->setRange(0, 5);
    bar_->setTextVisible(false);
    bar_->setMaximumHeight(8);
    word_ = new QLabel(this);
    word_->setObjectName(QStringLiteral("strengthWord"));
    row->addWidget(bar_, 1);
    row->addWidget(word_);
    column->addLayout(row);
    reason_ = pageparts::noteLabel({}, this);
    reason_->setObjectName(QStringLiteral("strengthReason"));
    column->addWidget(reason_);
    rate({});
}

void StrengthMeter::rate(const QString& passphrase) {
    strength_ = ratePassphrase(passphrase.toStdString());
    setVisible(!passphrase.isEmpty());
    bar_->setValue(passphrase.isEmpty() ? 0 : static_cast<int>(strength_.score) + 1);
    word_->setText(word(strength_.score));
    reason_->setText(strength_.acceptable() ? QString() : reason(strength_.weakness));
    reason_->setVisible(!reason_->text().isEmpty());
}

QString StrengthMeter::word(PassphraseStrength::Score score) {
    using Score = PassphraseStrength::Score;
    switch (score) {
        case Score::tooWeak:
            //: Settings › Sync: passphrase strength meter, the lowest of five grades.
            return tr("Too weak");
        case Score::weak:
            //: Settings › Sync: passphrase strength meter, second of five grades.
            return tr("Weak");
        case Score::fair:
            //: Settings › Sync: passphrase strength meter, middle of five grades.
            return tr("Fair");
        case Score::strong:
            //: Settings › Sync: passphrase strength meter, fourth of five grades.
            return tr("Strong");
        case Score::veryStrong:
            //: Settings › Sync: passphrase strength meter, the highest of five grades.
            return tr("Very strong");
    }
    return {};
}

QString StrengthMeter::reason(PassphraseStrength::Weakness weakness) {
    using Weakness = PassphraseStrength::Weakness;
    switch (weakness) {
        case Weakness::empty:
            //: Settings › Sync: shown under an empty passphrase field.
            return tr("Enter a passphrase.");
        case Weakness::common:
            //: Settings › Sync: why a passphrase is easy to guess.
            return tr("It is one of the most common passwords or words, or made of them.");
        case Weakness::keyboard:
            //: Settings › Sync: why a passphrase is easy to guess ("qwerty", "asdf").
            return tr("It is a run of neighbouring keys.");
        case Weakness::sequence:
            //: Settings › Sync: why a passphrase is easy to guess ("abcd", "1234").
            return tr("It is a sequence such as abc or 123.");
        case Weakness::repeated:
            //: Settings › Sync: why a passphrase is easy to guess ("aaaa", "abcabc").
            return tr("It repeats itself.");
        case Weakness::year:
            //: Settings › Sync: why a passphrase is easy to guess (it contains "1987").
            return tr("It is built around a year.");
        case Weakness::none:
        case Weakness::tooShort:
            //: Settings › Sync: why a passphrase is easy to guess.
            return tr("It is too short. A few unrelated words make a strong passphrase.");
    }
    return {};
}

}  // namespace zettly
