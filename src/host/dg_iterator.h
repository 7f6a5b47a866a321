#pragma once

// A walk upstream through the connections of a graph, depth first, from a
// root node: every node that feeds the root, directly or through others,
// once. A caller may prune the walk at the node in hand, and the walk then
// leaves out what lies upstream of it (unless another path reaches it).

#include <unordered_set>
#include <vector>

#include "host/plug.h"

class TdependGraph;
class TdependNode;

class TDGiterator {
public:
    TDGiterator(const TdependGraph& graph, TdependNode* root);

    bool isDone() const { return fCurrent.node == nullptr; }
    void next();
    // Leave out the nodes upstream of the current one.
    void prune() { fPruned = true; }

    TdependNode* currentItem() const { return fCurrent.node; }
    // The plug of the current node whose connection led here.
    const Tplug& currentPlug() const { return fCurrent.source; }
    // The root's plug at the start of the branch that reached the current node.
    const Tplug& rootPlug() const { return fCurrent.rootPlug; }
    TdependNode* root() const { return fRoot; }

private:
    struct Item {
        TdependNode* node = nullptr;
        Tplug source;
        Tplug rootPlug;
    };
    // Stacks the nodes that feed `node`, first connection on top.
    void pushSources(TdependNode* node, const Tplug* rootPlug);
    void advance();

    const TdependGraph& fGraph;
    TdependNode* fRoot;
    std::vector<Item> fStack;
    std::unordered_set<const TdependNode*> fSeen;
    Item fCurrent;
    bool fPruned = false;
};
