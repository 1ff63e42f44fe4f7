#pragma once

#include <QCoreApplication>
#include <QLocale>
#include <QString>

namespace zettly {

// What installTranslations() put in place.
struct InstalledTranslations {
    // The language of Zettly's catalogue ("de"), empty when the user's
    // languages have none and the texts stay in English.
    QString language;
    // Whether Qt's own catalogue (standard buttons, input menus) for that
    // language was found in Qt's translations folder.
    bool qt = false;
};

// Installs Zettly's catalogue (embedded at build time) for the first of the
// locale's UI languages that has one, and Qt's catalogue for the same
// language, so that a dialog never mixes languages. Call once, before the
// first window is made.
InstalledTranslations installTranslations(QCoreApplication& app, const QLocale& locale);

}  // namespace zettly
