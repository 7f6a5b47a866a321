#include "cache/cache_warning.h"

#include <mutex>

#include "host/messages.h"

namespace {

struct WarningSinkHolder {
    std::mutex mutex;
    TcacheWarningSink sink;
};

WarningSinkHolder& warningSink() {
    static WarningSinkHolder holder;
    return holder;
}

} // namespace

void cacheWarning(const std::string& text) {
    WarningSinkHolder& holder = warningSink();
    std::lock_guard lock(holder.mutex);
    if (holder.sink) {
        holder.sink(text);
        return;
    }
    TcommandEngine::displayWarning(text);
}

TcacheWarningSink setCacheWarningSink(TcacheWarningSink sink) {
    WarningSinkHolder& holder = warningSink();
    std::lock_guard lock(holder.mutex);
    TcacheWarningSink previous = std::move(holder.sink);
    holder.sink = std::move(sink);
    return previous;
}

std::string cacheMessageText(std::string_view id) {
    return TstringId(id).text();
}
