// Numbers in environment settings are written by people: the parsers must
// take anything without reading past the text or misbehaving on overflow.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "host/env.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto integer = OrvoParseInteger(text);
    const auto real = OrvoParseDouble(text);
    // Anything that reads as a whole number reads as a number too, and the
    // same one (within double precision).
    if (integer) {
        if (!real)
            std::abort();
        if (std::fabs(static_cast<double>(*integer) - *real) > 1e-6 * std::fabs(*real) + 1e-9)
            std::abort();
    }
    return 0;
}
