#include "host/colour/prefs.h"

namespace {
TcolorMgtPrefs* gInstance = nullptr;
} // namespace

TcolorMgtPrefs::~TcolorMgtPrefs() {
    if (gInstance == this)
        gInstance = nullptr;
}

TcolorMgtPrefs* TcolorMgtPrefs::GetInstance() {
    return gInstance;
}

void TcolorMgtPrefs::SetInstance(TcolorMgtPrefs* prefs) {
    gInstance = prefs;
}

int TcolorMgtPrefs::GetMode() const {
    return TcolorMgtCatalog::instance().usesBuiltin() ? 0 : 1;
}

bool TcolorMgtPrefs::RefreshColorSpaces(std::string& why) {
    const Tstring path = CMConfigFileIsEnabled() ? GetConfigFilePath() : Tstring();
    return TcolorMgtCatalog::instance().load(path, why);
}

std::vector<Tstring> TcolorMgtPrefs::GetViewTransformNames() const {
    return TcolorMgtCatalog::instance().viewTransformNames();
}

std::vector<Tstring> TcolorMgtPrefs::GetWorkingSpaceNames() const {
    return TcolorMgtCatalog::instance().workingSpaceNames();
}

std::vector<Tstring> TcolorMgtPrefs::GetInputSpaceNames() const {
    return TcolorMgtCatalog::instance().colorSpaceNames();
}

// A renderer's output goes through a view transform or, with a colour
// conversion, into a colour space: either kind of name is valid.
std::vector<Tstring> TcolorMgtPrefs::GetRendererOutputTransformNames() const {
    std::vector<Tstring> names = TcolorMgtCatalog::instance().viewTransformNames();
    for (Tstring& n : TcolorMgtCatalog::instance().colorSpaceNames())
        names.push_back(std::move(n));
    return names;
}

std::vector<Tstring> TcolorMgtPrefs::GetPlayblastOutputTransformNames() const {
    return GetRendererOutputTransformNames();
}

Tstring TcolorMgtPrefs::GetNativeDefaultViewTransformName() {
    return TcolorMgtCatalog::kStandardView;
}
Tstring TcolorMgtPrefs::GetNativeDefaultWorkingSpaceName() {
    return TcolorMgtCatalog::kSceneLinear;
}
Tstring TcolorMgtPrefs::GetNativeDefaultInputTransformName() {
    return TcolorMgtCatalog::kSrgb;
}
Tstring TcolorMgtPrefs::GetNativeDefaultOutputTransformName() {
    return TcolorMgtCatalog::kStandardView;
}

void TcolorMgtPrefs::sendMessage(TcolorMgtMsg msg) {
    if (fInhibit > 0)
        return;
    for (const Listener& l : fListeners)
        l(msg);
}
