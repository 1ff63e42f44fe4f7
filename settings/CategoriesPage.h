#pragma once

#include <QWidget>
#include <string>
#include <vector>

#include "settings/SettingsContext.h"

class QLabel;
class QPushButton;
class QTreeWidget;
class QTreeWidgetItem;

namespace zettly {

// Settings › Categories: the user's categories in their order, each with the
// number of items (texts and images) filed in it. New, rename in place
// (double-click or F2), delete after the same confirmation as the history
// window's chip, and reorder by dragging; the history window's chips follow
// the new order.
class CategoriesPage : public QWidget {
    Q_OBJECT
public:
    explicit CategoriesPage(SettingsContext& context, QWidget* parent = nullptr);

    // Reads the categories and counts again, keeping the selection.
    void reload();

    // The actions behind the buttons, keys and drops. Each writes to the
    // store at once and reloads.
    void createCategory();  // asks for the name
    void renameCategory(const std::string& id, const QString& typed);
    void deleteCategory(const std::string& id);  // asks to confirm
    // `row` is where the category is dropped, counted before it leaves its
    // old place (0 = first, the number of categories = last).
    void moveCategory(const std::string& id, int row);

private:
    std::string selectedId() const;
    void select(const std::string& id);
    void updateButtons();
    void storeOrder(const std::vector<std::string>& ids);

    SettingsContext& context_;
    QTreeWidget* tree_;
    QLabel* emptyNote_;
    QPushButton* renameButton_;
    QPushButton* deleteButton_;
};

}  // namespace zettly
