#include "popup/ui/Texts.h"

#include <QCoreApplication>

namespace zettly {
namespace {

// The translation context of these texts.
class HistoryTexts {
    Q_DECLARE_TR_FUNCTIONS(HistoryTexts)
public:
    static std::string text(const QString& translated) { return translated.toStdString(); }
};

}  // namespace

std::string chipTitle(PopupModel::Filter::Kind kind) {
    using Kind = PopupModel::Filter::Kind;
    switch (kind) {
        case Kind::all:
            //: Filter chip in the history window: everything that is not pinned. Very short (chip).
            return HistoryTexts::text(HistoryTexts::tr("All"));
        case Kind::pinned:
            //: Filter chip in the history window: pinned items. Very short (chip).
            return HistoryTexts::text(HistoryTexts::tr("Pinned"));
        case Kind::text:
            //: Filter chip in the history window: text items (not links). Very short (chip).
            return HistoryTexts::text(HistoryTexts::tr("Text"));
        case Kind::links:
            //: Filter chip in the history window: web links. Very short (chip).
            return HistoryTexts::text(HistoryTexts::tr("Links"));
        case Kind::images:
            //: Filter chip in the history window: images. Very short (chip).
            return HistoryTexts::text(HistoryTexts::tr("Images"));
        case Kind::category:
            break;
    }
    // Category chips show the category's own name; this is never displayed.
    return "?";
}

PopupTexts translatedPopupTexts() {
    PopupTexts t;
    //: Dialog title for editing the text of a clipboard item.
    t.editTextTitle = HistoryTexts::text(HistoryTexts::tr("Edit text"));
    //: Dialog title for giving a clipboard item a short name (label).
    t.nameTitle = HistoryTexts::text(HistoryTexts::tr("Name"));
    //: Message of the name dialog. Give a natural example of a name in your language, with
    //: your language's quotation marks.
    t.nameMessage = HistoryTexts::text(
        HistoryTexts::tr("A short name shown above the item, like \u201cOffice address\u201d."));
    //: Message after editing an item into text that is already in the history.
    t.duplicateText = HistoryTexts::text(HistoryTexts::tr("This text is already in the history."));
    //: Placeholder or dialog title for creating a new category of clipboard items.
    t.newCategoryTitle = HistoryTexts::text(HistoryTexts::tr("New category"));
    //: Dialog title for renaming a category.
    t.renameCategoryTitle = HistoryTexts::text(HistoryTexts::tr("Rename category"));
    //: Confirmation title. %1 is the category name chosen by the user. Use the quotation marks
    //: of your language.
    t.deleteCategoryTitle =
        HistoryTexts::text(HistoryTexts::tr("Delete the category \u201c%1\u201d?"));
    //: Confirmation text when deleting a category.
    t.deleteCategoryDetail = HistoryTexts::text(
        HistoryTexts::tr("Its items stay pinned, just without a category. With sync on, the "
                         "category is deleted on your other devices too."));
    //: Delete button or menu item (removes an item or a category). Short.
    t.deleteButton = HistoryTexts::text(HistoryTexts::tr("Delete"));
    //: Confirmation title before clearing the history.
    t.clearTitle = HistoryTexts::text(HistoryTexts::tr("Clear the clipboard history?"));
    //: Confirmation text before clearing the history.
    t.clearDetail = HistoryTexts::text(
        HistoryTexts::tr("Pinned items and items in categories stay. With sync on, the history "
                         "is cleared on your other devices too."));
    //: Destructive confirm button that clears the history. Short.
    t.clearButton = HistoryTexts::text(HistoryTexts::tr("Clear"));
    return t;
}

}  // namespace zettly
