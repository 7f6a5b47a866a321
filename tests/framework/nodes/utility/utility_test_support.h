#pragma once

// Helpers shared by the utility node tests: plug values as numbers, and a
// capture of the messages nodes show.

#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "host/graph.h"
#include "host/messages.h"
#include "support/message_capture.h"

namespace orvo_test {

inline void setWords(TdependGraph& g, const std::string& plug, std::vector<std::string> words) {
    g.setPlugValueFromWords(g.findPlug(plug), words);
}

// The evaluated value of a plug as floats.
inline std::vector<float> evalFloats(TdependGraph& g, const std::string& plug) {
    std::vector<float> out;
    for (const std::string& w : g.evaluateToWords(g.findPlug(plug)))
        out.push_back(std::stof(w));
    return out;
}

// Compares three floats within a tolerance, naming the plug on failure.
inline void expectNear3(const std::vector<float>& got, float a, float b, float c, float tolerance,
                        const std::string& what) {
    ASSERT_EQ(got.size(), 3u) << what;
    EXPECT_NEAR(got[0], a, tolerance) << what;
    EXPECT_NEAR(got[1], b, tolerance) << what;
    EXPECT_NEAR(got[2], c, tolerance) << what;
}

} // namespace orvo_test
