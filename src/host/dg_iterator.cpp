#include "host/dg_iterator.h"

#include "host/graph.h"

TDGiterator::TDGiterator(const TdependGraph& graph, TdependNode* root)
    : fGraph(graph), fRoot(root) {
    if (!root)
        return;
    fSeen.insert(root);
    pushSources(root, nullptr);
    advance();
}

void TDGiterator::pushSources(TdependNode* node, const Tplug* rootPlug) {
    std::vector<Item> feeds;
    for (const auto& [source, destination] : fGraph.connections())
        if (destination.node() == node && source.node())
            feeds.push_back({source.node(), source, rootPlug ? *rootPlug : destination});
    // The first connection made is walked first.
    fStack.insert(fStack.end(), feeds.rbegin(), feeds.rend());
}

void TDGiterator::advance() {
    fCurrent = Item();
    fPruned = false;
    while (!fStack.empty()) {
        Item item = std::move(fStack.back());
        fStack.pop_back();
        if (fSeen.insert(item.node).second) {
            fCurrent = std::move(item);
            return;
        }
    }
}

void TDGiterator::next() {
    if (isDone())
        return;
    if (!fPruned)
        pushSources(fCurrent.node, &fCurrent.rootPlug);
    advance();
}
