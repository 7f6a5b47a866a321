#pragma once

// Helpers of the run kernels' tests: every vector target the processor has
// is run against the one-sample code, and values must agree bit for bit.

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>
#include <hwy/targets.h>

#include "textures/run_lanes.h"

namespace orvo_test {

// The bits of a float, with every NaN alike: signed zeros must agree too.
inline uint32_t bitsOf(float x) {
    if (std::isnan(x))
        return 0x7fc00000u;
    uint32_t b;
    std::memcpy(&b, &x, sizeof b);
    return b;
}

// The values with zeros after them, padded as the run kernels take them.
inline std::vector<float> padded(std::vector<float> values) {
    values.resize(OrvoRunPadded(unsigned(values.size())), 0.0f);
    return values;
}

// Each target the processor has (the plain C++ one included) in turn; the
// dispatch goes back to the best one after.
class RunKernelTargets : public ::testing::Test {
protected:
    void TearDown() override { hwy::SetSupportedTargetsForTest(0); }
    template <class Body>
    static void forEachTarget(Body body) {
        for (int64_t target : hwy::SupportedAndGeneratedTargets()) {
            hwy::SetSupportedTargetsForTest(target);
            body(hwy::TargetName(target));
        }
    }
};

} // namespace orvo_test
