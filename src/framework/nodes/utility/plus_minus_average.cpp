#include "framework/nodes/utility/plus_minus_average.h"

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

// Folds the `width` floats of each element of one sample's array into
// `out`, by operation. An empty array, or an operation the node does not
// know, gives zero.
void combine(const TdataHandle& array, int16_t operation, int width, float* out) {
    for (int c = 0; c < width; ++c)
        out[c] = 0.0f;
    TmultiHandle elements(array);
    const unsigned n = elements.elementCount();
    if (n == 0)
        return;
    using K = TdnKernel<TdnPlusMinusAverage>;
    if (operation != K::kSum && operation != K::kSubtract && operation != K::kAverage)
        return;
    for (unsigned k = 0; k < n; ++k) {
        elements.jumpToArrayElement(k);
        const float* v = elements.reference().asFloats();
        // Subtract: the first element minus all the following ones.
        const bool minus = operation == K::kSubtract && k > 0;
        for (int c = 0; c < width; ++c)
            out[c] += minus ? -v[c] : v[c];
    }
    if (operation == K::kAverage)
        for (int c = 0; c < width; ++c)
            out[c] /= float(n);
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
    for (unsigned i = 0; i < count; ++i) {
        const int e = int(i);
        float out[3];
        combine(arrays[e], operation[e].asShort(), width, out);
        result[e].set(width, out);
    }
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
