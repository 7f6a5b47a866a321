#pragma once

// The rules that give an image file its input colour space. They are
// tried in order and the first that matches a file wins; the last rule,
// "Default", matches every file and gives the policy's default space, which
// depends on what the file holds: 8-bit files are display-encoded (sRGB),
// float files scene-linear, unless the scene names a default input space.

#include <mutex>
#include <vector>

#include "host/types.h"

struct TcolorMgtFileRule {
    Tstring name;
    // A file name pattern (shell wildcards): with a '/', matched against
    // the whole path, else against the file's name.
    Tstring pattern = "*";
    // The file's extension without the dot, case-insensitive; "*" for any.
    Tstring extension = "*";
    Tstring colorSpace;
};

class TcolorMgtFileRules {
public:
    static constexpr const char* kDefaultRule = "Default";

    static TcolorMgtFileRules& instance();
    TcolorMgtFileRules();

    // The rules a new scene starts with: EXR and HDR files are scene-linear,
    // then Default.
    void restoreDefaults();
    std::vector<TcolorMgtFileRule> rules() const;
    // Puts a rule at `position` (clamped so that Default stays last); a
    // rule of the same name is replaced. False, with `why`, for a rule
    // without a name, or one named Default.
    bool addRule(const TcolorMgtFileRule& rule, size_t position, Tstring& why);
    bool removeRule(const Tstring& name);

    // The policy's defaults for the Default rule.
    void setDefaultSpaces(const Tstring& eightBit, const Tstring& floatingPoint);
    Tstring defaultSpace(bool floatFile) const;

    struct Match {
        Tstring colorSpace;
        Tstring rule;
    };
    // The first rule that matches `path`. The Default rule gives
    // `defaultInputSpace` when it is not empty, else the policy's default for
    // the file's kind.
    Match evaluate(const Tstring& path, bool floatFile, const Tstring& defaultInputSpace) const;

    // Whether one rule matches a path.
    static bool matches(const TcolorMgtFileRule& rule, const Tstring& path);

private:
    mutable std::mutex fMutex;
    std::vector<TcolorMgtFileRule> fRules;
    Tstring fEightBit, fFloat;
};
