#include "host/hash.h"

#include <OpenImageIO/hash.h>

uint32_t ThashFunction::hash32(const void* data, size_t length, uint32_t seed) {
    return OIIO::bjhash::hashlittle(data, length, seed);
}
