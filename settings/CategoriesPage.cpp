#include "settings/CategoriesPage.h"

#include <QDrag>
#include <QDragEnterEvent>
#include <QDragMoveEvent>
#include <QDropEvent>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QMimeData>
#include <QPushButton>
#include <QTimer>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <algorithm>
#include <functional>
#include <map>
#include <optional>

#include "platform/Defaults.h"
#include "platform/Unicode.h"
#include "settings/PageParts.h"
#include "store/ChipOrder.h"
#include "store/ClipboardStore.h"
#include "store/ImageClipStore.h"
#include "store/PrefKeys.h"
#include "ui/Dialogs.h"
#include "ui/Look.h"

namespace zettly {
namespace {

constexpr int idRole = Qt::UserRole;
constexpr int nameColumn = 0;
constexpr int countColumn = 1;

// Only our own rows are taken; a text dragged in from elsewhere is not a
// category.
const QString& mimeType() {
    static const QString type = QStringLiteral("application/x-zettly-category");
    return type;
}

// A flat list whose rows move by dragging: the drag carries the category's
// id and the drop hands id and place to the page, which reorders the store
// and reloads. The rows themselves never move on their own, so what is shown
// is always what is stored.
class CategoryTree final : public QTreeWidget {
public:
    explicit CategoryTree(QWidget* parent) : QTreeWidget(parent) {
        setColumnCount(2);
        setRootIsDecorated(false);
        setUniformRowHeights(true);
        setSelectionMode(QAbstractItemView::SingleSelection);
        setSelectionBehavior(QAbstractItemView::SelectRows);
        setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed);
        setDragEnabled(true);
        setAcceptDrops(true);
        setDropIndicatorShown(true);
        setDragDropMode(QAbstractItemView::DragDrop);
        header()->setStretchLastSection(false);
        header()->setSectionResizeMode(nameColumn, QHeaderView::Stretch);
        header()->setSectionResizeMode(countColumn, QHeaderView::ResizeToContents);
    }

    std::function<void(const std::string& id, int row)> onMove;
    std::function<void()> onDeleteKey;

    // The row a drop at `pos` lands in: before the row under it when in its
    // upper half, after it otherwise, last below every row.
    int dropRow(QPoint pos) const {
        QTreeWidgetItem* over = itemAt(pos);
        if (!over)
            return pos.y() < 0 ? 0 : topLevelItemCount();
        const int row = indexOfTopLevelItem(over);
        return pos.y() < visualItemRect(over).center().y() ? row : row + 1;
    }

protected:
    QStringList mimeTypes() const override { return {mimeType()}; }

    // A double-click on the count renames too: only the name is editable.
    bool edit(const QModelIndex& index, EditTrigger trigger, QEvent* event) override {
        return QTreeWidget::edit(index.siblingAtColumn(nameColumn), trigger, event);
    }

    void startDrag(Qt::DropActions) override {
        QTreeWidgetItem* item = currentItem();
        if (!item)
            return;
        auto* mime = new QMimeData;
        mime->setData(mimeType(), item->data(nameColumn, idRole).toString().toUtf8());
        auto* drag = new QDrag(this);  // Qt deletes it when the drag ends
        drag->setMimeData(mime);
        QRect row = visualItemRect(item);
        row.setLeft(0);
        row.setRight(viewport()->width() - 1);
        drag->setPixmap(viewport()->grab(row));
        drag->setHotSpot(viewport()->mapFromGlobal(QCursor::pos()) - row.topLeft());
        drag->exec(Qt::MoveAction);
    }

    void dragEnterEvent(QDragEnterEvent* event) override {
        if (!event->mimeData()->hasFormat(mimeType())) {
            event->ignore();
            return;
        }
        QTreeWidget::dragEnterEvent(event);
        event->setDropAction(Qt::MoveAction);
        event->accept();
    }

    void dragMoveEvent(QDragMoveEvent* event) override {
        if (!event->mimeData()->hasFormat(mimeType())) {
            event->ignore();
            return;
        }
        // Autoscroll and the line between rows come from the base class.
        QTreeWidget::dragMoveEvent(event);
        event->setDropAction(Qt::MoveAction);
        event->accept();
    }

    void dropEvent(QDropEvent* event) override {
        stopAutoScroll();
        setState(NoState);
        viewport()->update();
        if (!event->mimeData()->hasFormat(mimeType())) {
            event->ignore();
            return;
        }
        const std::string id = event->mimeData()->data(mimeType()).toStdString();
        const int row = dropRow(event->position().toPoint());
        event->setDropAction(Qt::MoveAction);
        event->accept();
        if (onMove)
            onMove(id, row);
    }

    void keyPressEvent(QKeyEvent* event) override {
        if ((event->key() == Qt::Key_Delete || event->key() == Qt::Key_Backspace) &&
            state() != EditingState && onDeleteKey) {
            onDeleteKey();
            return;
        }
        QTreeWidget::keyPressEvent(event);
    }
};

std::optional<ClipboardStore::Category> findCategory(
    const std::vector<ClipboardStore::Category>& categories, const std::string& id) {
    for (const auto& category : categories)
        if (category.id == id)
            return category;
    return std::nullopt;
}

QString nameTakenMessage(const std::string& name) {
    //: Settings › Categories: message when a new or renamed category would get a name that
    //: another category has. %1 is that category's name. Use the quotation marks of your language.
    return CategoriesPage::tr("There is already a category called \u201c%1\u201d.")
        .arg(QString::fromStdString(name));
}

}  // namespace

CategoriesPage::CategoriesPage(SettingsContext& context, QWidget* parent)
    : QWidget(parent), context_(context) {
    auto* layout = new QVBoxLayout(this);

    auto* tree = new CategoryTree(this);
    tree_ = tree;
    tree_->setObjectName(QStringLiteral("categoryList"));
    tree_->setHeaderLabels({
        //: Settings › Categories: column with the category names.
        tr("Name"),
        //: Settings › Categories: column with the number of items in each category.
        tr("Items"),
    });
    layout->addWidget(tree_, 1);

    //: Settings › Categories: shown when the user has no categories yet.
    emptyNote_ = pageparts::noteLabel(
        tr("No categories yet. Categories keep items you need again and again, "
           "like addresses or replies, together."),
        this);
    layout->addWidget(emptyNote_);

    //: Settings › Categories: hint under the list of categories.
    layout->addWidget(
        pageparts::noteLabel(tr("Drag a category to change the order; the filters of the "
                                "history window follow it. Double-click a name to rename it."),
                             this));

    auto* buttons = new QHBoxLayout;
    //: Settings › Categories: button that creates a new category (opens a name dialog).
    auto* newButton = new QPushButton(tr("New Category…"), this);
    newButton->setObjectName(QStringLiteral("newCategoryButton"));
    //: Settings › Categories: button that starts renaming the selected category.
    renameButton_ = new QPushButton(tr("Rename"), this);
    renameButton_->setObjectName(QStringLiteral("renameCategoryButton"));
    //: Settings › Categories: button that deletes the selected category (asks first).
    deleteButton_ = new QPushButton(tr("Delete…"), this);
    deleteButton_->setObjectName(QStringLiteral("deleteCategoryButton"));
    buttons->addWidget(newButton);
    buttons->addWidget(renameButton_);
    buttons->addWidget(deleteButton_);
    buttons->addStretch(1);
    layout->addLayout(buttons);

    connect(newButton, &QPushButton::clicked, this, [this] { createCategory(); });
    connect(renameButton_, &QPushButton::clicked, this, [this] {
        if (QTreeWidgetItem* item = tree_->currentItem())
            tree_->editItem(item, nameColumn);
    });
    connect(deleteButton_, &QPushButton::clicked, this, [this] {
        if (std::string id = selectedId(); !id.empty())
            deleteCategory(id);
    });
    connect(tree_, &QTreeWidget::itemSelectionChanged, this, [this] { updateButtons(); });
    // The name was edited in place. Handled once the editor has closed: the
    // answer may reload the list or show a message, neither of which may
    // happen while the editor is still committing.
    connect(tree_, &QTreeWidget::itemChanged, this, [this](QTreeWidgetItem* item, int column) {
        if (column != nameColumn)
            return;
        std::string id = item->data(nameColumn, idRole).toString().toStdString();
        QString typed = item->text(nameColumn);
        QTimer::singleShot(0, this, [this, id, typed] { renameCategory(id, typed); });
    });
    tree->onMove = [this](const std::string& id, int row) { moveCategory(id, row); };
    tree->onDeleteKey = [this] {
        if (std::string id = selectedId(); !id.empty())
            deleteCategory(id);
    };

    reload();
}

void CategoriesPage::reload() {
    const std::string keep = selectedId();
    const std::vector<ClipboardStore::Category> categories = context_.texts.categories();
    std::map<std::string, std::int64_t> counts = context_.texts.categoryCounts();
    // Images filed in a category count as its items too, as the history
    // window lists them under its chip.
    for (const ImageClipStore::Item& image : context_.images.fetchAll())
        if (image.category)
            ++counts[*image.category];

    {
        const QSignalBlocker quiet(tree_);
        tree_->clear();
        for (const auto& category : categories) {
            auto* item = new QTreeWidgetItem(tree_);
            item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsEditable |
                           Qt::ItemIsDragEnabled);
            item->setText(nameColumn, QString::fromStdString(category.name));
            item->setData(nameColumn, idRole, QString::fromStdString(category.id));
            const auto count = counts.find(category.id);
            const int n = count == counts.end() ? 0 : static_cast<int>(count->second);
            //: Settings › Categories: number of items in a category.
            item->setText(countColumn, tr("%n items", "", n));
            item->setTextAlignment(countColumn, Qt::AlignRight | Qt::AlignVCenter);
        }
    }
    emptyNote_->setVisible(categories.empty());
    select(keep);
    updateButtons();
}

void CategoriesPage::createCategory() {
    const PopupTexts& texts = context_.dialogTexts;
    std::optional<QString> typed = dialogs::ask(
        this, QString::fromStdString(texts.newCategoryTitle), std::nullopt, QString(), false);
    if (!typed)
        return;
    const std::string name =
        unicode::oneLineName(typed->toStdString(), ClipboardStore::maxCategoryNameCharacters);
    if (name.empty())
        return;
    const std::vector<ClipboardStore::Category> before = context_.texts.categories();
    std::optional<ClipboardStore::Category> made = context_.texts.createCategory(name);
    reload();
    if (!made) {
        //: Settings › Categories: message when a new category could not be stored (e.g. the
        //: database cannot be opened).
        dialogs::inform(this, tr("The category could not be saved."));
        return;
    }
    select(made->id);
    // The store answers a name it already knows (in any case) with that
    // category instead of making a second one.
    if (findCategory(before, made->id)) {
        dialogs::inform(this, nameTakenMessage(made->name));
    }
}

void CategoriesPage::renameCategory(const std::string& id, const QString& typed) {
    const std::vector<ClipboardStore::Category> categories = context_.texts.categories();
    const std::optional<ClipboardStore::Category> current = findCategory(categories, id);
    const std::string name =
        unicode::oneLineName(typed.toStdString(), ClipboardStore::maxCategoryNameCharacters);
    // An empty name keeps the old one, as in the history window.
    if (!current || name.empty() || name == current->name) {
        reload();
        return;
    }
    const std::string wanted = unicode::lowercased(name);
    for (const auto& other : categories) {
        if (other.id != id && unicode::lowercased(other.name) == wanted) {
            reload();
            dialogs::inform(this, nameTakenMessage(other.name));
            return;
        }
    }
    context_.texts.renameCategory(id, name);
    reload();
}

void CategoriesPage::deleteCategory(const std::string& id) {
    const std::optional<ClipboardStore::Category> category =
        findCategory(context_.texts.categories(), id);
    if (!category) {
        reload();
        return;
    }
    const PopupTexts& texts = context_.dialogTexts;
    const QString title = QString::fromStdString(texts.deleteCategoryTitle)
                              .arg(QString::fromStdString(category->name));
    if (!dialogs::confirm(this, title, QString::fromStdString(texts.deleteCategoryDetail),
                          QString::fromStdString(texts.deleteButton)))
        return;
    context_.texts.deleteCategory(id);
    // Its images leave it too, as when the chip is deleted in the history
    // window: the confirmation promised that the items stay.
    context_.images.detachCategory(id);
    reload();
}

void CategoriesPage::moveCategory(const std::string& id, int row) {
    std::vector<std::string> ids;
    for (const auto& category : context_.texts.categories())
        ids.push_back(category.id);
    auto from = std::find(ids.begin(), ids.end(), id);
    if (from == ids.end() || row < 0) {
        reload();
        return;
    }
    const int fromRow = static_cast<int>(from - ids.begin());
    // Dropped below its old place, it lands one higher once it is gone there.
    int to = std::min(row, static_cast<int>(ids.size()));
    if (to > fromRow)
        --to;
    if (to == fromRow)
        return;
    ids.erase(from);
    ids.insert(ids.begin() + to, id);
    storeOrder(ids);
    reload();
    select(id);
}

void CategoriesPage::storeOrder(const std::vector<std::string>& ids) {
    // A chip order the user once arranged in the history window lists the
    // categories too; left alone it would put them back at the next drag
    // there. Saving it through ChipOrder also reorders the store. Without a
    // stored chip order the chips already follow the store's order.
    if (context_.defaults.contains(prefkey::clipboardChipOrder)) {
        ChipOrder chips(context_.defaults, context_.texts);
        std::vector<std::string> keys = chips.current(context_.texts.categories());
        const auto categoryKeys = std::count_if(
            keys.begin(), keys.end(),
            [](const std::string& key) { return key.starts_with(ChipOrder::categoryPrefix); });
        if (static_cast<std::size_t>(categoryKeys) == ids.size()) {
            std::size_t next = 0;
            for (std::string& key : keys)
                if (key.starts_with(ChipOrder::categoryPrefix))
                    key = std::string(ChipOrder::categoryPrefix) + ids[next++];
            chips.save(keys);
            return;
        }
    }
    context_.texts.reorderCategories(ids);
}

std::string CategoriesPage::selectedId() const {
    const QList<QTreeWidgetItem*> selected = tree_->selectedItems();
    if (selected.isEmpty())
        return {};
    return selected.front()->data(nameColumn, idRole).toString().toStdString();
}

void CategoriesPage::select(const std::string& id) {
    if (id.empty())
        return;
    for (int row = 0; row < tree_->topLevelItemCount(); ++row) {
        QTreeWidgetItem* item = tree_->topLevelItem(row);
        if (item->data(nameColumn, idRole).toString().toStdString() == id) {
            tree_->setCurrentItem(item);
            return;
        }
    }
}

void CategoriesPage::updateButtons() {
    const bool any = !selectedId().empty();
    renameButton_->setEnabled(any);
    deleteButton_->setEnabled(any);
}

}  // namespace zettly
