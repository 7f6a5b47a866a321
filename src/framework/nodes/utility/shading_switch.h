#pragma once

// The shading switches: one material that varies by object. Each element of
// the `input` array pairs a value with a shape (its message connected to
// inShape); a sample takes the value of the element whose shape made its
// surface, and the default when its surface's shape is in no element.
//
// The renderer names its surfaces by the object id in each sample. During
// analysis a switch asks the shading engine for the id of every connected
// shape and keeps a table of (id, element index) sorted by id; shading looks
// the run's id up there. A run comes from one object, so the whole run takes
// one element. Outside a render there is no object and the default is given.
//
// TdnBaseSwitch is not a node type of its own (nothing is made of it and it
// has no scene-file identity); it has a metaclass so that tools can ask
// whether a node is a switch. Four concrete switches copy one, two, three or
// four floats.

#include <cstdint>
#include <mutex>
#include <utility>
#include <vector>

#include "framework/node_pattern.h"

#define ORVO_SCHEMA_TdnBaseSwitch(A, C2, C3)                                                       \
    A(TattributeAddr, ObjectId, "objectId", "id", .implicitSample())

ORVO_NODE(TdnBaseSwitch, TshadingDependNode, "baseShadingSwitch", "BSWH", 0, "kBaseShadingSwitch",
          "utility/switch", "n_baseShadingSwitch")

class TdnBaseSwitch : public TshadingDependNode, public TdnAttr<TdnBaseSwitch> {
public:
    using VS = TdnVS<TdnBaseSwitch>;
    static constexpr uint32_t kNotFound = 0xFFFFFFFFu;

    // ---- the face of the node pattern, written out: no type is registered
    static VS* sVsData();
    static TdependNodeVS* sVsBaseData() { return sVsData(); }
    static Tmetaclass* sTypeof();
    Tmetaclass* typeof() const override;
    void* cast(Tmetaclass* meta) override;
    TdependNodeVS* vsData() const override { return sVsData(); }

    // ---- shading network
    void analyse(TDNshadingEngine* engine, TSEnodeDescription* description, void* option,
                 TbitField64& fields) override;
    void endOfRender() override;
    bool legalConnection(const Tplug& mine, const Tplug& other, bool asSource) override;
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override;
    // Outside a render no object exists: the output is the default.
    bool computePlug(const Tplug& plug, TdataBlock& block) override;

    // ---- what each switch names
    virtual const Tattribute& outputAttr() const = 0;
    virtual const Tattribute& multiParent() const = 0;
    virtual const Tattribute& valueAttr() const = 0;
    virtual const Tattribute& shapeAttr() const = 0;
    virtual const Tattribute& defaultAttr() const = 0;
    // `in` is an element's value (valueAttr's layout) or the default
    // (defaultAttr's); `out` is the output.
    virtual void copyInput(TdataHandle& out, const TdataHandle& in) const = 0;
    virtual void copyDefault(TdataHandle& out, const TdataHandle& in) const = 0;

    // ---- for a user interface: the elements and what they hold
    unsigned inputPlugCount() const;
    // The shape and value plugs of the element at physical position `i`.
    Tplug shapeIndexPlug(unsigned i) const;
    Tplug shadeIndexPlug(unsigned i) const;
    // The shape connected to element `i`, or null.
    TdependNode* shapeIndexPath(unsigned i) const;

    // The table as analysis left it, for tests and tools.
    const std::vector<std::pair<uint64_t, uint32_t>>& memberTable() const { return fMembers; }

protected:
    // The logical indices of the input elements: those with data and those
    // with a shape connected.
    TuInt32Array elementIndices() const;
    // The element index of an object id; kNotFound when it is not listed.
    uint32_t lookUpMultiIndex(void* objectId) const;

private:
    // Sorted by id, one entry an id. Written during analysis (under a lock:
    // two shading groups may share a switch), read without one while
    // shading, which begins only after every analysis ends.
    std::vector<std::pair<uint64_t, uint32_t>> fMembers;
    std::mutex fMembersLock;
};

// What each switch names: its attributes by the names all four share, its
// value, and the copies (the pattern's scalar compute would run the
// vector one, which needs an object; a switch outside a render gives its
// default instead).
#define ORVO_SWITCH_FACE(Value)                                                                    \
    const Tattribute& outputAttr() const override {                                                \
        return aOutput;                                                                            \
    }                                                                                              \
    const Tattribute& multiParent() const override {                                               \
        return aInput;                                                                             \
    }                                                                                              \
    const Tattribute& valueAttr() const override {                                                 \
        return a##Value;                                                                           \
    }                                                                                              \
    const Tattribute& shapeAttr() const override {                                                 \
        return aInShape;                                                                           \
    }                                                                                              \
    const Tattribute& defaultAttr() const override {                                               \
        return aDefault;                                                                           \
    }                                                                                              \
    void copyInput(TdataHandle& out, const TdataHandle& in) const override;                        \
    void copyDefault(TdataHandle& out, const TdataHandle& in) const override;                      \
    bool computePlug(const Tplug& plug, TdataBlock& block) override {                              \
        return TdnBaseSwitch::computePlug(plug, block);                                            \
    }

// ---------------------------------------------------------------- single

#define ORVO_SCHEMA_TdnSingleSwitch(A, C2, C3)                                                     \
    A(TattributeArrayOf<TattributeCompound>, Input, "input", "i", .inputParent())                  \
    A(TattributeFloat, InSingle, "inSingle", "it",                                                 \
      .input().setNativeDefaultData(0.0f).childOf(Input))                                          \
    A(TattributeMessage, InShape, "inShape", "is", .input().childOf(Input))                        \
    A(TattributeFloat, Default, "default", "def", .input().setNativeDefaultData(0.0f))             \
    A(TattributeFloat, Output, "output", "out", .output().setNativeDefaultData(0.0f))

ORVO_NODE(TdnSingleSwitch, TdnBaseSwitch, "singleShadingSwitch", "SWH1", 613,
          "kSingleShadingSwitch", "utility/switch:drawdb/shader/operation/singleShadingSwitch",
          "n_singleShadingSwitch")

class TdnSingleSwitch : public TdnPattern<TdnSingleSwitch, TdnBaseSwitch> {
public:
    ORVO_SWITCH_FACE(InSingle)
};

// ---------------------------------------------------------------- double

#define ORVO_SCHEMA_TdnDoubleSwitch(A, C2, C3)                                                     \
    A(TattributeArrayOf<TattributeCompound>, Input, "input", "i", .inputParent())                  \
    A(Tattribute2Float, InDouble, "inDouble", "idl", .inputParent().childOf(Input))                \
    A(TattributeFloat, InComp1, "inComp1", "ic1",                                                  \
      .input().setNativeDefaultData(0.0f).childOf(InDouble))                                       \
    A(TattributeFloat, InComp2, "inComp2", "ic2",                                                  \
      .input().setNativeDefaultData(0.0f).childOf(InDouble))                                       \
    A(TattributeMessage, InShape, "inShape", "is", .input().childOf(Input))                        \
    A(Tattribute2Float, Default, "default", "def", .inputParent())                                 \
    A(TattributeFloat, DefComp1, "defComp1", "dc1",                                                \
      .input().setNativeDefaultData(0.0f).childOf(Default))                                        \
    A(TattributeFloat, DefComp2, "defComp2", "dc2",                                                \
      .input().setNativeDefaultData(0.0f).childOf(Default))                                        \
    A(Tattribute2Float, Output, "output", "out", .output())                                        \
    A(TattributeFloat, OutComp1, "outComp1", "oc1",                                                \
      .output().setNativeDefaultData(0.0f).childOf(Output))                                        \
    A(TattributeFloat, OutComp2, "outComp2", "oc2",                                                \
      .output().setNativeDefaultData(0.0f).childOf(Output))

ORVO_NODE(TdnDoubleSwitch, TdnBaseSwitch, "doubleShadingSwitch", "SWH2", 614,
          "kDoubleShadingSwitch", "utility/switch:drawdb/shader/operation/doubleShadingSwitch",
          "n_doubleShadingSwitch")

class TdnDoubleSwitch : public TdnPattern<TdnDoubleSwitch, TdnBaseSwitch> {
public:
    ORVO_SWITCH_FACE(InDouble)
};

// ---------------------------------------------------------------- triple

#define ORVO_SCHEMA_TdnTripleSwitch(A, C2, C3)                                                     \
    A(TattributeArrayOf<TattributeCompound>, Input, "input", "i", .inputParent())                  \
    ORVO_C3_NAMED(A, InTriple, "inTriple", "it", "inComp1", "inComp2", "inComp3", "ic1", "ic2",    \
                  "ic3", 0.0f, 0.0f, 0.0f, .inputParent().childOf(Input), .input())                \
    A(TattributeMessage, InShape, "inShape", "is", .input().childOf(Input))                        \
    ORVO_C3_NAMED(A, Default, "default", "def", "defComp1", "defComp2", "defComp3", "dc1", "dc2",  \
                  "dc3", 0.8f, 0.8f, 0.8f, .inputParent(), .input())                               \
    ORVO_C3_NAMED(A, Output, "output", "out", "outComp1", "outComp2", "outComp3", "oc1", "oc2",    \
                  "oc3", 0.0f, 0.0f, 0.0f, .output(), .output())

ORVO_NODE(TdnTripleSwitch, TdnBaseSwitch, "tripleShadingSwitch", "SWH3", 615,
          "kTripleShadingSwitch", "utility/switch:drawdb/shader/operation/tripleShadingSwitch",
          "n_tripleShadingSwitch")

class TdnTripleSwitch : public TdnPattern<TdnTripleSwitch, TdnBaseSwitch> {
public:
    ORVO_SWITCH_FACE(InTriple)
};

// ---------------------------------------------------------------- quad

#define ORVO_SCHEMA_TdnQuadSwitch(A, C2, C3)                                                       \
    A(TattributeArrayOf<TattributeCompound>, Input, "input", "i", .inputParent())                  \
    A(TattributeCompound, InQuad, "inQuad", "iq", .inputParent().childOf(Input))                   \
    ORVO_C3_NAMED(A, InTriple, "inTriple", "itr", "inComp1", "inComp2", "inComp3", "ic1", "ic2",   \
                  "ic3", 0.0f, 0.0f, 0.0f, .inputParent().childOf(InQuad), .input())               \
    A(TattributeFloat, InSingle, "inSingle", "isi",                                                \
      .input().setNativeDefaultData(0.0f).childOf(InQuad))                                         \
    A(TattributeMessage, InShape, "inShape", "is", .input().childOf(Input))                        \
    A(TattributeCompound, Default, "default", "def", .inputParent())                               \
    ORVO_C3_NAMED(A, DefTriple, "defTriple", "dtr", "defComp1", "defComp2", "defComp3", "dc1",     \
                  "dc2", "dc3", 0.8f, 0.8f, 0.8f, .inputParent().childOf(Default), .input())       \
    A(TattributeFloat, DefSingle, "defSingle", "dsi",                                              \
      .input().setNativeDefaultData(0.0f).childOf(Default))                                        \
    A(TattributeCompound, Output, "output", "out", .output())                                      \
    ORVO_C3_NAMED(A, OutTriple, "outTriple", "otr", "outComp1", "outComp2", "outComp3", "oc1",     \
                  "oc2", "oc3", 0.0f, 0.0f, 0.0f, .output().childOf(Output), .output())            \
    A(TattributeFloat, OutSingle, "outSingle", "osi",                                              \
      .output().setNativeDefaultData(0.0f).childOf(Output))

ORVO_NODE(TdnQuadSwitch, TdnBaseSwitch, "quadShadingSwitch", "SWH4", 920, "kQuadShadingSwitch",
          "utility/switch:drawdb/shader/operation/quadShadingSwitch", "n_quadShadingSwitch")

class TdnQuadSwitch : public TdnPattern<TdnQuadSwitch, TdnBaseSwitch> {
public:
    ORVO_SWITCH_FACE(InQuad)
};
