#include "host/colour/file_rules.h"

#include <fnmatch.h>

#include <algorithm>
#include <cctype>

#include "host/colour/catalog.h"

namespace {

Tstring lower(Tstring s) {
    for (char& c : s)
        c = char(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

Tstring extensionOf(const Tstring& path) {
    const size_t slash = path.find_last_of('/');
    const size_t dot = path.find_last_of('.');
    if (dot == Tstring::npos || (slash != Tstring::npos && dot < slash))
        return {};
    return path.substr(dot + 1);
}

} // namespace

TcolorMgtFileRules& TcolorMgtFileRules::instance() {
    static TcolorMgtFileRules rules;
    return rules;
}

TcolorMgtFileRules::TcolorMgtFileRules() {
    restoreDefaults();
}

void TcolorMgtFileRules::restoreDefaults() {
    std::lock_guard lock(fMutex);
    fRules = {
        {"EXR", "*", "exr", TcolorMgtCatalog::kSceneLinear},
        {"HDR", "*", "hdr", TcolorMgtCatalog::kSceneLinear},
        {kDefaultRule, "*", "*", ""},
    };
    fEightBit = TcolorMgtCatalog::kSrgb;
    fFloat = TcolorMgtCatalog::kSceneLinear;
}

std::vector<TcolorMgtFileRule> TcolorMgtFileRules::rules() const {
    std::lock_guard lock(fMutex);
    return fRules;
}

bool TcolorMgtFileRules::addRule(const TcolorMgtFileRule& rule, size_t position, Tstring& why) {
    if (rule.name.empty() || rule.name == kDefaultRule) {
        why = rule.name.empty() ? "a file rule needs a name"
                                : "the Default rule cannot be added, only changed";
        return false;
    }
    std::lock_guard lock(fMutex);
    fRules.erase(std::remove_if(fRules.begin(), fRules.end(),
                                [&](const TcolorMgtFileRule& r) { return r.name == rule.name; }),
                 fRules.end());
    position = std::min(position, fRules.size() - 1);
    fRules.insert(fRules.begin() + std::ptrdiff_t(position), rule);
    return true;
}

bool TcolorMgtFileRules::removeRule(const Tstring& name) {
    if (name == kDefaultRule)
        return false;
    std::lock_guard lock(fMutex);
    const size_t before = fRules.size();
    fRules.erase(std::remove_if(fRules.begin(), fRules.end(),
                                [&](const TcolorMgtFileRule& r) { return r.name == name; }),
                 fRules.end());
    return fRules.size() != before;
}

void TcolorMgtFileRules::setDefaultSpaces(const Tstring& eightBit, const Tstring& floatingPoint) {
    std::lock_guard lock(fMutex);
    fEightBit = eightBit;
    fFloat = floatingPoint;
}

Tstring TcolorMgtFileRules::defaultSpace(bool floatFile) const {
    std::lock_guard lock(fMutex);
    return floatFile ? fFloat : fEightBit;
}

bool TcolorMgtFileRules::matches(const TcolorMgtFileRule& rule, const Tstring& path) {
    if (rule.extension != "*" && lower(extensionOf(path)) != lower(rule.extension))
        return false;
    if (rule.pattern.empty() || rule.pattern == "*")
        return true;
    const bool whole = rule.pattern.find('/') != Tstring::npos;
    const size_t slash = path.find_last_of('/');
    const Tstring subject = whole || slash == Tstring::npos ? path : path.substr(slash + 1);
    return fnmatch(rule.pattern.c_str(), subject.c_str(), 0) == 0;
}

TcolorMgtFileRules::Match TcolorMgtFileRules::evaluate(const Tstring& path, bool floatFile,
                                                       const Tstring& defaultInputSpace) const {
    std::lock_guard lock(fMutex);
    for (const TcolorMgtFileRule& rule : fRules) {
        if (rule.name == kDefaultRule) {
            if (!rule.colorSpace.empty())
                return {rule.colorSpace, rule.name};
            if (!defaultInputSpace.empty())
                return {defaultInputSpace, rule.name};
            return {floatFile ? fFloat : fEightBit, rule.name};
        }
        if (matches(rule, path))
            return {rule.colorSpace, rule.name};
    }
    return {floatFile ? fFloat : fEightBit, kDefaultRule};
}
