#pragma once

// Relationships: participants that a node ties together through
// connections (a light and an object on a light linker, say), presented so
// that tools can make, undo, duplicate and record them without knowing the
// node type that holds them. A relationship is a value: applying it makes
// the connections, unapplying breaks them.

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/plug.h"
#include "host/types.h"

class TdependNode;
class Tattribute;
class TDGcommand;

// Node to node, for duplicating relationships along with their nodes: a
// participant found here is replaced by what it maps to.
using TdependNodePtrTable = std::unordered_map<const TdependNode*, TdependNode*>;

// Connection edits noted without touching the graph, as a scene that keeps
// its changes to a referenced scene records them.
class TreferenceEditList {
public:
    struct Edit {
        std::string source;
        std::string destination;
        bool connect; // false: the connection is broken
        friend bool operator==(const Edit&, const Edit&) = default;
    };
    void addConnection(const Tplug& source, const Tplug& destination, bool connect);
    const std::vector<Edit>& edits() const { return fEdits; }
    void clear() { fEdits.clear(); }

private:
    std::vector<Edit> fEdits;
};

class Trelationship {
public:
    // `node` holds the relationship; `attribute` says which kind (for a
    // light linker, which of its lists).
    Trelationship(TdependNode* node, const Tattribute* attribute)
        : fNode(node), fAttribute(attribute) {}
    virtual ~Trelationship();

    TdependNode* node() const { return fNode; }
    const Tattribute* attribute() const { return fAttribute; }

    // Makes the connections, through `command` when given (so that they
    // can be undone with it), else at once. False when they cannot be made.
    virtual bool applyRelationship(TDGcommand* command) = 0;
    virtual bool unapplyRelationship(TDGcommand* command) = 0;
    // A copy with node and participants mapped through `table`, in
    // `*out` (the caller owns it). False for a type that cannot copy.
    virtual bool duplicateRelationship(Trelationship** out, const TdependNodePtrTable& table) const;
    // Notes the edits that applying (unapplying) would make in the
    // reference edit list, leaving the graph alone. False without a list.
    virtual bool fakeApplyRelationshipAsReferenceEdit() { return false; }
    virtual bool fakeUnapplyRelationshipAsReferenceEdit() { return false; }
    // The holder is of the type the relationship is about.
    virtual bool isValidType() const { return fNode && fAttribute; }
    // ... and the participants stand.
    virtual bool isValid() const { return isValidType(); }
    virtual bool canDuplicate() const { return false; }
    // Puts `to` where `from` takes part. False when `from` does not.
    virtual bool replaceParticipant(TdependNode* from, TdependNode* to);
    virtual bool replaceParticipant(const Tplug& from, const Tplug& to);

    void setReferenceEdits(TreferenceEditList* edits) { fReferenceEdits = edits; }
    TreferenceEditList* referenceEdits() const { return fReferenceEdits; }

protected:
    TdependNode* fNode;
    const Tattribute* fAttribute;
    TreferenceEditList* fReferenceEdits = nullptr;
};

// A relationship whose participants are plugs, in an order the type gives.
class TrelationshipPlugList : public Trelationship {
public:
    using Trelationship::Trelationship;

    void addPlug(const Tplug& plug) { fPlugs.push_back(plug); }
    void setPlug(unsigned i, const Tplug& plug);
    // The i-th plug, or a null plug past the end.
    Tplug plug(unsigned i) const { return i < fPlugs.size() ? fPlugs[i] : Tplug(); }
    const TplugArray& plugs() const { return fPlugs; }
    unsigned plugCount() const { return unsigned(fPlugs.size()); }

    // Every plug on `from` moves to the attribute of the same name on `to`,
    // with its indices.
    bool replaceParticipant(TdependNode* from, TdependNode* to) override;
    bool replaceParticipant(const Tplug& from, const Tplug& to) override;
    // Every plug stands.
    bool isValid() const override;

protected:
    // `plug` moved onto `to`: the attribute of the same name there, with
    // the same indices; `plug` itself when `to` is its node, and a null plug
    // when `to` has no such attribute.
    static Tplug plugOnNode(const Tplug& plug, TdependNode* to);

    TplugArray fPlugs;
};

using TrelationshipPtrArray = std::vector<std::unique_ptr<Trelationship>>;
