#pragma once

// The lists of a scene's render nodes by class: every shader, texture,
// utility, rendering node and post process of a scene feeds, with its
// `message`, one element of its list's multi attribute. The render info
// owns one list of each kind (framework/render_info.h) and puts the nodes
// of a scene in them; tools find a scene's shaders, say, by reading the
// shader list. (The light list, whose elements take `lightData`, is in
// lights/light_list.h.)

#include <map>
#include <vector>

#include "framework/node_pattern.h"

// What the five lists share: the nodes in the list by element, and the
// element after the last in use, which the next node takes.
template <class T>
class TdnRenderNodeList : public TdnPattern<T, TdependNode> {
public:
    // The nodes whose message feeds the list, in element order.
    std::vector<TdependNode*> members() const {
        std::vector<TdependNode*> out;
        for (const auto& [index, node] : fMembers)
            out.push_back(node);
        return out;
    }
    unsigned nextFreeIndex() const { return fMembers.empty() ? 0u : fMembers.rbegin()->first + 1; }

    void connectionMade(const Tplug& mine, const Tplug& other, bool asSource) override {
        TdnPattern<T, TdependNode>::connectionMade(mine, other, asSource);
        if (!asSource && mine.attribute() == &T::listAttribute())
            fMembers[mine.logicalIndex()] = other.node();
    }
    void connectionBroken(const Tplug& mine, const Tplug& other, bool asSource) override {
        TdnPattern<T, TdependNode>::connectionBroken(mine, other, asSource);
        if (!asSource && mine.attribute() == &T::listAttribute())
            fMembers.erase(mine.logicalIndex());
    }

private:
    std::map<unsigned, TdependNode*> fMembers; // element index -> node
};

#define ORVO_SCHEMA_TdnShaderList(A, C2, C3)                                                       \
    A(TattributeArrayOf<TattributeMessage>, Shaders, "shaders", "s", .flagsOn(0))
ORVO_NODE(TdnShaderList, TdependNode, "shaderList", "SHLT", 2130, "kShaderList", "rendernode/list",
          "n_shaderList")
class TdnShaderList : public TdnRenderNodeList<TdnShaderList> {
public:
    static const Tattribute& listAttribute() { return aShaders; }
};

#define ORVO_SCHEMA_TdnTextureList(A, C2, C3)                                                      \
    A(TattributeArrayOf<TattributeMessage>, Textures, "textures", "tx", .flagsOn(0))
ORVO_NODE(TdnTextureList, TdependNode, "textureList", "TXLT", 2131, "kTextureList",
          "rendernode/list", "n_textureList")
class TdnTextureList : public TdnRenderNodeList<TdnTextureList> {
public:
    static const Tattribute& listAttribute() { return aTextures; }
};

#define ORVO_SCHEMA_TdnRenderUtilityList(A, C2, C3)                                                \
    A(TattributeArrayOf<TattributeMessage>, Utilities, "utilities", "u", .flagsOn(0))
ORVO_NODE(TdnRenderUtilityList, TdependNode, "renderUtilityList", "RULT", 2132,
          "kRenderUtilityList", "rendernode/list", "n_renderUtilityList")
class TdnRenderUtilityList : public TdnRenderNodeList<TdnRenderUtilityList> {
public:
    static const Tattribute& listAttribute() { return aUtilities; }
};

#define ORVO_SCHEMA_TdnRenderingList(A, C2, C3)                                                    \
    A(TattributeArrayOf<TattributeMessage>, Rendering, "rendering", "r", .flagsOn(0))
ORVO_NODE(TdnRenderingList, TdependNode, "renderingList", "RNLT", 2133, "kRenderingList",
          "rendernode/list", "n_renderingList")
class TdnRenderingList : public TdnRenderNodeList<TdnRenderingList> {
public:
    static const Tattribute& listAttribute() { return aRendering; }
};

#define ORVO_SCHEMA_TdnPostProcessList(A, C2, C3)                                                  \
    A(TattributeArrayOf<TattributeMessage>, PostProcesses, "postProcesses", "p", .flagsOn(0))
ORVO_NODE(TdnPostProcessList, TdependNode, "postProcessList", "PPLT", 2134, "kPostProcessList",
          "rendernode/list", "n_postProcessList")
class TdnPostProcessList : public TdnRenderNodeList<TdnPostProcessList> {
public:
    static const Tattribute& listAttribute() { return aPostProcesses; }
};
