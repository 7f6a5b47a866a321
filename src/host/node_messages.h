#pragma once

// Messages a node's clients hear: an attribute of the node was set or had a
// connection made or broken, a plug of the node went dirty, the node is
// being deleted. The drawing side listens to the shading nodes it shows
// this way, so that it recomputes only what an edit touched.

class TdependGraph;
class TdependNode;
class Tplug;

// An attribute changed: its value was set, or a connection into or out of
// it was made or broken.
struct TattributeChangedMsg {
    enum : unsigned {
        kConnectionMade = 0x1,
        kConnectionBroken = 0x2,
        kAttributeSet = 0x4,
        kConnectionChange = 0x800, // with kConnectionMade or kConnectionBroken
    };
    const Tplug* plug = nullptr;  // the node's own plug
    const Tplug* other = nullptr; // the far end of a connection, else null
    unsigned flags = 0;
};

// A plug of the node went dirty.
struct TnodeDirtyMsg {
    const Tplug* plug = nullptr;
};

// What a client listens for (a mask).
enum TnodeMessageKind : unsigned {
    kAttributeChangedMessage = 0x1,
    kNodeDirtyMessage = 0x2,
    kNodeDeletedMessage = 0x4,
};

// A listener. The graph calls it on the main thread, inside the edit that
// caused the message; a client may add or remove clients while it runs.
class Tclient {
public:
    virtual ~Tclient() = default;
    virtual void attributeChanged(TdependNode& node, const TattributeChangedMsg& msg);
    virtual void nodeDirty(TdependNode& node, const TnodeDirtyMsg& msg);
    // The node is about to go: told before its connections break, and the
    // client hears nothing more of it.
    virtual void nodeDeleted(TdependNode& node);
};

// Makes `client` hear the messages `kinds` (a mask of TnodeMessageKind) of
// `node` in `graph`; adding a client again widens its mask.
void OrvoAddClient(TdependGraph& graph, const TdependNode* node, Tclient* client, unsigned kinds);
void OrvoRemoveClient(TdependGraph& graph, const TdependNode* node, Tclient* client);
// Removes the client from every node of the graph it listens to.
void OrvoRemoveClient(TdependGraph& graph, Tclient* client);
