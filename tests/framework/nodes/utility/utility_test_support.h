#pragma once

// Helpers shared by the utility node tests: plug values as numbers, and a
// capture of the messages nodes show.

#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "host/graph.h"
#include "host/messages.h"

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

// Collects warnings and errors while alive, instead of printing them.
class MessageCapture {
public:
    using Severity = TcommandEngine::Severity;

    MessageCapture() {
        fPrevious = TcommandEngine::setSink(
            [this](Severity s, const std::string& text) { fMessages.emplace_back(s, text); });
    }
    ~MessageCapture() { TcommandEngine::setSink(fPrevious); }
    MessageCapture(const MessageCapture&) = delete;
    MessageCapture& operator=(const MessageCapture&) = delete;

    size_t count(Severity s) const {
        size_t n = 0;
        for (const auto& m : fMessages)
            n += m.first == s;
        return n;
    }
    const std::vector<std::pair<Severity, std::string>>& messages() const { return fMessages; }
    void clear() { fMessages.clear(); }

private:
    TcommandEngine::Sink fPrevious;
    std::vector<std::pair<Severity, std::string>> fMessages;
};

} // namespace orvo_test
