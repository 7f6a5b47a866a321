#pragma once

// A colour-management policy file: the settings a studio wants every scene
// to start with, and its file rules. The file is text, one "key = value" a
// line, '#' starting a comment:
//
//   colorManagementEnabled = true
//   configFileEnabled = false
//   configFilePath = /studio/ocio/config.ocio
//   ocioRulesEnabled = false
//   workingSpace = ACEScg
//   viewTransform = Standard (sRGB)
//   outputTransformEnabled = true
//   outputTransformUseColorConversion = false
//   outputTransformName = Standard (sRGB)
//   outputUseViewTransform = true
//   playblastOutputTransformEnabled = true  (and the other three playblast keys)
//   defaultInput8Bit = sRGB
//   defaultInputFloat = scene-linear Rec.709-sRGB
//   rule = NAME | PATTERN | EXTENSION | COLOUR SPACE   (in order, before Default)

#include <vector>

#include "host/colour/file_rules.h"
#include "host/types.h"

struct TcolorMgtPolicyData {
    bool cmEnabled = true;
    bool configFileEnabled = false;
    Tstring configFilePath;
    bool ocioRulesEnabled = false;
    Tstring workingSpace;
    Tstring viewTransform;
    bool outputTransformEnabled = false;
    bool outputTransformUseColorConversion = false;
    Tstring outputTransformName;
    bool outputUseViewTransform = true;
    bool playblastOutputTransformEnabled = true;
    bool playblastOutputTransformUseColorConversion = false;
    Tstring playblastOutputTransformName;
    bool playblastOutputUseViewTransform = true;
    Tstring defaultInput8Bit;
    Tstring defaultInputFloat;
    std::vector<TcolorMgtFileRule> rules;
};

class TcolorMgtPolicy {
public:
    // Reads a policy file. Throws a Tstring naming the file and line for a
    // file that cannot be read, an unknown key or a bad value.
    static TcolorMgtPolicyData ReadPolicy(const Tstring& file);
    // Whether the environment names a policy (no variable does here).
    static bool UseEnvPolicy() { return false; }
};
