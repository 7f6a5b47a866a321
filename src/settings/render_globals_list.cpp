#include "settings/render_globals_list.h"

ORVO_REGISTER_NODE(TdnRenderGlobalsList)
ORVO_DEPENDENCIES(TdnRenderGlobalsList) {}

std::vector<TdependNode*> TdnRenderGlobalsList::members(const Tattribute& list) const {
    std::vector<TdependNode*> out;
    const auto it = fMembers.find(&list);
    if (it != fMembers.end())
        for (const auto& [index, node] : it->second)
            out.push_back(node);
    return out;
}

unsigned TdnRenderGlobalsList::nextFreeIndex(const Tattribute& list) const {
    const auto it = fMembers.find(&list);
    return it == fMembers.end() || it->second.empty() ? 0u : it->second.rbegin()->first + 1;
}

void TdnRenderGlobalsList::connectionMade(const Tplug& mine, const Tplug& other, bool asSource) {
    TdnPattern::connectionMade(mine, other, asSource);
    if (!asSource &&
        (mine.attribute() == &aRenderGlobals || mine.attribute() == &aRenderQualities ||
         mine.attribute() == &aRenderResolutions))
        fMembers[mine.attribute()][mine.logicalIndex()] = other.node();
}

void TdnRenderGlobalsList::connectionBroken(const Tplug& mine, const Tplug& other, bool asSource) {
    TdnPattern::connectionBroken(mine, other, asSource);
    if (!asSource)
        if (const auto it = fMembers.find(mine.attribute()); it != fMembers.end())
            it->second.erase(mine.logicalIndex());
}
