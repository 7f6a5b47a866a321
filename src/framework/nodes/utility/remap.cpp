#include "framework/nodes/utility/remap.h"

#include <initializer_list>

ORVO_REGISTER_NODE(TdnRemapValue)
ORVO_REGISTER_NODE(TdnRemapColor)
ORVO_REGISTER_NODE(TdnRemapHsv)

ORVO_DEPENDENCIES(TdnRemapValue) {
    for (Tattribute* in : std::initializer_list<Tattribute*>{&InputValue, &InputMin, &InputMax,
                                                             &OutputMin, &OutputMax}) {
        affectsAll(m, *in, OutValue);
        affectsAll(m, *in, OutColor);
    }
    affectsAll(m, Value, OutValue);
    affectsAll(m, Color, OutColor);
}

ORVO_DEPENDENCIES(TdnRemapColor) {
    for (Tattribute* in :
         std::initializer_list<Tattribute*>{&Color, &InputMin, &InputMax, &OutputMin, &OutputMax,
                                            &Red, &Green, &Blue, &RenderPassMode})
        affectsAll(m, *in, OutColor);
}

ORVO_DEPENDENCIES(TdnRemapHsv) {
    for (Tattribute* in :
         std::initializer_list<Tattribute*>{&Color, &InputMin, &InputMax, &OutputMin, &OutputMax,
                                            &Hue, &Saturation, &Value, &RenderPassMode})
        affectsAll(m, *in, OutColor);
}

namespace {

// Inside this tolerance an input range is empty and every value goes to
// the curves' position 0.
constexpr float kEmptyRange = 1e-5f;

// The ranges, for a run.
struct Ranges {
    TvectorDataHandle inMin, inMax, outMin, outMax;

    template <class T>
    static Ranges of(TdataBlock& block, unsigned first, unsigned count) {
        return {block.vectorInputValue(T::aInputMin, first, count),
                block.vectorInputValue(T::aInputMax, first, count),
                block.vectorInputValue(T::aOutputMin, first, count),
                block.vectorInputValue(T::aOutputMax, first, count)};
    }
    // A value's position on the curves; no clamp.
    float position(int i, float x) const {
        const float lo = inMin[i].asFloat();
        const float d = inMax[i].asFloat() - lo;
        return d > -kEmptyRange && d < kEmptyRange ? 0.0f : (x - lo) / d;
    }
    // A curve's value taken to the output range (an inverted range stays
    // inverted).
    float out(int i, float v) const {
        const float lo = outMin[i].asFloat();
        return v * (outMax[i].asFloat() - lo) + lo;
    }
};

// Asked for outColor or one of its channels.
bool asksOutColor(const Tattribute* asked, const Tattribute& outColor) {
    return asked == &outColor || asked->isDescendentOf(outColor);
}

} // namespace

bool TdnRemapValue::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                      unsigned count) {
    const Tattribute* asked = plug.attribute();
    if (!computesAttribute(asked))
        return TdependNode::vectorComputePlug(plug, block, first, count);
    const Ranges r = Ranges::of<TdnRemapValue>(block, first, count);
    const TvectorDataHandle input = block.vectorInputValue(aInputValue, first, count);
    if (asked == &aOutValue) {
        const TcurveRun curve = ORVO_FLOAT_CURVE_RUN(TdnRemapValue, Value, block, first, count);
        const TvectorDataHandle out = block.vectorOutputValue(aOutValue, first);
        for (unsigned n = 0; n < count; ++n) {
            const int i = int(n);
            const float t = r.position(i, input[i].asFloat());
            out[i].set(r.out(i, curve.at(i).valueAtPoint(t)));
        }
        return true;
    }
    const TcurveRun curve = ORVO_COLOR_CURVE_RUN(TdnRemapValue, Color, block, first, count);
    const TvectorDataHandle out = block.vectorOutputValue(aOutColor, first);
    for (unsigned n = 0; n < count; ++n) {
        const int i = int(n);
        const T3Float c = curve.at(i).colorAtPoint(r.position(i, input[i].asFloat()));
        out[i].set(T3Float{r.out(i, c.x), r.out(i, c.y), r.out(i, c.z)});
    }
    return true;
}

bool TdnRemapColor::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                      unsigned count) {
    if (!asksOutColor(plug.attribute(), aOutColor))
        return TdependNode::vectorComputePlug(plug, block, first, count);
    const Ranges r = Ranges::of<TdnRemapColor>(block, first, count);
    const TvectorDataHandle color = block.vectorInputValue(aColor, first, count);
    const TcurveRun red = ORVO_FLOAT_CURVE_RUN(TdnRemapColor, Red, block, first, count);
    const TcurveRun green = ORVO_FLOAT_CURVE_RUN(TdnRemapColor, Green, block, first, count);
    const TcurveRun blue = ORVO_FLOAT_CURVE_RUN(TdnRemapColor, Blue, block, first, count);
    const TvectorDataHandle out = block.vectorOutputValue(aOutColor, first);
    for (unsigned n = 0; n < count; ++n) {
        const int i = int(n);
        const float* c = color[i].asFloat3();
        out[i].set(T3Float{r.out(i, red.at(i).valueAtPoint(r.position(i, c[0]))),
                           r.out(i, green.at(i).valueAtPoint(r.position(i, c[1]))),
                           r.out(i, blue.at(i).valueAtPoint(r.position(i, c[2])))});
    }
    return true;
}

bool TdnRemapHsv::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                    unsigned count) {
    if (!asksOutColor(plug.attribute(), aOutColor))
        return TdependNode::vectorComputePlug(plug, block, first, count);
    const Ranges r = Ranges::of<TdnRemapHsv>(block, first, count);
    const TvectorDataHandle color = block.vectorInputValue(aColor, first, count);
    const TcurveRun hue = ORVO_FLOAT_CURVE_RUN(TdnRemapHsv, Hue, block, first, count);
    const TcurveRun saturation = ORVO_FLOAT_CURVE_RUN(TdnRemapHsv, Saturation, block, first, count);
    const TcurveRun value = ORVO_FLOAT_CURVE_RUN(TdnRemapHsv, Value, block, first, count);
    const TvectorDataHandle out = block.vectorOutputValue(aOutColor, first);
    for (unsigned n = 0; n < count; ++n) {
        const int i = int(n);
        const float* c = color[i].asFloat3();
        const T3Float normalised{r.position(i, c[0]), r.position(i, c[1]), r.position(i, c[2])};
        T3Float hsv;
        TrenderUtilities::RGBtoHSV(normalised, hsv);
        // Hue in degrees: its curve runs over 0..1 of the circle.
        hsv.x = hue.at(i).valueAtPoint(hsv.x / 360.0f) * 360.0f;
        hsv.y = saturation.at(i).valueAtPoint(hsv.y);
        hsv.z = value.at(i).valueAtPoint(hsv.z);
        T3Float rgb;
        TrenderUtilities::HSVtoRGB(hsv, rgb);
        out[i].set(T3Float{r.out(i, rgb.x), r.out(i, rgb.y), r.out(i, rgb.z)});
    }
    return true;
}
