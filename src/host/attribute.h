#pragma once

// Attribute descriptions: one Tattribute object per attribute of a node type,
// owned by the type's static descriptor. An attribute knows how to make,
// copy, default, size, print and parse its values; nodes keep the values in
// data blocks.

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/data.h"
#include "host/types.h"

class TdependNodeVS;
class TdebugOutput;
class Tmetaclass;
class TattributeCompound;

// The attribute flag word. Schemas set and clear bits directly; the named
// setters below touch the same bits. Bits without a name here are kept and
// settable but mean nothing to this host.
namespace TattrFlag {
constexpr uint64_t kReadable = 0x1;
constexpr uint64_t kWritable = 0x2;
constexpr uint64_t kArray = 0x4;
constexpr uint64_t kHidden = 0x8;
constexpr uint64_t kHostFlag4 = 0x10;
constexpr uint64_t kStorable = 0x20;
constexpr uint64_t kHostFlag6 = 0x40;
constexpr uint64_t kKeyable = 0x80;
constexpr uint64_t kHostFlag8 = 0x100;
constexpr uint64_t kValueIsObject = 0x800; // values need construct/destroy
constexpr uint64_t kCachedInternally = 0x2000;
constexpr uint64_t kArrayDescendant = 0x8000;
constexpr uint64_t kCompoundConstructs = 0x10000; // a compound with object children
constexpr uint64_t kCachedByNode0 = uint64_t(1) << 26;
constexpr uint64_t kCachedByNode1 = uint64_t(1) << 27;
constexpr uint64_t kUsedAsColor = 0x400000;
constexpr uint64_t kConeShape = 0x400000000;
constexpr uint64_t kHostFlag43 = 0x80000000000;
constexpr uint64_t kHostFlag47 = 0x800000000000;
constexpr uint64_t kHasLowerLimit = 0x800000000000000;
constexpr uint64_t kHasUpperLimit = 0x1000000000000000;

// A fresh attribute is readable, writable, storable and cached.
constexpr uint64_t kDefault =
    kReadable | kWritable | kHostFlag4 | kStorable | kHostFlag6 | kCachedInternally;
} // namespace TattrFlag

enum class TattrKind : uint8_t {
    Float,
    Double,
    Boolean,
    Char,
    Int16,
    Int32,
    TwoInt32,
    Time,
    Enum,
    Compound,
    Typed,
    Message,
    Addr,
    FltMatrix,
};

// Reference counting base of shared descriptions. Attributes live in static
// descriptors, so dropping the last reference never deletes.
class TsharedObject {
public:
    void ref() const { ++fRefs; }
    void unref() const { --fRefs; }
    int refCount() const { return fRefs; }

private:
    mutable int fRefs = 0;
};

class Tattribute : public TsharedObject {
public:
    Tattribute(Tstring longName, Tstring shortName);
    Tattribute(const Tattribute& other);
    Tattribute& operator=(const Tattribute&) = delete;
    virtual ~Tattribute();

    // ---- identity and structure
    const Tstring& longName() const { return fLongName.empty() ? fShortName : fLongName; }
    const Tstring& shortName() const { return fShortName; }
    uint64_t flags() const { return fFlags; }
    void setFlags(uint64_t bits) { fFlags |= bits; }
    void clearFlags(uint64_t bits) { fFlags &= ~bits; }
    bool hasFlag(uint64_t bit) const { return (fFlags & bit) != 0; }
    bool isArray() const { return hasFlag(TattrFlag::kArray); }
    bool isArrayDescendant() const { return hasFlag(TattrFlag::kArrayDescendant); }

    TdependNodeVS* owner() const { return fOwner; }
    void setOwner(TdependNodeVS* owner) { fOwner = owner; }
    Tattribute* parent() const { return fParent; }
    uint32_t index() const { return fIndex; }
    void setIndex(uint32_t index) { fIndex = index; }
    const Tstring& nodeNameString() const { return fNodeName; }
    void setNodeNameString(Tstring name) { fNodeName = std::move(name); }
    uint32_t offsetInParent() const { return fOffsetInParent; }
    void setOffsetInParent(uint32_t offset) { fOffsetInParent = offset; }
    uint32_t numChildren() const { return uint32_t(fChildren.size()); }
    Tattribute* child(uint32_t i) const { return fChildren[i]; }
    const std::vector<Tattribute*>& children() const { return fChildren; }

    // The nearest array attribute among this attribute and its ancestors.
    const Tattribute* arrayAncestor() const;
    // The top of the compound chain that holds this attribute's value: stops
    // at an array, whose elements hold their own compounds.
    const Tattribute* valueRoot() const;
    bool isDescendentOf(const Tattribute& other) const;
    // Ancestors from the root down to the parent of this attribute.
    void parentPath(std::vector<const Tattribute*>& path) const;

    // ---- value operations
    virtual const char* className() const = 0;
    virtual TattrKind kind() const = 0;
    virtual Tmetaclass* metaclass() const;
    virtual uint32_t dataSize() const = 0;
    virtual uint32_t dataAlignment() const = 0;
    virtual void constructValue(void* where) const;
    virtual void destroyValue(void* where) const;
    virtual void copyValue(void* dst, const void* src) const;
    virtual void writeDefault(void* where) const = 0;
    virtual bool equalValues(const void* a, const void* b) const;
    virtual void printValue(TdebugOutput& out, const void* value) const;

    // The value as words of the scene language, and back. parseValue returns
    // an empty string on success, else what was wrong.
    virtual void formatValue(const void* value, std::vector<std::string>& words) const = 0;
    virtual std::string parseValue(const std::vector<std::string>& words, void* where) const = 0;
    // How many words a value takes (-1: any number, 0: no value).
    virtual int wordCount() const = 0;

    // Numbers: how many, and each as a double. Used for connections between
    // attributes of compatible shapes and for printing.
    virtual int numericCount() const { return 0; }
    virtual double numericGet(const void* value, int i) const;
    virtual void numericSet(void* value, int i, double v) const;

    // ---- host setters
    void setDisconnectOption(unsigned option) { fDisconnectOption = uint8_t(option); }
    unsigned disconnectOption() const { return fDisconnectOption; }
    void setComputeModifies(bool on) { fComputeModifies = on; }
    bool computeModifies() const { return fComputeModifies; }
    void setIndexMatters(bool on) { fIndexMatters = on; }
    bool indexMatters() const { return fIndexMatters; }
    void setKeyable(bool on) { setBit(TattrFlag::kKeyable, on); }
    void setHidden(bool on) { setBit(TattrFlag::kHidden, on); }
    void setStorable(bool on) { setBit(TattrFlag::kStorable, on); }
    void setWritable(bool on) { setBit(TattrFlag::kWritable, on); }
    void setReadable(bool on) { setBit(TattrFlag::kReadable, on); }
    void setCachedInternally(bool on) { setBit(TattrFlag::kCachedInternally, on); }
    void setUsedAsColor(bool on) { setBit(TattrFlag::kUsedAsColor, on); }
    void setStringSetName(Tstring name) { fStringSetName = std::move(name); }
    void setNiceNameOverride(Tstring name) { fNiceName = std::move(name); }
    const Tstring& niceNameOverride() const { return fNiceName; }
    void setParent(TattributeCompound* parent);
    void setDefaultData(TdataLetter* letter);

    bool isKeyable() const { return hasFlag(TattrFlag::kKeyable); }
    bool isHidden() const { return hasFlag(TattrFlag::kHidden); }
    bool isStorable() const { return hasFlag(TattrFlag::kStorable); }
    bool isWritable() const { return hasFlag(TattrFlag::kWritable); }
    bool isReadable() const { return hasFlag(TattrFlag::kReadable); }
    // An attribute that its node computes rather than one set from outside.
    bool isComputed() const { return fComputeModifies || !isWritable(); }

    // Hard limits (the value is clamped to them when set from outside) and
    // soft limits (a slider's range).
    void setMinValue(double v);
    void setMaxValue(double v);
    void setSoftMinValue(double v) { fSoftMin = v; }
    void setSoftMaxValue(double v) { fSoftMax = v; }
    std::optional<double> minValue() const { return fMin; }
    std::optional<double> maxValue() const { return fMax; }
    std::optional<double> softMinValue() const { return fSoftMin; }
    std::optional<double> softMaxValue() const { return fSoftMax; }

    // The node framework needs this to wire compounds.
    void addChildAttribute(Tattribute& child);

    bool preferNodesInternalData() const {
        return hasFlag(TattrFlag::kCachedByNode0 | TattrFlag::kCachedByNode1);
    }

protected:
    void setBit(uint64_t bit, bool on) { on ? setFlags(bit) : clearFlags(bit); }
    const Tdata& defaultData() const { return fDefaultData; }

private:
    uint64_t fFlags = TattrFlag::kDefault;
    Tstring fLongName;
    Tstring fShortName;
    TdependNodeVS* fOwner = nullptr;
    Tattribute* fParent = nullptr;
    uint32_t fIndex = 0;
    Tstring fNodeName;
    uint32_t fOffsetInParent = 0;
    std::vector<Tattribute*> fChildren;

    Tstring fStringSetName;
    Tstring fNiceName;
    Tdata fDefaultData;
    std::optional<double> fMin, fMax, fSoftMin, fSoftMax;
    uint8_t fDisconnectOption = 1;
    bool fComputeModifies = false;
    bool fIndexMatters = false;
};

// Chainable schema shapes, so that a schema entry reads as one line:
//   Input.input().setNativeDefaultData(0.5f)
// Self is the concrete attribute class, so chains keep its own setters.
template <class Self, class Base>
class TattrShapes : public Base {
public:
    using Base::Base;

    // An ordinary keyable input leaf.
    Self& input() {
        this->setFlags(TattrFlag::kKeyable | TattrFlag::kHostFlag47);
        this->setDisconnectOption(1);
        return self();
    }
    // The parent of an input compound; its children are `input()` leaves.
    Self& inputParent() {
        this->setFlags(TattrFlag::kHostFlag47);
        this->setDisconnectOption(1);
        return self();
    }
    // A colour compound.
    Self& colour() {
        this->setFlags(TattrFlag::kUsedAsColor);
        return self();
    }
    // Written by compute: not writable, not stored, not cached.
    Self& output() {
        this->clearFlags(TattrFlag::kWritable | TattrFlag::kStorable |
                         TattrFlag::kCachedInternally);
        return self();
    }
    // Filled per sample by the shading engine (normalCamera, pointCamera...).
    Self& implicitSample() {
        this->clearFlags(TattrFlag::kStorable | TattrFlag::kCachedInternally);
        this->setFlags(TattrFlag::kHidden);
        return self();
    }
    // Filled from the lights (lightDirection, lightIntensity...).
    Self& implicitLight() {
        this->clearFlags(TattrFlag::kReadable | TattrFlag::kStorable);
        this->setFlags(TattrFlag::kHidden);
        return self();
    }
    Self& flagsOn(uint64_t bits) {
        this->setFlags(bits);
        return self();
    }
    Self& flagsOff(uint64_t bits) {
        this->clearFlags(bits);
        return self();
    }
    Self& disconnect(unsigned option) {
        this->setDisconnectOption(option);
        return self();
    }
    // Limits, chainable: .min(0).softMax(10). A compound takes one per child.
    Self& min(double v) {
        this->setMinValue(v);
        return self();
    }
    Self& max(double v) {
        this->setMaxValue(v);
        return self();
    }
    Self& min(double a, double b, double c = 0.0) {
        this->setMinValue(a, b, c);
        return self();
    }
    Self& max(double a, double b, double c = 0.0) {
        this->setMaxValue(a, b, c);
        return self();
    }
    Self& softMin(double v) {
        this->setSoftMinValue(v);
        return self();
    }
    Self& softMax(double v) {
        this->setSoftMaxValue(v);
        return self();
    }
    Self& range(double lo, double hi) {
        this->setMinValue(lo);
        this->setMaxValue(hi);
        return self();
    }
    Self& softRange(double lo, double hi) {
        this->setSoftMinValue(lo);
        this->setSoftMaxValue(hi);
        return self();
    }
    // Makes this attribute a child of a compound declared before it.
    Self& childOf(Tattribute& parent) {
        parent.addChildAttribute(*this);
        return self();
    }
    // The same for the compound's last child, which fixes the compound's
    // layout (an array's elements need it before the block lays out the
    // type).
    template <class Compound>
    Self& lastChildOf(Compound& parent) {
        parent.addChildAttribute(*this);
        parent.assignOffsets();
        return self();
    }
    Self& niceName(Tstring name) {
        this->setNiceNameOverride(std::move(name));
        return self();
    }

protected:
    Self& self() { return static_cast<Self&>(*this); }
};

// Base of attributes whose value is a fixed set of numbers.
class TattributeNumeric : public Tattribute {
public:
    using Tattribute::Tattribute;
};

// A leaf holding one value of type V.
template <class Self, class V, TattrKind K>
class TattributeLeaf : public TattrShapes<Self, TattributeNumeric> {
public:
    using Value = V;
    TattributeLeaf(Tstring longName, Tstring shortName)
        : TattrShapes<Self, TattributeNumeric>(std::move(longName), std::move(shortName)) {}

    Self& setNativeDefaultData(V value) {
        fDefault = value;
        return this->self();
    }
    V nativeDefault() const { return fDefault; }

    TattrKind kind() const override { return K; }
    uint32_t dataSize() const override { return sizeof(V); }
    uint32_t dataAlignment() const override { return alignof(V); }
    void writeDefault(void* where) const override { *static_cast<V*>(where) = fDefault; }
    int numericCount() const override { return 1; }
    double numericGet(const void* value, int) const override {
        return double(*static_cast<const V*>(value));
    }
    void numericSet(void* value, int, double v) const override;
    void formatValue(const void* value, std::vector<std::string>& words) const override;
    std::string parseValue(const std::vector<std::string>& words, void* where) const override;
    int wordCount() const override { return 1; }

private:
    V fDefault{};
};

class TattributeFloat : public TattributeLeaf<TattributeFloat, float, TattrKind::Float> {
public:
    using TattributeLeaf::TattributeLeaf;
    const char* className() const override { return "TattributeFloat"; }
};

class TattributeFloatLinear : public TattributeFloat {
public:
    using TattributeFloat::TattributeFloat;
    const char* className() const override { return "TattributeFloatLinear"; }
};

class TattributeDouble : public TattributeLeaf<TattributeDouble, double, TattrKind::Double> {
public:
    using TattributeLeaf::TattributeLeaf;
    const char* className() const override { return "TattributeDouble"; }
};

class TattributeDoubleAngle : public TattributeDouble {
public:
    using TattributeDouble::TattributeDouble;
    const char* className() const override { return "TattributeDoubleAngle"; }
};

class TattributeBoolean : public TattributeLeaf<TattributeBoolean, bool, TattrKind::Boolean> {
public:
    using TattributeLeaf::TattributeLeaf;
    const char* className() const override { return "TattributeBoolean"; }
};

class TattributeChar : public TattributeLeaf<TattributeChar, char, TattrKind::Char> {
public:
    using TattributeLeaf::TattributeLeaf;
    const char* className() const override { return "TattributeChar"; }
};

class TattributeInt16 : public TattributeLeaf<TattributeInt16, int16_t, TattrKind::Int16> {
public:
    using TattributeLeaf::TattributeLeaf;
    const char* className() const override { return "TattributeInt16"; }
};

class TattributeInt32 : public TattributeLeaf<TattributeInt32, int32_t, TattrKind::Int32> {
public:
    using TattributeLeaf::TattributeLeaf;
    const char* className() const override { return "TattributeInt32"; }
};

class TattributeTime : public TattributeLeaf<TattributeTime, double, TattrKind::Time> {
public:
    using TattributeLeaf::TattributeLeaf;
    const char* className() const override { return "TattributeTime"; }
};

// A raw address; never stored or set from a scene.
class TattributeAddr : public TattrShapes<TattributeAddr, Tattribute> {
public:
    TattributeAddr(Tstring longName, Tstring shortName);
    TattributeAddr& setNativeDefaultData(void* value) {
        fDefault = value;
        return *this;
    }
    const char* className() const override { return "TattributeAddr"; }
    TattrKind kind() const override { return TattrKind::Addr; }
    uint32_t dataSize() const override { return sizeof(void*); }
    uint32_t dataAlignment() const override { return alignof(void*); }
    void writeDefault(void* where) const override { *static_cast<void**>(where) = fDefault; }
    void formatValue(const void* value, std::vector<std::string>& words) const override;
    std::string parseValue(const std::vector<std::string>& words, void* where) const override;
    int wordCount() const override { return 0; }

private:
    void* fDefault = nullptr;
};

// Two 32-bit integers.
class Tattribute2Int32 : public TattrShapes<Tattribute2Int32, TattributeNumeric> {
public:
    using TattrShapes::TattrShapes;
    Tattribute2Int32& setNativeDefaultData(int32_t a, int32_t b) {
        fDefault[0] = a;
        fDefault[1] = b;
        return *this;
    }
    const char* className() const override { return "Tattribute2Int32"; }
    TattrKind kind() const override { return TattrKind::TwoInt32; }
    uint32_t dataSize() const override { return 8; }
    uint32_t dataAlignment() const override { return 4; }
    void writeDefault(void* where) const override;
    int numericCount() const override { return 2; }
    double numericGet(const void* value, int i) const override;
    void numericSet(void* value, int i, double v) const override;
    void formatValue(const void* value, std::vector<std::string>& words) const override;
    std::string parseValue(const std::vector<std::string>& words, void* where) const override;
    int wordCount() const override { return 2; }

private:
    int32_t fDefault[2] = {0, 0};
};

// A 4 by 4 float matrix; identity by default.
class TattributeFltMatrix : public TattrShapes<TattributeFltMatrix, TattributeNumeric> {
public:
    using TattrShapes::TattrShapes;
    TattributeFltMatrix& setNativeDefaultData(const T4dFltMatrix& m) {
        fDefault = m;
        return *this;
    }
    const char* className() const override { return "TattributeFltMatrix"; }
    TattrKind kind() const override { return TattrKind::FltMatrix; }
    uint32_t dataSize() const override { return sizeof(T4dFltMatrix); }
    uint32_t dataAlignment() const override { return alignof(T4dFltMatrix); }
    void writeDefault(void* where) const override { *static_cast<T4dFltMatrix*>(where) = fDefault; }
    int numericCount() const override { return 16; }
    double numericGet(const void* value, int i) const override;
    void numericSet(void* value, int i, double v) const override;
    void formatValue(const void* value, std::vector<std::string>& words) const override;
    std::string parseValue(const std::vector<std::string>& words, void* where) const override;
    int wordCount() const override { return 16; }

private:
    T4dFltMatrix fDefault;
};

// A signed 16-bit value with named fields.
class TattributeEnum : public TattrShapes<TattributeEnum, TattributeNumeric> {
public:
    struct Field {
        Tstring label;
        Tstring constantName;
        int16_t value;
    };

    using TattrShapes::TattrShapes;
    TattributeEnum& addField(Tstring label, Tstring constantName, int16_t value);
    TattributeEnum& setNativeDefaultData(int16_t value) {
        fDefault = value;
        return *this;
    }
    int16_t nativeDefault() const { return fDefault; }
    const std::vector<Field>& fields() const { return fFields; }
    const Field* fieldByLabel(std::string_view label) const;

    const char* className() const override { return "TattributeEnum"; }
    TattrKind kind() const override { return TattrKind::Enum; }
    uint32_t dataSize() const override { return 2; }
    uint32_t dataAlignment() const override { return 2; }
    void writeDefault(void* where) const override { *static_cast<int16_t*>(where) = fDefault; }
    int numericCount() const override { return 1; }
    double numericGet(const void* value, int) const override {
        return *static_cast<const int16_t*>(value);
    }
    void numericSet(void* value, int, double v) const override;
    void formatValue(const void* value, std::vector<std::string>& words) const override;
    std::string parseValue(const std::vector<std::string>& words, void* where) const override;
    int wordCount() const override { return 1; }

private:
    std::vector<Field> fFields;
    int16_t fDefault = 0;
};
using TattributeEnumOf = TattributeEnum;

// No value: a connection-only attribute.
class TattributeMessage : public TattrShapes<TattributeMessage, Tattribute> {
public:
    using TattrShapes::TattrShapes;
    const char* className() const override { return "TattributeMessage"; }
    TattrKind kind() const override { return TattrKind::Message; }
    uint32_t dataSize() const override { return 0; }
    uint32_t dataAlignment() const override { return 1; }
    void writeDefault(void*) const override {}
    void formatValue(const void*, std::vector<std::string>&) const override {}
    std::string parseValue(const std::vector<std::string>&, void*) const override;
    int wordCount() const override { return 0; }
};

// A Tdata of one metaclass (strings and other objects).
class TattributeTyped : public TattrShapes<TattributeTyped, Tattribute> {
public:
    TattributeTyped(Tstring longName, Tstring shortName, Tmetaclass* type = nullptr);
    TattributeTyped& setNativeDefaultData(Tdata value) {
        fDefault = std::move(value);
        return *this;
    }
    Tmetaclass* dataType() const { return fType; }

    const char* className() const override { return "TattributeTyped"; }
    TattrKind kind() const override { return TattrKind::Typed; }
    uint32_t dataSize() const override { return sizeof(Tdata); }
    uint32_t dataAlignment() const override { return alignof(Tdata); }
    void constructValue(void* where) const override;
    void destroyValue(void* where) const override;
    void copyValue(void* dst, const void* src) const override;
    void writeDefault(void* where) const override;
    bool equalValues(const void* a, const void* b) const override;
    void formatValue(const void* value, std::vector<std::string>& words) const override;
    std::string parseValue(const std::vector<std::string>& words, void* where) const override;
    int wordCount() const override { return 1; }

private:
    Tmetaclass* fType;
    Tdata fDefault;
};

// A compound: its value is its children's values laid out by assignOffsets.
class TattributeCompound : public TattrShapes<TattributeCompound, Tattribute> {
public:
    using TattrShapes::TattrShapes;

    virtual void addChild(Tattribute& child) { addChildAttribute(child); }
    // Lays the children out (recursively): each at its alignment, in order.
    void assignOffsets() const;

    // Limits for all children at once.
    TattributeCompound& setMinValue(double a, double b, double c = 0.0);
    TattributeCompound& setMaxValue(double a, double b, double c = 0.0);

    const char* className() const override { return "TattributeCompound"; }
    TattrKind kind() const override { return TattrKind::Compound; }
    uint32_t dataSize() const override;
    uint32_t dataAlignment() const override;
    void constructValue(void* where) const override;
    void destroyValue(void* where) const override;
    void copyValue(void* dst, const void* src) const override;
    void writeDefault(void* where) const override;
    bool equalValues(const void* a, const void* b) const override;
    int numericCount() const override;
    double numericGet(const void* value, int i) const override;
    void numericSet(void* value, int i, double v) const override;
    void formatValue(const void* value, std::vector<std::string>& words) const override;
    std::string parseValue(const std::vector<std::string>& words, void* where) const override;
    int wordCount() const override;

private:
    mutable uint32_t fSize = 0;
    mutable uint32_t fAlign = 1;
    mutable bool fLaidOut = false;
};
template <class...>
using TattributeCompoundOf = TattributeCompound;

// Compounds of two and three floats; children are added by the schema.
class Tattribute2Float : public TattrShapes<Tattribute2Float, TattributeCompound> {
public:
    using TattrShapes::TattrShapes;
    Tattribute2Float& setNativeDefaultData(float a, float b);
    const char* className() const override { return "Tattribute2Float"; }
};

class Tattribute3Float : public TattrShapes<Tattribute3Float, TattributeCompound> {
public:
    using TattrShapes::TattrShapes;
    Tattribute3Float& setNativeDefaultData(float a, float b, float c);
    const char* className() const override { return "Tattribute3Float"; }
};

// The per-light record that lights write and materials read. Its children
// are its own, laid out exactly as the TlightData record.
struct TlightData {
    float direction[3];
    float intensity[3];
    bool ambient;
    bool diffuse;
    bool specular;
    float shadowFraction;
    float preShadowIntensity;
    void* blindData;
};
static_assert(sizeof(TlightData) == 48, "the light data record is 48 bytes");

class TattributeLightData : public TattrShapes<TattributeLightData, TattributeCompound> {
public:
    // Children are named by appending Direction, Intensity, ... to `prefix`
    // ("light" gives lightDirection; "DShadow" gives DShadowDirection) and
    // `shortPrefix` to ld, li, ...
    TattributeLightData(Tstring longName, Tstring shortName, Tstring prefix = "light",
                        Tstring shortPrefix = "l");

    // Children named one by one, for records whose names follow no prefix
    // (an output copy of a record, say). Direction and intensity children
    // append X, Y, Z and R, G, B (x, y, z and r, g, b to the short names).
    struct ChildNames {
        Tstring direction, directionShort;
        Tstring intensity, intensityShort;
        Tstring ambient, ambientShort;
        Tstring diffuse, diffuseShort;
        Tstring specular, specularShort;
        Tstring shadowFraction, shadowFractionShort;
        Tstring preShadowIntensity, preShadowIntensityShort;
        Tstring blindData, blindDataShort;
    };
    TattributeLightData(Tstring longName, Tstring shortName, const ChildNames& names);
    const char* className() const override { return "TattributeLightData"; }

    TattributeFloat& directionX() { return fDirX; }

private:
    void wire();

    Tattribute3Float fDirection;
    TattributeFloat fDirX, fDirY, fDirZ;
    Tattribute3Float fIntensity;
    TattributeFloat fIntR, fIntG, fIntB;
    TattributeBoolean fAmbient, fDiffuse, fSpecular;
    TattributeFloat fShadowFraction, fPreShadowIntensity;
    TattributeAddr fBlindData;
};

// An array of elements of attribute class A. The data block keeps a header
// in the attribute's slot and the elements elsewhere (see TmultiHeader).
template <class A>
class TattributeArrayOf : public A {
public:
    template <class... Args>
    explicit TattributeArrayOf(Args&&... args) : A(std::forward<Args>(args)...) {
        this->setFlags(TattrFlag::kArray);
    }
};

// The attributes of a node type, in index order.
class TattributeList {
public:
    // Appends; false (and nothing added) when the long or short name clashes.
    bool addAttribute(const Tattribute* attribute);
    const Tattribute* findAttribute(std::string_view name) const;
    size_t size() const { return fAttributes.size(); }
    const Tattribute* operator[](size_t i) const { return fAttributes[i]; }
    auto begin() const { return fAttributes.begin(); }
    auto end() const { return fAttributes.end(); }
    void clear();

private:
    std::vector<const Tattribute*> fAttributes;
    std::unordered_map<std::string, const Tattribute*> fByName;
};

// Which attributes dirty which, by attribute index.
class TdependencyMatrix {
public:
    void resize(size_t attributeCount);
    size_t size() const { return fAffects.size(); }
    void attributeAffects(const Tattribute& from, const Tattribute& to, bool = false);
    bool affects(uint32_t from, uint32_t to) const { return fAffects[from].test(to); }
    void allAffectors(unsigned index, TbitFieldFixedN& out) const;
    void allAffectees(unsigned index, TbitFieldFixedN& out) const;
    const TbitFieldFixedN& affectees(unsigned index) const { return fAffects[index]; }
    void clear();

private:
    std::vector<TbitFieldFixedN> fAffects;    // row: from, bits: to
    std::vector<TbitFieldFixedN> fAffectedBy; // row: to, bits: from
};

// Formats a float the way every printed value does: %.9g, enough digits to
// read the same float back.
std::string OrvoFormatFloat(double value);
