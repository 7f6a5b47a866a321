#include "settings/image_name.h"

#include <algorithm>
#include <array>
#include <climits>
#include <string_view>
#include <vector>

#include "host/hash.h"
#include "host/messages.h"

namespace {

constexpr std::string_view kNumberSeparators = "-_./";

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

void replaceAll(Tstring& text, std::string_view from, std::string_view to) {
    if (from.empty())
        return;
    size_t at = 0;
    while ((at = text.find(from, at)) != Tstring::npos) {
        text.replace(at, from.size(), to);
        at += to.size();
    }
}

// ":" and "|" would make a path or a channel name mean something else.
Tstring cleanValue(Tstring value) {
    std::replace(value.begin(), value.end(), ':', '_');
    std::replace(value.begin(), value.end(), '|', '_');
    return value;
}

bool contains(const Tstring& text, std::string_view part) {
    return text.find(part) != Tstring::npos;
}

// A "%" token of `letter` at `at`: "%", a separator from `separators` or
// none, digits (none when `maxDigits` is 0, any number when it is -1), the
// letter. The token's length, or 0 when none starts at `at`.
struct TokenMatch {
    size_t length = 0;
    char separator = 0;
    std::string_view digits;
};
TokenMatch tokenAt(const Tstring& text, size_t at, std::string_view letter,
                   std::string_view separators, int maxDigits) {
    TokenMatch m;
    if (at >= text.size() || text[at] != '%')
        return m;
    size_t i = at + 1;
    if (i < text.size() && separators.find(text[i]) != std::string_view::npos)
        m.separator = text[i++];
    const size_t digitsFrom = i;
    while (maxDigits != 0 && i < text.size() && isDigit(text[i]))
        ++i;
    const size_t digitCount = i - digitsFrom;
    if (maxDigits >= 0 && digitCount > size_t(maxDigits))
        return m;
    if (text.compare(i, letter.size(), letter) != 0)
        return m;
    m.digits = std::string_view(text).substr(digitsFrom, digitCount);
    m.length = i + letter.size() - at;
    return m;
}

// Whether the text holds a token of `letter` anywhere.
bool hasToken(const Tstring& text, std::string_view letter, std::string_view separators,
              int maxDigits) {
    for (size_t at = text.find('%'); at != Tstring::npos; at = text.find('%', at + 1))
        if (tokenAt(text, at, letter, separators, maxDigits).length)
            return true;
    return false;
}

// The start of the longest run ending at `end` of the extension form
// "\.?%[-_.]?e", or npos.
size_t extensionFormStart(const Tstring& t, size_t end) {
    if (end == 0 || t[end - 1] != 'e')
        return Tstring::npos;
    const size_t e = end - 1;
    size_t start;
    if (e >= 2 && std::string_view("-_.").find(t[e - 1]) != std::string_view::npos &&
        t[e - 2] == '%')
        start = e - 2;
    else if (e >= 1 && t[e - 1] == '%')
        start = e - 1;
    else
        return Tstring::npos;
    if (start > 0 && t[start - 1] == '.')
        --start;
    return start;
}

// The same for the frame form "[._]?%[-_.]?[0-9]*n".
size_t frameFormStart(const Tstring& t, size_t end) {
    if (end == 0 || t[end - 1] != 'n')
        return Tstring::npos;
    size_t p = end - 1;
    while (p > 0 && isDigit(t[p - 1]))
        --p;
    size_t start;
    if (p >= 1 && t[p - 1] == '%')
        start = p - 1;
    else if (p >= 2 && std::string_view("-_.").find(t[p - 1]) != std::string_view::npos &&
             t[p - 2] == '%')
        start = p - 2;
    else
        return Tstring::npos;
    if (start > 0 && (t[start - 1] == '.' || t[start - 1] == '_'))
        --start;
    return start;
}

} // namespace

// ---------------------------------------------------------------- patterns

Tstring TimageName::fixNumberPattern(const Tstring& pattern) {
    Tstring text = pattern;
    replaceAll(text, "#", "%4n");
    replaceAll(text, "@@@@@@", "%6n");
    replaceAll(text, "@@@@@", "%5n");
    replaceAll(text, "@@@@", "%4n");
    replaceAll(text, "@@@", "%3n");
    replaceAll(text, "@@", "%2n");
    replaceAll(text, "@", "%n");
    return text;
}

Tstring TimageName::matchesEndingPattern(const Tstring& text) {
    // Tried in order: frame then extension, extension, extension then
    // frame, frame; each takes the longest tail of its form.
    const size_t n = text.size();
    if (const size_t a = extensionFormStart(text, n); a != Tstring::npos)
        if (const size_t b = frameFormStart(text, a); b != Tstring::npos)
            return text.substr(b);
    if (const size_t a = extensionFormStart(text, n); a != Tstring::npos)
        return text.substr(a);
    if (const size_t b = frameFormStart(text, n); b != Tstring::npos)
        if (const size_t a = extensionFormStart(text, b); a != Tstring::npos)
            return text.substr(a);
    if (const size_t b = frameFormStart(text, n); b != Tstring::npos)
        return text.substr(b);
    return {};
}

Tstring TimageName::fixPattern(const Tstring& pattern, bool frame, bool camera, bool layer,
                               bool pass) {
    Tstring text = fixNumberPattern(pattern);
    if (pass && !contains(text, "<RenderPass>"))
        text = "<RenderPass>/" + text;
    if (camera && !hasToken(text, "c", kNumberSeparators, 0) && !contains(text, "<Camera>"))
        text = "%/c" + text;
    if (layer && !hasToken(text, "l", kNumberSeparators, 0) && !contains(text, "<Layer>") &&
        !contains(text, "<RenderLayer>"))
        text = "%/l" + text;
    if (frame && !hasToken(text, "n", kNumberSeparators, -1)) {
        const Tstring ending = matchesEndingPattern(text);
        text.insert(text.size() - ending.size(), "%_4n");
    }
    // The repair is told in the catalogue's words and then dropped: a
    // pattern that misses a token is mended, not reported.
    (void)TstringId("s_TimageNameStrings.rImageNameFixedPatternWarning").format(pattern, text);
    return text;
}

Tstring TimageName::fixBufferNamePattern(const Tstring& pattern, bool camera) {
    Tstring text = pattern;
    if (camera && !contains(text, "<Camera>")) {
        if (!text.empty())
            text = "-" + text;
        text = "<Camera>" + text;
    }
    if (contains(text, "<RenderPass>"))
        return text;
    if (!text.empty())
        text = "." + text;
    if (contains(text, "<RenderPassType>"))
        return "<RenderPass>" + text;
    return "<RenderPassType>:<RenderPass>" + text;
}

// ---------------------------------------------------------------- replacement

Tstring TimageName::replaceFormatString(const Tstring& text, const Tstring& letter,
                                        const Tstring& token, const Tstring& value) {
    const Tstring clean = cleanValue(value);
    Tstring out = text;
    replaceAll(out, "%" + letter, clean);
    replaceAll(out, token, clean);
    for (const char separator : {'_', '-', '/', '.'}) {
        const Tstring form = Tstring("%") + separator + letter;
        if (clean.empty())
            replaceAll(out, form, "");
        else if (separator == '/')
            replaceAll(out, form, clean + "/");
        else
            replaceAll(out, form, separator + clean);
    }
    return out;
}

Tstring TimageName::replaceNumberFormatString(const Tstring& text, const Tstring& letter,
                                              int32_t frame, bool enable,
                                              const Tstring& frameOverride) {
    if (letter.empty())
        return text;
    Tstring out = text;
    // Each round replaces the last token that starts before the one replaced
    // the round before: what a value brought in (an override may hold a
    // token) is never read as a token again, and the rounds come to an end.
    size_t limit = out.size();
    while (limit > 0) {
        size_t at = Tstring::npos;
        TokenMatch m;
        for (size_t p = out.rfind('%', limit - 1); p != Tstring::npos;
             p = p ? out.rfind('%', p - 1) : Tstring::npos) {
            m = tokenAt(out, p, letter, kNumberSeparators, -1);
            if (m.length) {
                at = p;
                break;
            }
        }
        if (at == Tstring::npos)
            break;
        Tstring value;
        if (!frameOverride.empty()) {
            value = frameOverride;
        } else if (enable) {
            int width = 0;
            for (const char d : m.digits)
                width = std::min(kMaxFrameWidth + 1, width * 10 + (d - '0'));
            width = std::min(width, kMaxFrameWidth);
            long long number = frame;
            const bool negative = number < 0;
            if (negative) {
                number = -number;
                --width;
            }
            Tstring digits = std::to_string(number);
            if (width > 0 && digits.size() < size_t(width))
                digits.insert(0, size_t(width) - digits.size(), '0');
            value = negative ? "-" + digits : digits;
            if (m.separator == '/')
                value += '/';
            else if (m.separator)
                value.insert(0, 1, m.separator);
        }
        out.replace(at, m.length, value);
        limit = at;
    }
    return out;
}

Tstring TimageName::replaceCustomTokens(const Tstring& text, const Tstring& list,
                                        bool keepUnknown) {
    Tstring out = text;
    const bool rooted = !out.empty() && out.front() == '/';

    // Entries are separated by blanks; each is "name=value" or "name=".
    size_t from = 0;
    while (from < list.size()) {
        const size_t blank = list.find(' ', from);
        const size_t to = blank == Tstring::npos ? list.size() : blank;
        const std::string_view entry = std::string_view(list).substr(from, to - from);
        from = to + 1;
        if (entry.empty())
            continue;
        std::vector<std::string_view> parts;
        size_t p = 0;
        for (size_t eq = entry.find('='); eq != std::string_view::npos; eq = entry.find('=', p)) {
            parts.push_back(entry.substr(p, eq - p));
            p = eq + 1;
        }
        // A trailing "=" gives no empty part of its own.
        if (p < entry.size())
            parts.push_back(entry.substr(p));
        Tstring name, value;
        if (parts.size() == 1 && entry.back() == '=') {
            name = Tstring(parts[0]);
        } else if (parts.size() == 2) {
            name = Tstring(parts[0]);
            value = Tstring(parts[1]);
        } else {
            continue;
        }
        if (name.empty())
            continue;
        replaceAll(out, "<" + name + ">", cleanValue(value));
    }

    if (!keepUnknown) {
        // The last "<" that some ">" follows, to the last ">": what a
        // greedy match of ".*(<.*>).*" takes, removed until none is left.
        for (;;) {
            const size_t close = out.rfind('>');
            if (close == Tstring::npos || close == 0)
                break;
            const size_t open = out.rfind('<', close - 1);
            if (open == Tstring::npos)
                break;
            out.erase(open, close - open + 1);
        }
    }

    // An empty directory token must not make a name absolute.
    if (!rooted) {
        size_t slashes = 0;
        while (out.size() - slashes >= 2 && out[slashes] == '/')
            ++slashes;
        out.erase(0, slashes);
        if (out == "/")
            out.clear();
    }
    return out;
}

namespace {
Tstring versionTokens(const Tstring& custom, const Tstring& layer) {
    // The version entries stand first, so a caller's own cannot override them.
    return " SceneVersion=0 RenderLayerVersion=0 CameraVersion=0 RenderPassVersion=0 " + custom +
           " RenderLayer=" + layer;
}
} // namespace

Tstring TimageName::relativeFileName(const Tstring& pattern, int32_t frame, bool frameEnabled,
                                     const Tstring& frameOverride, const Tstring& extension,
                                     const Tstring& scene, const Tstring& camera,
                                     const Tstring& layer, const Tstring& pass,
                                     const Tstring& field, const Tstring& version, bool noFrame,
                                     const Tstring& customTokens, bool keepUnknownTokens) {
    const Tstring layerText = pass.empty() ? layer : layer.empty() ? pass : layer + "_" + pass;
    const Tstring cameraText = field.empty()    ? camera
                               : camera.empty() ? field
                                                : camera + "_" + field;
    Tstring text = replaceFormatString(pattern, "s", "<Scene>", scene);
    text = replaceFormatString(text, "l", "<Layer>", layerText);
    text = replaceFormatString(text, "c", "<Camera>", cameraText);
    text = replaceFormatString(text, "e", "<Extension>", extension);
    text = replaceFormatString(text, "v", "<Version>", version);
    if (!noFrame)
        text = replaceNumberFormatString(text, "n", frame, frameEnabled, frameOverride);
    text = replaceCustomTokens(text, versionTokens(customTokens, layerText), keepUnknownTokens);
    (void)TstringId("s_TimageNameStrings.rImageNameFilePatternToNameWarning").format(pattern, text);
    return text;
}

Tstring TimageName::getBufferName(const Tstring& pattern, const Tstring& passType,
                                  const Tstring& passName, const Tstring& camera,
                                  const Tstring& layer, Tstring& untruncated, int32_t maxLength,
                                  const Tstring& customTokens, bool keepUnknownTokens) {
    Tstring text = replaceFormatString(pattern, "t", "<RenderPassType>", passType);
    text = replaceFormatString(text, "n", "<RenderPass>", passName);
    text = replaceFormatString(text, "c", "<Camera>", camera);
    text = replaceFormatString(text, "l", "<Layer>", layer);
    text = replaceCustomTokens(text, versionTokens(customTokens, layer), keepUnknownTokens);
    untruncated = text;
    if (maxLength >= 0 && text.size() > size_t(maxLength)) {
        const Tstring hash = std::to_string(ThashFunction::hash32(text, 0));
        const size_t keep = size_t(maxLength) > hash.size() ? size_t(maxLength) - hash.size() : 0;
        text = (text.substr(0, keep) + hash).substr(0, size_t(maxLength));
    }
    return text;
}

Tstring TimageName::addBeforeExtension(const Tstring& text, const Tstring& addition) {
    const size_t slash = text.find_last_of("/\\");
    const size_t dot = text.rfind('.');
    if (dot == Tstring::npos || (slash != Tstring::npos && dot < slash))
        return text + addition;
    return text.substr(0, dot) + addition + text.substr(dot);
}
