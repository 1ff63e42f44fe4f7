#include "popup/PopupGeometry.h"
