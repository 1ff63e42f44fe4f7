#include "popup/TextSearch.h"
