#include "textures/pyramid_messages.h"

#include <cstdio>
#include <mutex>

namespace {

struct ReportSinkHolder {
    std::mutex mutex;
    TpyramidReportSink sink;
};

ReportSinkHolder& reportSink() {
    // Never destroyed: a thread may still report while the process exits.
    static ReportSinkHolder* const holder = new ReportSinkHolder;
    return *holder;
}

} // namespace

void pyramidReport(const std::string& text) {
    ReportSinkHolder& holder = reportSink();
    std::lock_guard lock(holder.mutex);
    if (holder.sink) {
        holder.sink(text);
        return;
    }
    std::fputs(text.c_str(), stderr);
    std::fflush(stderr);
}

TpyramidReportSink setPyramidReportSink(TpyramidReportSink sink) {
    ReportSinkHolder& holder = reportSink();
    std::lock_guard lock(holder.mutex);
    TpyramidReportSink previous = std::move(holder.sink);
    holder.sink = std::move(sink);
    return previous;
}
