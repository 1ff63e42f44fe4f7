#include "i18n/Translations.h"

#include <QLibraryInfo>
#include <QTranslator>

namespace zettly {

InstalledTranslations installTranslations(QCoreApplication& app, const QLocale& locale) {
    InstalledTranslations installed;
    // The English texts are in the sources; their catalogue only holds the
    // plural forms ("1 item"), and stays below any other language.
    auto* plurals = new QTranslator(&app);
    if (plurals->load(QStringLiteral(":/i18n/zettly_en.qm")))
        QCoreApplication::installTranslator(plurals);
    else
        delete plurals;
    if (locale.language() == QLocale::English)
        return installed;
    auto* ours = new QTranslator(&app);
    // Walks the locale's UI languages in order (de_AT, then de) and takes
    // the first catalogue that exists; English needs none.
    if (!ours->load(locale, QStringLiteral("zettly"), QStringLiteral("_"),
                    QStringLiteral(":/i18n"))) {
        delete ours;
        return installed;
    }
    QCoreApplication::installTranslator(ours);
    installed.language = ours->language();

    // Qt's texts follow our catalogue's language rather than the locale: a
    // French desktop gets English buttons under English texts, not French
    // ones. Qt's catalogues come with the distribution (qt6-translations-l10n).
    auto* qt = new QTranslator(&app);
    if (qt->load(QLocale(installed.language), QStringLiteral("qtbase"), QStringLiteral("_"),
                 QLibraryInfo::path(QLibraryInfo::TranslationsPath))) {
        QCoreApplication::installTranslator(qt);
        installed.qt = true;
    } else {
        delete qt;
    }
    return installed;
}

}  // namespace zettly
