#include "framework/nodes/utility/multiply_divide.h"

#include <cmath>

#include "framework/nodes/utility/render_utilities.h"
#include "host/messages.h"

ORVO_REGISTER_NODE(TdnMultiplyDivide)

ORVO_DEPENDENCIES(TdnMultiplyDivide) {
    affectsAll(m, Operation, Output);
    affectsAll(m, Input1, Output);
    affectsAll(m, Input2, Output);
}

// A scalar evaluation is a fresh evaluation: it may warn again.
bool TdnMultiplyDivide::computePlug(const Tplug& plug, TdataBlock& block) {
    if (computesAttribute(plug.attribute()))
        fWarnedDivideByZero = false;
    return TdnPattern::computePlug(plug, block);
}

// Once per render: the warning may be shown again in this render.
void TdnMultiplyDivide::shadingNodeOnDemand(Tplug&, TdataBlock&) {
    fWarnedDivideByZero = false;
}

bool TdnMultiplyDivide::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                          unsigned count) {
    if (!computesAttribute(plug.attribute()))
        return TshadingDependNode::computePlug(plug, block);
    const TvectorDataHandle operation = block.vectorInputValue(aOperation, first, count);
    const TvectorDataHandle input1 = block.vectorInputValue(aInput1, first, count);
    const TvectorDataHandle input2 = block.vectorInputValue(aInput2, first, count);
    const TvectorDataHandle output = block.vectorOutputValue(aOutput, first);
    for (unsigned i = 0; i < count; ++i) {
        const int e = int(i);
        const float* a = input1[e].asFloat3();
        const float* b = input2[e].asFloat3();
        float out[3];
        switch (operation[e].asShort()) {
        case kMultiply:
            for (int c = 0; c < 3; ++c)
                out[c] = a[c] * b[c];
            break;
        case kDivide:
            for (int c = 0; c < 3; ++c) {
                if (TrenderUtilities::isZero(b[c])) {
                    out[c] = kDivideByZeroResult;
                    if (!fWarnedDivideByZero) {
                        fWarnedDivideByZero = true;
                        TcommandEngine::displayWarning(
                            TstringId("s_TdnMultiplyDivideStrings.rMultiplyDivideCmdDivideByZero")
                                .format(name()));
                    }
                } else {
                    out[c] = a[c] / b[c];
                }
            }
            break;
        case kPower:
            for (int c = 0; c < 3; ++c)
                out[c] = std::pow(a[c], b[c]);
            break;
        default:
            for (int c = 0; c < 3; ++c)
                out[c] = a[c];
            break;
        }
        output[e].set(3, out);
    }
    return true;
}
