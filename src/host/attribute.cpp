#include "host/attribute.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#include <fmt/format.h>
#include <fmt/printf.h>

#include "host/debug.h"
#include "host/env.h"

namespace {

std::string wrongCount(size_t got, int expected) {
    return fmt::format("expects {} value{}, got {}", expected, expected == 1 ? "" : "s", got);
}

std::optional<bool> parseBoolWord(std::string_view word) {
    if (word == "true" || word == "on" || word == "yes" || word == "1")
        return true;
    if (word == "false" || word == "off" || word == "no" || word == "0")
        return false;
    return std::nullopt;
}

double clampToLimits(const Tattribute& a, double v) {
    if (a.minValue() && v < *a.minValue())
        v = *a.minValue();
    if (a.maxValue() && v > *a.maxValue())
        v = *a.maxValue();
    return v;
}

template <class I>
I toInteger(double v) {
    if (std::isnan(v))
        return 0;
    const double lo = double(std::numeric_limits<I>::min());
    const double hi = double(std::numeric_limits<I>::max());
    return I(std::clamp(std::round(v), lo, hi));
}

} // namespace

std::string OrvoFormatFloat(double value) {
    return fmt::sprintf("%.9g", value);
}

// ---------------------------------------------------------------- Tattribute

Tattribute::Tattribute(Tstring longName, Tstring shortName)
    : fLongName(std::move(longName)), fShortName(std::move(shortName)) {}

Tattribute::Tattribute(const Tattribute& other)
    : TsharedObject(), fFlags(other.fFlags), fLongName(other.fLongName),
      fShortName(other.fShortName), fNodeName(other.fNodeName),
      fOffsetInParent(other.fOffsetInParent), fStringSetName(other.fStringSetName),
      fNiceName(other.fNiceName), fDefaultData(other.fDefaultData), fMin(other.fMin),
      fMax(other.fMax), fSoftMin(other.fSoftMin), fSoftMax(other.fSoftMax),
      fDisconnectOption(other.fDisconnectOption), fComputeModifies(other.fComputeModifies),
      fIndexMatters(other.fIndexMatters) {}

Tattribute::~Tattribute() = default;

const Tattribute* Tattribute::arrayAncestor() const {
    for (const Tattribute* a = this; a; a = a->fParent)
        if (a->isArray())
            return a;
    return nullptr;
}

const Tattribute* Tattribute::valueRoot() const {
    const Tattribute* a = this;
    while (a->fParent && !a->isArray())
        a = a->fParent;
    return a;
}

bool Tattribute::isDescendentOf(const Tattribute& other) const {
    for (const Tattribute* a = fParent; a; a = a->fParent)
        if (a == &other)
            return true;
    return false;
}

void Tattribute::parentPath(std::vector<const Tattribute*>& path) const {
    path.clear();
    for (const Tattribute* a = fParent; a; a = a->fParent)
        path.push_back(a);
    std::reverse(path.begin(), path.end());
}

Tmetaclass* Tattribute::metaclass() const {
    return nullptr;
}

void Tattribute::constructValue(void* where) const {
    writeDefault(where);
}

void Tattribute::destroyValue(void*) const {}

void Tattribute::copyValue(void* dst, const void* src) const {
    // A message has no bytes, and may have no storage to copy from.
    if (dst != src && dataSize() > 0)
        std::memmove(dst, src, dataSize());
}

bool Tattribute::equalValues(const void* a, const void* b) const {
    const int n = numericCount();
    if (n > 0) {
        for (int i = 0; i < n; ++i)
            if (numericGet(a, i) != numericGet(b, i))
                return false;
        return true;
    }
    return std::memcmp(a, b, dataSize()) == 0;
}

void Tattribute::printValue(TdebugOutput& out, const void* value) const {
    std::vector<std::string> words;
    formatValue(value, words);
    std::string line;
    for (const std::string& w : words) {
        if (!line.empty())
            line.push_back(' ');
        line += w;
    }
    out.write(line);
}

double Tattribute::numericGet(const void*, int) const {
    return 0.0;
}
void Tattribute::numericSet(void*, int, double) const {}

void Tattribute::setParent(TattributeCompound* parent) {
    if (parent)
        parent->addChild(*this);
}

void Tattribute::setDefaultData(TdataLetter* letter) {
    fDefaultData = Tdata(letter);
}

void Tattribute::setMinValue(double v) {
    fMin = v;
    setFlags(TattrFlag::kHasLowerLimit);
}

void Tattribute::setMaxValue(double v) {
    fMax = v;
    setFlags(TattrFlag::kHasUpperLimit);
}

void Tattribute::addChildAttribute(Tattribute& child) {
    if (std::find(fChildren.begin(), fChildren.end(), &child) != fChildren.end())
        return;
    child.fParent = this;
    fChildren.push_back(&child);
}

// ---------------------------------------------------------------- leaves

template <class Self, class V, TattrKind K>
void TattributeLeaf<Self, V, K>::numericSet(void* value, int, double v) const {
    if constexpr (std::is_same_v<V, bool>)
        *static_cast<V*>(value) = v != 0.0;
    else if constexpr (std::is_floating_point_v<V>)
        *static_cast<V*>(value) = V(v);
    else
        *static_cast<V*>(value) = toInteger<V>(v);
}

template <class Self, class V, TattrKind K>
void TattributeLeaf<Self, V, K>::formatValue(const void* value,
                                             std::vector<std::string>& words) const {
    const V v = *static_cast<const V*>(value);
    if constexpr (std::is_same_v<V, bool>)
        words.push_back(v ? "true" : "false");
    else if constexpr (std::is_floating_point_v<V>)
        words.push_back(OrvoFormatFloat(double(v)));
    else
        words.push_back(std::to_string(int64_t(v)));
}

template <class Self, class V, TattrKind K>
std::string TattributeLeaf<Self, V, K>::parseValue(const std::vector<std::string>& words,
                                                   void* where) const {
    if (words.size() != 1)
        return wrongCount(words.size(), 1);
    if constexpr (std::is_same_v<V, bool>) {
        const auto b = parseBoolWord(words[0]);
        if (!b)
            return fmt::format("'{}' is not true or false", words[0]);
        *static_cast<V*>(where) = *b;
    } else {
        const auto d = OrvoParseDouble(words[0]);
        if (!d || !std::isfinite(*d))
            return fmt::format("'{}' is not a number", words[0]);
        if constexpr (!std::is_floating_point_v<V>) {
            if (*d != std::floor(*d))
                return fmt::format("'{}' is not a whole number", words[0]);
        }
        numericSet(where, 0, clampToLimits(*this, *d));
    }
    return {};
}

template class TattributeLeaf<TattributeFloat, float, TattrKind::Float>;
template class TattributeLeaf<TattributeDouble, double, TattrKind::Double>;
template class TattributeLeaf<TattributeBoolean, bool, TattrKind::Boolean>;
template class TattributeLeaf<TattributeChar, char, TattrKind::Char>;
template class TattributeLeaf<TattributeInt16, int16_t, TattrKind::Int16>;
template class TattributeLeaf<TattributeInt32, int32_t, TattrKind::Int32>;
template class TattributeLeaf<TattributeTime, double, TattrKind::Time>;

TattributeAddr::TattributeAddr(Tstring longName, Tstring shortName)
    : TattrShapes(std::move(longName), std::move(shortName)) {
    clearFlags(TattrFlag::kStorable);
}

void TattributeAddr::formatValue(const void* value, std::vector<std::string>& words) const {
    words.push_back(fmt::format("{}", *static_cast<void* const*>(value)));
}

std::string TattributeAddr::parseValue(const std::vector<std::string>&, void*) const {
    return "holds an address and cannot be set";
}

void Tattribute2Int32::writeDefault(void* where) const {
    std::memcpy(where, fDefault, sizeof fDefault);
}

double Tattribute2Int32::numericGet(const void* value, int i) const {
    return static_cast<const int32_t*>(value)[i];
}

void Tattribute2Int32::numericSet(void* value, int i, double v) const {
    static_cast<int32_t*>(value)[i] = toInteger<int32_t>(v);
}

void Tattribute2Int32::formatValue(const void* value, std::vector<std::string>& words) const {
    for (int i = 0; i < 2; ++i)
        words.push_back(std::to_string(static_cast<const int32_t*>(value)[i]));
}

std::string Tattribute2Int32::parseValue(const std::vector<std::string>& words, void* where) const {
    if (words.size() != 2)
        return wrongCount(words.size(), 2);
    int32_t v[2];
    for (int i = 0; i < 2; ++i) {
        const auto n = OrvoParseInteger(words[size_t(i)]);
        if (!n || *n < INT32_MIN || *n > INT32_MAX)
            return fmt::format("'{}' is not a 32-bit whole number", words[size_t(i)]);
        v[i] = int32_t(*n);
    }
    std::memcpy(where, v, sizeof v);
    return {};
}

double TattributeFltMatrix::numericGet(const void* value, int i) const {
    return static_cast<const T4dFltMatrix*>(value)->m[i / 4][i % 4];
}

void TattributeFltMatrix::numericSet(void* value, int i, double v) const {
    static_cast<T4dFltMatrix*>(value)->m[i / 4][i % 4] = float(v);
}

void TattributeFltMatrix::formatValue(const void* value, std::vector<std::string>& words) const {
    for (int i = 0; i < 16; ++i)
        words.push_back(OrvoFormatFloat(numericGet(value, i)));
}

std::string TattributeFltMatrix::parseValue(const std::vector<std::string>& words,
                                            void* where) const {
    if (words.size() != 16)
        return wrongCount(words.size(), 16);
    T4dFltMatrix m;
    for (int i = 0; i < 16; ++i) {
        const auto d = OrvoParseDouble(words[size_t(i)]);
        if (!d || !std::isfinite(*d))
            return fmt::format("'{}' is not a number", words[size_t(i)]);
        numericSet(&m, i, *d);
    }
    *static_cast<T4dFltMatrix*>(where) = m;
    return {};
}

// ---------------------------------------------------------------- enum

TattributeEnum& TattributeEnum::addField(Tstring label, Tstring constantName, int16_t value) {
    fFields.push_back({std::move(label), std::move(constantName), value});
    return *this;
}

const TattributeEnum::Field* TattributeEnum::fieldByLabel(std::string_view label) const {
    for (const Field& f : fFields)
        if (f.label == label || f.constantName == label)
            return &f;
    return nullptr;
}

void TattributeEnum::numericSet(void* value, int, double v) const {
    *static_cast<int16_t*>(value) = toInteger<int16_t>(v);
}

void TattributeEnum::formatValue(const void* value, std::vector<std::string>& words) const {
    words.push_back(std::to_string(*static_cast<const int16_t*>(value)));
}

std::string TattributeEnum::parseValue(const std::vector<std::string>& words, void* where) const {
    if (words.size() != 1)
        return wrongCount(words.size(), 1);
    if (const Field* f = fieldByLabel(words[0])) {
        *static_cast<int16_t*>(where) = f->value;
        return {};
    }
    const auto n = OrvoParseInteger(words[0]);
    if (!n || *n < INT16_MIN || *n > INT16_MAX) {
        std::string labels;
        for (const Field& f : fFields)
            labels += fmt::format("{}\"{}\" ({})", labels.empty() ? "" : ", ", f.label, f.value);
        return fmt::format("'{}' is not one of {}", words[0], labels);
    }
    *static_cast<int16_t*>(where) = int16_t(*n);
    return {};
}

std::string TattributeMessage::parseValue(const std::vector<std::string>&, void*) const {
    return "is a message attribute and holds no value";
}

// ---------------------------------------------------------------- typed

TattributeTyped::TattributeTyped(Tstring longName, Tstring shortName, Tmetaclass* type)
    : TattrShapes(std::move(longName), std::move(shortName)), fType(type) {
    setFlags(TattrFlag::kValueIsObject);
}

void TattributeTyped::constructValue(void* where) const {
    new (where) Tdata(fDefault);
}

void TattributeTyped::destroyValue(void* where) const {
    static_cast<Tdata*>(where)->~Tdata();
}

void TattributeTyped::copyValue(void* dst, const void* src) const {
    if (dst != src)
        *static_cast<Tdata*>(dst) = *static_cast<const Tdata*>(src);
}

void TattributeTyped::writeDefault(void* where) const {
    *static_cast<Tdata*>(where) = fDefault;
}

bool TattributeTyped::equalValues(const void* a, const void* b) const {
    return *static_cast<const Tdata*>(a) == *static_cast<const Tdata*>(b);
}

void TattributeTyped::formatValue(const void* value, std::vector<std::string>& words) const {
    const Tdata& d = *static_cast<const Tdata*>(value);
    words.push_back(d.isNULL() ? std::string("\"\"") : d.text());
}

std::string TattributeTyped::parseValue(const std::vector<std::string>& words, void* where) const {
    if (words.size() != 1)
        return wrongCount(words.size(), 1);
    if (fType && fType != TdataString::sTypeof())
        return "holds data that a scene cannot set";
    *static_cast<Tdata*>(where) = OrvoMakeStringData(words[0]);
    return {};
}

// ---------------------------------------------------------------- compounds

void TattributeCompound::assignOffsets() const {
    uint32_t size = 0;
    uint32_t align = 1;
    bool constructs = false;
    for (Tattribute* child : children()) {
        uint32_t childSize = 0;
        uint32_t childAlign = 1;
        if (child->isArray()) {
            childSize = 48;
            childAlign = 8;
        } else {
            if (auto* compound = dynamic_cast<const TattributeCompound*>(child))
                compound->assignOffsets();
            childSize = child->dataSize();
            childAlign = child->dataAlignment();
        }
        size = uint32_t(OrvoAlignUp(size, childAlign));
        child->setOffsetInParent(size);
        size += childSize;
        align = std::max(align, childAlign);
        constructs = constructs || child->isArray() ||
                     child->hasFlag(TattrFlag::kValueIsObject | TattrFlag::kCompoundConstructs);
    }
    fSize = uint32_t(OrvoAlignUp(size, align));
    fAlign = align;
    fLaidOut = true;
    if (constructs)
        const_cast<TattributeCompound*>(this)->setFlags(TattrFlag::kCompoundConstructs);
}

uint32_t TattributeCompound::dataSize() const {
    if (!fLaidOut)
        assignOffsets();
    return fSize;
}

uint32_t TattributeCompound::dataAlignment() const {
    if (!fLaidOut)
        assignOffsets();
    return fAlign;
}

namespace {
template <class F>
void forEachChildValue(const TattributeCompound& c, void* base, F&& f) {
    for (Tattribute* child : c.children())
        f(*child, static_cast<char*>(base) + child->offsetInParent());
}
} // namespace

void TattributeCompound::constructValue(void* where) const {
    dataSize();
    std::memset(where, 0, fSize);
    forEachChildValue(*this, where, [](Tattribute& c, void* p) {
        if (!c.isArray())
            c.constructValue(p);
    });
}

void TattributeCompound::destroyValue(void* where) const {
    forEachChildValue(*this, where, [](Tattribute& c, void* p) {
        if (!c.isArray())
            c.destroyValue(p);
    });
}

void TattributeCompound::copyValue(void* dst, const void* src) const {
    if (dst == src)
        return;
    if (!hasFlag(TattrFlag::kCompoundConstructs)) {
        std::memmove(dst, src, dataSize());
        return;
    }
    for (Tattribute* child : children())
        if (!child->isArray())
            child->copyValue(static_cast<char*>(dst) + child->offsetInParent(),
                             static_cast<const char*>(src) + child->offsetInParent());
}

void TattributeCompound::writeDefault(void* where) const {
    dataSize();
    forEachChildValue(*this, where, [](Tattribute& c, void* p) {
        if (!c.isArray())
            c.writeDefault(p);
    });
}

bool TattributeCompound::equalValues(const void* a, const void* b) const {
    for (Tattribute* child : children())
        if (!child->isArray() &&
            !child->equalValues(static_cast<const char*>(a) + child->offsetInParent(),
                                static_cast<const char*>(b) + child->offsetInParent()))
            return false;
    return true;
}

int TattributeCompound::numericCount() const {
    int n = 0;
    for (Tattribute* child : children())
        if (!child->isArray())
            n += child->numericCount();
    return n;
}

double TattributeCompound::numericGet(const void* value, int i) const {
    for (Tattribute* child : children()) {
        if (child->isArray())
            continue;
        const int n = child->numericCount();
        if (i < n)
            return child->numericGet(static_cast<const char*>(value) + child->offsetInParent(), i);
        i -= n;
    }
    return 0.0;
}

void TattributeCompound::numericSet(void* value, int i, double v) const {
    for (Tattribute* child : children()) {
        if (child->isArray())
            continue;
        const int n = child->numericCount();
        if (i < n) {
            child->numericSet(static_cast<char*>(value) + child->offsetInParent(), i, v);
            return;
        }
        i -= n;
    }
}

void TattributeCompound::formatValue(const void* value, std::vector<std::string>& words) const {
    for (Tattribute* child : children())
        if (!child->isArray())
            child->formatValue(static_cast<const char*>(value) + child->offsetInParent(), words);
}

int TattributeCompound::wordCount() const {
    int n = 0;
    for (Tattribute* child : children()) {
        if (child->isArray())
            continue;
        const int w = child->wordCount();
        if (w < 0)
            return -1;
        n += w;
    }
    return n;
}

std::string TattributeCompound::parseValue(const std::vector<std::string>& words,
                                           void* where) const {
    const int expected = wordCount();
    if (expected >= 0 && words.size() != size_t(expected))
        return wrongCount(words.size(), expected);
    // Parse into a scratch copy so that a bad word leaves the value alone.
    std::vector<std::max_align_t> scratch(
        (dataSize() + sizeof(std::max_align_t) - 1) / sizeof(std::max_align_t) + 1);
    void* tmp = scratch.data();
    constructValue(tmp);
    copyValue(tmp, where);
    size_t at = 0;
    std::string error;
    for (Tattribute* child : children()) {
        const int w = child->wordCount();
        if (child->isArray() || w <= 0)
            continue;
        std::vector<std::string> part(words.begin() + long(at), words.begin() + long(at) + w);
        at += size_t(w);
        error = child->parseValue(part, static_cast<char*>(tmp) + child->offsetInParent());
        if (!error.empty())
            break;
    }
    if (error.empty())
        copyValue(where, tmp);
    destroyValue(tmp);
    return error;
}

TattributeCompound& TattributeCompound::setMinValue(double a, double b, double c) {
    const double v[3] = {a, b, c};
    for (size_t i = 0; i < children().size() && i < 3; ++i)
        children()[i]->setMinValue(v[i]);
    Tattribute::setMinValue(std::min({a, b, c}));
    return *this;
}

TattributeCompound& TattributeCompound::setMaxValue(double a, double b, double c) {
    const double v[3] = {a, b, c};
    for (size_t i = 0; i < children().size() && i < 3; ++i)
        children()[i]->setMaxValue(v[i]);
    Tattribute::setMaxValue(std::max({a, b, c}));
    return *this;
}

Tattribute2Float& Tattribute2Float::setNativeDefaultData(float a, float b) {
    const float v[2] = {a, b};
    for (size_t i = 0; i < children().size() && i < 2; ++i)
        if (auto* f = dynamic_cast<TattributeFloat*>(children()[i]))
            f->setNativeDefaultData(v[i]);
    return *this;
}

Tattribute3Float& Tattribute3Float::setNativeDefaultData(float a, float b, float c) {
    const float v[3] = {a, b, c};
    for (size_t i = 0; i < children().size() && i < 3; ++i)
        if (auto* f = dynamic_cast<TattributeFloat*>(children()[i]))
            f->setNativeDefaultData(v[i]);
    return *this;
}

TattributeLightData::TattributeLightData(Tstring longName, Tstring shortName, Tstring prefix,
                                         Tstring sp)
    : TattrShapes(std::move(longName), std::move(shortName)),
      fDirection(prefix + "Direction", sp + "d"), fDirX(prefix + "DirectionX", sp + "dx"),
      fDirY(prefix + "DirectionY", sp + "dy"), fDirZ(prefix + "DirectionZ", sp + "dz"),
      fIntensity(prefix + "Intensity", sp + "i"), fIntR(prefix + "IntensityR", sp + "ir"),
      fIntG(prefix + "IntensityG", sp + "ig"), fIntB(prefix + "IntensityB", sp + "ib"),
      fAmbient(prefix + "Ambient", sp + "a"), fDiffuse(prefix + "Diffuse", sp + "df"),
      fSpecular(prefix + "Specular", sp + "s"),
      fShadowFraction(prefix + "ShadowFraction", sp + "sf"),
      fPreShadowIntensity(prefix == "light" ? Tstring("preShadowIntensity")
                                            : prefix + "PreShadowIntensity",
                          prefix == "light" ? Tstring("psi") : sp + "psi"),
      // "bld", not "bd": a spot light's leftBarnDoor is "lbd".
      fBlindData(prefix + "BlindData", sp + "bld") {
    wire();
}

TattributeLightData::TattributeLightData(Tstring longName, Tstring shortName, const ChildNames& n)
    : TattrShapes(std::move(longName), std::move(shortName)),
      fDirection(n.direction, n.directionShort), fDirX(n.direction + "X", n.directionShort + "x"),
      fDirY(n.direction + "Y", n.directionShort + "y"),
      fDirZ(n.direction + "Z", n.directionShort + "z"), fIntensity(n.intensity, n.intensityShort),
      fIntR(n.intensity + "R", n.intensityShort + "r"),
      fIntG(n.intensity + "G", n.intensityShort + "g"),
      fIntB(n.intensity + "B", n.intensityShort + "b"), fAmbient(n.ambient, n.ambientShort),
      fDiffuse(n.diffuse, n.diffuseShort), fSpecular(n.specular, n.specularShort),
      fShadowFraction(n.shadowFraction, n.shadowFractionShort),
      fPreShadowIntensity(n.preShadowIntensity, n.preShadowIntensityShort),
      fBlindData(n.blindData, n.blindDataShort) {
    wire();
}

void TattributeLightData::wire() {
    addChild(fDirection);
    fDirection.addChild(fDirX);
    fDirection.addChild(fDirY);
    fDirection.addChild(fDirZ);
    addChild(fIntensity);
    fIntensity.addChild(fIntR);
    fIntensity.addChild(fIntG);
    fIntensity.addChild(fIntB);
    addChild(fAmbient);
    addChild(fDiffuse);
    addChild(fSpecular);
    addChild(fShadowFraction);
    addChild(fPreShadowIntensity);
    addChild(fBlindData);
    fDirection.setNativeDefaultData(0.0f, 0.0f, 1.0f);
    fAmbient.setNativeDefaultData(true);
    fDiffuse.setNativeDefaultData(true);
    fSpecular.setNativeDefaultData(false);
    assignOffsets();
}

// ---------------------------------------------------------------- list, matrix

bool TattributeList::addAttribute(const Tattribute* attribute) {
    if (!attribute)
        return false;
    const std::string& longName = attribute->longName();
    const std::string& shortName = attribute->shortName();
    if (fByName.count(longName) || (!shortName.empty() && fByName.count(shortName)))
        return false;
    fAttributes.push_back(attribute);
    fByName.emplace(longName, attribute);
    if (!shortName.empty())
        fByName.emplace(shortName, attribute);
    return true;
}

const Tattribute* TattributeList::findAttribute(std::string_view name) const {
    const auto it = fByName.find(std::string(name));
    return it == fByName.end() ? nullptr : it->second;
}

void TattributeList::clear() {
    fAttributes.clear();
    fByName.clear();
}

void TdependencyMatrix::resize(size_t attributeCount) {
    fAffects.assign(attributeCount, TbitFieldFixedN(attributeCount));
    fAffectedBy.assign(attributeCount, TbitFieldFixedN(attributeCount));
}

void TdependencyMatrix::attributeAffects(const Tattribute& from, const Tattribute& to, bool) {
    const size_t needed = std::max(from.index(), to.index()) + 1;
    if (needed > fAffects.size()) {
        // Grow, keeping what is there (schemas normally size the matrix first).
        std::vector<TbitFieldFixedN> affects(needed, TbitFieldFixedN(needed));
        std::vector<TbitFieldFixedN> affectedBy(needed, TbitFieldFixedN(needed));
        for (size_t i = 0; i < fAffects.size(); ++i) {
            fAffects[i].forEach([&](size_t b) { affects[i].set(b); });
            fAffectedBy[i].forEach([&](size_t b) { affectedBy[i].set(b); });
        }
        fAffects.swap(affects);
        fAffectedBy.swap(affectedBy);
    }
    fAffects[from.index()].set(to.index());
    fAffectedBy[to.index()].set(from.index());
}

void TdependencyMatrix::allAffectors(unsigned index, TbitFieldFixedN& out) const {
    out.resize(fAffects.size());
    if (index < fAffectedBy.size())
        out |= fAffectedBy[index];
}

void TdependencyMatrix::allAffectees(unsigned index, TbitFieldFixedN& out) const {
    out.resize(fAffects.size());
    if (index < fAffects.size())
        out |= fAffects[index];
}

void TdependencyMatrix::clear() {
    fAffects.clear();
    fAffectedBy.clear();
}
