#include "host/app_mode.h"

bool gBatchMode = false;
