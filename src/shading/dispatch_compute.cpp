#include "shading/dispatch_compute.h"

Tmetaclass* TDNdispatchCompute::sTypeof() {
    static Tmetaclass meta(nullptr, "dispatchCompute", sizeof(TDNdispatchCompute), nullptr, 0, 0,
                           TobjectSet::sTypeof());
    return &meta;
}

void* TDNdispatchCompute::cast(Tmetaclass* meta) {
    if (meta && meta == sTypeof())
        return this;
    return TobjectSet::cast(meta);
}
