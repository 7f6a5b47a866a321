#include "framework/nodes/utility/plus_minus_average.h"

#include <cstring>

ORVO_REGISTER_NODE(TdnPlusMinusAverage)

// The operation feeds every output; each array only the output of its width.
ORVO_DEPENDENCIES(TdnPlusMinusAverage) {
    affectsAll(m, Operation, Output1D);
    affectsAll(m, Operation, Output2D);
    affectsAll(m, Operation, Output3D);
    affectsAll(m, Input1D, Output1D);
    affectsAll(m, Input2D, Output2D);
    affectsAll(m, Input3D, Output3D);
}

namespace {

// Folds the W floats of each element of one sample's array into `out`, by
// operation. An empty array, or an operation the node does not know, gives
// zero. Element values lie `valueAt` bytes into each element.
template <int W>
void combine(const TmultiHeader* array, uint32_t valueAt, int16_t operation, float* out) {
    for (int c = 0; c < W; ++c)
        out[c] = 0.0f;
    const unsigned n = array ? array->count : 0u;
    if (n == 0)
        return;
    using K = TdnKernel<TdnPlusMinusAverage>;
    if (operation != K::kSum && operation != K::kSubtract && operation != K::kAverage)
        return;
    const std::byte* element = array->data + valueAt;
    for (unsigned k = 0; k < n; ++k, element += array->stride) {
        float v[W];
        std::memcpy(v, element, sizeof v);
        // Subtract: the first element minus all the following ones.
        const bool minus = operation == K::kSubtract && k > 0;
        for (int c = 0; c < W; ++c)
            out[c] += minus ? -v[c] : v[c];
    }
    if (operation == K::kAverage)
        for (int c = 0; c < W; ++c)
            out[c] /= float(n);
}

// A run whose samples share one known operation: the element loop with the
// operation decided once, and the same sums, in the same order, as combine.
template <int W, int16_t Operation>
void foldRun(const std::byte* arrayAt, size_t arrayStride, std::byte* resultAt, size_t resultStride,
             uint32_t valueAt, unsigned count) {
    using K = TdnKernel<TdnPlusMinusAverage>;
    for (unsigned i = 0; i < count; ++i) {
        const auto* array =
            reinterpret_cast<const TmultiHeader*>(arrayAt + size_t(i) * arrayStride);
        float out[W];
        for (int c = 0; c < W; ++c)
            out[c] = 0.0f;
        const unsigned n = array->count;
        const std::byte* element = n ? array->data + valueAt : nullptr;
        for (unsigned k = 0; k < n; ++k, element += array->stride) {
            float v[W];
            std::memcpy(v, element, sizeof v);
            for (int c = 0; c < W; ++c)
                out[c] += Operation == K::kSubtract && k > 0 ? -v[c] : v[c];
        }
        if (Operation == K::kAverage && n)
            for (int c = 0; c < W; ++c)
                out[c] /= float(n);
        std::memcpy(resultAt + size_t(i) * resultStride, out, sizeof out);
    }
}

// The run by pointer and stride: array headers, operations, results.
template <int W>
void combineRun(const TvectorDataHandle& arrays, const TvectorDataHandle& operation,
                const TvectorDataHandle& result, uint32_t valueAt, unsigned count) {
    const auto* arrayAt = static_cast<const std::byte*>(arrays.first().address());
    const auto* operationAt = static_cast<const std::byte*>(operation.first().address());
    auto* resultAt = static_cast<std::byte*>(result.first().address());
    if (operation.stride() == 0) {
        // One operation for the whole run (it is seldom driven per sample).
        using K = TdnKernel<TdnPlusMinusAverage>;
        int16_t op;
        std::memcpy(&op, operationAt, sizeof op);
        switch (op) {
        case K::kSum:
            foldRun<W, K::kSum>(arrayAt, arrays.stride(), resultAt, result.stride(), valueAt,
                                count);
            return;
        case K::kSubtract:
            foldRun<W, K::kSubtract>(arrayAt, arrays.stride(), resultAt, result.stride(), valueAt,
                                     count);
            return;
        case K::kAverage:
            foldRun<W, K::kAverage>(arrayAt, arrays.stride(), resultAt, result.stride(), valueAt,
                                    count);
            return;
        default:
            break; // zero, sample by sample below
        }
    }
    for (unsigned i = 0; i < count; ++i) {
        int16_t op;
        std::memcpy(&op, operationAt + size_t(i) * operation.stride(), sizeof op);
        float out[W];
        combine<W>(reinterpret_cast<const TmultiHeader*>(arrayAt + size_t(i) * arrays.stride()),
                   valueAt, op, out);
        std::memcpy(resultAt + size_t(i) * result.stride(), out, sizeof out);
    }
}

} // namespace

bool TdnPlusMinusAverage::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                            unsigned count) {
    const Tattribute* asked = plug.attribute();
    if (!computesAttribute(asked))
        return TshadingDependNode::computePlug(plug, block);
    // The plug picks the group: the widest output that it is or lies in.
    const Tattribute* input = &aInput1D;
    const Tattribute* output = &aOutput1D;
    int width = 1;
    if (asked == &aOutput3D || asked->isDescendentOf(aOutput3D)) {
        input = &aInput3D;
        output = &aOutput3D;
        width = 3;
    } else if (asked == &aOutput2D || asked->isDescendentOf(aOutput2D)) {
        input = &aInput2D;
        output = &aOutput2D;
        width = 2;
    }
    const TvectorDataHandle operation = block.vectorInputValue(aOperation, first, count);
    const TvectorDataHandle arrays = block.vectorInputValue(*input, first, count);
    const TvectorDataHandle result = block.vectorOutputValue(*output, first);
    if (count == 0 || arrays.isNull() || result.isNull() || operation.isNull())
        return true;
    const uint32_t valueAt = TmultiBuilder::valueOffset(*input);
    if (width == 3)
        combineRun<3>(arrays, operation, result, valueAt, count);
    else if (width == 2)
        combineRun<2>(arrays, operation, result, valueAt, count);
    else
        combineRun<1>(arrays, operation, result, valueAt, count);
    // Evaluated: what reads the output is valid for the whole run.
    result[0].setClean();
    return true;
}

// Array elements are always written the way the base writes a value that
// differs from its default: an element's existence is part of the scene.
bool TdnPlusMinusAverage::shouldBeWritten(const Tplug& plug, bool isDefault, bool treatAsDefault) {
    const Tattribute* a = plug.attribute();
    for (const Tattribute* input :
         {static_cast<const Tattribute*>(&aInput1D), static_cast<const Tattribute*>(&aInput2D),
          static_cast<const Tattribute*>(&aInput3D)})
        if (a && (a == input || a->isDescendentOf(*input)))
            return TshadingDependNode::shouldBeWritten(plug, isDefault, false);
    return TshadingDependNode::shouldBeWritten(plug, isDefault, treatAsDefault);
}
