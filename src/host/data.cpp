#include "host/data.h"

#include "host/env.h"
#include "host/metaclass.h"
#include "host/qsl/parser.h"

const Tdata Tdata::fsNULL;

Tmetaclass* TdataString::sTypeof() {
    static Tmetaclass meta(nullptr, "string", sizeof(TdataString), nullptr, 0, 0);
    return &meta;
}

double TdataString::doubleValue() const {
    return OrvoParseDouble(fValue).value_or(0.0);
}

std::string TdataString::text() const {
    return qsl::quote(fValue);
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
