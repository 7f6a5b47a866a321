#include "render/version.h"

#include "host/version_config.h"

const char* OrvoRenderVersion() {
    return ORVO_VERSION_STRING;
}
