#include "colour/inverse_view_transform.h"

#include <utility>

#include "host/env.h"

TinverseViewTransform::TinverseViewTransform(std::shared_ptr<const TcolorMgtViewState> state)
    : fState(std::move(state)) {
    if (fState)
        fInverse = fState->inverseProcessor();
}

TportColor TinverseViewTransform::operator()(const TportColor& colour) const {
    if (!fState || fInverse.isNoOp())
        return colour;
    float rgb[3] = {colour.r, colour.g, colour.b};
    fInverse.apply(rgb);
    return {rgb[0], rgb[1], rgb[2], colour.a};
}

bool TinverseViewTransformGuard::uiInverseDisabled() {
    static const bool disabled = OrvoEnvIsSet("ORVO_COLOR_MANAGEMENT_DISABLE_UI_INVERSE");
    return disabled;
}

TinverseViewTransformGuard::TinverseViewTransformGuard(
    std::shared_ptr<const TcolorMgtViewState> state) {
    if (uiInverseDisabled() || !state || !state->CMIsEnabled())
        return;
    const TinverseViewTransform inverse(state);
    fCurrent = TcolorMgtViewState::makeCurrent(state);
    TcolorPrefManager& prefs = TcolorPrefManager::instance();
    fPalettes = prefs.pushCopyPalettes();
    for (auto& [name, colour] : prefs.palettes())
        colour = inverse(colour);
    TmodelAttributes& model = TmodelAttributes::instance();
    fMemento = model.saveToMemento();
    for (auto& [name, colour] : model.colors())
        colour = inverse(colour);
    fColorTable = T3dPort::pushCopyModelViewColorTable();
    for (TportColor& colour : T3dPort::modelViewColorTable())
        colour = inverse(colour);
}

TinverseViewTransformGuard::~TinverseViewTransformGuard() {
    restore();
}

TinverseViewTransformGuard&
TinverseViewTransformGuard::operator=(TinverseViewTransformGuard&& other) noexcept {
    if (this != &other) {
        restore();
        fCurrent = std::move(other.fCurrent);
        fPalettes = std::move(other.fPalettes);
        fMemento = std::move(other.fMemento);
        fColorTable = std::move(other.fColorTable);
    }
    return *this;
}

void TinverseViewTransformGuard::restore() {
    if (fMemento)
        TmodelAttributes::instance().restoreFromMemento(*fMemento);
    // The parts go in the reverse of the order they were taken in.
    fColorTable.reset();
    fMemento.reset();
    fPalettes.reset();
    fCurrent.reset();
}
