#include "ui/Dialogs.h"

#include <QCoreApplication>
#include <QDialog>
#include <QDialogButtonBox>
#include <QGridLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "ui/Look.h"

namespace zettly::dialogs {
namespace {

class DialogTexts {
    Q_DECLARE_TR_FUNCTIONS(DialogTexts)
public:
    //: Button that saves the edited text or name. Short.
    static QString save() { return tr("Save"); }
    //: Cancel button in a dialog. Short.
    static QString cancel() { return tr("Cancel"); }
    //: Under the box of the "Edit text" dialog: the keys that save without reaching for the
    //: mouse. The placeholder is the key combination, e.g. Ctrl+Return.
    static QString saveKeys(const QString& keys) { return tr("%1 saves").arg(keys); }
};

// Above the history window, which stays on top itself, and with the keyboard.
int run(QDialog& dialog) {
    dialog.setWindowFlag(Qt::WindowStaysOnTopHint);
    dialog.setWindowModality(Qt::ApplicationModal);
    dialog.show();
    dialog.raise();
    dialog.activateWindow();
    return dialog.exec();
}

QLabel* wrappingLabel(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setWordWrap(true);
    label->setTextFormat(Qt::PlainText);
    return label;
}

// The text box takes Ctrl+Return for itself before any shortcut sees it;
// this saves instead.
class SaveOnCtrlReturn : public QObject {
public:
    explicit SaveOnCtrlReturn(QDialog* dialog) : QObject(dialog), dialog_(dialog) {}

protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::KeyPress) {
            const auto* key = static_cast<QKeyEvent*>(event);
            if (key->modifiers() == Qt::ControlModifier &&
                (key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter)) {
                dialog_->accept();
                return true;
            }
        }
        return QObject::eventFilter(watched, event);
    }

private:
    QDialog* dialog_;
};

QLabel* secondaryLabel(const QString& text, QWidget* parent) {
    QLabel* label = wrappingLabel(text, parent);
    QPalette pal = label->palette();
    pal.setColor(QPalette::WindowText, look::secondaryText(pal));
    label->setPalette(pal);
    return label;
}

}  // namespace

std::optional<QString> ask(QWidget* parent, const QString& title,
                           const std::optional<QString>& message, const QString& value,
                           bool multiline) {
    QDialog dialog(parent, Qt::Dialog);
    // The title is the heading inside; the frame names the app, as the
    // confirmations do, rather than saying it twice.
    dialog.setWindowTitle(QStringLiteral("Zettly"));
    auto* layout = new QVBoxLayout(&dialog);
    layout->setContentsMargins(18, 16, 18, 14);
    layout->setSpacing(8);
    QLabel* heading = wrappingLabel(title, &dialog);
    QFont bold = heading->font();
    bold.setBold(true);
    heading->setFont(bold);
    layout->addWidget(heading);
    if (message)
        layout->addWidget(secondaryLabel(*message, &dialog));

    QLineEdit* line = nullptr;
    QPlainTextEdit* box = nullptr;
    if (multiline) {
        box = new QPlainTextEdit(value, &dialog);
        box->setMinimumSize(340, 160);
        box->selectAll();
        layout->addWidget(box, 1);
        const QKeySequence saveKeys(QKeyCombination(Qt::ControlModifier, Qt::Key_Return));
        QLabel* hint = secondaryLabel(
            DialogTexts::saveKeys(saveKeys.toString(QKeySequence::NativeText)), &dialog);
        hint->setFont(look::scaledFont(hint->font(), 0.86));
        layout->addWidget(hint);
    } else {
        line = new QLineEdit(value, &dialog);
        line->setMinimumSize(280, 24);
        line->selectAll();
        layout->addWidget(line);
    }

    auto* buttons = new QDialogButtonBox(&dialog);
    QPushButton* save = buttons->addButton(DialogTexts::save(), QDialogButtonBox::AcceptRole);
    buttons->addButton(DialogTexts::cancel(), QDialogButtonBox::RejectRole);
    save->setDefault(true);
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    layout->addSpacing(4);
    layout->addWidget(buttons);
    if (box)
        box->installEventFilter(new SaveOnCtrlReturn(&dialog));

    if (box)
        box->setFocus();
    else
        line->setFocus();
    if (run(dialog) != QDialog::Accepted)
        return std::nullopt;
    return box ? box->toPlainText() : line->text();
}

void inform(QWidget* parent, const QString& message) {
    QMessageBox box(QMessageBox::Information, QStringLiteral("Zettly"), message, QMessageBox::Ok,
                    parent);
    run(box);
}

bool confirm(QWidget* parent, const QString& title, const QString& detail, const QString& button) {
    QMessageBox box(QMessageBox::Warning, QStringLiteral("Zettly"), QString(),
                    QMessageBox::NoButton, parent);
    // The title in bold, as a heading; a category name in it stays text.
    box.setTextFormat(Qt::RichText);
    box.setText(QStringLiteral("<b>%1</b>").arg(title.toHtmlEscaped()));
    box.setInformativeText(detail);
    // Wide enough that two sentences of detail do not become a narrow column.
    if (auto* grid = qobject_cast<QGridLayout*>(box.layout()))
        grid->addItem(new QSpacerItem(360, 0, QSizePolicy::Minimum, QSizePolicy::Fixed),
                      grid->rowCount(), 0, 1, grid->columnCount());
    QPushButton* yes = box.addButton(button, QMessageBox::DestructiveRole);
    QPushButton* cancel = box.addButton(DialogTexts::cancel(), QMessageBox::RejectRole);
    // Return must not destroy anything by accident; Escape cancels.
    box.setDefaultButton(cancel);
    box.setEscapeButton(cancel);
    run(box);
    return box.clickedButton() == yes;
}

}  // namespace zettly::dialogs
