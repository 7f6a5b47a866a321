#include "textures/texture_methods.h"

namespace {
// Made on first use: texture types name it as a parent from their own
// static initialisers, in any order.
Tmetaclass* textureMethodsMeta() {
    static Tmetaclass meta(nullptr, "textureMethods", sizeof(TtextureMethods), nullptr, 0, 0);
    return &meta;
}
} // namespace

Tmetaclass* TtextureMethods::sTypeof() {
    return textureMethodsMeta();
}

Tmetaclass* TtextureMethods::typeof() const {
    return textureMethodsMeta();
}

void* TtextureMethods::cast(Tmetaclass* meta) {
    return meta && meta == textureMethodsMeta() ? this : nullptr;
}

TtextureMethods::~TtextureMethods() = default;

void TtextureMethods::mapUVtoClr(TplugArray&, T4dDblVectorArray* colors, TdoubleArray* reserved,
                                 TdoubleArray* alphas, const TdoubleArray*, const TdoubleArray*) {
    const size_t count = colors     ? colors->size()
                         : reserved ? reserved->size()
                         : alphas   ? alphas->size()
                                    : 0;
    if (colors)
        colors->assign(count, T4dDblVector{0.0, 0.0, 0.0, 1.0});
    if (reserved)
        reserved->assign(count, 0.0);
    if (alphas)
        alphas->assign(count, 1.0);
}
