// The row actions of the history window, its chips and its footer.
#include "popup/PopupController.h"
#include "popup/PopupModal.h"

namespace zettly {

using Entry = PopupModel::Entry;

// ---- row actions ------------------------------------------------------------

void PopupController::togglePin(const Entry& entry) {
    std::string id = entry.id();
    if (const ClipboardStore::Item* text = entry.text())
        deps_.texts.setPinned(text->id, !text->pinned);
    else if (const ImageClipStore::Item* image = entry.image())
        deps_.images.setPinned(image->id, !image->pinned);
    model_.reload(id);
}

void PopupController::deleteEntry(const Entry& entry) {
    if (const ClipboardStore::Item* text = entry.text())
        deps_.texts.deleteItem(text->id);
    else if (const ImageClipStore::Item* image = entry.image())
        deps_.images.deleteItem(image->id);
    model_.reload();
}

void PopupController::editText(const Entry& chosen) {
    const Entry entry = chosen;
    const ClipboardStore::Item* text = entry.text();
    if (!text)
        return;
    std::optional<std::string> edited = ask(texts.editTextTitle, std::nullopt, text->text, true);
    if (!edited || *edited == text->text)
        return;
    if (!deps_.texts.updateText(text->id, *edited))
        inform(texts.duplicateText);
    model_.reload();
}

void PopupController::editLabel(const Entry& chosen) {
    const Entry entry = chosen;
    std::optional<std::string> label =
        ask(texts.nameTitle, texts.nameMessage, entry.label().value_or(""), false);
    if (!label)
        return;
    if (const ClipboardStore::Item* text = entry.text())
        deps_.texts.setLabel(text->id, label);
    else if (const ImageClipStore::Item* image = entry.image())
        deps_.images.setLabel(image->id, label);
    model_.reload(entry.id());
}

void PopupController::setCategory(const Entry& entry, const std::optional<std::string>& category) {
    std::string id = entry.id();
    if (const ClipboardStore::Item* text = entry.text())
        deps_.texts.setCategory(text->id, category);
    else if (const ImageClipStore::Item* image = entry.image())
        deps_.images.setCategory(image->id, category);
    model_.reload(id);
}

void PopupController::newCategory(const Entry& chosen) {
    const Entry entry = chosen;
    std::optional<std::string> name = ask(texts.newCategoryTitle, std::nullopt, "", false);
    if (!name || name->empty())
        return;
    if (std::optional<ClipboardStore::Category> made = deps_.texts.createCategory(*name))
        setCategory(entry, made->id);
}

void PopupController::showCategoryMenu(const Entry& chosen) {
    const Entry entry = chosen;
    const std::vector<ClipboardStore::Category> categories = model_.categories();
    std::optional<PopupView::CategoryChoice> choice;
    {
        // A menu grabs the keyboard on X11; the window must not close for it.
        ModalScope modal(modalActive_);
        choice = deps_.view.chooseCategory(entry, categories);
    }
    if (!choice)
        return;
    switch (choice->kind) {
        case PopupView::CategoryChoice::Kind::none:
            setCategory(entry, std::nullopt);
            break;
        case PopupView::CategoryChoice::Kind::category:
            setCategory(entry, choice->categoryId);
            break;
        case PopupView::CategoryChoice::Kind::newCategory:
            newCategory(entry);
            break;
    }
}

// ---- chips and footer -------------------------------------------------------

void PopupController::createCategory() {
    std::optional<std::string> name = ask(texts.newCategoryTitle, std::nullopt, "", false);
    if (!name || name->empty())
        return;
    std::optional<ClipboardStore::Category> made = deps_.texts.createCategory(*name);
    if (!made)
        return;
    model_.reload();
    model_.setFilter(PopupModel::Filter::category(made->id));
}

void PopupController::renameCategory(const std::string& id) {
    std::string current;
    for (const auto& category : model_.categories())
        if (category.id == id)
            current = category.name;
    std::optional<std::string> name = ask(texts.renameCategoryTitle, std::nullopt, current, false);
    if (!name)
        return;
    deps_.texts.renameCategory(id, *name);
    model_.reload();
}

void PopupController::deleteCategory(const std::string& id) {
    std::string name;
    for (const auto& category : model_.categories())
        if (category.id == id)
            name = category.name;
    std::string title = texts.deleteCategoryTitle;
    for (std::size_t at = title.find("%1"); at != std::string::npos;
         at = title.find("%1", at + name.size()))
        title.replace(at, 2, name);
    if (!confirm(title, texts.deleteCategoryDetail, texts.deleteButton))
        return;
    deps_.texts.deleteCategory(id);
    // Images filed there leave it too; the confirmation promised that the
    // category's items stay, just without it.
    deps_.images.detachCategory(id);
    model_.reload();
}

void PopupController::clearHistory() {
    close();
    if (!confirm(texts.clearTitle, texts.clearDetail, texts.clearButton))
        return;
    // "Pinned items stay" is promised for the whole history, images included.
    deps_.texts.clear(true);
    deps_.images.clear(true);
}

}  // namespace zettly
