#include "sync/ClipMerge.h"
