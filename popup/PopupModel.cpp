#include "popup/PopupModel.h"
