#pragma once

// The dependency graph: the node-type registry, the nodes of a scene with
// unique names, their connections, pull evaluation and dirty propagation.

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/dependnode.h"

class TDGcommand;

// A graph edit that cannot be made (unknown type, name clash, incompatible
// connection...). The message names what was wrong.
class TgraphError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class TdependGraph {
public:
    TdependGraph();
    ~TdependGraph();
    TdependGraph(const TdependGraph&) = delete;
    TdependGraph& operator=(const TdependGraph&) = delete;

    // ---- node-type registry (process wide; node types register at load)
    static unsigned registerNodeType(TdependNodeClass* nodeClass);
    static void unregisterNodeType(TdependNodeClass* nodeClass);
    static TdependNodeClass* findNodeType(std::string_view typeName);
    static TdependNodeClass* findNodeTypeByTag(uint32_t iffTag);
    static TdependNodeClass* findNodeTypeByMeta(const Tmetaclass* meta);
    // Every registered type, in registration order.
    static std::vector<TdependNodeClass*> nodeTypes();

    // The graph that tools and scripts work on.
    static TdependGraph* fsCurrentGraph;

    // ---- nodes
    // Makes a node of a registered type. An empty name takes the type's
    // default name with the next free number.
    TdependNode* createNode(std::string_view typeName, std::string_view name = {});
    // Takes in a node made outside the registry's factory (a subclass of a
    // registered type that a library keeps as part of a scene) under `name`,
    // or the default name when empty. Its class record is its metaclass's.
    TdependNode* adoptNode(std::unique_ptr<TdependNode> node, std::string_view name = {});
    void deleteNode(TdependNode* node);
    TdependNode* findNode(std::string_view name) const;
    void renameNode(TdependNode* node, std::string_view name);
    // Nodes in creation order.
    const std::vector<TdependNode*>& nodes() const { return fOrder; }
    std::string uniqueName(std::string_view base) const;

    // ---- plugs by name: "node.attr", "node.attr[3]", "node.attr[3].child"
    Tplug findPlug(std::string_view text) const; // throws TgraphError

    // ---- connections
    void connect(const Tplug& source, const Tplug& destination);
    void disconnect(const Tplug& source, const Tplug& destination);
    // Why the connection cannot be made, or empty when it can.
    std::string whyNotConnectable(const Tplug& source, const Tplug& destination) const;
    Tplug sourceOf(const Tplug& destination) const;
    void destinationsOf(const Tplug& source, TplugArray& out) const;
    // Every connection (source, destination), in the order they were made.
    const std::vector<std::pair<Tplug, Tplug>>& connections() const { return fConnectionOrder; }

    // ---- values
    // Writes a value at a plug (array elements are made as needed) and
    // dirties what depends on it. Throws for a connected plug.
    void setPlugValue(const Tplug& plug, const void* value);
    void setPlugValueFromWords(const Tplug& plug, const std::vector<std::string>& words);
    // Evaluates a plug and gives a handle on its value in the node's block.
    TdataHandle evaluate(const Tplug& plug);
    // The value as scene-language words, after evaluation.
    std::vector<std::string> evaluateToWords(const Tplug& plug);

    // ---- time
    double time() const { return fTime; }
    void setTime(double t);

    // How many times compute was run on a node (for tests and tools).
    unsigned computeCount(const TdependNode* node) const;

    // ---- scene hooks
    // A library that gives scenes standing content registers here. Scene
    // initialisers run once on a graph that becomes a scene (the scene
    // language makes its graph one before a script runs); node observers
    // hear of each node that a user adds (a script's `node`), with the
    // command that added it. Both run inside implicit edits (below).
    using SceneInitializer = void (*)(TdependGraph& graph);
    using NodeAddedObserver = void (*)(TdependNode& node, TDGcommand& command);
    static void addSceneInitializer(SceneInitializer initializer);
    static void removeSceneInitializer(SceneInitializer initializer);
    static void addNodeAddedObserver(NodeAddedObserver observer);
    static void removeNodeAddedObserver(NodeAddedObserver observer);
    // Runs the initialisers, the first time only.
    void initializeScene();
    bool isScene() const { return fIsScene; }
    // Tells the observers that a user added `node` through `command`.
    void nodeAdded(TdependNode& node, TDGcommand& command);

    // ---- implicit edits
    // Connections made while an implicit scope is open are the scene's own
    // doing (a default node's wiring, a new light joining the light list):
    // loading a scene makes them again, so a written scene leaves them out.
    // Breaking one outside such a scope is a change that a written scene
    // must keep; making it again restores it.
    class TimplicitScope {
    public:
        explicit TimplicitScope(TdependGraph& graph) : fGraph(graph) { ++fGraph.fImplicitDepth; }
        ~TimplicitScope() { --fGraph.fImplicitDepth; }
        TimplicitScope(const TimplicitScope&) = delete;
        TimplicitScope& operator=(const TimplicitScope&) = delete;

    private:
        TdependGraph& fGraph;
    };
    bool inImplicitEdits() const { return fImplicitDepth > 0; }
    // The connection into `destination` was made implicitly.
    bool isImplicitConnection(const Tplug& destination) const;
    // Implicit connections that a user's edit broke, oldest first.
    const std::vector<std::pair<Tplug, Tplug>>& brokenImplicitConnections() const {
        return fBrokenImplicit;
    }

    // ---- file reading
    // Open while a scene file is read (a script run from a file, or a file
    // it sources). Nodes that check what a connection completes (a light
    // linker's pairs) leave that out while reading: the file makes the
    // pairs a half at a time, and what they mean is looked at once the
    // scene stands.
    class TfileReadScope {
    public:
        explicit TfileReadScope(TdependGraph& graph) : fGraph(graph) { ++fGraph.fReadingDepth; }
        ~TfileReadScope() { --fGraph.fReadingDepth; }
        TfileReadScope(const TfileReadScope&) = delete;
        TfileReadScope& operator=(const TfileReadScope&) = delete;

    private:
        TdependGraph& fGraph;
    };
    bool isReadingFile() const { return fReadingDepth > 0; }

    // ---- used by the ordinary data block
    // Makes the connected inputs in attribute's value tree current.
    void pullInputs(TdependNode* node, TordinaryDataBlock& block, const Tattribute& root,
                    unsigned first, unsigned count);

private:
    struct PlugKey {
        uint32_t attribute;
        uint32_t index;
        friend bool operator<(const PlugKey& a, const PlugKey& b) {
            return a.attribute != b.attribute ? a.attribute < b.attribute : a.index < b.index;
        }
        friend bool operator==(const PlugKey&, const PlugKey&) = default;
    };
    struct NodeLinks {
        std::map<PlugKey, Tplug> sources;           // destination key -> source
        std::multimap<PlugKey, Tplug> destinations; // source key -> destination
    };

    static PlugKey keyOf(const Tplug& plug);
    void dirtyPlug(TdependNode* node, const Tattribute& attribute);
    void propagateFrom(TdependNode* node, const Tattribute& attribute);
    void copyConverted(const Tattribute& from, const void* src, const Tattribute& to, void* dst);

    std::unordered_map<std::string, std::unique_ptr<TdependNode>> fNodes;
    std::vector<TdependNode*> fOrder;
    std::unordered_map<const TdependNode*, NodeLinks> fLinks;
    std::vector<std::pair<Tplug, Tplug>> fConnectionOrder;
    std::unordered_map<const TdependNode*, unsigned> fComputeCounts;
    std::vector<std::pair<const TdependNode*, const Tattribute*>> fEvaluating;
    double fTime = 0.0;
    bool fIsScene = false;
    int fImplicitDepth = 0;
    int fReadingDepth = 0;
    std::set<std::pair<const TdependNode*, PlugKey>> fImplicit; // by destination
    std::vector<std::pair<Tplug, Tplug>> fBrokenImplicit;
};

// An undoable graph edit. Each edit is made at once and recorded; undoDG
// takes them all back in reverse order, doDG makes them again.
class TDGcommand {
public:
    explicit TDGcommand(TdependGraph& graph) : fGraph(graph) {}
    ~TDGcommand();

    TdependNode* newNodeToAdd(std::string_view typeName, std::string_view name);
    void newConnectionToMake(const Tplug& source, const Tplug& destination);
    void newConnectionToBreak(const Tplug& source, const Tplug& destination);
    void newPlugValue(const Tplug& plug, const std::vector<std::string>& words);

    void doDG();
    void undoDG();
    size_t size() const { return fEdits.size(); }

private:
    struct Edit {
        std::function<void()> redo;
        std::function<void()> undo;
        // Made inside an implicit scope: undone and redone inside one too.
        bool implicit = false;
    };
    void record(Edit edit);
    TdependGraph& fGraph;
    std::vector<Edit> fEdits;
    bool fDone = true;
};
