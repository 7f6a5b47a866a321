#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <string_view>

#include <fmt/format.h>

// Developer traces: named switches, off by default, usually turned on from an
// environment setting read once at load. A trace that is on writes whole lines
// to the trace sink, standard error unless a test has put its own in place.

class TdbTrace {
public:
    explicit TdbTrace(std::string name, bool on = false) : fName(std::move(name)), fOn(on) {}
    TdbTrace(const TdbTrace&) = delete;
    TdbTrace& operator=(const TdbTrace&) = delete;

    const std::string& name() const { return fName; }
    bool isOn() const { return fOn.load(std::memory_order_relaxed); }
    void setOn(bool on) { fOn.store(on, std::memory_order_relaxed); }

    // Writes one line when the trace is on.
    void print(std::string_view line) const;

    template <typename... Args>
    void printf(fmt::format_string<Args...> format, Args&&... args) const {
        if (isOn())
            print(fmt::format(format, std::forward<Args>(args)...));
    }

private:
    std::string fName;
    std::atomic<bool> fOn;
};

// A scope of work that reports on a trace: test it to see whether the trace is
// on, so that the cost of building a message is only paid when it is shown.
class TdbTraceSection {
public:
    explicit TdbTraceSection(const TdbTrace& trace) : fTrace(trace), fOn(trace.isOn()) {}

    explicit operator bool() const { return fOn; }
    bool isOn() const { return fOn; }

    void print(std::string_view line) const {
        if (fOn)
            fTrace.print(line);
    }

    template <typename... Args>
    void printf(fmt::format_string<Args...> format, Args&&... args) const {
        if (fOn)
            fTrace.print(fmt::format(format, std::forward<Args>(args)...));
    }

private:
    const TdbTrace& fTrace;
    bool fOn;
};

// Receives every trace line, without its line end. An empty function restores
// the default sink, which writes the line and a newline to standard error.
// Returns the sink that was in place.
using TdbTraceSink = std::function<void(std::string_view)>;
TdbTraceSink setTdbTraceSink(TdbTraceSink sink);
