#include "framework/nodes/utility/vector_product.h"

#include <cmath>

#include "framework/nodes/utility/render_utilities.h"
#include "host/messages.h"

ORVO_REGISTER_NODE(TdnVectorProduct)

ORVO_DEPENDENCIES(TdnVectorProduct) {
    affectsAll(m, Operation, Output);
    affectsAll(m, Input1, Output);
    affectsAll(m, Input2, Output);
    affectsAll(m, Matrix, Output);
    affectsAll(m, NormalizeOutput, Output);
}

// A scalar evaluation is a fresh evaluation: it may report again.
bool TdnVectorProduct::computePlug(const Tplug& plug, TdataBlock& block) {
    if (computesAttribute(plug.attribute()))
        fWarnedZeroLength = false;
    return TdnPattern::computePlug(plug, block);
}

// Once per render: the error may be shown again in this render.
void TdnVectorProduct::shadingNodeOnDemand(Tplug&, TdataBlock&) {
    fWarnedZeroLength = false;
}

namespace {
float length(const float* v) {
    return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
}
} // namespace

bool TdnVectorProduct::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                         unsigned count) {
    if (!computesAttribute(plug.attribute()))
        return TshadingDependNode::computePlug(plug, block);
    const TvectorDataHandle operation = block.vectorInputValue(aOperation, first, count);
    const TvectorDataHandle input1 = block.vectorInputValue(aInput1, first, count);
    const TvectorDataHandle normalize = block.vectorInputValue(aNormalizeOutput, first, count);
    const TvectorDataHandle output = block.vectorOutputValue(aOutput, first);

    // input2 and matrix are read at the block's current element, which walks
    // along the run with the loop.
    const uint32_t stride = block.elementStride();
    if (std::byte* at = block.firstElement() + size_t(first) * stride; at <= block.lastElement())
        block.setCurrent(at);

    for (unsigned i = 0; i < count; ++i) {
        const int e = int(i);
        const float* a = input1[e].asFloat3();
        const float* b = block.inputValue(aInput2).asFloat3();
        const T4dFltMatrix& mx = block.inputValue(aMatrix).as<T4dFltMatrix>();
        const int16_t op = operation[e].asShort();
        float r[3];
        switch (op) {
        case kDotProduct: {
            const float d = a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
            r[0] = r[1] = r[2] = d;
            break;
        }
        case kCrossProduct:
            r[0] = a[1] * b[2] - a[2] * b[1];
            r[1] = a[2] * b[0] - a[0] * b[2];
            r[2] = a[0] * b[1] - a[1] * b[0];
            break;
        case kVectorMatrix:
        case kPointMatrix:
            // Row vector times matrix; a point also takes the translation row.
            for (int j = 0; j < 3; ++j) {
                r[j] = a[0] * mx.m[0][j] + a[1] * mx.m[1][j] + a[2] * mx.m[2][j];
                if (op == kPointMatrix)
                    r[j] += mx.m[3][j];
            }
            break;
        default:
            r[0] = a[0];
            r[1] = a[1];
            r[2] = a[2];
            break;
        }
        if (normalize[e].asBool() && op != kPointMatrix) {
            // For a dot product the lengths of the inputs, so that the
            // result is the cosine of their angle.
            const float l = op == kDotProduct ? length(a) * length(b) : length(r);
            if (TrenderUtilities::isZero(l)) {
                r[0] = 0.0f;
                r[1] = 0.0f;
                r[2] = 1.0f;
                if (!fWarnedZeroLength) {
                    fWarnedZeroLength = true;
                    TcommandEngine::displayError(
                        name() + ": found a zero-length output vector. Result is unpredictable.");
                }
            } else {
                for (float& c : r)
                    c /= l;
            }
        }
        output[e].set(3, r);
        if (std::byte* next = block.currentElement() + stride; next <= block.lastElement())
            block.setCurrent(next);
    }
    return true;
}
