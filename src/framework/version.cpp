#include "framework/version.h"

#include "host/version_config.h"

const char* OrvoRenderModelVersion() {
    return ORVO_VERSION_STRING;
}
