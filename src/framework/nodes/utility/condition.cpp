#include "framework/nodes/utility/condition.h"

#include <cstdint>
#include <memory>

#include "framework/nodes/utility/render_utilities.h"

ORVO_REGISTER_NODE(TdnCondition)

ORVO_DEPENDENCIES(TdnCondition) {
    affectsAll(m, Operation, OutColor);
    affectsAll(m, FirstTerm, OutColor);
    affectsAll(m, SecondTerm, OutColor);
    affectsAll(m, ColorIfTrue, OutColor);
    affectsAll(m, ColorIfFalse, OutColor);
}

namespace {

bool holds(int16_t operation, float a, float b) {
    using K = TdnKernel<TdnCondition>;
    switch (operation) {
    case K::kEqual:
        return TrenderUtilities::nearlyEqual(a, b);
    case K::kNotEqual:
        return !TrenderUtilities::nearlyEqual(a, b);
    case K::kGreaterThan:
        return a > b;
    case K::kGreaterEqual:
        return a >= b;
    case K::kLessThan:
        return b > a;
    case K::kLessEqual:
        return b >= a;
    default:
        return false;
    }
}

// Asks the block for `colour` over each maximal run of elements whose mask
// is `want`, so that what feeds the colour is evaluated for those samples
// only.
void evaluateRuns(TdataBlock& block, const Tattribute& colour, const uint8_t* mask, bool want,
                  unsigned first, unsigned count) {
    OrvoForEachRun(
        count, [&](unsigned i) { return (mask[i] != 0) == want; },
        [&](unsigned start, unsigned n) { block.vectorInputValue(colour, first + start, n); });
}

} // namespace

bool TdnCondition::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                     unsigned count) {
    if (!computesAttribute(plug.attribute()))
        return TdependNode::computePlug(plug, block);
    const TvectorDataHandle a = block.vectorInputValue(aFirstTerm, first, count);
    const TvectorDataHandle b = block.vectorInputValue(aSecondTerm, first, count);
    const TvectorDataHandle operation = block.vectorInputValue(aOperation, first, count);

    uint8_t stackMask[kStackMaskSize];
    std::unique_ptr<uint8_t[]> heapMask;
    uint8_t* mask = stackMask;
    if (count > kStackMaskSize) {
        heapMask.reset(new uint8_t[count]);
        mask = heapMask.get();
    }
    for (unsigned i = 0; i < count; ++i) {
        const int e = int(i);
        mask[i] = holds(operation[e].asShort(), a[e].asFloat(), b[e].asFloat()) ? 1 : 0;
    }

    evaluateRuns(block, aColorIfTrue, mask, true, first, count);
    evaluateRuns(block, aColorIfFalse, mask, false, first, count);

    // The colours now hold what the runs evaluated; read them without
    // evaluating again.
    const TvectorDataHandle ifTrue = block.vectorOutputValue(aColorIfTrue, first);
    const TvectorDataHandle ifFalse = block.vectorOutputValue(aColorIfFalse, first);
    const TvectorDataHandle out = block.vectorOutputValue(aOutColor, first);
    for (unsigned i = 0; i < count; ++i) {
        const int e = int(i);
        out[e].set(3, mask[i] ? ifTrue[e].asFloat3() : ifFalse[e].asFloat3());
    }
    return true;
}
