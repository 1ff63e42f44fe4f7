#pragma once

#include <string>

namespace zettly {

// Texts the controller shows in dialogs. English by default; the Qt front
// end fills them with translations.
struct PopupTexts {
    std::string editTextTitle = "Edit text";
    std::string nameTitle = "Name";
    std::string nameMessage = "A short name shown above the item, like \u201cOffice address\u201d.";
    std::string duplicateText = "This text is already in the history.";
    std::string newCategoryTitle = "New category";
    std::string renameCategoryTitle = "Rename category";
    // "%1" stands for the category's name.
    std::string deleteCategoryTitle = "Delete the category \u201c%1\u201d?";
    std::string deleteCategoryDetail =
        "Its items stay pinned, just without a category. With sync on, the category is deleted "
        "on your other devices too.";
    std::string deleteButton = "Delete";
    std::string clearTitle = "Clear the clipboard history?";
    std::string clearDetail =
        "Pinned items and items in categories stay. With sync on, the history is cleared on "
        "your other devices too.";
    std::string clearButton = "Clear";
};

}  // namespace zettly
