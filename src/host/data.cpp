#include "host/data.h"

#include "host/env.h"
#include "host/metaclass.h"

const Tdata Tdata::fsNULL;

namespace {

// Writes `text` as a quoted scene-language string.
std::string quoteText(const std::string& text) {
    std::string out = "\"";
    for (char c : text) {
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        default:
            out.push_back(c);
        }
    }
    out.push_back('"');
    return out;
}
} // namespace

Tmetaclass* TdataString::sTypeof() {
    static Tmetaclass meta(nullptr, "string", sizeof(TdataString), nullptr, 0, 0);
    return &meta;
}

double TdataString::doubleValue() const {
    return OrvoParseDouble(fValue).value_or(0.0);
}

std::string TdataString::text() const {
    return quoteText(fValue);
}

bool TdataString::equals(const TdataLetter& other) const {
    const auto* s = dynamic_cast<const TdataString*>(&other);
    return s && s->fValue == fValue;
}

Tdata OrvoMakeStringData(Tstring value) {
    return Tdata(new TdataString(std::move(value)));
}

const Tstring* OrvoStringOf(const Tdata& data) {
    const auto* s = dynamic_cast<const TdataString*>(data.privateDataStar());
    return s ? &s->value() : nullptr;
}
