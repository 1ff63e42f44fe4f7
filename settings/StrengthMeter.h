#pragma once

#include <QWidget>

#include "platform/PassphraseStrength.h"

class QLabel;
class QProgressBar;

namespace zettly {

// A bar and a word ("Weak", "Strong") for how hard a passphrase is to
// guess, and below them what makes a weak one weak.
class StrengthMeter : public QWidget {
    Q_OBJECT
public:
    explicit StrengthMeter(QWidget* parent = nullptr);

    // Rates `passphrase`; an empty one hides the meter.
    void rate(const QString& passphrase);
    const PassphraseStrength& strength() const { return strength_; }
    QLabel* wordLabel() const { return word_; }

    static QString word(PassphraseStrength::Score score);
    // One sentence on what makes it easy to guess.
    static QString reason(PassphraseStrength::Weakness weakness);

private:
    PassphraseStrength strength_;
    QProgressBar* bar_;
    QLabel* word_;
    QLabel* reason_;
};

}  // namespace zettly
