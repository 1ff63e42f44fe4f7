#include "popup/PopupController.h"
