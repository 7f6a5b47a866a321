#include "colour/colour_choice.h"

#include "colour/color_mgt_globals.h"
#include "host/colour/file_rules.h"
#include "host/graph.h"

TcolourRenderSettings OrvoColourRenderSettings(const TdependGraph* graph) {
    TcolourRenderSettings s;
    s.workingSpace = TcolorMgtPrefs::GetNativeDefaultWorkingSpaceName();
    s.outputTransform = TcolorMgtPrefs::GetNativeDefaultOutputTransformName();
    const TdnColorMgtGlobals* globals = graph ? TdnColorMgtGlobals::find(*graph) : nullptr;
    if (!globals || !globals->CMIsEnabled()) {
        s.enabled = globals == nullptr;
        return s;
    }
    // A name left empty (a node made by hand, never reset) means its default.
    if (const Tstring ws = globals->GetWorkingSpaceName(); !ws.empty())
        s.workingSpace = ws;
    s.defaultInputSpace = globals->GetDefaultInputSpaceName();
    // Output follows the view transform unless an output transform of its
    // own is on.
    if (globals->IsOutputTransformEnabled()) {
        s.outputUseColorConversion = globals->OutputTransformUseColorConversion();
        if (const Tstring name = globals->GetOutputTransformName(); !name.empty())
            s.outputTransform = name;
    } else if (const Tstring view = globals->GetViewTransformName(); !view.empty()) {
        s.outputTransform = view;
    }
    return s;
}

TcolourInputChoice OrvoChooseInputColour(const TcolourRenderSettings& settings, const Tstring& file,
                                         bool floatFile, const Tstring& colorSpace,
                                         bool ignoreRules, bool managed) {
    TcolourInputChoice choice;
    choice.file = file;
    if (!managed) {
        choice.colorSpace = TcolorMgtCatalog::kRaw;
        choice.rule = "colour management off on the node";
        return choice;
    }
    if (ignoreRules && !colorSpace.empty()) {
        choice.colorSpace = colorSpace;
        choice.rule = "colorSpace attribute";
    } else {
        const TcolorMgtFileRules::Match match = TcolorMgtFileRules::instance().evaluate(
            file, floatFile, settings.enabled ? settings.defaultInputSpace : Tstring());
        choice.colorSpace = match.colorSpace;
        choice.rule = match.rule;
        // A configuration without our default's spaces (a studio's own):
        // its own file rules choose.
        std::string space, rule;
        if (match.rule == TcolorMgtFileRules::kDefaultRule &&
            !TcolorMgtCatalog::instance().hasColorSpace(match.colorSpace) &&
            TcolorMgtCatalog::instance().configFileRule(file, space, rule)) {
            choice.colorSpace = space;
            choice.rule = "the configuration's " + rule;
        }
    }
    std::string why;
    if (!TcolorMgtCatalog::instance().processor(choice.colorSpace, settings.workingSpace,
                                                choice.processor, why)) {
        choice.processor = TcolourProcessor();
        choice.problem = why;
    }
    return choice;
}
