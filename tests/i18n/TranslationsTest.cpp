#include <QCoreApplication>
#include <QFile>
#include <QLibraryInfo>
#include <QRegularExpression>
#include <QSet>
#include <QXmlStreamReader>
#include <memory>
#include <ostream>
#include <vector>

#include <gtest/gtest.h>

#include "i18n/Translations.h"

// Failures show the texts, not their UTF-16 code units (found by ADL).
QT_BEGIN_NAMESPACE
inline void PrintTo(const QString& text, std::ostream* out) {
    *out << text.toStdString();
}
QT_END_NAMESPACE

namespace zettly {
namespace {

// One message of a .ts file as a translator left it.
struct Message {
    QString context;
    QString source;
    bool numerus = false;
    QString type;  // "unfinished", "vanished", "obsolete" or empty
    QStringList forms;
};

std::vector<Message> readCatalogue(const QString& path) {
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
    std::vector<Message> messages;
    QXmlStreamReader xml(&file);
    QString context;
    while (!xml.atEnd()) {
        if (xml.readNext() != QXmlStreamReader::StartElement)
            continue;
        if (xml.name() == u"name") {
            context = xml.readElementText();
        } else if (xml.name() == u"message") {
            messages.push_back({context, {}, xml.attributes().value("numerus") == u"yes", {}, {}});
        } else if (xml.name() == u"source") {
            messages.back().source = xml.readElementText();
        } else if (xml.name() == u"translation") {
            messages.back().type = xml.attributes().value("type").toString();
            if (!messages.back().numerus)
                messages.back().forms << xml.readElementText();
        } else if (xml.name() == u"numerusform") {
            messages.back().forms << xml.readElementText();
        }
    }
    EXPECT_FALSE(xml.hasError()) << xml.errorString().toStdString();
    return messages;
}

QSet<QString> placeholders(const QString& text) {
    static const QRegularExpression marker(QStringLiteral("%(\\d|n)"));
    QSet<QString> found;
    for (const auto& match : marker.globalMatch(text))
        found << match.captured();
    return found;
}

class TranslationsTest : public ::testing::Test {
protected:
    int argc = 1;
    char name[18] = "translations_test";
    char* argv[1] = {name};
    std::unique_ptr<QCoreApplication> app = std::make_unique<QCoreApplication>(argc, argv);
};

TEST_F(TranslationsTest, AGermanDesktopGetsEveryTranslatedTextOfTheCatalogueAndQtsOwnButtons) {
    InstalledTranslations installed =
        installTranslations(*app, QLocale(QLocale::German, QLocale::Austria));
    EXPECT_EQ(installed.language, "de");
    for (const Message& m : readCatalogue(QStringLiteral(ZETTLY_GERMAN_TS))) {
        if (!m.type.isEmpty() || m.forms.isEmpty())
            continue;
        QByteArray context = m.context.toUtf8(), source = m.source.toUtf8();
        if (!m.numerus) {
            EXPECT_EQ(QCoreApplication::translate(context, source), m.forms[0]) << source.data();
            continue;
        }
        // German has two forms: one, and everything else.
        for (int n : {1, 5})
            EXPECT_EQ(QCoreApplication::translate(context, source, nullptr, n),
                      QString(m.forms.value(n == 1 ? 0 : 1))
                          .replace("%Ln", QString::number(n))
                          .replace("%n", QString::number(n)));
    }
    // Standard dialog buttons come from Qt's catalogue (qt6-translations-l10n).
    ASSERT_TRUE(installed.qt) << "no qtbase_de.qm in "
                              << QLibraryInfo::path(QLibraryInfo::TranslationsPath).toStdString();
    EXPECT_EQ(QCoreApplication::translate("QPlatformTheme", "Cancel"), "Abbrechen");
}

TEST_F(TranslationsTest, OtherLanguagesKeepTheEnglishTextsAndQtsEnglishButtons) {
    InstalledTranslations installed =
        installTranslations(*app, QLocale(QLocale::French, QLocale::France));
    EXPECT_TRUE(installed.language.isEmpty());
    EXPECT_FALSE(installed.qt);
    EXPECT_EQ(QCoreApplication::translate("zettly::AppDelegate", "Quit Zettly"), "Quit Zettly");
    EXPECT_EQ(QCoreApplication::translate("QPlatformTheme", "Cancel"), "Cancel");
    // English counts still say "1 item", not "1 items".
    for (int n : {1, 7})
        EXPECT_EQ(QCoreApplication::translate("zettly::StoragePage", "%Ln items", nullptr, n),
                  n == 1 ? "1 item" : "7 items");
}

// Fails once lupdate has brought in texts nobody translated yet, and on the
// slips a translator makes most: a lost placeholder, a missing plural form,
// English quotation marks or key names.
TEST(GermanCatalogue, EveryTextIsTranslatedWithItsPlaceholdersGermanQuotesAndKeyNames) {
    std::vector<Message> messages = readCatalogue(QStringLiteral(ZETTLY_GERMAN_TS));
    ASSERT_FALSE(messages.empty());
    for (const Message& m : messages) {
        if (m.type == u"vanished" || m.type == u"obsolete")
            continue;
        SCOPED_TRACE(m.context.toStdString() + ": " + m.source.toStdString());
        EXPECT_NE(m.type, QStringLiteral("unfinished"));
        ASSERT_EQ(m.forms.size(), m.numerus ? 2 : 1);
        for (const QString& form : m.forms) {
            SCOPED_TRACE(form.toStdString());
            EXPECT_FALSE(form.isEmpty());
            EXPECT_EQ(placeholders(form), placeholders(m.source));
            EXPECT_EQ(form.count(u'\u201e'), form.count(u'\u201c'));
            EXPECT_FALSE(form.contains(u'\u201d'));
            // German keyboards say Strg, Umschalt and Einfg.
            for (const char* english : {"Ctrl+", "Shift+", "+Insert"})
                EXPECT_FALSE(form.contains(QLatin1String(english))) << english;
        }
    }
}

}  // namespace
}  // namespace zettly
