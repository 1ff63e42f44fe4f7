// Settings › Sync: the strength hint under the passphrase, and the dialog
// that changes the passphrase on the server.
#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTimer>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "settings/PassphraseDialog.h"
#include "settings/SettingsContext.h"
#include "settings/StrengthMeter.h"
#include "settings/SyncServerBox.h"
#include "store/ClipboardStore.h"
#include "store/ImageClipStore.h"
#include "store/PrefKeys.h"
#include "tests/fakes/StoreFixture.h"

namespace zettly {
namespace {

class SyncPassphraseTest : public ::testing::Test {
protected:
    SyncPassphraseTest() {
        context.syncServer = {
            .readSecret = [this](SyncSecret which) -> std::optional<std::string> {
                return secrets.contains(which) ? std::optional(secrets[which]) : std::nullopt;
            },
            .writeSecret =
                [this](SyncSecret which, const std::string& value) {
                    secrets[which] = value;
                    return true;
                },
            .changePassphrase =
                [this](const std::string& passphrase, auto done) {
                    requested.push_back(passphrase);
                    pending = std::move(done);
                },
        };
    }

    test::StoreEnvironment env;
    ClipboardStore texts{env.context()};
    ImageClipStore images{env.context()};
    SettingsContext context{.defaults = env.defaults, .texts = texts, .images = images};
    std::map<SyncSecret, std::string> secrets{{SyncSecret::passphrase, "old phrase in use"}};
    std::vector<std::string> requested;
    std::function<void(std::optional<std::string>)> pending;
};

TEST_F(SyncPassphraseTest, TheDialogRefusesWeakMismatchedAndUnchangedPassphrasesAndSendsAGoodOne) {
    PassphraseDialog dialog(context);
    auto attempt = [&](const QString& first, const QString& second) {
        dialog.newField()->setText(first);
        dialog.repeatField()->setText(second);
        dialog.changeButton()->click();
        return dialog.problem()->isVisibleTo(&dialog) ? dialog.problem()->text() : QString();
    };

    EXPECT_EQ(attempt("", ""), "Enter the new passphrase.");
    EXPECT_EQ(attempt("qwertyuiop", "qwertyuiop"),
              "This passphrase is too easy to guess. It is a run of neighbouring keys.");
    EXPECT_EQ(dialog.meter()->wordLabel()->text(), "Too weak");
    EXPECT_TRUE(attempt("P@ssw0rd2024", "P@ssw0rd2024").startsWith("This passphrase is too easy"));
    EXPECT_EQ(attempt("velvet kettle orbit marsh", "velvet kettle orbit mars"),
              "The two passphrases differ. Type the same one in both fields.");
    EXPECT_EQ(dialog.meter()->wordLabel()->text(), "Very strong");
    secrets[SyncSecret::passphrase] = "velvet kettle orbit marsh";
    EXPECT_EQ(attempt("velvet kettle orbit marsh", "velvet kettle orbit marsh"),
              "This is the passphrase in use already.");
    EXPECT_TRUE(requested.empty());

    secrets[SyncSecret::passphrase] = "old phrase in use";
    EXPECT_EQ(attempt("velvet kettle orbit marsh", "velvet kettle orbit marsh"), "");
    EXPECT_EQ(requested, std::vector<std::string>{"velvet kettle orbit marsh"});
    EXPECT_TRUE(dialog.changing());
    EXPECT_FALSE(dialog.changeButton()->isEnabled());
    dialog.changeButton()->click();  // no second request while the first runs
    EXPECT_EQ(requested.size(), 1u);

    // A failure leaves it open to try again; success ends it.
    pending("The sync server cannot be reached.");
    EXPECT_TRUE(dialog.result()->text().contains("cannot be reached"));
    EXPECT_TRUE(dialog.changeButton()->isEnabled());
    EXPECT_FALSE(dialog.changed());
    dialog.changeButton()->click();
    ASSERT_EQ(requested.size(), 2u);
    pending(std::nullopt);
    EXPECT_TRUE(dialog.changed());
    EXPECT_TRUE(dialog.result()->text().startsWith("The passphrase was changed."));
    EXPECT_FALSE(dialog.changeButton()->isVisibleTo(&dialog));
}

TEST_F(SyncPassphraseTest, TheServerBoxRatesThePassphraseAndOffersAChangeOnlyForAServerSetUp) {
    SyncServerBox box(context);
    EXPECT_FALSE(box.changePassphraseButton()->isEnabled()) << "no address or user yet";
    env.defaults.setString(prefkey::syncServerURL, "https://couch.example.org/zettly");
    env.defaults.setString(prefkey::syncServerUser, "ann");
    box.reload();
    EXPECT_TRUE(box.changePassphraseButton()->isEnabled());

    // A hint, not a refusal: a weak passphrase is still kept.
    box.passphraseField()->setText("letmein");
    Q_EMIT box.passphraseField()->editingFinished();
    EXPECT_EQ(secrets[SyncSecret::passphrase], "letmein");
    EXPECT_EQ(box.meter()->wordLabel()->text(), "Too weak");
    box.passphraseField()->setText("gravel sonnet ember quilt");
    EXPECT_EQ(box.meter()->wordLabel()->text(), "Very strong");
    box.passphraseField()->clear();
    Q_EMIT box.passphraseField()->editingFinished();
    EXPECT_FALSE(box.meter()->isVisibleTo(&box));
    EXPECT_FALSE(box.changePassphraseButton()->isEnabled()) << "no passphrase to change";

    // Without a hook (no sync backend) there is no button.
    context.syncServer.changePassphrase = nullptr;
    SyncServerBox bare(context);
    EXPECT_FALSE(bare.changePassphraseButton()->isVisibleTo(&bare));
}

}  // namespace
}  // namespace zettly
