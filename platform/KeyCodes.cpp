#include "platform/Keyboard.h"
