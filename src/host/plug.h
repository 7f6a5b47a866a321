#pragma once

// A plug: a node, an attribute, and for array attributes the element index
// at each array level. Plugs are made in schemas, analysis and tools, never
// per sample, so they may be a few words wide.

#include <cstdint>
#include <string>
#include <vector>

class TdependNode;
class Tattribute;
class Tplug;
using TplugArray = std::vector<Tplug>;

class Tplug {
public:
    // The mode byte.
    enum Mode : uint8_t {
        kChildOrElement = 0x04, // a child or an element of a parent plug
        kInElement = 0x08,      // lies inside an array element whose index is fixed
        kWholeArray = 0x80,     // an array with no index fixed
    };
    static constexpr int kMaxArrayLevels = 2;
    static constexpr unsigned kNoIndex = ~0u;

    Tplug() = default;
    Tplug(const TdependNode* node, const Tattribute* attribute, bool = false);

    TdependNode* node() const { return fNode; }
    const Tattribute* attribute() const { return fAttribute; }
    uint8_t mode() const { return fMode; }
    bool isNull() const { return fNode == nullptr || fAttribute == nullptr; }

    void reset(TdependNode* node, const Tattribute* attribute);
    // Index at the array level of `arrayAttribute` (an array on the chain).
    void setMultiIndex(const Tattribute* arrayAttribute, unsigned index);
    unsigned multiIndex(const Tattribute* arrayAttribute) const;
    // Index of the innermost array level, or kNoIndex.
    unsigned logicalIndex() const;
    // This plug with the array level above the leaf fixed at `index`.
    Tplug findIndexedPlug(unsigned index) const;
    // Every array level on the chain has its index.
    bool indicesComplete() const;

    // Child plugs of a compound (keeping the indices).
    TplugArray children() const;
    unsigned numChildren() const;
    Tplug operator[](const Tattribute* child) const;
    // Turns this plug into the plug of one of its attribute's children.
    void becomeChild(const Tattribute* child);
    // The plug of the parent compound, or a null plug.
    Tplug parent() const;

    // Connections, answered by the node's graph.
    Tplug source() const;
    void getAllDestinations(TplugArray& out) const;
    void getAllDestinationsToNode(const TdependNode* node, TplugArray& out) const;
    unsigned getNumOfDestinationsToNode(const TdependNode* node) const;
    bool isDestination() const;
    bool isSource() const;
    bool isChildDestination() const;
    bool isChildSource() const;

    void setMarked(bool on) { fMarked = on; }
    bool isMarked() const { return fMarked; }
    void setIsInRelationship(bool on) { fInRelationship = on; }

    // "node.attr[3].child", with long names (or short ones).
    std::string name(bool useLongNames = true) const;
    // "attr[3].child" without the node.
    std::string partialName(bool useLongNames = true) const;

    friend bool operator==(const Tplug& a, const Tplug& b);
    friend bool operator!=(const Tplug& a, const Tplug& b) { return !(a == b); }

private:
    int levelOf(const Tattribute* arrayAttribute) const;
    void updateMode();

    TdependNode* fNode = nullptr;
    const Tattribute* fAttribute = nullptr;
    unsigned fIndices[kMaxArrayLevels] = {kNoIndex, kNoIndex};
    uint8_t fMode = 0;
    bool fMarked = false;
    bool fInRelationship = false;
};
