#include "settings/resolution.h"

ORVO_REGISTER_NODE(TdnResolution)
ORVO_DEPENDENCIES(TdnResolution) {}
