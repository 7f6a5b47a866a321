#include "host/colour/policy.h"

#include <fstream>
#include <functional>
#include <map>

#include <fmt/format.h>

namespace {

Tstring trim(const Tstring& s) {
    const size_t a = s.find_first_not_of(" \t\r");
    if (a == Tstring::npos)
        return {};
    return s.substr(a, s.find_last_not_of(" \t\r") - a + 1);
}

} // namespace

TcolorMgtPolicyData TcolorMgtPolicy::ReadPolicy(const Tstring& file) {
    std::ifstream in(file);
    if (!in)
        throw Tstring(fmt::format("{}: cannot read the colour policy file", file));
    TcolorMgtPolicyData d;
    using Flag = bool TcolorMgtPolicyData::*;
    using Text = Tstring TcolorMgtPolicyData::*;
    const std::map<Tstring, Flag> flags = {
        {"colorManagementEnabled", &TcolorMgtPolicyData::cmEnabled},
        {"configFileEnabled", &TcolorMgtPolicyData::configFileEnabled},
        {"ocioRulesEnabled", &TcolorMgtPolicyData::ocioRulesEnabled},
        {"outputTransformEnabled", &TcolorMgtPolicyData::outputTransformEnabled},
        {"outputTransformUseColorConversion",
         &TcolorMgtPolicyData::outputTransformUseColorConversion},
        {"outputUseViewTransform", &TcolorMgtPolicyData::outputUseViewTransform},
        {"playblastOutputTransformEnabled", &TcolorMgtPolicyData::playblastOutputTransformEnabled},
        {"playblastOutputTransformUseColorConversion",
         &TcolorMgtPolicyData::playblastOutputTransformUseColorConversion},
        {"playblastOutputUseViewTransform", &TcolorMgtPolicyData::playblastOutputUseViewTransform},
    };
    const std::map<Tstring, Text> texts = {
        {"configFilePath", &TcolorMgtPolicyData::configFilePath},
        {"workingSpace", &TcolorMgtPolicyData::workingSpace},
        {"viewTransform", &TcolorMgtPolicyData::viewTransform},
        {"outputTransformName", &TcolorMgtPolicyData::outputTransformName},
        {"playblastOutputTransformName", &TcolorMgtPolicyData::playblastOutputTransformName},
        {"defaultInput8Bit", &TcolorMgtPolicyData::defaultInput8Bit},
        {"defaultInputFloat", &TcolorMgtPolicyData::defaultInputFloat},
    };
    Tstring line;
    for (int number = 1; std::getline(in, line); ++number) {
        line = trim(line);
        if (line.empty() || line[0] == '#')
            continue;
        const auto fail = [&](const Tstring& what) {
            throw Tstring(fmt::format("{}:{}: {}", file, number, what));
        };
        const size_t eq = line.find('=');
        if (eq == Tstring::npos)
            fail(fmt::format("expected 'key = value', found '{}'", line));
        const Tstring key = trim(line.substr(0, eq)), value = trim(line.substr(eq + 1));
        if (auto f = flags.find(key); f != flags.end()) {
            if (value == "true" || value == "on" || value == "1")
                d.*(f->second) = true;
            else if (value == "false" || value == "off" || value == "0")
                d.*(f->second) = false;
            else
                fail(fmt::format("'{}' takes true or false, not '{}'", key, value));
        } else if (auto t = texts.find(key); t != texts.end()) {
            d.*(t->second) = value;
        } else if (key == "rule") {
            std::vector<Tstring> parts;
            size_t start = 0;
            for (size_t bar; (bar = value.find('|', start)) != Tstring::npos; start = bar + 1)
                parts.push_back(trim(value.substr(start, bar - start)));
            parts.push_back(trim(value.substr(start)));
            if (parts.size() != 4 || parts[0].empty() || parts[3].empty())
                fail("a rule is 'NAME | PATTERN | EXTENSION | COLOUR SPACE'");
            d.rules.push_back({parts[0], parts[1], parts[2], parts[3]});
        } else {
            fail(fmt::format("unknown key '{}'", key));
        }
    }
    return d;
}
