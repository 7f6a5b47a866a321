#pragma once

// The base of node types that run computes of other nodes (the shading
// group): a set whose dispatch hands a run of samples to a node.

#include "host/dependnode.h"

class TDNdispatchCompute : public TdependNode {
public:
    Tmetaclass* typeof() const override { return sTypeof(); }
    void* cast(Tmetaclass* meta) override;
    TdependNodeVS* vsData() const override { return sVsData(); }

    // Computes `plug` of `node` over elements [first, first + count).
    static bool dispatchCompute(TdependNode* node, const Tplug& plug, TdataBlock& block,
                                unsigned first, unsigned count) {
        return node->vectorComputePlug(plug, block, first, count);
    }

    static TdependNodeVS* sVsData();
    static TdependNodeVS* sVsBaseData() { return sVsData(); }
    static Tmetaclass* sTypeof();
};
