#pragma once

// Nodes of the dependency graph, their per-type descriptors and class
// records, and the ordinary data block that holds a node's values.

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/attribute.h"
#include "host/datablock.h"
#include "host/metaclass.h"
#include "host/plug.h"

class TdependGraph;
class TdependNode;
class TdependNodeClass;
struct TdebugDetails;
class TdebugOutput;
struct Footprint;

// Sent to a node when one of its plugs becomes dirty.
struct TmsgDirty {
    const Tplug* plug = nullptr;
};

// The value-and-schema descriptor of a node type: its attributes, their
// dependencies and the layout of its ordinary data block. Built once, on
// first use of the type.
class TdependNodeVS {
public:
    TdependNodeVS();
    TdependNodeVS(const TdependNodeVS& other);
    TdependNodeVS& operator=(const TdependNodeVS& other);
    virtual ~TdependNodeVS();

    virtual bool appendAttributes(TattributeList& list);
    virtual bool setupDependencies(TdependencyMatrix& matrix);
    virtual void initializeThreadSafety();

    // Builds the attribute list, dependencies and layout; false if the
    // schema could not be built (a name clash). Runs once.
    bool initializeClass();
    bool cleanupClass();
    bool isInitialized() const { return fInitialized; }

    const TattributeList& attributes() const { return fAttributes; }
    const TdependencyMatrix& dependencies() const { return fDependencies; }
    const Tattribute* findAttribute(std::string_view name) const {
        return fAttributes.findAttribute(name);
    }

    TdependNodeClass* classRecord() const { return fClass; }
    void setClassRecord(TdependNodeClass* record) { fClass = record; }
    TdependNodeVS* parentData() const { return fParentData; }
    void setParentData(TdependNodeVS* parent) { fParentData = parent; }

    // Layout of one element of the ordinary data block.
    uint32_t elementSize() const { return fElementSize; }
    // Offset of the attribute's value in an element; for an array
    // descendant, its offset inside the array element's value.
    uint32_t valueOffset(const Tattribute& a) const { return fOffsets[a.index()]; }
    // Roots whose values need constructing (arrays and objects).
    const std::vector<const Tattribute*>& constructedRoots() const { return fConstructed; }
    const std::vector<const Tattribute*>& roots() const { return fRoots; }

private:
    void computeLayout();

    TattributeList fAttributes;
    TdependencyMatrix fDependencies;
    TdependNodeClass* fClass = nullptr;
    TdependNodeVS* fParentData = nullptr;
    bool fInitialized = false;
    uint32_t fElementSize = 0;
    std::vector<uint32_t> fOffsets;
    std::vector<const Tattribute*> fRoots;
    std::vector<const Tattribute*> fConstructed;
};

// The class record of a node type. Holds functions only: registering a type
// builds no attribute.
class TdependNodeClass {
public:
    using VsDataFn = TdependNodeVS* (*)();
    using TypeNameFn = Tstring (*)();
    using IffTagFn = const TiffTag* (*)();
    using CleanupFn = bool (*)();

    TdependNodeClass(Tmetaclass* meta, VsDataFn vsBaseData, VsDataFn vsParentData,
                     TypeNameFn typeName, IffTagFn iffTag, CleanupFn cleanup, unsigned flags);

    Tmetaclass* metaclass() const { return fMeta; }
    TdependNodeVS* vsData() const { return fVsBaseData(); }
    TdependNodeVS* vsParentData() const { return fVsParentData ? fVsParentData() : nullptr; }
    Tstring typeName() const { return fTypeName(); }
    const TiffTag* iffTag() const { return fIffTag(); }
    bool cleanup() const { return fCleanup ? fCleanup() : true; }
    unsigned flags() const { return fFlags; }

    // Written by initializeThreadSafety; the host keeps it for the type.
    uint32_t threadSafety = 0;
    // Set at registration.
    unsigned id = 0;
    Tstring classification;
    int apiType = 0;
    Tstring apiTypeString;

private:
    Tmetaclass* fMeta;
    VsDataFn fVsBaseData;
    VsDataFn fVsParentData;
    TypeNameFn fTypeName;
    IffTagFn fIffTag;
    CleanupFn fCleanup;
    unsigned fFlags;

public:
    uint32_t trailingWord = 0;
};

class TdependNodeMetaClass : public TdependNodeClass {
public:
    using TdependNodeClass::TdependNodeClass;
};

// The ordinary data block: a run of elements, each holding every attribute
// value of the node at the offsets of the type's layout. Graph evaluation
// uses one element; a vector compute can be handed a run.
class TordinaryDataBlock : public TdataBlock {
public:
    TordinaryDataBlock(TdependNode* node, unsigned elementCount = 1);
    ~TordinaryDataBlock() override;

    TdependNode* node() const { return fNode; }
    std::byte* element(unsigned i) const { return fFirst + size_t(i) * fStride; }
    // The address of a (non array descendant) attribute's value in element i.
    void* valueAddress(const Tattribute& a, unsigned element) const;

    void debug(TdebugOutput& out, const TdebugDetails& details) const override;
    TdataHandle inputValue(const Tattribute& attribute) override;
    TdataHandle inputValue(const Tplug& plug) override;
    TdataHandle outputValue(const Tattribute& attribute) override;
    TdataHandle outputValue(const Tplug& plug) override;
    TvectorDataHandle vectorInputValue(const Tplug& plug, unsigned first, unsigned count) override;
    TvectorDataHandle vectorInputValue(const Tattribute& attribute, unsigned first,
                                       unsigned count) override;
    TvectorDataHandle vectorOutputValue(const Tplug& plug, unsigned first, unsigned count) override;
    TvectorDataHandle vectorOutputValue(const Tattribute& attribute, unsigned first) override;
    uint32_t dataBlockMemorySize() const override;
    bool addMultiInstance(const Tplug& plug) override;
    bool removeMultiInstance(const Tplug& plug) override;
    TdataHandle elementValue(const Tplug& plug, bool create) override;
    TvectorDataHandle elementVectorValue(const Tplug& plug, unsigned first,
                                         unsigned count) override;
    TmultiHeader* elementStorage(const Tplug& plug) override;
    void markClean(const Tattribute& attribute) override;

    // Dirty state, one bit per attribute (shared by the elements).
    bool isDirty(const Tattribute& a) const { return fDirty.test(a.index()); }
    void setDirty(const Tattribute& a) { fDirty.set(a.index()); }
    void setCleanBit(const Tattribute& a) { fDirty.clear(a.index()); }

private:
    // Brings connected inputs up to date for elements [first, first+count).
    void pull(const Tattribute& attribute, unsigned first, unsigned count);
    TdataHandle handleAt(const Tattribute& attribute, unsigned element);
    TmultiHeader* headerOf(const Tattribute& array, unsigned element) const;

    TdependNode* fNode;
    const TdependNodeVS* fVs;
    unsigned fCount;
    TbitFieldFixedN fDirty;
};

// The base of every node type.
class TdependNode {
public:
    TdependNode();
    virtual ~TdependNode();
    TdependNode(const TdependNode&) = delete;
    TdependNode& operator=(const TdependNode&) = delete;

    // Identity, overridden by each type.
    virtual Tmetaclass* typeof() const;
    virtual void* cast(Tmetaclass* meta);
    virtual TdependNodeVS* vsData() const;
    virtual Tstring typeName() const;
    virtual const TiffTag* iffTag() const;
    virtual int apiType() const { return 4; }
    virtual Tstring apiTypeString() const { return "kDependencyNode"; }
    virtual void footprint(Footprint& fp) const;
    virtual void debug(TdebugOutput& out, const TdebugDetails& details) const;

    // Compute. The default answers a plug the node does not compute: it
    // leaves the block alone and reports false.
    virtual bool computePlug(const Tplug& plug, TdataBlock& block);
    virtual bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                   unsigned count);

    // Graph notifications and questions.
    virtual bool shouldBeWritten(const Tplug& plug, bool isDefault, bool treatAsDefault);
    virtual void setDirty(TmsgDirty& msg);
    virtual void setDependentsDirty(TmsgDirty& msg);
    virtual void connectionMade(const Tplug& mine, const Tplug& other, bool asSource);
    virtual void connectionBroken(const Tplug& mine, const Tplug& other, bool asSource);
    virtual bool legalConnection(const Tplug& mine, const Tplug& other, bool asSource);
    virtual void datablockAdded(TdataBlock& block, bool);
    // Told after a value was set at `plug` from outside (a scene, a tool, a
    // script), once the value is in the node's block and its dependents are
    // dirty: a node may keep a copy, or adjust values that go with it.
    virtual bool setCachedValue(const Tplug& plug, const TdataHandle& value);
    virtual bool getCachedValue(const Tplug& plug, TdataHandle& value);
    virtual void setName(const Tstring& name);
    virtual Tstring defaultName() const;
    // Called by the graph right after the factory made the node.
    virtual void finishCreation(Tmetaclass* meta);
    // Non-zero when computes of this node must not run in parallel: a
    // compiled network then computes it under the node's own mutex.
    virtual int schedulingType() const { return 0; }

    const Tstring& name() const { return fName; }
    TdependGraph* graph() const { return fGraph; }
    TdependNodeClass* nodeClass() const { return fClass; }

    // Writes a value into the node's own block, as a scene file does.
    void setAttributeValue(const Tattribute* attribute, const void* value, unsigned element = 0);
    TordinaryDataBlock* getDatablock() const { return fBlock.get(); }
    TordinaryDataBlock& forceGetDatablock();
    void getExistingMultiAttributeIndices(const Tplug& plug, TuInt32Array& out) const;
    void setImplicitlyCreated(bool on) { fImplicitlyCreated = on; }
    bool isImplicitlyCreated() const { return fImplicitlyCreated; }
    // A default node belongs to every scene: the scene makes it, so a
    // written scene leaves it out and writes only what was changed on it.
    void setNodeIsDefault(bool on) { fIsDefault = on; }
    bool isDefaultNode() const { return fIsDefault; }
    bool isNodeDefault() const { return fIsDefault; }

    // The node's flag word. The host names two bits; the others are kept
    // for the types that use them.
    static constexpr uint64_t kFromReferencedScene = uint64_t(1) << 20;
    static constexpr uint64_t kInRelationship = uint64_t(1) << 46;
    uint64_t flagWord() const { return fFlagWord; }
    void setFlagBits(uint64_t bits) { fFlagWord |= bits; }
    void clearFlagBits(uint64_t bits) { fFlagWord &= ~bits; }
    // The node came with a referenced scene. The flag bit says so; a type
    // that knows better by other means answers here. This host reads no
    // referenced scenes, so by default nothing does.
    virtual bool isFromReferencedScene() const { return false; }
    void destroyNode();

    // Finds an attribute of the node's type by long or short name.
    const Tattribute* findAttribute(std::string_view name) const;

    static TdependNodeVS* sVsData();
    static TdependNodeVS* sVsBaseData() { return sVsData(); }

    // Every node has a message plug: connections that carry no value but a
    // relation (set membership, light links, lists of render nodes).
    static TattributeMessage& aMessage;
    static Tmetaclass* sTypeof();

private:
    friend class TdependGraph;
    Tstring fName;
    TdependGraph* fGraph = nullptr;
    TdependNodeClass* fClass = nullptr;
    std::unique_ptr<TordinaryDataBlock> fBlock;
    bool fImplicitlyCreated = false;
    bool fIsDefault = false;
    uint64_t fFlagWord = 0;
};

using TDNarray = std::vector<TdependNode*>;
