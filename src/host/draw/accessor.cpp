#include "host/draw/accessor.h"

#include <atomic>

namespace {
std::atomic<TbaseAccessor::ConvertSolidTx> gBaker{nullptr};
} // namespace

void TbaseAccessor::setConvertSolidTx(ConvertSolidTx baker) {
    gBaker.store(baker);
}

bool TbaseAccessor::appConvertSolidTx(const TdagPath& object, const TdagPath& camera,
                                      const Tplug& plug, unsigned width, unsigned height,
                                      bool alpha, TpixelMap& map, T2Float& uvMin, T2Float& uvMax) {
    const ConvertSolidTx baker = gBaker.load();
    if (!baker || plug.isNull() || width == 0 || height == 0)
        return false;
    return baker(object, camera, plug, width, height, alpha, map, uvMin, uvMax);
}

std::shared_ptr<const TpixelMap> TbaseAccessor::appRetrieveShared(const Tplug& plug) {
    auto map = std::make_shared<TpixelMap>();
    T2Float lo{}, hi{};
    if (!appConvertSolidTx({}, {}, plug, swatchSize(), swatchSize(), false, *map, lo, hi))
        return nullptr;
    return map;
}
