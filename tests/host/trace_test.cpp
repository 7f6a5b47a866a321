#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/trace.h"

namespace {

class TraceCapture {
public:
    TraceCapture() {
        fPrevious = setTdbTraceSink([this](std::string_view line) { lines.emplace_back(line); });
    }
    ~TraceCapture() { setTdbTraceSink(std::move(fPrevious)); }
    std::vector<std::string> lines;

private:
    TdbTraceSink fPrevious;
};

TEST(Trace, OnlyASwitchedOnTracePrints) {
    TraceCapture capture;
    TdbTrace trace("TEST_TRACE");
    trace.print("hidden");
    trace.printf("hidden {}", 1);
    EXPECT_TRUE(capture.lines.empty());

    trace.setOn(true);
    trace.print("shown");
    trace.printf("size {} of {}", 42, "cache");
    {
        TdbTraceSection section(trace);
        ASSERT_TRUE(section);
        section.printf("in section {}", 7);
    }
    trace.setOn(false);
    TdbTraceSection off(trace);
    EXPECT_FALSE(off);
    off.print("hidden");

    const std::vector<std::string> expected = {"shown", "size 42 of cache", "in section 7"};
    EXPECT_EQ(capture.lines, expected);
    EXPECT_EQ(trace.name(), "TEST_TRACE");
}

} // namespace
