#include "store/HotKeyCombo.h"
