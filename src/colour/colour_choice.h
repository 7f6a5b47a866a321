#pragma once

// What a scene's colour settings mean for rendering: the space renders are
// in, the transform integer image files are written through, and the input
// space of each file a texture reads (the file rules' choice, or the
// node's own).

#include "host/colour/catalog.h"
#include "host/types.h"

class TdependGraph;

struct TcolourRenderSettings {
    bool enabled = true;
    Tstring workingSpace;
    Tstring defaultInputSpace;
    // What integer image files (PNG, JPEG, TIFF) go through: a view
    // transform, or with the colour conversion a colour space.
    Tstring outputTransform;
    bool outputUseColorConversion = false;
};

// The settings of the scene's colorManagementGlobals node; with colour
// management off (or no node) the native defaults: scene-linear Rec.709
// renders, sRGB 8-bit files, the standard sRGB view.
TcolourRenderSettings OrvoColourRenderSettings(const TdependGraph* graph);

// The input colour of one file.
struct TcolourInputChoice {
    Tstring file;
    Tstring colorSpace; // the space the file is read in
    Tstring rule;       // the file rule that chose it, or why no rule did
    // From the file's space to the rendering space; empty when the values
    // go in as they are.
    TcolourProcessor processor;
    // Why the file is read raw against its chosen space, or empty.
    Tstring problem;
};

// `colorSpace` and `ignoreRules` are the texture's own attributes
// (colorSpace, ignoreColorSpaceFileRules); `managed` its
// colorManagementEnabled.
// `settings` are the scene's (OrvoColourRenderSettings).
TcolourInputChoice OrvoChooseInputColour(const TcolourRenderSettings& settings, const Tstring& file,
                                         bool floatFile, const Tstring& colorSpace,
                                         bool ignoreRules, bool managed);
