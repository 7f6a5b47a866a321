#include "host/trace.h"

#include <cstdio>
#include <mutex>

namespace {

struct TraceSinkHolder {
    std::mutex mutex;
    TdbTraceSink sink;
};

TraceSinkHolder& traceSink() {
    static TraceSinkHolder holder;
    return holder;
}

} // namespace

void TdbTrace::print(std::string_view line) const {
    if (!isOn())
        return;
    TraceSinkHolder& holder = traceSink();
    // One lock around the write keeps lines of different threads whole.
    std::lock_guard lock(holder.mutex);
    if (holder.sink) {
        holder.sink(line);
        return;
    }
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fputc('\n', stderr);
}

TdbTraceSink setTdbTraceSink(TdbTraceSink sink) {
    TraceSinkHolder& holder = traceSink();
    std::lock_guard lock(holder.mutex);
    TdbTraceSink previous = std::move(holder.sink);
    holder.sink = std::move(sink);
    return previous;
}
