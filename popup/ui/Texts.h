#pragma once

#include <string>

#include "popup/PopupModel.h"
#include "popup/PopupTexts.h"

namespace zettly {

// The translated titles of the built-in filter chips; the application hands
// this to the controller as the model's title function.
std::string chipTitle(PopupModel::Filter::Kind kind);

// The controller's dialog texts in the user's language.
PopupTexts translatedPopupTexts();

}  // namespace zettly
