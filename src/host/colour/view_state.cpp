#include "host/colour/view_state.h"

#include "host/colour/prefs.h"

namespace {

std::shared_ptr<const TcolorMgtViewState>& currentState() {
    static std::shared_ptr<const TcolorMgtViewState> state;
    return state;
}

} // namespace

TcolorMgtViewState::TcolorMgtViewState(bool enabled, Tstring workingSpace, Tstring viewTransform)
    : fEnabled(enabled), fWorkingSpace(std::move(workingSpace)),
      fViewTransform(std::move(viewTransform)) {}

std::shared_ptr<const TcolorMgtViewState> TcolorMgtViewState::fromPrefs() {
    const TcolorMgtPrefs* prefs = TcolorMgtPrefs::GetInstance();
    if (!prefs)
        return nullptr;
    return std::make_shared<const TcolorMgtViewState>(
        prefs->CMIsEnabled(), prefs->GetWorkingSpaceName(), prefs->GetViewTransformName());
}

TcolourProcessor TcolorMgtViewState::inverseProcessor() const {
    TcolourProcessor out;
    std::string view, display, why;
    if (!fEnabled || !TcolorMgtCatalog::splitViewTransform(fViewTransform, view, display))
        return out;
    TcolorMgtCatalog& catalog = TcolorMgtCatalog::instance();
    const std::string space = catalog.viewColorSpace(display, view);
    const std::string working =
        fWorkingSpace.empty() ? TcolorMgtCatalog::kSceneLinear : fWorkingSpace;
    if (space.empty() || !catalog.processor(space, working, out, why))
        return TcolourProcessor();
    return out;
}

TcolorMgtViewState::CurrentToken::~CurrentToken() {
    currentState() = std::move(fPrevious);
}

std::unique_ptr<TcolorMgtViewState::CurrentToken>
TcolorMgtViewState::makeCurrent(std::shared_ptr<const TcolorMgtViewState> state) {
    std::unique_ptr<CurrentToken> token(new CurrentToken(currentState()));
    currentState() = std::move(state);
    return token;
}

std::shared_ptr<const TcolorMgtViewState> TcolorMgtViewState::current() {
    return currentState();
}
