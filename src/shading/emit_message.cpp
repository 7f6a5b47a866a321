#include "shading/emit_message.h"

#include <cstdio>

void TrenderEmitMessage(const char* text) {
    // stdio locks the stream for the length of one call.
    std::fprintf(stderr, "%s\n", text ? text : "");
}
