#include "host/graph.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstring>
#include <mutex>

#include <fmt/format.h>

#include "host/env.h"
#include "host/node_messages.h"

// ---------------------------------------------------------------- registry

namespace {
// Clients of nodes, by graph and node. They live beside the graph rather
// than in it: only the drawing side listens, and a graph without clients
// pays one relaxed load an edit.
using ClientList = std::vector<std::pair<Tclient*, unsigned>>;
struct ClientTables {
    std::mutex mutex;
    std::unordered_map<const TdependGraph*, std::unordered_map<const TdependNode*, ClientList>>
        byGraph;
};
ClientTables& clientTables() {
    static ClientTables* const tables = new ClientTables;
    return *tables;
}
std::atomic<size_t> gClientNodes{0}; // nodes with clients, in every graph

// Calls f on each client of `node` listening for `kind`. A copy of the list
// is walked, and each client is looked up again before its call, since a
// client may remove itself or others (and be deleted) on the way.
template <class F>
void forClients(const TdependGraph* graph, const TdependNode* node, unsigned kind, F f) {
    if (gClientNodes.load(std::memory_order_relaxed) == 0)
        return;
    ClientTables& tables = clientTables();
    auto listOf = [&]() -> const ClientList* {
        const auto g = tables.byGraph.find(graph);
        if (g == tables.byGraph.end())
            return nullptr;
        const auto n = g->second.find(node);
        return n == g->second.end() ? nullptr : &n->second;
    };
    ClientList copy;
    {
        std::lock_guard lock(tables.mutex);
        const ClientList* list = listOf();
        if (!list)
            return;
        copy = *list;
    }
    for (const auto& entry : copy) {
        Tclient* client = entry.first;
        if (!(entry.second & kind))
            continue;
        bool still = false;
        {
            std::lock_guard lock(tables.mutex);
            const ClientList* now = listOf();
            if (!now)
                return;
            still = std::any_of(now->begin(), now->end(), [&](const auto& e) {
                return e.first == client && (e.second & kind);
            });
        }
        if (still)
            f(*client);
    }
}

// Forgets the clients of `node`, or of every node of the graph when null.
void forgetClients(const TdependGraph* graph, const TdependNode* node) {
    if (gClientNodes.load(std::memory_order_relaxed) == 0)
        return;
    ClientTables& tables = clientTables();
    std::lock_guard lock(tables.mutex);
    const auto g = tables.byGraph.find(graph);
    if (g == tables.byGraph.end())
        return;
    if (node) {
        gClientNodes -= g->second.erase(node);
    } else {
        gClientNodes -= g->second.size();
        tables.byGraph.erase(g);
    }
}

void notifyChanged(const TdependGraph* graph, const Tplug& plug, const Tplug* other,
                   unsigned flags) {
    const TattributeChangedMsg msg{&plug, other, flags};
    forClients(graph, plug.node(), kAttributeChangedMessage,
               [&](Tclient& c) { c.attributeChanged(*plug.node(), msg); });
}

void notifyDirty(const TdependGraph* graph, const Tplug& plug) {
    const TnodeDirtyMsg msg{&plug};
    forClients(graph, plug.node(), kNodeDirtyMessage,
               [&](Tclient& c) { c.nodeDirty(*plug.node(), msg); });
}

struct Registry {
    std::vector<TdependNodeClass*> order;
    std::unordered_map<std::string, TdependNodeClass*> byName;
};

// Never destroyed: node types unregister from exit handlers, whose order
// against static destructors differs between runtimes (sanitizers run
// atexit handlers apart from the destructors).
Registry& registry() {
    static Registry* r = new Registry;
    return *r;
}

bool validNodeName(std::string_view name) {
    if (name.empty() || std::isdigit(static_cast<unsigned char>(name[0])))
        return false;
    for (char c : name)
        if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == ':'))
            return false;
    return true;
}
} // namespace

TdependGraph* TdependGraph::fsCurrentGraph = nullptr;

namespace {
struct SceneHooks {
    std::vector<TdependGraph::SceneInitializer> initializers;
    std::vector<TdependGraph::NodeAddedObserver> observers;
};
// Never destroyed, like the registry: libraries remove their hooks from
// exit handlers.
SceneHooks& sceneHooks() {
    static SceneHooks* h = new SceneHooks;
    return *h;
}
template <class F>
void addOnce(std::vector<F>& list, F f) {
    if (std::find(list.begin(), list.end(), f) == list.end())
        list.push_back(f);
}
} // namespace

void TdependGraph::addSceneInitializer(SceneInitializer initializer) {
    addOnce(sceneHooks().initializers, initializer);
}
void TdependGraph::removeSceneInitializer(SceneInitializer initializer) {
    auto& list = sceneHooks().initializers;
    list.erase(std::remove(list.begin(), list.end(), initializer), list.end());
}
void TdependGraph::addNodeAddedObserver(NodeAddedObserver observer) {
    addOnce(sceneHooks().observers, observer);
}
void TdependGraph::removeNodeAddedObserver(NodeAddedObserver observer) {
    auto& list = sceneHooks().observers;
    list.erase(std::remove(list.begin(), list.end(), observer), list.end());
}

void TdependGraph::initializeScene() {
    if (fIsScene)
        return;
    fIsScene = true;
    TimplicitScope implicit(*this);
    // A copy: an initialiser may load a library that registers more.
    const auto initializers = sceneHooks().initializers;
    for (SceneInitializer f : initializers)
        f(*this);
}

void TdependGraph::nodeAdded(TdependNode& node, TDGcommand& command) {
    TimplicitScope implicit(*this);
    const auto observers = sceneHooks().observers;
    for (NodeAddedObserver f : observers)
        f(node, command);
}

bool TdependGraph::isImplicitConnection(const Tplug& destination) const {
    return !destination.isNull() && fImplicit.count({destination.node(), keyOf(destination)});
}

unsigned TdependGraph::registerNodeType(TdependNodeClass* nodeClass) {
    Registry& r = registry();
    const std::string name = nodeClass->typeName();
    r.byName[name] = nodeClass;
    r.order.push_back(nodeClass);
    nodeClass->id = unsigned(r.order.size());
    return nodeClass->id;
}

void TdependGraph::unregisterNodeType(TdependNodeClass* nodeClass) {
    Registry& r = registry();
    r.order.erase(std::remove(r.order.begin(), r.order.end(), nodeClass), r.order.end());
    for (auto it = r.byName.begin(); it != r.byName.end();)
        it = it->second == nodeClass ? r.byName.erase(it) : std::next(it);
}

TdependNodeClass* TdependGraph::findNodeType(std::string_view typeName) {
    const auto it = registry().byName.find(std::string(typeName));
    return it == registry().byName.end() ? nullptr : it->second;
}

TdependNodeClass* TdependGraph::findNodeTypeByTag(uint32_t iffTag) {
    for (TdependNodeClass* c : registry().order)
        if (c->iffTag() && c->iffTag()->value() == iffTag)
            return c;
    return nullptr;
}

TdependNodeClass* TdependGraph::findNodeTypeByMeta(const Tmetaclass* meta) {
    for (TdependNodeClass* c : registry().order)
        if (c->metaclass() == meta)
            return c;
    return nullptr;
}

std::vector<TdependNodeClass*> TdependGraph::nodeTypes() {
    return registry().order;
}

// ---------------------------------------------------------------- nodes

TdependGraph::TdependGraph() = default;

TdependGraph::~TdependGraph() {
    if (fsCurrentGraph == this)
        fsCurrentGraph = nullptr;
    fLinks.clear();
    fConnectionOrder.clear();
    // Delete newest first, as a scene is torn down.
    while (!fOrder.empty()) {
        TdependNode* n = fOrder.back();
        fOrder.pop_back();
        fNodes.erase(n->name());
    }
    forgetClients(this, nullptr);
}

std::string TdependGraph::uniqueName(std::string_view base) const {
    std::string stem(base);
    while (!stem.empty() && std::isdigit(static_cast<unsigned char>(stem.back())))
        stem.pop_back();
    if (stem.empty())
        stem = "node";
    for (unsigned i = 1;; ++i) {
        std::string name = stem + std::to_string(i);
        if (!fNodes.count(name))
            return name;
    }
}

TdependNode* TdependGraph::createNode(std::string_view typeName, std::string_view name) {
    TdependNodeClass* nodeClass = findNodeType(typeName);
    if (!nodeClass)
        throw TgraphError(fmt::format("unknown node type '{}'", typeName));
    if (!name.empty()) {
        if (!validNodeName(name))
            throw TgraphError(fmt::format("'{}' is not a valid node name (letters, digits, '_' "
                                          "and ':', not starting with a digit)",
                                          name));
        if (fNodes.count(std::string(name)))
            throw TgraphError(fmt::format("a node named '{}' already exists", name));
    }
    nodeClass->vsData()->initializeClass();
    Tmetaclass* meta = nodeClass->metaclass();
    void* made = meta ? meta->construct(meta) : nullptr;
    if (!made)
        throw TgraphError(fmt::format("cannot create a node of type '{}'", typeName));
    auto* node = static_cast<TdependNode*>(made);
    node->fGraph = this;
    node->fClass = nodeClass;
    node->fName = name.empty() ? uniqueName(node->defaultName()) : std::string(name);
    fOrder.push_back(node);
    fNodes.emplace(node->fName, std::unique_ptr<TdependNode>(node));
    return node;
}

TdependNode* TdependGraph::adoptNode(std::unique_ptr<TdependNode> node, std::string_view name) {
    if (!node)
        throw TgraphError("no node to add");
    TdependNodeClass* nodeClass = findNodeTypeByMeta(node->typeof());
    if (!nodeClass)
        throw TgraphError(
            fmt::format("cannot add a node of unregistered type '{}'", node->typeName()));
    if (!name.empty()) {
        if (!validNodeName(name))
            throw TgraphError(fmt::format("'{}' is not a valid node name", name));
        if (fNodes.count(std::string(name)))
            throw TgraphError(fmt::format("a node named '{}' already exists", name));
    }
    nodeClass->vsData()->initializeClass();
    TdependNode* made = node.get();
    made->fGraph = this;
    made->fClass = nodeClass;
    made->fName = name.empty() ? uniqueName(made->defaultName()) : std::string(name);
    fOrder.push_back(made);
    fNodes.emplace(made->fName, std::move(node));
    return made;
}

void TdependGraph::deleteNode(TdependNode* node) {
    if (!node || node->graph() != this)
        return;
    forClients(this, node, kNodeDeletedMessage, [&](Tclient& c) { c.nodeDeleted(*node); });
    forgetClients(this, node);
    // A copy: disconnecting changes the list.
    const std::vector<std::pair<Tplug, Tplug>> all = connections();
    for (const auto& [source, destination] : all)
        // A node told of one break may break another of these itself.
        if ((source.node() == node || destination.node() == node) &&
            sourceOf(destination) == source)
            disconnect(source, destination);
    // What went with the node is no change to keep.
    fBrokenImplicit.erase(std::remove_if(fBrokenImplicit.begin(), fBrokenImplicit.end(),
                                         [node](const auto& c) {
                                             return c.first.node() == node ||
                                                    c.second.node() == node;
                                         }),
                          fBrokenImplicit.end());
    fLinks.erase(node);
    fComputeCounts.erase(node);
    fOrder.erase(std::remove(fOrder.begin(), fOrder.end(), node), fOrder.end());
    fNodes.erase(node->name());
}

TdependNode* TdependGraph::findNode(std::string_view name) const {
    const auto it = fNodes.find(std::string(name));
    return it == fNodes.end() ? nullptr : it->second.get();
}

void TdependGraph::renameNode(TdependNode* node, std::string_view name) {
    if (!validNodeName(name))
        throw TgraphError(fmt::format("'{}' is not a valid node name", name));
    if (node->name() == name)
        return;
    if (fNodes.count(std::string(name)))
        throw TgraphError(fmt::format("a node named '{}' already exists", name));
    auto it = fNodes.find(node->name());
    std::unique_ptr<TdependNode> owned = std::move(it->second);
    fNodes.erase(it);
    node->fName = std::string(name);
    fNodes.emplace(node->fName, std::move(owned));
}

// ---------------------------------------------------------------- plug names

Tplug TdependGraph::findPlug(std::string_view text) const {
    const size_t dot = text.find('.');
    if (dot == std::string_view::npos || dot == 0 || dot + 1 == text.size())
        throw TgraphError(fmt::format("'{}' is not a plug (write node.attribute)", text));
    const std::string_view nodeName = text.substr(0, dot);
    TdependNode* node = findNode(nodeName);
    if (!node)
        throw TgraphError(fmt::format("no node named '{}'", nodeName));

    struct Segment {
        std::string_view name;
        unsigned index;
    };
    std::vector<Segment> segments;
    std::string_view rest = text.substr(dot + 1);
    while (!rest.empty()) {
        const size_t end = rest.find('.');
        std::string_view part = rest.substr(0, end);
        unsigned index = Tplug::kNoIndex;
        if (const size_t open = part.find('['); open != std::string_view::npos) {
            if (part.back() != ']')
                throw TgraphError(fmt::format("bad array index in '{}'", text));
            const auto n = OrvoParseInteger(part.substr(open + 1, part.size() - open - 2));
            if (!n || *n < 0 || *n >= 0xffffffffLL)
                throw TgraphError(fmt::format("bad array index in '{}'", text));
            index = unsigned(*n);
            part = part.substr(0, open);
        }
        if (part.empty())
            throw TgraphError(fmt::format("'{}' is not a plug", text));
        segments.push_back({part, index});
        if (end == std::string_view::npos)
            break;
        rest = rest.substr(end + 1);
        if (rest.empty())
            throw TgraphError(fmt::format("'{}' is not a plug", text));
    }

    Tplug plug;
    const Tattribute* previous = nullptr;
    for (const Segment& s : segments) {
        const Tattribute* a = node->findAttribute(s.name);
        if (!a)
            throw TgraphError(fmt::format("node '{}' ({}) has no attribute '{}'", node->name(),
                                          node->typeName(), s.name));
        if (previous && !a->isDescendentOf(*previous))
            throw TgraphError(
                fmt::format("'{}' is not a child of '{}'", s.name, previous->longName()));
        if (plug.isNull())
            plug = Tplug(node, a);
        else
            plug.becomeChild(a);
        if (s.index != Tplug::kNoIndex) {
            if (!a->isArray())
                throw TgraphError(fmt::format("'{}' is not an array", s.name));
            plug.setMultiIndex(a, s.index);
        }
        previous = a;
    }
    return plug;
}

// ---------------------------------------------------------------- connections

TdependGraph::PlugKey TdependGraph::keyOf(const Tplug& plug) {
    return {plug.attribute()->index(), plug.logicalIndex()};
}

namespace {
bool numericShape(const Tattribute& a) {
    switch (a.kind()) {
    case TattrKind::Typed:
    case TattrKind::Message:
    case TattrKind::Addr:
        return false;
    default:
        return a.numericCount() > 0;
    }
}

bool compatible(const Tattribute& s, const Tattribute& d) {
    if (s.kind() == TattrKind::Message || d.kind() == TattrKind::Message)
        return true;
    // A typed destination of no particular data type is a generic connection
    // point: it takes any source (a shading group's surfaceShader, say).
    if (auto* dt = dynamic_cast<const TattributeTyped*>(&d); dt && !dt->dataType())
        return true;
    if (s.kind() == TattrKind::Typed || d.kind() == TattrKind::Typed) {
        if (s.kind() != d.kind())
            return false;
        auto* st = dynamic_cast<const TattributeTyped*>(&s);
        auto* dt = dynamic_cast<const TattributeTyped*>(&d);
        return !st->dataType() || !dt->dataType() || st->dataType() == dt->dataType();
    }
    if (std::strcmp(s.className(), "TattributeLightData") == 0 ||
        std::strcmp(d.className(), "TattributeLightData") == 0)
        return std::strcmp(s.className(), d.className()) == 0;
    if (s.kind() == TattrKind::FltMatrix || d.kind() == TattrKind::FltMatrix)
        return s.kind() == d.kind();
    return numericShape(s) && numericShape(d) && s.numericCount() == d.numericCount();
}
} // namespace

std::string TdependGraph::whyNotConnectable(const Tplug& source, const Tplug& destination) const {
    if (source.isNull() || destination.isNull())
        return "a plug is missing";
    if (source == destination)
        return fmt::format("cannot connect '{}' to itself", source.name());
    const Tattribute& s = *source.attribute();
    const Tattribute& d = *destination.attribute();
    if (!s.isReadable())
        return fmt::format("'{}' cannot be read, so it cannot be a source", source.name());
    if (!d.isWritable() || d.isComputed())
        return fmt::format("'{}' is computed by its node and cannot take a connection",
                           destination.name());
    const bool sWhole = source.mode() & Tplug::kWholeArray;
    const bool dWhole = destination.mode() & Tplug::kWholeArray;
    if (sWhole != dWhole || !source.indicesComplete() != !destination.indicesComplete()) {
        if (!destination.indicesComplete() && !dWhole)
            return fmt::format("'{}' needs an array index", destination.name());
        if (!source.indicesComplete() && !sWhole)
            return fmt::format("'{}' needs an array index", source.name());
        return fmt::format("'{}' and '{}' are not both whole arrays", source.name(),
                           destination.name());
    }
    if (!compatible(s, d))
        return fmt::format("cannot connect '{}' ({}) to '{}' ({}): the values do not match",
                           source.name(), s.className(), destination.name(), d.className());
    const Tplug existing = sourceOf(destination);
    if (!existing.isNull())
        return fmt::format("'{}' is already connected from '{}'", destination.name(),
                           existing.name());
    if (!source.node()->legalConnection(source, destination, true) ||
        !destination.node()->legalConnection(destination, source, false))
        return fmt::format("node types refuse the connection '{}' -> '{}'", source.name(),
                           destination.name());
    return {};
}

void TdependGraph::connect(const Tplug& source, const Tplug& destination) {
    const std::string why = whyNotConnectable(source, destination);
    if (!why.empty())
        throw TgraphError(why);
    fLinks[destination.node()].sources.emplace(keyOf(destination), source);
    fLinks[source.node()].destinations.emplace(keyOf(source), destination);
    fConnectionOrder.emplace_back(source, destination);
    const auto broken = std::find(fBrokenImplicit.begin(), fBrokenImplicit.end(),
                                  std::make_pair(source, destination));
    if (inImplicitEdits() || broken != fBrokenImplicit.end())
        fImplicit.insert({destination.node(), keyOf(destination)});
    if (broken != fBrokenImplicit.end())
        fBrokenImplicit.erase(broken);
    source.node()->connectionMade(source, destination, true);
    destination.node()->connectionMade(destination, source, false);
    const unsigned made =
        TattributeChangedMsg::kConnectionChange | TattributeChangedMsg::kConnectionMade;
    notifyChanged(this, source, &destination, made);
    notifyChanged(this, destination, &source, made);
    dirtyPlug(destination.node(), *destination.attribute());
}

void TdependGraph::disconnect(const Tplug& source, const Tplug& destination) {
    auto dst = fLinks.find(destination.node());
    if (dst == fLinks.end() || !dst->second.sources.count(keyOf(destination)) ||
        dst->second.sources.at(keyOf(destination)) != source)
        throw TgraphError(
            fmt::format("'{}' is not connected to '{}'", source.name(), destination.name()));
    dst->second.sources.erase(keyOf(destination));
    if (fImplicit.erase({destination.node(), keyOf(destination)}) && !inImplicitEdits())
        fBrokenImplicit.emplace_back(source, destination);
    auto& dests = fLinks[source.node()].destinations;
    auto [lo, hi] = dests.equal_range(keyOf(source));
    for (auto it = lo; it != hi; ++it)
        if (it->second == destination) {
            dests.erase(it);
            break;
        }
    fConnectionOrder.erase(std::remove(fConnectionOrder.begin(), fConnectionOrder.end(),
                                       std::make_pair(source, destination)),
                           fConnectionOrder.end());
    source.node()->connectionBroken(source, destination, true);
    destination.node()->connectionBroken(destination, source, false);
    const unsigned broken =
        TattributeChangedMsg::kConnectionChange | TattributeChangedMsg::kConnectionBroken;
    notifyChanged(this, source, &destination, broken);
    notifyChanged(this, destination, &source, broken);
    // The destination keeps the value it last pulled; what it feeds must
    // recompute from it.
    propagateFrom(destination.node(), *destination.attribute());
}

Tplug TdependGraph::sourceOf(const Tplug& destination) const {
    if (destination.isNull())
        return {};
    const auto it = fLinks.find(destination.node());
    if (it == fLinks.end())
        return {};
    const auto s = it->second.sources.find(keyOf(destination));
    return s == it->second.sources.end() ? Tplug() : s->second;
}

void TdependGraph::destinationsOf(const Tplug& source, TplugArray& out) const {
    out.clear();
    if (source.isNull())
        return;
    const auto it = fLinks.find(source.node());
    if (it == fLinks.end())
        return;
    auto [lo, hi] = it->second.destinations.equal_range(keyOf(source));
    for (auto d = lo; d != hi; ++d)
        out.push_back(d->second);
}

// ---------------------------------------------------------------- dirty

namespace {
template <class F>
void forFamily(const Tattribute& a, F&& f) {
    f(a);
    for (const Tattribute* p = a.parent(); p; p = p->parent())
        f(*p);
    struct Down {
        static void walk(const Tattribute& x, F& g) {
            for (const Tattribute* c : x.children()) {
                g(*c);
                walk(*c, g);
            }
        }
    };
    Down::walk(a, f);
}
} // namespace

void TdependGraph::dirtyPlug(TdependNode* node, const Tattribute& attribute) {
    TordinaryDataBlock* block = node->getDatablock();
    if (!block)
        return; // nothing evaluated yet: the block starts dirty where it must
    bool changed = false;
    forFamily(attribute, [&](const Tattribute& a) {
        if (!block->isDirty(a)) {
            block->setDirty(a);
            changed = true;
        }
    });
    if (!changed)
        return;
    Tplug plug(node, &attribute);
    TmsgDirty msg{&plug};
    node->setDirty(msg);
    notifyDirty(this, plug);
    propagateFrom(node, attribute);
}

void TdependGraph::propagateFrom(TdependNode* node, const Tattribute& attribute) {
    const TdependencyMatrix& matrix = node->vsData()->dependencies();
    const TattributeList& attributes = node->vsData()->attributes();
    std::vector<const Tattribute*> family;
    forFamily(attribute, [&](const Tattribute& a) { family.push_back(&a); });
    for (const Tattribute* a : family)
        if (a->index() < matrix.size())
            matrix.affectees(a->index()).forEach([&](size_t to) {
                dirtyPlug(node, *attributes[to]);
            });
    const auto it = fLinks.find(node);
    if (it == fLinks.end())
        return;
    std::vector<Tplug> destinations;
    for (const auto& [key, destination] : it->second.destinations)
        for (const Tattribute* a : family)
            if (key.attribute == a->index())
                destinations.push_back(destination);
    for (const Tplug& d : destinations)
        dirtyPlug(d.node(), *d.attribute());
}

// ---------------------------------------------------------------- evaluation

void TdependGraph::copyConverted(const Tattribute& from, const void* src, const Tattribute& to,
                                 void* dst) {
    if (to.kind() == TattrKind::Message || from.kind() == TattrKind::Message)
        return;
    if (to.kind() == TattrKind::Typed && from.kind() != TattrKind::Typed)
        return; // a generic connection point carries the connection, not a value
    if (std::strcmp(from.className(), to.className()) == 0 || to.kind() == TattrKind::Typed) {
        to.copyValue(dst, src);
        return;
    }
    const int n = std::min(from.numericCount(), to.numericCount());
    for (int i = 0; i < n; ++i)
        to.numericSet(dst, i, from.numericGet(src, i));
}

void TdependGraph::pullInputs(TdependNode* node, TordinaryDataBlock& block, const Tattribute& root,
                              unsigned first, unsigned count) {
    if (root.isComputed() || !block.isDirty(root))
        return;
    // Clean first: a cycle back to this value reads what is there.
    block.markClean(root);
    const auto it = fLinks.find(node);
    if (it == fLinks.end())
        return;
    std::vector<std::pair<PlugKey, Tplug>> feeds;
    const TattributeList& attributes = node->vsData()->attributes();
    for (const auto& entry : it->second.sources) {
        const Tattribute* a = attributes[entry.first.attribute];
        if (a == &root || a->isDescendentOf(root))
            feeds.push_back(entry);
    }
    // Parents first, so that a separately connected child overrides.
    auto depth = [&](const PlugKey& k) {
        int d = 0;
        for (const Tattribute* p = attributes[k.attribute]->parent(); p; p = p->parent())
            ++d;
        return d;
    };
    std::stable_sort(feeds.begin(), feeds.end(),
                     [&](const auto& a, const auto& b) { return depth(a.first) < depth(b.first); });

    const unsigned saved = block.currentIndex();
    for (const auto& [key, source] : feeds) {
        const Tattribute& to = *attributes[key.attribute];
        const TdataHandle value = evaluate(source);
        if (value.isNull())
            continue;
        Tplug destination(node, &to);
        if (const Tattribute* array = to.arrayAncestor(); array && key.index != Tplug::kNoIndex)
            destination.setMultiIndex(array, key.index);
        for (unsigned e = first; e < first + count && e < block.elementCount(); ++e) {
            block.setCurrentIndex(e);
            if (to.isArray() && key.index == Tplug::kNoIndex) {
                TmultiHeader& dst = *static_cast<TmultiHeader*>(block.valueAddress(to, e));
                TmultiHandle::release(dst, to);
                TmultiHandle::copyInto(dst, *value.asMultiHeader(), to);
            } else if (to.isArrayDescendant() || to.isArray()) {
                copyConverted(*source.attribute(), value.address(), to,
                              block.elementValue(destination, true).address());
            } else {
                copyConverted(*source.attribute(), value.address(), to, block.valueAddress(to, e));
            }
        }
    }
    block.setCurrentIndex(saved);
}

TdataHandle TdependGraph::evaluate(const Tplug& plug) {
    if (plug.isNull())
        return {};
    TdependNode* node = plug.node();
    TordinaryDataBlock& block = node->forceGetDatablock();
    const Tattribute& attribute = *plug.attribute();
    if (!attribute.isComputed())
        return block.inputValue(plug);

    const auto self = std::make_pair(static_cast<const TdependNode*>(node), &attribute);
    const bool inProgress =
        std::find(fEvaluating.begin(), fEvaluating.end(), self) != fEvaluating.end();
    if (block.isDirty(attribute) && !inProgress) {
        fEvaluating.push_back(self);
        block.setCurrentIndex(0);
        ++fComputeCounts[node];
        try {
            node->computePlug(plug, block);
        } catch (...) {
            fEvaluating.pop_back();
            throw;
        }
        fEvaluating.pop_back();
        block.markClean(attribute);
    }
    block.setCurrentIndex(0);
    return block.outputValue(plug);
}

std::vector<std::string> TdependGraph::evaluateToWords(const Tplug& plug) {
    const TdataHandle h = evaluate(plug);
    std::vector<std::string> words;
    if (h.isNull())
        return words;
    const Tattribute& a = *plug.attribute();
    if (a.isArray() && (plug.mode() & Tplug::kWholeArray)) {
        TmultiHandle mh(h);
        for (unsigned i = 0; mh.jumpToArrayElement(i); ++i)
            a.formatValue(mh.reference().address(), words);
        return words;
    }
    a.formatValue(h.address(), words);
    return words;
}

unsigned TdependGraph::computeCount(const TdependNode* node) const {
    const auto it = fComputeCounts.find(node);
    return it == fComputeCounts.end() ? 0u : it->second;
}

void TdependGraph::setTime(double t) {
    fTime = t;
}

// ---------------------------------------------------------------- values

void TdependGraph::setPlugValue(const Tplug& plug, const void* value) {
    if (plug.isNull())
        throw TgraphError("no plug to set");
    const Tattribute& a = *plug.attribute();
    for (Tplug p = plug; !p.isNull(); p = p.parent()) {
        const Tplug source = sourceOf(p);
        if (!source.isNull())
            throw TgraphError(fmt::format("'{}' is connected from '{}'; disconnect it first",
                                          p.name(), source.name()));
    }
    if (a.isComputed())
        throw TgraphError(
            fmt::format("'{}' is computed by its node and cannot be set", plug.name()));
    TordinaryDataBlock& block = plug.node()->forceGetDatablock();
    block.setCurrentIndex(0);
    void* at = nullptr;
    if (a.isArrayDescendant() || (a.isArray() && !(plug.mode() & Tplug::kWholeArray))) {
        if (!plug.indicesComplete())
            throw TgraphError(fmt::format("'{}' needs an array index", plug.name()));
        at = block.elementValue(plug, true).address();
    } else if (a.isArray()) {
        throw TgraphError(
            fmt::format("'{}' is an array: set its elements, as {}[0]", plug.name(), plug.name()));
    } else {
        at = block.valueAddress(a, 0);
    }
    a.copyValue(at, value);
    block.valueChanged(a);
    // The set plug itself is clean (it holds the new value), so its own
    // clients hear of it here rather than from the dirty walk.
    notifyChanged(this, plug, nullptr, TattributeChangedMsg::kAttributeSet);
    notifyDirty(this, plug);
    propagateFrom(plug.node(), a);
    plug.node()->setCachedValue(plug, TdataHandle(&block, &a, at));
}

// ---------------------------------------------------------------- clients

void Tclient::attributeChanged(TdependNode&, const TattributeChangedMsg&) {}
void Tclient::nodeDirty(TdependNode&, const TnodeDirtyMsg&) {}
void Tclient::nodeDeleted(TdependNode&) {}

void OrvoAddClient(TdependGraph& graph, const TdependNode* node, Tclient* client, unsigned kinds) {
    ClientTables& tables = clientTables();
    std::lock_guard lock(tables.mutex);
    auto& nodes = tables.byGraph[&graph];
    const auto [it, added] = nodes.try_emplace(node);
    if (added)
        ++gClientNodes;
    for (auto& [c, k] : it->second)
        if (c == client) {
            k |= kinds;
            return;
        }
    it->second.emplace_back(client, kinds);
}

void OrvoRemoveClient(TdependGraph& graph, const TdependNode* node, Tclient* client) {
    ClientTables& tables = clientTables();
    std::lock_guard lock(tables.mutex);
    const auto g = tables.byGraph.find(&graph);
    if (g == tables.byGraph.end())
        return;
    const auto it = g->second.find(node);
    if (it == g->second.end())
        return;
    auto& list = it->second;
    list.erase(std::remove_if(list.begin(), list.end(),
                              [client](const auto& e) { return e.first == client; }),
               list.end());
    if (list.empty()) {
        g->second.erase(it);
        --gClientNodes;
    }
}

void OrvoRemoveClient(TdependGraph& graph, Tclient* client) {
    ClientTables& tables = clientTables();
    std::lock_guard lock(tables.mutex);
    const auto g = tables.byGraph.find(&graph);
    if (g == tables.byGraph.end())
        return;
    for (auto it = g->second.begin(); it != g->second.end();) {
        auto& list = it->second;
        list.erase(std::remove_if(list.begin(), list.end(),
                                  [client](const auto& e) { return e.first == client; }),
                   list.end());
        if (list.empty()) {
            it = g->second.erase(it);
            --gClientNodes;
        } else {
            ++it;
        }
    }
}

void TdependGraph::setPlugValueFromWords(const Tplug& plug, const std::vector<std::string>& words) {
    const Tattribute& a = *plug.attribute();
    if (a.wordCount() == 0)
        throw TgraphError(
            fmt::format("'{}' ({}) holds no value that can be set", plug.name(), a.className()));
    std::vector<std::max_align_t> scratch(a.dataSize() / sizeof(std::max_align_t) + 2);
    void* tmp = scratch.data();
    a.constructValue(tmp);
    std::string error;
    try {
        error = a.parseValue(words, tmp);
        if (error.empty())
            setPlugValue(plug, tmp);
    } catch (...) {
        a.destroyValue(tmp);
        throw;
    }
    a.destroyValue(tmp);
    if (!error.empty())
        throw TgraphError(fmt::format("'{}' ({}): {}", plug.name(), a.className(), error));
}

// ---------------------------------------------------------------- commands

TDGcommand::~TDGcommand() = default;

void TDGcommand::record(Edit edit) {
    edit.implicit = fGraph.inImplicitEdits();
    fEdits.push_back(std::move(edit));
}

TdependNode* TDGcommand::newNodeToAdd(std::string_view typeName, std::string_view name) {
    TdependNode* node = fGraph.createNode(typeName, name);
    const std::string type(typeName), made(node->name());
    TdependGraph& graph = fGraph;
    record({[&graph, type, made] { graph.createNode(type, made); },
            [&graph, made] {
                graph.deleteNode(graph.findNode(made));
            }});
    return node;
}

void TDGcommand::newConnectionToMake(const Tplug& source, const Tplug& destination) {
    fGraph.connect(source, destination);
    const std::string s = source.name(), d = destination.name();
    TdependGraph& graph = fGraph;
    record({[&graph, s, d] { graph.connect(graph.findPlug(s), graph.findPlug(d)); },
            [&graph, s, d] {
                graph.disconnect(graph.findPlug(s), graph.findPlug(d));
            }});
}

void TDGcommand::newConnectionToBreak(const Tplug& source, const Tplug& destination) {
    fGraph.disconnect(source, destination);
    const std::string s = source.name(), d = destination.name();
    TdependGraph& graph = fGraph;
    record({[&graph, s, d] { graph.disconnect(graph.findPlug(s), graph.findPlug(d)); },
            [&graph, s, d] {
                graph.connect(graph.findPlug(s), graph.findPlug(d));
            }});
}

namespace {
// A value of an attribute held outside any block, for undo and redo.
class ValueCopy {
public:
    explicit ValueCopy(const Tattribute& a) : fAttribute(a), fStorage(a.dataSize() / 16 + 2) {
        a.constructValue(data());
    }
    ~ValueCopy() { fAttribute.destroyValue(data()); }
    ValueCopy(const ValueCopy&) = delete;
    ValueCopy& operator=(const ValueCopy&) = delete;
    void* data() { return fStorage.data(); }

private:
    const Tattribute& fAttribute;
    std::vector<std::max_align_t> fStorage;
};
} // namespace

void TDGcommand::newPlugValue(const Tplug& plug, const std::vector<std::string>& words) {
    const Tattribute& a = *plug.attribute();
    if (a.wordCount() == 0)
        throw TgraphError(
            fmt::format("'{}' ({}) holds no value that can be set", plug.name(), a.className()));
    auto next = std::make_shared<ValueCopy>(a);
    const std::string error = a.parseValue(words, next->data());
    if (!error.empty())
        throw TgraphError(fmt::format("'{}' ({}): {}", plug.name(), a.className(), error));

    // Remember the old value, and whether an array element had to be made.
    bool existed = true;
    if (const Tattribute* array = a.arrayAncestor()) {
        TuInt32Array indices;
        plug.node()->getExistingMultiAttributeIndices(plug, indices);
        existed =
            std::find(indices.begin(), indices.end(), plug.multiIndex(array)) != indices.end();
    }
    auto old = std::make_shared<ValueCopy>(a);
    if (existed) {
        TordinaryDataBlock& block = plug.node()->forceGetDatablock();
        block.setCurrentIndex(0);
        const TdataHandle h = block.outputValue(plug);
        if (!h.isNull())
            a.copyValue(old->data(), h.address());
    }
    fGraph.setPlugValue(plug, next->data());
    const std::string name = plug.name();
    TdependGraph& graph = fGraph;
    record({[&graph, name, next] { graph.setPlugValue(graph.findPlug(name), next->data()); },
            [&graph, name, old, existed] {
                const Tplug p = graph.findPlug(name);
                if (existed)
                    graph.setPlugValue(p, old->data());
                else
                    p.node()->forceGetDatablock().removeMultiInstance(p);
            }});
}

void TDGcommand::undoDG() {
    if (!fDone)
        return;
    for (auto it = fEdits.rbegin(); it != fEdits.rend(); ++it) {
        if (it->implicit) {
            TdependGraph::TimplicitScope scope(fGraph);
            it->undo();
        } else {
            it->undo();
        }
    }
    fDone = false;
}

void TDGcommand::doDG() {
    if (fDone)
        return;
    for (Edit& e : fEdits) {
        if (e.implicit) {
            TdependGraph::TimplicitScope scope(fGraph);
            e.redo();
        } else {
            e.redo();
        }
    }
    fDone = true;
}
