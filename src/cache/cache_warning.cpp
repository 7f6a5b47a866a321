#include "cache/cache_warning.h"

#include <cstdio>
#include <mutex>

namespace {

struct WarningSinkHolder {
    std::mutex mutex;
    TcacheWarningSink sink;
};

WarningSinkHolder& warningSink() {
    static WarningSinkHolder holder;
    return holder;
}

struct Message {
    std::string_view id;
    const char* text;
};

// The texts of the swap's messages. Each takes the file name; the open and
// write errors also the reason the file layer gave.
constexpr Message kMessages[] = {
    {"s_TrenderSwapStrings.rSwapOpenErrorStr",
     "Cannot open the render swap file {}: {}. Rendering goes on without swapping."},
    {"s_TrenderSwapStrings.rSwapLimitErrorStr",
     "The render swap file {} has reached its size limit; further data is kept in memory "
     "or dropped."},
    {"s_TrenderSwapStrings.rSwapWriteErrorStr", "Cannot write to the render swap file {}: {}."},
};

} // namespace

void cacheWarning(const std::string& text) {
    WarningSinkHolder& holder = warningSink();
    std::lock_guard lock(holder.mutex);
    if (holder.sink) {
        holder.sink(text);
        return;
    }
    std::fprintf(stderr, "Warning: %s\n", text.c_str());
}

TcacheWarningSink setCacheWarningSink(TcacheWarningSink sink) {
    WarningSinkHolder& holder = warningSink();
    std::lock_guard lock(holder.mutex);
    TcacheWarningSink previous = std::move(holder.sink);
    holder.sink = std::move(sink);
    return previous;
}

std::string cacheMessageText(std::string_view id) {
    for (const Message& message : kMessages) {
        if (message.id == id)
            return message.text;
    }
    return std::string(id);
}
