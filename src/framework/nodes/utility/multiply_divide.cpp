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

namespace {

// A run of float triples walked by pointer and stride; a constant input has
// stride 0.
struct Walk {
    std::byte* at;
    uint32_t stride;
    explicit Walk(const TvectorDataHandle& h)
        : at(static_cast<std::byte*>(h.first().address())), stride(h.stride()) {}
    float* operator[](unsigned i) const {
        return reinterpret_cast<float*>(at + size_t(i) * stride);
    }
};

} // namespace

bool TdnMultiplyDivide::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                          unsigned count) {
    if (!computesAttribute(plug.attribute()))
        return TshadingDependNode::computePlug(plug, block);
    const TvectorDataHandle operation = block.vectorInputValue(aOperation, first, count);
    const TvectorDataHandle input1 = block.vectorInputValue(aInput1, first, count);
    const TvectorDataHandle input2 = block.vectorInputValue(aInput2, first, count);
    const TvectorDataHandle output = block.vectorOutputValue(aOutput, first);
    if (count == 0 || output.isNull() || input1.isNull() || input2.isNull() || operation.isNull())
        return true;
    const Walk a(input1), b(input2), out(output);
    // The usual case, one operation for the run: a plain loop per operation.
    if (operation.isConstant() && operation[0].asShort() == kMultiply) {
        // A constant factor (the usual connected-times-set case, either way
        // round) is read once: the stores to the output could otherwise
        // alias it, and it would be loaded again for every element.
        if (a.stride == 0 || b.stride == 0) {
            const Walk& varying = a.stride == 0 ? b : a;
            const float* k = a.stride == 0 ? a[0] : b[0];
            const float k0 = k[0], k1 = k[1], k2 = k[2];
            for (unsigned i = 0; i < count; ++i) {
                const float* x = varying[i];
                float* o = out[i];
                const float r0 = x[0] * k0, r1 = x[1] * k1, r2 = x[2] * k2;
                o[0] = r0;
                o[1] = r1;
                o[2] = r2;
            }
        } else {
            for (unsigned i = 0; i < count; ++i) {
                const float *x = a[i], *y = b[i];
                float* o = out[i];
                const float r0 = x[0] * y[0], r1 = x[1] * y[1], r2 = x[2] * y[2];
                o[0] = r0;
                o[1] = r1;
                o[2] = r2;
            }
        }
    } else {
        for (unsigned i = 0; i < count; ++i) {
            const float* x = a[i];
            const float* y = b[i];
            float r[3];
            switch (operation[int(i)].asShort()) {
            case kMultiply:
                for (int c = 0; c < 3; ++c)
                    r[c] = x[c] * y[c];
                break;
            case kDivide:
                for (int c = 0; c < 3; ++c) {
                    if (TrenderUtilities::isZero(y[c])) {
                        r[c] = kDivideByZeroResult;
                        if (!fWarnedDivideByZero) {
                            fWarnedDivideByZero = true;
                            TcommandEngine::displayWarning(
                                TstringId(
                                    "s_TdnMultiplyDivideStrings.rMultiplyDivideCmdDivideByZero")
                                    .format(name()));
                        }
                    } else {
                        r[c] = x[c] / y[c];
                    }
                }
                break;
            case kPower:
                for (int c = 0; c < 3; ++c)
                    r[c] = std::pow(x[c], y[c]);
                break;
            default:
                for (int c = 0; c < 3; ++c)
                    r[c] = x[c];
                break;
            }
            float* o = out[i];
            o[0] = r[0];
            o[1] = r[1];
            o[2] = r[2];
        }
    }
    // Evaluated: what reads the output is valid for the whole run.
    output[0].setClean();
    return true;
}
