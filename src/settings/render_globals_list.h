#pragma once

// renderGlobalsList: the scene's registry of settings nodes. Every render
// globals, quality and resolution node connects its message here, which
// keeps it reachable; the list does nothing else.

#include <map>
#include <vector>

#include "framework/node_pattern.h"

#define ORVO_SCHEMA_TdnRenderGlobalsList(A, C2, C3)                                                \
    A(TattributeArrayOf<TattributeMessage>, RenderGlobals, "renderGlobals", "rg", .flagsOn(0))     \
    A(TattributeArrayOf<TattributeMessage>, RenderQualities, "renderQualities", "rq", .flagsOn(0)) \
    A(TattributeArrayOf<TattributeMessage>, RenderResolutions, "renderResolutions", "rr",          \
      .flagsOn(0))

ORVO_NODE(TdnRenderGlobalsList, TdependNode, "renderGlobalsList", "RDGL", 520, "kRenderGlobalsList",
          "rendernode/list", "n_renderGlobalsList")

class TdnRenderGlobalsList : public TdnPattern<TdnRenderGlobalsList, TdependNode> {
public:
    // The nodes connected to one of the three lists, in element order.
    std::vector<TdependNode*> members(const Tattribute& list) const;
    // The element after the last one in use.
    unsigned nextFreeIndex(const Tattribute& list) const;

    void connectionMade(const Tplug& mine, const Tplug& other, bool asSource) override;
    void connectionBroken(const Tplug& mine, const Tplug& other, bool asSource) override;

private:
    // list attribute -> element index -> node
    std::map<const Tattribute*, std::map<unsigned, TdependNode*>> fMembers;
};
