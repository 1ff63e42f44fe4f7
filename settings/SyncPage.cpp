#include "settings/SyncPage.h"

#include <QCheckBox>
#include <QDateTime>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QPointer>
#include <QPushButton>
#include <QRegularExpression>
#include <QTimer>
#include <QVBoxLayout>
#include <cmath>

#include "platform/Defaults.h"
#include "settings/PageParts.h"
#include "settings/SyncServerBox.h"
#include "store/ClipPrefs.h"
#include "store/PrefKeys.h"
#include "ui/Dialogs.h"
#include "ui/Look.h"

namespace zettly {
namespace {

double nowInSeconds() {
    return static_cast<double>(QDateTime::currentMSecsSinceEpoch()) / 1000.0;
}

}  // namespace

SyncPage::SyncPage(SettingsContext& context, QWidget* parent) : QWidget(parent), context_(context) {
    auto* layout = new QVBoxLayout(this);

    //: Settings › Sync: switch that turns syncing the clipboard history between devices on.
    syncSwitch_ = new QCheckBox(tr("Sync the clipboard history with your other devices"), this);
    syncSwitch_->setObjectName(QStringLiteral("syncSwitch"));
    layout->addWidget(syncSwitch_);
    //: Settings › Sync: what the sync switch covers.
    layout->addWidget(pageparts::noteLabel(
        tr("Texts, images, pins, names and categories travel between your devices."), this));

    //: Settings › Sync: switch that also syncs the order of the filter chips of the history
    //: window; only available while sync is on.
    chipOrderSwitch_ = new QCheckBox(tr("Sync the order of the filters too"), this);
    chipOrderSwitch_->setObjectName(QStringLiteral("chipOrderSwitch"));
    layout->addWidget(chipOrderSwitch_);

    status_ = new QLabel(this);
    status_->setObjectName(QStringLiteral("syncStatus"));
    status_->setWordWrap(true);
    status_->setTextFormat(Qt::PlainText);
    status_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addSpacing(8);
    layout->addWidget(status_);

    if (context_.syncServer.readSecret) {
        server_ = new SyncServerBox(context_, this);
        layout->addWidget(server_);
    }

    //: Settings › Sync: title of the section with the action that deletes the server copy.
    auto* cloud = new QGroupBox(tr("Cloud Copy"), this);
    cloud->setObjectName(QStringLiteral("cloudCopyBox"));
    auto* cloudLayout = new QVBoxLayout(cloud);
    //: Settings › Sync: explains the "Delete Cloud Copy…" button.
    cloudLayout->addWidget(
        pageparts::noteLabel(tr("Removes everything Zettly keeps on the sync server. The "
                                "history on your devices stays."),
                             cloud));
    auto* row = new QHBoxLayout;
    //: Settings › Sync: button that deletes the synced copy of the history on the server (asks
    //: first).
    deleteButton_ = new QPushButton(tr("Delete Cloud Copy…"), cloud);
    deleteButton_->setObjectName(QStringLiteral("deleteCloudCopyButton"));
    deleteResult_ = new QLabel(cloud);
    deleteResult_->setObjectName(QStringLiteral("deleteCloudCopyResult"));
    deleteResult_->setWordWrap(true);
    deleteResult_->setTextFormat(Qt::PlainText);
    row->addWidget(deleteButton_);
    row->addWidget(deleteResult_, 1);
    cloudLayout->addLayout(row);
    layout->addWidget(cloud);
    // Without the hook (no sync backend in this build) there is nothing to delete.
    cloud->setVisible(static_cast<bool>(context_.deleteCloudCopy));
    layout->addStretch(1);

    connect(syncSwitch_, &QCheckBox::toggled, this, [this](bool on) { setSync(on); });
    connect(chipOrderSwitch_, &QCheckBox::toggled, this, [this](bool on) { setChipOrderSync(on); });
    connect(deleteButton_, &QPushButton::clicked, this, [this] { deleteCloudCopy(); });

    statusTimer_ = new QTimer(this);
    statusTimer_->setInterval(30 * 1000);
    connect(statusTimer_, &QTimer::timeout, this, [this] { showStatus(); });
    statusTimer_->start();

    reload();
}

void SyncPage::reload() {
    const bool sync = ClipPrefs(context_.defaults).clipboardCloudSync();
    {
        // Reading is not changing: no write and no sync for it.
        const QSignalBlocker quietSync(syncSwitch_);
        const QSignalBlocker quietOrder(chipOrderSwitch_);
        syncSwitch_->setChecked(sync);
        chipOrderSwitch_->setChecked(KeyboardSettings(context_.defaults).clipboardChipOrderSync());
    }
    chipOrderSwitch_->setEnabled(sync);
    deleteButton_->setEnabled(!deleting_);
    if (server_)
        server_->reload();
    showStatus();
}

void SyncPage::setSync(bool on) {
    context_.defaults.setBool(prefkey::clipboardCloudSync, on);
    chipOrderSwitch_->setEnabled(on);
    if (context_.syncSettingsChanged)
        context_.syncSettingsChanged();
}

void SyncPage::setChipOrderSync(bool on) {
    context_.defaults.setBool(prefkey::clipboardChipOrderSync, on);
    if (context_.syncSettingsChanged)
        context_.syncSettingsChanged();
}

void SyncPage::showStatus() {
    status_->setText(statusText(context_.defaults, nowInSeconds()));
}

QString SyncPage::statusText(const Defaults& defaults, double now) {
    if (std::optional<std::string> error = defaults.string(prefkey::clipSyncLastError);
        error && !error->empty())
        return describeStatus(QString::fromStdString(*error));
    const double at = defaults.doubleValue(prefkey::clipSyncLastAt);
    if (at > 0)
        //: Settings › Sync: status line; %1 is when the last sync ended, like "5 minutes ago" or
        //: a date and time.
        return tr("Last synced: %1").arg(relativeTime(at, now));
    //: Settings › Sync: status line before the first successful sync.
    return tr("Not synced yet");
}

QString SyncPage::describeStatus(const QString& stored) {
    // The engine stores what it met in fixed English words and codes (the
    // same keys as on the other platforms); this is where they become
    // sentences in the user's language.
    if (stored == QLatin1String("Sync is not set up"))
        //: Settings › Sync: status while no sync server is configured (or sync is unavailable).
        return tr("Sync is not set up");
    if (stored == QLatin1String("The passphrase does not match the data on the sync server"))
        //: Settings › Sync: status when the passphrase cannot open what the server holds.
        return tr("The passphrase does not match the data on the sync server");
    if (stored ==
        QLatin1String("The data on the sync server was written by a newer version of Zettly"))
        //: Settings › Sync: status when another device set up the server with a newer Zettly.
        return tr(
            "The data on the sync server was written by a newer version of Zettly. Update "
            "Zettly on this computer.");
    if (stored == QLatin1String("The set-up record in the sync database is damaged"))
        //: Settings › Sync: status when the server's set-up document cannot be read.
        return tr("The set-up record in the sync database is damaged.");
    if (stored == QLatin1String("The passphrase was changed on another device. Enter the new "
                                "passphrase in the Sync settings."))
        //: Settings › Sync: status after another device changed the passphrase.
        return tr(
            "The passphrase was changed on another device. Enter the new passphrase "
            "above.");
    if (stored.startsWith(QLatin1String("The set-up record on the sync server was changed by "
                                        "something other than Zettly")))
        //: Settings › Sync: status when the server's set-up record was altered by a third party.
        return tr(
            "The set-up record on the sync server was changed by something other than "
            "Zettly, so the data there cannot be trusted. Delete the cloud copy below to "
            "start it afresh; the history on your devices stays.");
    if (stored == QLatin1String("The sync server holds records Zettly did not write"))
        //: Settings › Sync: status when records on the server fail the end-to-end check.
        return tr(
            "The sync server holds records Zettly did not write. Zettly keeps its own "
            "copies and writes them over those.");
    if (stored == QLatin1String("Changes from other devices could not be saved on this computer"))
        //: Settings › Sync: status when the local history database refused what arrived.
        return tr(
            "Changes from other devices could not be saved on this computer. Zettly "
            "fetches them again; see Settings › Storage.");
    if (stored ==
        QLatin1String("Some entries from other devices could not be saved on this computer"))
        //: Settings › Sync: status while records that keep failing are set aside.
        return tr(
            "Some entries from other devices could not be saved on this computer. Zettly "
            "tries them again with every sync.");
    if (stored ==
        QLatin1String("Some pictures from other devices could not be saved on this computer"))
        //: Settings › Sync: status while image downloads keep failing (they are retried later).
        return tr(
            "Some pictures from other devices could not be saved on this computer. Zettly "
            "tries again later.");
    if (stored == QLatin1String("The sync server sent an answer too large to accept"))
        //: Settings › Sync: status when the server's answer exceeded the size limit.
        return tr("The sync server sent an answer too large to accept.");
    if (stored == QLatin1String("The sync server took too long to answer"))
        //: Settings › Sync: status when a request ran into its overall time limit.
        return tr("The sync server took too long to answer. Zettly tries again by itself.");
    static const QRegularExpression clock(
        QStringLiteral("^Your computer's clock is (\\d+) (hours|minutes) off$"));
    if (auto match = clock.match(stored); match.hasMatch()) {
        const int amount = match.captured(1).toInt();
        if (match.captured(2) == QLatin1String("hours"))
            //: Settings › Sync: status when this computer's clock differs from the server's.
            return tr(
                "Your computer's clock is %n hours off. Zettly holds back deletions until "
                "it is set right.",
                "", amount);
        //: Settings › Sync: status when this computer's clock differs from the server's.
        return tr(
            "Your computer's clock is %n minutes off. Zettly holds back deletions until it "
            "is set right.",
            "", amount);
    }
    static const QString prefix = QStringLiteral("CloudKit ");
    if (!stored.startsWith(prefix))
        return stored;
    bool number = false;
    const int code = stored.mid(prefix.size()).toInt(&number);
    if (!number)
        return stored;
    switch (code) {
        case 3:
        case 4:
            //: Settings › Sync: status after the sync server could not be reached.
            return tr("The sync server cannot be reached. Zettly tries again by itself.");
        case 6:
            //: Settings › Sync: status when the server answered with a server error (5xx).
            return tr("The sync server is not available at the moment.");
        case 7:
            //: Settings › Sync: status when the server asked to slow down (HTTP 429).
            return tr("The sync server asked Zettly to slow down. It tries again shortly.");
        case 9:
            //: Settings › Sync: status when the server refused the user name or password.
            return tr("The sync server did not accept the user name or password.");
        case 27:
            //: Settings › Sync: status when an item was larger than the server accepts.
            return tr("An item was too large for the sync server.");
        default:
            //: Settings › Sync: status after any other sync error; %1 is its number.
            return tr("Sync failed (error %1).").arg(code);
    }
}

QString SyncPage::relativeTime(double at, double now) {
    const double ago = now - at;
    // A time ahead of this computer's clock (another device's clock, a
    // corrected clock) has no sensible "ago"; the date says it plainly.
    if (ago >= 0 && ago < 60)
        //: Settings › Sync: when the last sync ended, less than a minute ago.
        return tr("just now");
    if (ago >= 0 && ago < 3600)
        //: Settings › Sync: when the last sync ended, in whole minutes.
        return tr("%n minutes ago", "", static_cast<int>(std::floor(ago / 60)));
    if (ago >= 0 && ago < 24 * 3600)
        //: Settings › Sync: when the last sync ended, in whole hours.
        return tr("%n hours ago", "", static_cast<int>(std::floor(ago / 3600)));
    const QDateTime when = QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(at * 1000));
    return QLocale().toString(when, QLocale::ShortFormat);
}

void SyncPage::deleteCloudCopy() {
    if (!context_.deleteCloudCopy || deleting_)
        return;
    //: Settings › Sync: confirmation title before deleting the server copy of the history.
    const QString title = tr("Delete the cloud copy of your clipboard history?");
    //: Settings › Sync: confirmation text before deleting the server copy of the history.
    const QString detail =
        tr("The history on this computer and on your other devices stays. "
           "The copy on the sync server is removed for all your devices. While "
           "sync is on, the next sync uploads this computer's history again.");
    if (!dialogs::confirm(this, title, detail,
                          QString::fromStdString(context_.dialogTexts.deleteButton)))
        return;
    deleting_ = true;
    deleteButton_->setEnabled(false);
    //: Settings › Sync: shown while the server copy is being deleted.
    deleteResult_->setText(tr("Deleting the cloud copy…"));
    // The answer may come after the settings window has been closed.
    context_.deleteCloudCopy([page = QPointer<SyncPage>(this)](std::optional<std::string> error) {
        if (page)
            page->finishDelete(error);
    });
}

void SyncPage::finishDelete(const std::optional<std::string>& error) {
    deleting_ = false;
    deleteButton_->setEnabled(true);
    if (error)
        //: Settings › Sync: the server copy could not be deleted; %1 is the reason.
        deleteResult_->setText(
            tr("The cloud copy could not be deleted: %1").arg(QString::fromStdString(*error)));
    else
        //: Settings › Sync: the server copy was deleted.
        deleteResult_->setText(tr("The cloud copy was deleted."));
    showStatus();
}

}  // namespace zettly
