#pragma once

// User-interface colours are chosen as they should look on screen, but a
// colour-managed view sends everything it draws through its view transform.
// TinverseViewTransform takes a colour back through the inverse of a view's
// transform, so that after the view transform it looks as chosen;
// TinverseViewTransformGuard does that for every interface colour (the
// palettes, the model colours, the port's colour table) for the life of a
// drawing scope, and puts them back after.

#include <memory>

#include "host/colour/catalog.h"
#include "host/colour/pref_manager.h"
#include "host/colour/view_state.h"
#include "host/draw/port.h"
#include "host/model_attributes.h"

class TinverseViewTransform {
public:
    explicit TinverseViewTransform(std::shared_ptr<const TcolorMgtViewState> state);
    // The colour through the inverse of the state's view transform; alpha
    // as it is. Without a state the colour as it is.
    TportColor operator()(const TportColor& colour) const;

private:
    std::shared_ptr<const TcolorMgtViewState> fState;
    TcolourProcessor fInverse;
};

class TinverseViewTransformGuard {
public:
    // Nothing happens without a state, with colour management off in it, or
    // with ORVO_COLOR_MANAGEMENT_DISABLE_UI_INVERSE set (read once per
    // process).
    explicit TinverseViewTransformGuard(std::shared_ptr<const TcolorMgtViewState> state);
    ~TinverseViewTransformGuard();
    TinverseViewTransformGuard(TinverseViewTransformGuard&& other) noexcept = default;
    TinverseViewTransformGuard& operator=(TinverseViewTransformGuard&& other) noexcept;
    TinverseViewTransformGuard(const TinverseViewTransformGuard&) = delete;
    TinverseViewTransformGuard& operator=(const TinverseViewTransformGuard&) = delete;

    // Whether this guard changed anything.
    bool active() const { return fCurrent != nullptr; }
    // The environment variable's verdict, read the first time it is asked.
    static bool uiInverseDisabled();

private:
    void restore();

    std::unique_ptr<TcolorMgtViewState::CurrentToken> fCurrent;
    std::unique_ptr<TcolorPrefManager::PaletteCopy> fPalettes;
    std::unique_ptr<TmodelAttributes::Memento> fMemento;
    std::unique_ptr<T3dPort::ColorTableCopy> fColorTable;
};
