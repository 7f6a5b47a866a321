#include "textures/tx2d.h"

#include <algorithm>
#include <cmath>

#include "textures/place2d_texture.h"

ORVO_DEFINE_SCHEMA(TdnTx2D)

// Every input affects both outputs.
ORVO_DEPENDENCIES(TdnTx2D) {
    Tattribute* inputs[] = {&UvCoord,   &UvFilterSize,     &Filter,      &FilterOffset,
                            &Invert,    &AlphaIsLuminance, &ColorGain,   &ColorOffset,
                            &AlphaGain, &AlphaOffset,      &DefaultColor};
    for (Tattribute* input : inputs) {
        affectsAll(m, *input, OutColor);
        affectsAll(m, *input, OutAlpha);
    }
}

namespace {
// Made on first use: the texture types name it as their parent from their
// own static initialisers, in any order.
Tmetaclass* tx2dMeta() {
    static Tmetaclass meta(nullptr, "texture2d", sizeof(TdnTx2D), nullptr, 0, 0,
                           TshadingDependNode::sTypeof(), TtextureMethods::sTypeof());
    return &meta;
}
} // namespace

// ---------------------------------------------------------------- pattern face

TdnTx2D::VS* TdnTx2D::sVsData() {
    auto& storage = TdnAttr<TdnTx2D>::fsVsData;
    VS* vs = storage.ensure();
    if (!storage.wired) {
        storage.wired = true;
        vs->setParentData(TshadingDependNode::sVsBaseData());
    }
    return vs;
}

Tmetaclass* TdnTx2D::sTypeof() {
    return tx2dMeta();
}

Tmetaclass* TdnTx2D::typeof() const {
    return tx2dMeta();
}

void* TdnTx2D::cast(Tmetaclass* meta) {
    if (!meta)
        return nullptr;
    if (meta == tx2dMeta())
        return this;
    if (meta == TtextureMethods::sTypeof())
        return static_cast<TtextureMethods*>(this);
    return TshadingDependNode::cast(meta);
}

bool TdnTx2D::isTextureOutput(const Tattribute* a) {
    return a && (a == &aOutColor || a->parent() == &aOutColor || a == &aOutAlpha);
}

bool TdnTx2D::computePlug(const Tplug& plug, TdataBlock& block) {
    if (!isTextureOutput(plug.attribute()))
        return TshadingDependNode::computePlug(plug, block);
    return vectorComputePlug(plug, block, 0, block.elementCount());
}

const Tattribute* TdnTx2D::alternateAttr(const Tattribute* a) {
    if (a == &aOutColor)
        return &aDefaultColor;
    if (a == &aOutColorR)
        return &aDefaultColorR;
    if (a == &aOutColorG)
        return &aDefaultColorG;
    if (a == &aOutColorB)
        return &aDefaultColorB;
    return nullptr;
}

// ---------------------------------------------------------------- outside and default

void TdnTx2D::setToDefaultColor(const TdataHandle& defaultColor, const TdataHandle& outColor,
                                const TdataHandle& outAlpha) {
    const float* d = defaultColor.asFloats();
    const T3Float c{d[0], d[1], d[2]};
    TdataHandle color = outColor, alpha = outAlpha;
    color.set(c);
    alpha.set(luminance(c));
}

void TdnTx2D::setToDefaultColor(TdataBlock& block) {
    setToDefaultColor(block.inputValue(aDefaultColor), block.outputValue(aOutColor),
                      block.outputValue(aOutAlpha));
}

void TdnTx2D::setToDefaultColor(int i, const TvectorDataHandle& defaultColor,
                                const TvectorDataHandle& outColor,
                                const TvectorDataHandle& outAlpha) {
    setToDefaultColor(defaultColor[i], outColor[i], outAlpha[i]);
}

bool TdnTx2D::checkOutside(const TdataHandle& uv, const TdataHandle& defaultColor,
                           const TdataHandle& outColor, const TdataHandle& outAlpha) {
    const float* c = uv.asFloats();
    if (!isOutside(c[0], c[1]))
        return false;
    setToDefaultColor(defaultColor, outColor, outAlpha);
    return true;
}

bool TdnTx2D::checkOutside(TdataBlock& block) {
    const float* c = block.inputValue(aUvCoord).asFloats();
    if (!isOutside(c[0], c[1]))
        return false;
    setToDefaultColor(block);
    return true;
}

bool TdnTx2D::checkOutside(int i, const TvectorDataHandle& uv,
                           const TvectorDataHandle& defaultColor, const TvectorDataHandle& outColor,
                           const TvectorDataHandle& outAlpha) {
    return checkOutside(uv[i], defaultColor[i], outColor[i], outAlpha[i]);
}

// ---------------------------------------------------------------- colour effects

void TdnTx2D::colorEffects(const TdataHandle& invert, const TdataHandle& gain,
                           const TdataHandle& offset, const TdataHandle& alphaGain,
                           const TdataHandle& alphaOffset, T3Float& c, float& a) {
    colorEffects(invert.asBool(), gain.asFloats(), offset.asFloats(), alphaGain.asFloat(),
                 alphaOffset.asFloat(), c, a);
}

void TdnTx2D::colorEffects(TdataBlock& block, T3Float& c, float& a) {
    colorEffects(block.inputValue(aInvert), block.inputValue(aColorGain),
                 block.inputValue(aColorOffset), block.inputValue(aAlphaGain),
                 block.inputValue(aAlphaOffset), c, a);
}

void TdnTx2D::colorEffects(int i, const TvectorDataHandle& invert, const TvectorDataHandle& gain,
                           const TvectorDataHandle& offset, const TvectorDataHandle& alphaGain,
                           const TvectorDataHandle& alphaOffset, T3Float& c, float& a) {
    colorEffects(invert[i], gain[i], offset[i], alphaGain[i], alphaOffset[i], c, a);
}

// ---------------------------------------------------------------- filter size

float TdnTx2D::filteredSize(float sizeX, float sizeY, float filter, float filterOffset) {
    const float size = std::max(sizeX, sizeY) * std::max(0.0f, filter) + filterOffset;
    return size < 0.0f ? -size : size;
}

float TdnTx2D::filteredSize(const TdataHandle& filterSize, const TdataHandle& filter,
                            const TdataHandle& filterOffset) {
    const float* fs = filterSize.asFloats();
    return filteredSize(fs[0], fs[1], filter.asFloat(), filterOffset.asFloat());
}

float TdnTx2D::filteredSize(TdataBlock& block) {
    return filteredSize(block.inputValue(aUvFilterSize), block.inputValue(aFilter),
                        block.inputValue(aFilterOffset));
}

float TdnTx2D::filteredSize(int i, const TvectorDataHandle& filterSize,
                            const TvectorDataHandle& filter,
                            const TvectorDataHandle& filterOffset) {
    return filteredSize(filterSize[i], filter[i], filterOffset[i]);
}

// ---------------------------------------------------------------- the compute skeleton

TdnTx2D::Samples::Samples(TdataBlock& block, unsigned first, unsigned count)
    : uv(block.vectorInputValue(aUvCoord, first, count)),
      filterSize(block.vectorInputValue(aUvFilterSize, first, count)),
      filter(block.vectorInputValue(aFilter, first, count)),
      filterOffset(block.vectorInputValue(aFilterOffset, first, count)),
      invert(block.vectorInputValue(aInvert, first, count)),
      alphaIsLuminance(block.vectorInputValue(aAlphaIsLuminance, first, count)),
      gain(block.vectorInputValue(aColorGain, first, count)),
      offset(block.vectorInputValue(aColorOffset, first, count)),
      alphaGain(block.vectorInputValue(aAlphaGain, first, count)),
      alphaOffset(block.vectorInputValue(aAlphaOffset, first, count)),
      defaultColor(block.vectorInputValue(aDefaultColor, first, count)),
      outColor(block.vectorOutputValue(aOutColor, first)),
      outAlpha(block.vectorOutputValue(aOutAlpha, first)) {
    effectsConstant = invert.isConstant() && alphaIsLuminance.isConstant() && gain.isConstant() &&
                      offset.isConstant() && alphaGain.isConstant() && alphaOffset.isConstant();
    if (effectsConstant) {
        invertAll = invert[0].asBool();
        alphaIsLuminanceAll = alphaIsLuminance[0].asBool();
        gainAll = gain[0].asFloats();
        offsetAll = offset[0].asFloats();
        alphaGainAll = alphaGain[0].asFloat();
        alphaOffsetAll = alphaOffset[0].asFloat();
    }
}

// ---------------------------------------------------------------- evaluation outside a render

Tplug TdnTx2D::buildPlug(TdependNode* node, const Tattribute& attribute, int multiIndex) {
    Tplug plug(node, &attribute);
    if (multiIndex != -1) {
        if (attribute.isArray())
            plug.setMultiIndex(&attribute, unsigned(multiIndex));
        else if (attribute.parent() && attribute.parent()->isArray())
            plug.setMultiIndex(attribute.parent(), unsigned(multiIndex));
    }
    return plug;
}

bool TdnTx2D::checkCycle(const Tplug& plug, const TplugArray& plugs) {
    return std::find(plugs.begin(), plugs.end(), plug) != plugs.end();
}

TdnTx2D* TdnTx2D::getInputTxNode(const Tplug& plug) {
    const Tplug source = plug.source();
    TdependNode* node = source.node();
    if (!node || !node->typeof() || !node->typeof()->istype(tx2dMeta()))
        return nullptr;
    return static_cast<TdnTx2D*>(node->cast(tx2dMeta()));
}

TdnTx2D* TdnTx2D::getInputTxNode(TdependNode* node, const Tattribute& attribute, int multiIndex) {
    return getInputTxNode(buildPlug(node, attribute, multiIndex));
}

bool TdnTx2D::getColorAttrValue(TplugArray& plugs, TdependNode* node, const Tattribute& attribute,
                                int multiIndex, const TdoubleArray& u, const TdoubleArray& v,
                                T4dDblVectorArray& out) {
    const Tplug plug = buildPlug(node, attribute, multiIndex);
    TdnTx2D* source = getInputTxNode(plug);
    if (!source)
        return false;
    // Back at a plug already on the way here: a cycle ends with the plain
    // value, without a message.
    if (checkCycle(plug, plugs))
        return false;
    plugs.push_back(plug);
    source->mapUVtoClr(plugs, &out, nullptr, nullptr, &u, &v);
    plugs.pop_back();
    return true;
}

bool TdnTx2D::getColorAttrValue(TplugArray& plugs, TdependNode* node, const Tattribute& attribute,
                                int multiIndex, float u, float v, T3Float& out) {
    const TdoubleArray us{u}, vs{v};
    T4dDblVectorArray colors(1);
    if (!getColorAttrValue(plugs, node, attribute, multiIndex, us, vs, colors))
        return false;
    out = narrow(colors.at(0));
    return true;
}

void TdnTx2D::mapUVtoColor(TplugArray& plugs, float u, float v, T3Float& out) {
    const TdoubleArray us{u}, vs{v};
    T4dDblVectorArray colors(1);
    mapUVtoClr(plugs, &colors, nullptr, nullptr, &us, &vs);
    out = colors.empty() ? T3Float{} : narrow(colors[0]);
}

T3Float TdnTx2D::plainColor(const Tattribute& attribute, int multiIndex) {
    TordinaryDataBlock& block = forceGetDatablock();
    const TdataHandle h = multiIndex == -1
                              ? block.inputValue(attribute)
                              : block.inputValue(buildPlug(this, attribute, multiIndex));
    const float* c = h.asFloats();
    return c ? T3Float{c[0], c[1], c[2]} : T3Float{};
}

float TdnTx2D::plainFloat(const Tattribute& attribute) {
    return forceGetDatablock().inputValue(attribute).asFloat();
}

bool TdnTx2D::plainBool(const Tattribute& attribute) {
    return forceGetDatablock().inputValue(attribute).asBool();
}

void TdnTx2D::bakeColor(TplugArray& plugs, const Tattribute& attribute, int multiIndex,
                        const Bake& bake, T4dDblVectorArray& out) {
    out.assign(bake.count, T4dDblVector{});
    if (getColorAttrValue(plugs, this, attribute, multiIndex, *bake.rawU, *bake.rawV, out) &&
        out.size() == bake.count)
        return;
    // Back on a plug already on the way here, the value the node holds ends
    // the cycle; elsewhere the value is brought up to date first, so that a
    // colour driven by anything but a texture is current.
    const Tplug plug = buildPlug(this, attribute, multiIndex);
    const T3Float c = checkCycle(plug, plugs) ? heldColor(plug) : plainColor(attribute, multiIndex);
    out.assign(bake.count, T4dDblVector{c.x, c.y, c.z, 1.0});
}

T3Float TdnTx2D::heldColor(const Tplug& plug) {
    TordinaryDataBlock& block = forceGetDatablock();
    const Tattribute& a = *plug.attribute();
    const float* c = a.isArrayDescendant()
                         ? block.elementValue(plug, false).asFloats()
                         : static_cast<const float*>(block.valueAddress(a, block.currentIndex()));
    return c ? T3Float{c[0], c[1], c[2]} : T3Float{};
}

bool TdnTx2D::beginBake(TplugArray& plugs, const TdoubleArray* u, const TdoubleArray* v,
                        Bake& bake) {
    if (!u || !v || u->size() != v->size())
        return false;
    bake.rawU = u;
    bake.rawV = v;
    bake.count = u->size();
    bake.u = *u;
    bake.v = *v;

    // The placement in front, if there is one, and the filter size it scales.
    const Tplug uvPlug(this, &aUvCoord);
    Tplug uvSource = uvPlug.source();
    if (uvSource.isNull())
        uvSource = Tplug(this, &aUCoord).source();
    auto* placement =
        uvSource.node() ? static_cast<TdnPlace2dTx*>(uvSource.node()->cast(TdnPlace2dTx::sTypeof()))
                        : nullptr;
    const float* ownSize = forceGetDatablock().inputValue(aUvFilterSize).asFloats();
    bake.filterSize[0] = ownSize[0];
    bake.filterSize[1] = ownSize[1];
    if (placement) {
        T2Float size;
        placement->mapToTxUV(*u, *v, bake.u, bake.v, size);
        // The placed size stands for the texture's own when the same
        // placement feeds it.
        if (Tplug(this, &aUvFilterSize).source().node() == placement) {
            bake.filterSize[0] = size.x;
            bake.filterSize[1] = size.y;
        }
    }
    bake.filter = plainFloat(aFilter);
    bake.filterOffset = plainFloat(aFilterOffset);
    bake.invert = plainBool(aInvert);
    bake.alphaIsLuminance = plainBool(aAlphaIsLuminance);
    bake.alphaGain = plainFloat(aAlphaGain);
    bake.alphaOffset = plainFloat(aAlphaOffset);
    bakeColor(plugs, aDefaultColor, -1, bake, bake.defaultColor);
    bakeColor(plugs, aColorGain, -1, bake, bake.gain);
    bakeColor(plugs, aColorOffset, -1, bake, bake.offset);
    return true;
}

void TdnTx2D::sizeOutputs(const Bake& bake, T4dDblVectorArray* colors, TdoubleArray* alphas) {
    if (colors)
        colors->assign(bake.count, T4dDblVector{});
    if (alphas)
        alphas->assign(bake.count, 0.0);
}

void TdnTx2D::bakeDefault(const Bake& bake, size_t k, T4dDblVectorArray* colors,
                          TdoubleArray* alphas) {
    const T3Float c = narrow(bake.defaultColor[k]);
    if (colors)
        (*colors)[k] = T4dDblVector{c.x, c.y, c.z, 1.0};
    if (alphas)
        (*alphas)[k] = luminance(c);
}

void TdnTx2D::bakeFinish(const Bake& bake, size_t k, T3Float c, float a, bool luminanceStep,
                         T4dDblVectorArray* colors, TdoubleArray* alphas) {
    if (luminanceStep && bake.alphaIsLuminance)
        a = luminance(c);
    const T3Float g = narrow(bake.gain[k]), o = narrow(bake.offset[k]);
    const float gain[3] = {g.x, g.y, g.z}, offset[3] = {o.x, o.y, o.z};
    colorEffects(bake.invert, gain, offset, bake.alphaGain, bake.alphaOffset, c, a);
    if (colors)
        (*colors)[k] = T4dDblVector{c.x, c.y, c.z, 1.0};
    if (alphas)
        (*alphas)[k] = a;
}
