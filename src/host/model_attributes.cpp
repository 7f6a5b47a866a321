#include "host/model_attributes.h"

TmodelAttributes& TmodelAttributes::instance() {
    static TmodelAttributes attributes;
    return attributes;
}

const TportColor* TmodelAttributes::color(const Tstring& name) const {
    const auto it = fColors.find(name);
    return it == fColors.end() ? nullptr : &it->second;
}

std::unique_ptr<TmodelAttributes::Memento> TmodelAttributes::saveToMemento() const {
    return std::make_unique<Memento>(Memento{fColors});
}
