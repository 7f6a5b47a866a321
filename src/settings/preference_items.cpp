#include "settings/preference_items.h"

#include "host/graph.h"

namespace {
// The flag-word bit that lets a user delete a node.
constexpr uint64_t kDeletableByUser = 0x200;
} // namespace

TdependNode* TpreferenceItem::node(TdependGraph& graph) {
    if (fNode && fGraph == &graph && graph.findNode(fNode->name()) == fNode)
        return fNode;
    fNode = nullptr;
    fGraph = &graph;
    if (TdependNode* existing = graph.findNode(instanceName()))
        fNode = existing;
    else if (!create(graph))
        return nullptr;
    return fNode;
}

bool TpreferenceItem::createNode(TdependGraph& graph, const char* type) {
    TdependNode* made = nullptr;
    try {
        made = graph.createNode(type, instanceName());
        made->clearFlagBits(kDeletableByUser);
        made->setImplicitlyCreated(true);
    } catch (const std::exception&) {
        if (made)
            graph.deleteNode(made);
        return false;
    }
    fNode = made;
    fGraph = &graph;
    return true;
}
