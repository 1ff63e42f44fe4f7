#pragma once

#include <QWidget>
#include <vector>

#include "platform/PasteChord.h"

class QComboBox;
class QGridLayout;
class QLabel;
class QLineEdit;
class QPushButton;
class QToolButton;

namespace zettly {

struct SettingsContext;
class RunningAppsButton;

// Settings › General › paste keys: the keys Zettly presses to paste into
// particular applications, for one that pastes nothing with the keys its
// kind of application usually takes. One row per choice, in the order
// stored; every change is stored at once.
class PasteKeysBox : public QWidget {
    Q_OBJECT
public:
    explicit PasteKeysBox(SettingsContext& context, QWidget* parent = nullptr);

    // Shows the stored choices again.
    void reload();
    // Adds a row for `appId` (trimmed) with the keys it is pasted with now,
    // so that adding alone changes nothing; the user then picks others in
    // the row, which gets the keyboard. An application already listed (in
    // any case, as the paste compares) keeps its row, which gets it instead.
    void addApp(const QString& appId);

    // How the keys read to the user, e.g. "Ctrl+Shift+V".
    static QString keysName(PasteChord chord);

    int rowCount() const { return static_cast<int>(rows_.size()); }
    QString appIdAt(int row) const;
    QComboBox* keysPicker(int row) const;
    QToolButton* removeButton(int row) const;
    QLineEdit* appField() const { return appField_; }
    QPushButton* addButton() const { return addButton_; }
    RunningAppsButton* runningAppsButton() const { return runningAppsButton_; }

private:
    struct Row {
        QLabel* app;
        QComboBox* keys;
        QToolButton* remove;
    };
    void addRow(const PasteChordChoice& choice);
    void setKeys(const std::string& appId, PasteChord chord);
    void remove(const std::string& appId);
    int rowOf(const std::string& appId) const;

    SettingsContext& context_;
    QGridLayout* grid_;
    std::vector<Row> rows_;
    QLineEdit* appField_;
    QPushButton* addButton_;
    RunningAppsButton* runningAppsButton_;
};

}  // namespace zettly
