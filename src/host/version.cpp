#include "host/version.h"

#include "host/version_config.h"

const char* OrvoHostVersion() {
    return ORVO_VERSION_STRING;
}
