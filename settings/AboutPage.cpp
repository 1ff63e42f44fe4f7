#include "settings/AboutPage.h"

#include <QApplication>
#include <QCheckBox>
#include <QDesktopServices>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSignalBlocker>
#include <QStyle>
#include <QUrl>
#include <QVBoxLayout>

#include "settings/SettingsContext.h"

namespace zettly {
namespace {

QString link(const char* url, const QString& text) {
    return QStringLiteral("<a href=\"%1\">%2</a>")
        .arg(QString::fromLatin1(url), text.toHtmlEscaped());
}

// Library names and licence names stay as their authors write them.
QString libraryLicences() {
    return QStringLiteral(
        "Qt 6 \u2014 GNU Lesser General Public License v3 (LGPL-3.0)\n"
        "SQLite \u2014 public domain\n"
        "ICU \u2014 Unicode License (Unicode-3.0)\n"
        "libvips \u2014 GNU Lesser General Public License v2.1 or later (LGPL-2.1-or-later)\n"
        "OpenSSL \u2014 Apache License 2.0\n"
        "nlohmann/json \u2014 MIT License\n"
        "libxcb \u2014 MIT License\n"
        "libxkbcommon \u2014 MIT License\n"
        "libcurl \u2014 curl License\n"
        "libsodium \u2014 ISC License\n");
}

}  // namespace

AboutPage::AboutPage(SettingsContext& context, QWidget* parent)
    : QWidget(parent), context_(context) {
    auto* column = new QVBoxLayout(this);

    auto* header = new QHBoxLayout;
    auto* icon = new QLabel(this);
    const QIcon appIcon = QIcon::fromTheme(QStringLiteral("org.zettly.Zettly"),
                                           QApplication::windowIcon().isNull()
                                               ? style()->standardIcon(QStyle::SP_DesktopIcon)
                                               : QApplication::windowIcon());
    icon->setPixmap(appIcon.pixmap(64, 64));
    header->addWidget(icon, 0, Qt::AlignTop);

    auto* identity = new QVBoxLayout;
    auto* name = new QLabel(QStringLiteral("Zettly"), this);
    QFont bold = name->font();
    bold.setBold(true);
    bold.setPointSizeF(bold.pointSizeF() * 1.4);
    name->setFont(bold);
    identity->addWidget(name);
    //: Settings › About: the version of the app. %1 is a version number such as 1.2.0.
    auto* version = new QLabel(tr("Version %1").arg(QStringLiteral(ZETTLY_VERSION)), this);
    version->setTextInteractionFlags(Qt::TextSelectableByMouse);
    identity->addWidget(version);
    //: Settings › About: one line saying what the app does.
    auto* description = new QLabel(
        tr("Keeps what you copy, so you can find it and paste it again from a shortcut."), this);
    description->setWordWrap(true);
    identity->addWidget(description);

    auto* links = new QLabel(this);
    links->setTextFormat(Qt::RichText);
    //: Settings › About: link to the project's web site. Short.
    const QString site = tr("Website");
    //: Settings › About: link to the app's source code. Short.
    const QString source = tr("Source code");
    //: Settings › About: link to where problems are reported. Short.
    const QString issues = tr("Report a problem");
    const QString dot = QStringLiteral(" \u00b7 ");
    links->setText(link(siteUrl, site) + dot + link(sourceUrl, source) + dot +
                   link(issuesUrl, issues));
    links->setTextInteractionFlags(Qt::TextBrowserInteraction);
    connect(links, &QLabel::linkActivated, this,
            [](const QString& url) { QDesktopServices::openUrl(QUrl(url)); });
    identity->addWidget(links);
    header->addLayout(identity, 1);
    column->addLayout(header);

    if (context_.automaticUpdateChecks && context_.setAutomaticUpdateChecks &&
        context_.checkForUpdates) {
        auto* updates = new QHBoxLayout;
        //: Settings › About switch: look for a newer version once a day in the background.
        automatic_ = new QCheckBox(tr("Check for updates automatically"), this);
        connect(automatic_, &QCheckBox::toggled, this,
                [this](bool on) { context_.setAutomaticUpdateChecks(on); });
        updates->addWidget(automatic_);
        updates->addStretch(1);
        //: Settings › About button: look for a newer version now.
        auto* now = new QPushButton(tr("Check Now"), this);
        connect(now, &QPushButton::clicked, this, [this] { context_.checkForUpdates(); });
        updates->addWidget(now);
        column->addLayout(updates);
    }

    //: Settings › About: heading above the list of libraries Zettly uses and their licences.
    column->addWidget(new QLabel(tr("Zettly is built with these libraries:"), this));
    auto* licences = new QPlainTextEdit(this);
    licences->setReadOnly(true);
    //: Settings › About, at the end of the licence list: GoogleTest is only used by the
    //: developers' tests. Keep the name "GoogleTest".
    const QString testsOnly =
        tr("GoogleTest (BSD-3-Clause) is used only to test Zettly and is not part of it.");
    licences->setPlainText(libraryLicences() + QLatin1Char('\n') + testsOnly);
    column->addWidget(licences, 1);
}

void AboutPage::reload() {
    if (!automatic_)
        return;
    const QSignalBlocker block(automatic_);
    automatic_->setChecked(context_.automaticUpdateChecks());
}

}  // namespace zettly
