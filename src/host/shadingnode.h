#pragma once

// Shading bases of the scene model: the interface of everything that takes
// part in a shading network, the shading dependency node and the material.

#include <atomic>
#include <vector>

#include "host/dependnode.h"

class TDNshadingEngine;
struct TSEnodeDescription;
class TframeSampleData;
using TattributeArray = std::vector<const Tattribute*>;

class TshadingNode {
public:
    TshadingNode() = default;
    virtual ~TshadingNode();

    // Adjusts the sample fields this node needs in a network. Overrides call
    // the base first.
    virtual void analyse(TDNshadingEngine* engine, TSEnodeDescription* description, void* option,
                         TbitField64& fields);
    // Narrows or widens the affects set used in analysis.
    virtual void modifyAffects(const Tattribute* attribute, TbitFieldFixedN& affects,
                               TDNshadingEngine* engine, void* option);
    virtual void shadingNodeInit(TframeSampleData* frame);
    // Computes a demand-driven constant.
    virtual void shadingNodeOnDemand(Tplug& plug, TdataBlock& block);
    virtual void endOfRender();
    virtual const Tattribute* alternateAttr(const Tattribute* attribute);
    virtual void groupedAttrs(const Tattribute* attribute, TattributeArray& out);
    virtual bool getGlow(float& intensity);
    virtual unsigned transparencyOptions();
    // Hardware shading hooks; the base refuses.
    virtual bool populateRequirements();
    virtual bool render();
    virtual int rendererProfile();

    // The first reference of a render runs shadingNodeInit, the last
    // endOfRender.
    void incrementReferenceCount(TframeSampleData* frame);
    void decrementReferenceCount();
    int referenceCount() const { return fReferences.load(); }

    // Runs shadingNodeOnDemand once per render however many threads ask:
    // the state goes 0 (not run), 1 (running), 2 (done); others wait for 2.
    void ensureOnDemand(Tplug& plug, TdataBlock& block);
    void resetOnDemand() { fOnDemandState.store(0); }

    // The metaclass of this interface, a second parent of shading node types.
    static Tmetaclass* sTypeof();

private:
    std::atomic<int> fReferences{0};
    std::atomic<int> fOnDemandState{0};
};

// Type record of the shading-node interface.
Tmetaclass* TshadingNodeTmeta();

class TshadingDependNode : public TdependNode, public TshadingNode {
public:
    TshadingDependNode() = default;

    Tmetaclass* typeof() const override;
    void* cast(Tmetaclass* meta) override;
    TdependNodeVS* vsData() const override { return sVsData(); }
    void setDirty(TmsgDirty& msg) override;
    void debug(TdebugOutput& out, const TdebugDetails& details) const override;
    void footprint(Footprint& fp) const override;
    virtual bool processMessage(TmsgDirty& msg);

    static TdependNodeVS* sVsData();
    static TdependNodeVS* sVsBaseData() { return sVsData(); }
    static Tmetaclass* sTypeof();
};

class Tmaterial : public TshadingDependNode {
public:
    Tmetaclass* typeof() const override;
    void* cast(Tmetaclass* meta) override;
    TdependNodeVS* vsData() const override { return sVsData(); }

    static TdependNodeVS* sVsData();
    static TdependNodeVS* sVsBaseData() { return sVsData(); }
    static Tmetaclass* sTypeof();
};
