#include "colour/color_mgt_globals.h"

#include <fmt/format.h>

#include <set>

#include "host/app_mode.h"
#include "host/colour/file_rules.h"
#include "host/colour/policy.h"
#include "host/env.h"
#include "host/graph.h"
#include "host/messages.h"
#include "host/option_vars.h"
#include "settings/settings_values.h"
#include "settings/vpr_render_globals.h"

ORVO_REGISTER_NODE(TdnColorMgtGlobals)
ORVO_DEPENDENCIES(TdnColorMgtGlobals) {}

namespace {

constexpr const char* kEvents[] = {
    "colorMgtEnabledChanged",         "colorMgtConfigFileEnableChanged",
    "colorMgtConfigFilePathChanged",  "colorMgtConfigChanged",
    "colorMgtWorkingSpaceChanged",    "colorMgtPrefsViewTransformChanged",
    "colorMgtPrefsReloaded",          "colorMgtOutputChanged",
    "colorMgtPlayblastOutputChanged", "colorMgtRefreshed",
};

Tstring msg(const char* id) {
    return TstringId(std::string("s_TdnColorMgtGlobalsStrings.") + id).text();
}
template <class... Args>
Tstring msgf(const char* id, Args&&... args) {
    return TstringId(std::string("s_TdnColorMgtGlobalsStrings.") + id)
        .format(std::forward<Args>(args)...);
}

bool contains(const std::vector<Tstring>& names, const Tstring& name) {
    for (const Tstring& n : names)
        if (n == name)
            return true;
    return false;
}

// The OCIO variable, read once, with Windows separators made '/'.
const Tstring& ocioVariable() {
    static const Tstring path = [] {
        Tstring p = OrvoGetEnv("OCIO").value_or("");
        for (char& c : p)
            if (c == '\\')
                c = '/';
        return p;
    }();
    return path;
}

// A configuration that cannot be used is reported once per process, however
// many scenes or reloads meet it.
void reportConfigError(const Tstring& why) {
    static std::set<Tstring> reported;
    if (reported.insert(why).second)
        TcommandEngine::displayError(why);
}

} // namespace

// ---------------------------------------------------------------- finding

TdnColorMgtGlobals* TdnColorMgtGlobals::find(const TdependGraph& graph) {
    TdependNode* node = graph.findNode(kDefaultName);
    if (!node || !node->cast(sTypeof()))
        for (TdependNode* n : graph.nodes())
            if (n->cast(sTypeof())) {
                node = n;
                break;
            }
    return node ? static_cast<TdnColorMgtGlobals*>(node->cast(sTypeof())) : nullptr;
}

TdnColorMgtGlobals* TdnColorMgtGlobals::ensure(TdependGraph& graph) {
    if (TdnColorMgtGlobals* found = find(graph))
        return found;
    TdependNode* node = graph.createNode(Identity::kTypeName, kDefaultName);
    node->setImplicitlyCreated(true);
    node->setNodeIsDefault(true);
    auto* globals = static_cast<TdnColorMgtGlobals*>(node->cast(sTypeof()));
    globals->SetPrefsInstance();
    return globals;
}

void TdnColorMgtGlobals::SetPrefsInstance() {
    if (!fTriggers[0])
        for (int i = 0; i < kTriggerCount; ++i)
            fTriggers[size_t(i)] = std::make_unique<TcolorMgtTrigger>(kEvents[i]);
    TcolorMgtPrefs::SetInstance(this);
    // A failed reset leaves colour management off rather than half set.
    try {
        Reset();
    } catch (const Tstring& why) {
        reportConfigError(why);
        writeFlag(aCmEnabled, false);
    }
}

// ---------------------------------------------------------------- values

bool TdnColorMgtGlobals::flag(const Tattribute& attribute) const {
    return orvo::settings::number(*this, attribute) != 0.0;
}
Tstring TdnColorMgtGlobals::text(const Tattribute& attribute) const {
    return orvo::settings::text(*this, attribute);
}
void TdnColorMgtGlobals::writeFlag(const Tattribute& attribute, bool on) {
    orvo::settings::setNumber(*this, attribute, on ? 1.0 : 0.0);
}
void TdnColorMgtGlobals::writeText(const Tattribute& attribute, const Tstring& value) {
    // An unset text stays unset, so that a saved scene holds only what was set.
    if (text(attribute) != value)
        orvo::settings::setText(*this, attribute, value);
}
void TdnColorMgtGlobals::fire(Trigger t) {
    if (fTriggers[t])
        fTriggers[t]->fire();
}

bool TdnColorMgtGlobals::CMIsEnabled() const {
    return flag(aCmEnabled);
}
bool TdnColorMgtGlobals::CMConfigFileIsEnabled() const {
    return flag(aConfigFileEnabled);
}
Tstring TdnColorMgtGlobals::GetViewTransformName() const {
    return text(aViewTransformName);
}
Tstring TdnColorMgtGlobals::GetWorkingSpaceName() const {
    return text(aWorkingSpaceName);
}
bool TdnColorMgtGlobals::IsOutputTransformEnabled() const {
    return flag(aOutputTransformEnabled);
}
bool TdnColorMgtGlobals::OutputTransformUseColorConversion() const {
    return flag(aOutputTransformUseColorConversion);
}
bool TdnColorMgtGlobals::IsPlayblastOutputTransformEnabled() const {
    return flag(aPlaybOutputTransformEnabled);
}
bool TdnColorMgtGlobals::PlayblastOutputTransformUseColorConversion() const {
    return flag(aPlaybOutputTransformUseColorConversion);
}
// A colour conversion is no view transform, whatever the flag says.
bool TdnColorMgtGlobals::OutputUseViewTransform() const {
    return !OutputTransformUseColorConversion() && flag(aOutputUseViewTransform);
}
bool TdnColorMgtGlobals::PlayblastOutputUseViewTransform() const {
    return !PlayblastOutputTransformUseColorConversion() && flag(aPlaybOutputUseViewTransform);
}
Tstring TdnColorMgtGlobals::GetOutputTransformName() const {
    return text(aOutputTransformName);
}
Tstring TdnColorMgtGlobals::GetPlayblastOutputTransformName() const {
    return text(aPlaybOutputTransformName);
}
Tstring TdnColorMgtGlobals::GetConfigFilePath() const {
    return text(aConfigFilePath);
}
Tstring TdnColorMgtGlobals::GetDefaultInputSpaceName() const {
    return text(aDefaultInputSpaceName);
}

T3Float TdnColorMgtGlobals::GetViewTransformedColor(const T3Float& color) const {
    float rgb[3] = {color.x, color.y, color.z};
    TcolourProcessor p;
    std::string why;
    if (CMIsEnabled() && TcolorMgtCatalog::instance().viewProcessor(GetWorkingSpaceName(),
                                                                    GetViewTransformName(), p, why))
        p.apply(rgb);
    return {rgb[0], rgb[1], rgb[2]};
}

T3Float TdnColorMgtGlobals::GetReverseViewTransformedColor(const T3Float& color) const {
    // The view's colour space back to the working space.
    float rgb[3] = {color.x, color.y, color.z};
    std::string view, display, why;
    TcolourProcessor p;
    if (CMIsEnabled() &&
        TcolorMgtCatalog::splitViewTransform(GetViewTransformName(), view, display)) {
        const Tstring space = TcolorMgtCatalog::instance().viewColorSpace(display, view);
        if (!space.empty() &&
            TcolorMgtCatalog::instance().processor(space, GetWorkingSpaceName(), p, why))
            p.apply(rgb);
    }
    return {rgb[0], rgb[1], rgb[2]};
}

// ---------------------------------------------------------------- names

std::vector<Tstring> TdnColorMgtGlobals::namesOf(int which) const {
    switch (which) {
    case 0:
        return GetViewTransformNames();
    case 1:
        return GetWorkingSpaceNames();
    case 2:
        return GetRendererOutputTransformNames();
    default:
        return GetPlayblastOutputTransformNames();
    }
}

Tstring TdnColorMgtGlobals::transformDefault(int which) const {
    if (GetMode() == 1) {
        const std::vector<Tstring> names = namesOf(which);
        return names.empty() ? Tstring() : names.front();
    }
    switch (which) {
    case 0:
        return GetNativeDefaultViewTransformName();
    case 1:
        return GetNativeDefaultWorkingSpaceName();
    case 2:
        return OutputTransformUseColorConversion() ? GetNativeDefaultInputTransformName()
                                                   : GetNativeDefaultOutputTransformName();
    default:
        return PlayblastOutputTransformUseColorConversion() ? GetNativeDefaultInputTransformName()
                                                            : GetNativeDefaultOutputTransformName();
    }
}

void TdnColorMgtGlobals::setTransformName(int which, const Tstring& name) {
    static const char* unknown[] = {"rUnknownPrefsViewTransformError", "rUnknownWorkingSpaceError",
                                    "rUnknownOutputTransformError", "rUnknownOutputTransformError"};
    static const char* failed[] = {"rPrefsViewTransformError", "rWorkingSpaceError",
                                   "rOutputTransformError", "rOutputTransformError"};
    const Tattribute* attributes[] = {&aViewTransformName, &aWorkingSpaceName,
                                      &aOutputTransformName, &aPlaybOutputTransformName};
    const std::vector<Tstring> names = namesOf(which);
    if (name.empty() || names.empty() || !contains(names, name))
        throw msgf(unknown[which], name);
    const Tstring old = text(*attributes[which]);
    if (name == old)
        return;
    try {
        writeText(*attributes[which], name);
    } catch (const std::exception& e) {
        writeText(*attributes[which], old);
        throw msgf(failed[which], name, e.what());
    }
    switch (which) {
    case 0:
        sendMessage(TcolorMgtMsg::kPrefsViewTransformChanged);
        fire(kViewTransformChanged);
        break;
    case 1:
        sendMessage(TcolorMgtMsg::kConfigChanged);
        fire(kWorkingSpaceChanged);
        break;
    case 2:
        sendMessage(TcolorMgtMsg::kOutputChanged);
        fire(kOutputChanged);
        break;
    default:
        sendMessage(TcolorMgtMsg::kOutputChanged);
        fire(kPlayblastOutputChanged);
        break;
    }
}

void TdnColorMgtGlobals::SetViewTransformName(const Tstring& name) {
    setTransformName(0, name);
    if (OutputUseViewTransform() && GetOutputTransformName() != name)
        setTransformName(2, name);
    if (PlayblastOutputUseViewTransform() && GetPlayblastOutputTransformName() != name)
        setTransformName(3, name);
}

void TdnColorMgtGlobals::SetWorkingSpaceName(const Tstring& name) {
    setTransformName(1, name);
}

void TdnColorMgtGlobals::SetOutputTransformName(const Tstring& name) {
    const bool wasOn = flag(aOutputUseViewTransform);
    try {
        writeFlag(aOutputUseViewTransform, false);
    } catch (const std::exception& e) {
        throw msgf("rOutputUseViewTransformFailedError", e.what());
    }
    const Tstring old = GetOutputTransformName();
    setTransformName(2, name);
    // Same name, new meaning: it no longer follows the view transform.
    if (wasOn && old == name) {
        sendMessage(TcolorMgtMsg::kOutputChanged);
        fire(kOutputChanged);
    }
}

void TdnColorMgtGlobals::SetPlayblastOutputTransformName(const Tstring& name) {
    const bool wasOn = flag(aPlaybOutputUseViewTransform);
    try {
        writeFlag(aPlaybOutputUseViewTransform, false);
    } catch (const std::exception& e) {
        throw msgf("rOutputUseViewTransformFailedError", e.what());
    }
    const Tstring old = GetPlayblastOutputTransformName();
    setTransformName(3, name);
    if (wasOn && old == name) {
        sendMessage(TcolorMgtMsg::kOutputChanged);
        fire(kPlayblastOutputChanged);
    }
}

// ---------------------------------------------------------------- flags

void TdnColorMgtGlobals::SetOutputTransformEnable(bool on) {
    if (IsOutputTransformEnabled() == on)
        return;
    writeFlag(aOutputTransformEnabled, on);
    sendMessage(TcolorMgtMsg::kOutputChanged);
    fire(kOutputChanged);
}

void TdnColorMgtGlobals::SetPlayblastOutputTransformEnable(bool on) {
    if (IsPlayblastOutputTransformEnabled() == on)
        return;
    writeFlag(aPlaybOutputTransformEnabled, on);
    sendMessage(TcolorMgtMsg::kOutputChanged);
    fire(kPlayblastOutputChanged);
}

void TdnColorMgtGlobals::SetOutputTransformUseColorConversion(bool on) {
    writeFlag(aOutputTransformUseColorConversion, on);
    sendMessage(TcolorMgtMsg::kOutputChanged);
    fire(kOutputChanged);
    const Tstring name =
        !flag(aOutputUseViewTransform) || on ? transformDefault(2) : GetViewTransformName();
    if (!name.empty() && name != GetOutputTransformName()) {
        InhibitEvents quiet(*this);
        writeText(aOutputTransformName, name);
    }
}

void TdnColorMgtGlobals::SetPlayblastOutputTransformUseColorConversion(bool on) {
    writeFlag(aPlaybOutputTransformUseColorConversion, on);
    sendMessage(TcolorMgtMsg::kOutputChanged);
    fire(kPlayblastOutputChanged);
    const Tstring name =
        !flag(aPlaybOutputUseViewTransform) || on ? transformDefault(3) : GetViewTransformName();
    if (!name.empty() && name != GetPlayblastOutputTransformName()) {
        InhibitEvents quiet(*this);
        writeText(aPlaybOutputTransformName, name);
    }
}

void TdnColorMgtGlobals::SetOutputUseViewTransform() {
    const bool changed = !flag(aOutputUseViewTransform);
    writeFlag(aOutputUseViewTransform, true);
    writeText(aOutputTransformName, GetViewTransformName());
    if (changed) {
        sendMessage(TcolorMgtMsg::kOutputChanged);
        fire(kOutputChanged);
    }
}

void TdnColorMgtGlobals::SetPlayblastOutputUseViewTransform() {
    const bool changed = !flag(aPlaybOutputUseViewTransform);
    writeFlag(aPlaybOutputUseViewTransform, true);
    writeText(aPlaybOutputTransformName, GetViewTransformName());
    if (changed) {
        sendMessage(TcolorMgtMsg::kOutputChanged);
        fire(kPlayblastOutputChanged);
    }
}

void TdnColorMgtGlobals::SetCMEnable(bool on) {
    const bool old = CMIsEnabled();
    if (old == on)
        return;
    try {
        writeFlag(aCmEnabled, on);
        sendMessage(TcolorMgtMsg::kEnableChanged);
        fire(kEnabledChanged);
        // The viewport draws managed colour into floating-point targets; it
        // turns them off again only when it was this code that turned them on.
        if (TdnVPRRenderGlobals* vpr =
                graph() ? TdnVPRRenderGlobals::currentGlobals(graph()) : nullptr) {
            if (on && !vpr->getBoolean(TdnVPRRenderGlobals::aFloatingPointRTEnable)) {
                fTurnedFloatTargetsOn = true;
                vpr->setEnum(TdnVPRRenderGlobals::aFloatingPointRTFormat, 1);
                vpr->setBoolean(TdnVPRRenderGlobals::aFloatingPointRTEnable, true);
            } else if (!on && fTurnedFloatTargetsOn) {
                fTurnedFloatTargetsOn = false;
                vpr->setBoolean(TdnVPRRenderGlobals::aFloatingPointRTEnable, false);
            }
        }
    } catch (...) {
        try {
            writeFlag(aCmEnabled, old);
        } catch (...) {
            Reset();
        }
        throw msg("rCMEnableFailedError");
    }
}

void TdnColorMgtGlobals::SetCMConfigFileEnable(bool on) {
    if (on && GetConfigFilePath().empty())
        throw msg("rCMConfigFilePathEmptyError");
    const bool old = CMConfigFileIsEnabled();
    if (old == on)
        return;
    try {
        writeFlag(aConfigFileEnabled, on);
    } catch (const std::exception&) {
        throw msg("rCMConfigFileEnableError");
    }
    Tstring error;
    try {
        NotifyConfigChangedAndSetDefaults();
    } catch (const Tstring& why) {
        error = why;
        writeFlag(aConfigFileEnabled, old);
        try {
            NotifyConfigChangedAndSetDefaults();
        } catch (const Tstring&) {
        }
    }
    fire(kConfigFileEnableChanged);
    if (!error.empty())
        throw error;
}

void TdnColorMgtGlobals::SetConfigFilePath(const Tstring& path) {
    if (path.empty() && CMConfigFileIsEnabled())
        throw msg("rCMConfigFilePathEmptyError");
    const Tstring old = GetConfigFilePath();
    if (old == path)
        return;
    try {
        writeText(aConfigFilePath, path);
    } catch (const std::exception&) {
        throw msgf("rCMConfigFilePathError", path);
    }
    Tstring error;
    if (CMConfigFileIsEnabled()) {
        try {
            NotifyConfigChangedAndSetDefaults();
        } catch (const Tstring& why) {
            error = why;
            writeText(aConfigFilePath, old);
            try {
                NotifyConfigChangedAndSetDefaults();
            } catch (const Tstring&) {
            }
        }
    }
    fire(kConfigFilePathChanged);
    if (!error.empty())
        throw error;
}

// ---------------------------------------------------------------- compound updates

void TdnColorMgtGlobals::NotifyConfigChangedAndSetDefaults() {
    {
        InhibitEvents quiet(*this);
        std::string why;
        if (!RefreshColorSpaces(why))
            throw msgf("rCMConfigFileEnableError", why);
        SetTransformDefaults();
    }
    sendMessage(TcolorMgtMsg::kConfigChanged);
    sendMessage(TcolorMgtMsg::kEnableChanged);
    fire(kConfigChanged);
}

void TdnColorMgtGlobals::SetTransformDefaults() {
    writeText(aViewTransformName, transformDefault(0));
    writeText(aWorkingSpaceName, transformDefault(1));
    writeText(aOutputTransformName, transformDefault(2));
    writeText(aPlaybOutputTransformName, transformDefault(3));
}

void TdnColorMgtGlobals::Reset() {
    InhibitEvents quiet(*this);
    writeFlag(aCmEnabled, false);
    writeFlag(aConfigFileEnabled, false);
    writeText(aConfigFilePath, "");
    const Tstring& ocio = ocioVariable();
    if (!ocio.empty()) {
        writeText(aConfigFilePath, ocio);
        writeFlag(aConfigFileEnabled, true);
    }
    writeFlag(aOutputTransformEnabled, false);
    writeFlag(aOutputTransformUseColorConversion, false);
    writeFlag(aPlaybOutputTransformEnabled, true);
    writeFlag(aPlaybOutputTransformUseColorConversion, false);
    writeFlag(aOutputUseViewTransform, true);
    writeFlag(aPlaybOutputUseViewTransform, true);
    bool enabled = true;
    const auto pref = ToptionVars::instance().get("colorManagementEnabledByDefault");
    if (pref) {
        enabled = *pref != "0" && *pref != "false";
        ToptionVars::instance().set("colorManagementEnabledByDefault", enabled ? "1" : "0");
    }
    writeFlag(aCmEnabled, enabled);
    std::string why;
    const bool loaded = RefreshColorSpaces(why);
    SetTransformDefaults();
    if (!loaded)
        throw ocio.empty() || GetConfigFilePath() != ocio
            ? why
            : fmt::format("the OCIO variable: {}", why);
}

bool TdnColorMgtGlobals::HasIncompleteSettings() const {
    const bool incomplete = GetViewTransformName().empty() || GetWorkingSpaceName().empty() ||
                            GetOutputTransformName().empty() ||
                            GetPlayblastOutputTransformName().empty();
    if (incomplete)
        TcommandEngine::displayConsole(msg("rIncompleteSettingsError") + "\n");
    return incomplete;
}

bool TdnColorMgtGlobals::CheckInvariants() const {
    return !(CMConfigFileIsEnabled() && GetConfigFilePath().empty());
}

void TdnColorMgtGlobals::LoadPolicy(const Tstring& file) {
    const Tstring failure = msgf("rPolicyFileLoadingFailureError", file);
    bool wrong = false;
    Tstring detail;
    try {
        const TcolorMgtPolicyData p = TcolorMgtPolicy::ReadPolicy(file);
        {
            InhibitEvents quiet(*this);
            writeFlag(aCmEnabled, p.cmEnabled);
            writeFlag(aConfigFileEnabled, false);
            writeText(aConfigFilePath, p.configFilePath);
            TcolorMgtFileRules& rules = TcolorMgtFileRules::instance();
            rules.restoreDefaults();
            if (!p.defaultInput8Bit.empty() || !p.defaultInputFloat.empty())
                rules.setDefaultSpaces(
                    p.defaultInput8Bit.empty() ? rules.defaultSpace(false) : p.defaultInput8Bit,
                    p.defaultInputFloat.empty() ? rules.defaultSpace(true) : p.defaultInputFloat);
            Tstring why;
            for (size_t i = 0; i < p.rules.size(); ++i)
                rules.addRule(p.rules[i], i, why);
            writeFlag(aConfigFileEnabled, p.configFileEnabled);
            std::string loadWhy;
            if (!RefreshColorSpaces(loadWhy)) {
                writeFlag(aCmEnabled, false);
                writeFlag(aConfigFileEnabled, false);
                wrong = true;
                detail = loadWhy;
            }
            const auto nameOr = [&](const Tstring& name, int which) {
                return name.empty() ? transformDefault(which) : name;
            };
            writeText(aWorkingSpaceName, nameOr(p.workingSpace, 1));
            writeText(aViewTransformName, nameOr(p.viewTransform, 0));
            writeFlag(aOutputTransformEnabled, p.outputTransformEnabled);
            writeFlag(aOutputTransformUseColorConversion, p.outputTransformUseColorConversion);
            writeText(aOutputTransformName, nameOr(p.outputTransformName, 2));
            writeFlag(aOutputUseViewTransform, p.outputUseViewTransform);
            writeFlag(aPlaybOutputTransformEnabled, p.playblastOutputTransformEnabled);
            writeFlag(aPlaybOutputTransformUseColorConversion,
                      p.playblastOutputTransformUseColorConversion);
            writeText(aPlaybOutputTransformName, nameOr(p.playblastOutputTransformName, 3));
            writeFlag(aPlaybOutputUseViewTransform, p.playblastOutputUseViewTransform);
        }
        sendMessage(TcolorMgtMsg::kPrefsReloaded);
        fire(kPrefsReloaded);
    } catch (const Tstring& why) {
        wrong = true;
        detail = why;
    }
    if (wrong) {
        writeFlag(aCmEnabled, false);
        writeFlag(aConfigFileEnabled, false);
        try {
            NotifyConfigChangedAndSetDefaults();
        } catch (const Tstring&) {
        }
        throw detail.empty() ? failure : failure + " " + detail;
    }
}

void TdnColorMgtGlobals::RestoreDefaults() {
    Reset();
    TcolorMgtFileRules::instance().restoreDefaults();
    sendMessage(TcolorMgtMsg::kPrefsReloaded);
    fire(kPrefsReloaded);
}

void TdnColorMgtGlobals::RefreshInstance() {
    RefreshSynColor();
    const bool on = CMIsEnabled();
    std::string why;
    if (RefreshColorSpaces(why)) {
        fire(kRefreshed);
        return;
    }
    if (on) {
        TcommandEngine::displayConsole(why + "\n");
        writeFlag(aCmEnabled, false);
        throw why;
    }
}

// ---------------------------------------------------------------- scene loads

TdnColorMgtGlobals::Snapshot TdnColorMgtGlobals::snapshot() const {
    Snapshot s;
    s.cmEnabled = CMIsEnabled();
    s.configFileEnabled = CMConfigFileIsEnabled();
    s.viewTransform = GetViewTransformName();
    s.workingSpace = GetWorkingSpaceName();
    s.configPath = GetConfigFilePath();
    s.outputEnabled = IsOutputTransformEnabled();
    s.outputConversion = OutputTransformUseColorConversion();
    s.playblastEnabled = IsPlayblastOutputTransformEnabled();
    s.playblastConversion = PlayblastOutputTransformUseColorConversion();
    s.outputName = GetOutputTransformName();
    s.playblastName = GetPlayblastOutputTransformName();
    return s;
}

void TdnColorMgtGlobals::sceneLoadStarted(bool /*opening*/) {
    fSnapshot = snapshot();
    ++fLoadDepth;
}

bool TdnColorMgtGlobals::applyPolicy() {
    const Tstring file = ToptionVars::instance().get("colorManagementPolicyFileName").value_or("");
    if (file.empty())
        return false;
    try {
        LoadPolicy(file);
        return true;
    } catch (const Tstring& why) {
        TcommandEngine::displayError(why);
        return false;
    }
}

void TdnColorMgtGlobals::sceneLoadEnded() {
    if (fLoadDepth > 1) {
        --fLoadDepth;
        return;
    }
    bool changed = false;
    try {
        // Outside batch runs the user's policy wins over the file; without
        // one, the OCIO variable's configuration does.
        if (!gBatchMode && !applyPolicy() && !ocioVariable().empty()) {
            InhibitEvents quiet(*this);
            writeFlag(aCmEnabled, true);
            if (GetConfigFilePath() != ocioVariable()) {
                writeFlag(aConfigFileEnabled, false);
                writeText(aConfigFilePath, ocioVariable());
                writeFlag(aConfigFileEnabled, true);
            }
        }
        changed = !(snapshot() == fSnapshot);
        fLoadedWorkingSpace = GetWorkingSpaceName();
        fLoadedViewTransform = GetViewTransformName();
        fLoadedOutputTransform = GetOutputTransformName();
        fLoadedPlayblastOutputTransform = GetPlayblastOutputTransformName();
        {
            InhibitEvents quiet(*this);
            if (GetWorkingSpaceName() == "ACES")
                writeText(aWorkingSpaceName, "ACES2065-1");
            for (const Tattribute* a :
                 {&aViewTransformName, &aOutputTransformName, &aPlaybOutputTransformName})
                if (text(*a) == "Tessaly tone-map")
                    writeText(*a, "Quorra tone-map");
        }
        HideDeprecatedColorSpaces(1);
        const Tstring ws = GetWorkingSpaceName();
        if (ws == "ARRI LogC" || ws == "Log film scan (ADX)" || ws == "Sharp RGB" ||
            GetViewTransformName() == "ACES RRT v0.7")
            HideDeprecatedColorSpaces(0);
    } catch (const Tstring& why) {
        TcommandEngine::displayError(msgf("rFileOpenPrefsReloadedError", why));
    }
    if (changed)
        NotifyPrefsReloaded();
    fLoadDepth = std::max(0, fLoadDepth - 1);
}

void TdnColorMgtGlobals::NotifyPrefsReloaded() {
    try {
        {
            InhibitEvents quiet(*this);
            std::string why;
            if (!RefreshColorSpaces(why)) {
                reportConfigError(ocioVariable() == GetConfigFilePath()
                                      ? fmt::format("the OCIO variable: {}", why)
                                      : why);
                writeFlag(aCmEnabled, false);
                writeFlag(aConfigFileEnabled, false);
            }
            static const char* missing[] = {"rMissingViewTransformName", "rMissingWorkingSpaceName",
                                            "rMissingOutputTransformName",
                                            "rMissingPlayblastOutputTransformName"};
            const Tattribute* attributes[] = {&aViewTransformName, &aWorkingSpaceName,
                                              &aOutputTransformName, &aPlaybOutputTransformName};
            for (int which = 0; which < 4; ++which) {
                const Tstring current = text(*attributes[which]);
                if (contains(namesOf(which), current))
                    continue;
                const Tstring replacement = transformDefault(which);
                writeText(*attributes[which], replacement);
                TcommandEngine::displayConsole(msgf(missing[which], current, replacement) + "\n");
            }
        }
        sendMessage(TcolorMgtMsg::kPrefsReloaded);
        fire(kPrefsReloaded);
    } catch (const Tstring& why) {
        TcommandEngine::displayError(msgf("rFileOpenPrefsReloadedUnknownError", why));
        writeFlag(aCmEnabled, false);
        writeFlag(aConfigFileEnabled, false);
        try {
            NotifyConfigChangedAndSetDefaults();
        } catch (const Tstring&) {
        }
    }
}
