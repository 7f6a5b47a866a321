#pragma once

// The base of node types that run computes of other nodes (the shading
// group): a set whose dispatch hands a run of samples to a node.

#include "host/scene/object_set.h"

class TDNdispatchCompute : public TobjectSet {
public:
    Tmetaclass* typeof() const override { return sTypeof(); }
    void* cast(Tmetaclass* meta) override;

    // Computes `plug` of `node` over elements [first, first + count).
    static bool dispatchCompute(TdependNode* node, const Tplug& plug, TdataBlock& block,
                                unsigned first, unsigned count) {
        return node->vectorComputePlug(plug, block, first, count);
    }

    // The schema is the set's.
    static TdependNodeVS* sVsData() { return TobjectSet::sVsBaseData(); }
    static TdependNodeVS* sVsBaseData() { return TobjectSet::sVsBaseData(); }
    static Tmetaclass* sTypeof();
};
