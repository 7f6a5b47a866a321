#include "framework/render_info.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string_view>
#include <unordered_map>

#include <fmt/format.h>

#include "framework/nodes/utility/multiply_divide.h"
#include "framework/nodes/utility/render_utilities.h"
#include "framework/render_lists.h"
#include "host/classification.h"
#include "host/graph.h"
#include "host/qsl/parser.h"
#include "host/scene/light_shape.h"
#include "lights/light_link.h"
#include "lights/light_list.h"
#include "lights/swatch_light.h"
#include "materials/lambert.h"
#include "shading/shading_engine.h"

namespace {

// Graph -> its render info. Never destroyed: render infos leave it from
// their destructors, which may run after static destruction.
std::unordered_map<const TdependGraph*, TrenderInfo*>& infos() {
    static auto* map = new std::unordered_map<const TdependGraph*, TrenderInfo*>;
    return *map;
}

void makeSceneDefaults(TdependGraph& graph) {
    TrenderInfo::getRenderInfo(graph);
}

void removeSceneHooks() {
    TdependGraph::removeSceneInitializer(&makeSceneDefaults);
    TdependGraph::removeNodeAddedObserver(&TrenderInfo::nodeAddedToScene);
}

// Every scene the scene language makes starts with its render info, and
// the lights and shading groups a script makes join it.
const bool sSceneHooks = [] {
    TdependGraph::addSceneInitializer(&makeSceneDefaults);
    TdependGraph::addNodeAddedObserver(&TrenderInfo::nodeAddedToScene);
    std::atexit(&removeSceneHooks);
    return true;
}();

template <class T>
T* castTo(TdependNode* node) {
    return node ? static_cast<T*>(node->cast(T::sTypeof())) : nullptr;
}

} // namespace

// ---------------------------------------------------------------- scene

TrenderInfo* TrenderInfo::find(const TdependGraph& graph) {
    const auto it = infos().find(&graph);
    return it == infos().end() ? nullptr : it->second;
}

TrenderInfo* TrenderInfo::getRenderInfo(TdependGraph& graph) {
    if (TrenderInfo* found = find(graph))
        return found;
    TdependGraph::TimplicitScope implicit(graph);
    if (TdependNode* clash = graph.findNode("renderPartition"))
        throw TgraphError(fmt::format("the scene's render partition cannot be made: a node "
                                      "named 'renderPartition' ({}) is there already",
                                      clash->typeName()));
    auto* info = static_cast<TrenderInfo*>(
        graph.adoptNode(std::unique_ptr<TdependNode>(new TrenderInfo), "renderPartition"));
    info->setRenderPartition(true);
    info->setImplicitlyCreated(true);
    info->setNodeIsDefault(true);
    infos()[&graph] = info;
    info->makeDefaults(graph);
    return info;
}

template <class Made>
void TrenderInfo::makeShadingDefaults(Made&& made) {
    fInitialParticleSE = castTo<TDNshadingEngine>(made("shadingEngine", "initialParticleSE"));
    fInitialParticleSE->setRestrictions(TobjectSet::kRenderableOnly);
    fShaderList = castTo<TdnShaderList>(made("shaderList", nullptr));
    fTextureList = castTo<TdnTextureList>(made("textureList", nullptr));
    fDefaultShader = castTo<TdnLambert>(made("lambert", nullptr));
    fPostProcessList = castTo<TdnPostProcessList>(made("postProcessList", nullptr));
    fUtilityList = castTo<TdnRenderUtilityList>(made("renderUtilityList", nullptr));
    fRenderingList = castTo<TdnRenderingList>(made("renderingList", nullptr));
    fShaderGlow = made("shaderGlow", nullptr);
}

void TrenderInfo::makeDefaults(TdependGraph& graph) {
    // A default named in a graph that already has a node of that name
    // takes the node when its type fits.
    const auto made = [&graph](const char* type, const char* name) {
        TdependNode* node = name ? graph.findNode(name) : nullptr;
        if (node && node->typeName() != type)
            throw TgraphError(fmt::format("the scene's default '{}' must be a {}, and a {} "
                                          "has that name",
                                          name, type, node->typeName()));
        if (!node)
            node = graph.createNode(type, name ? name : "");
        node->setImplicitlyCreated(true);
        node->setNodeIsDefault(true);
        return node;
    };
    fInitialShadingGroup = castTo<TDNshadingEngine>(made("shadingEngine", "initialShadingGroup"));
    fInitialShadingGroup->setRestrictions(TobjectSet::kRenderableOnly);
    fDefaultShadingGroup = fInitialShadingGroup;
    fDefaultLightList = castTo<TdnDefaultLightList>(made("defaultLightList", nullptr));
    fLightList = castTo<TdnLightList>(made("lightList", nullptr));
    fDefaultLightSet = castTo<TobjectSet>(made("objectSet", "defaultLightSet"));
    fDefaultObjectSet = castTo<TobjectSet>(made("objectSet", "defaultObjectSet"));
    makeShadingDefaults(made);
    makeSettingsDefaults(graph);

    TDNarray linkers;
    TdnLightLink::getLinkNodes(linkers, true, &graph);
    for (TdependNode* linker : linkers) {
        linker->setImplicitlyCreated(true);
        linker->setNodeIsDefault(true);
    }

    // The connections between the defaults, made at once: a scene starts
    // with them, so there is nothing to undo.
    TDGcommand command(graph);
    addShadingGroup(fInitialShadingGroup, command, false);
    connectShadingDefaults(command);
}

void TrenderInfo::connectShadingDefaults(TDGcommand& command) {
    // The initial groups shade with the default shader, which is a shader
    // of the scene like any other.
    connectDefaultShader(fInitialShadingGroup, command);
    addShadingGroup(fInitialParticleSE, command, true);
    addShader(fDefaultShader, command);
    addPostProcess(fShaderGlow, command);
}

void TrenderInfo::appendShadingDefaults(std::vector<TdependNode*>& members) const {
    members.insert(members.end(), {fInitialParticleSE, fShaderList, fTextureList, fDefaultShader,
                                   fPostProcessList, fUtilityList, fRenderingList, fShaderGlow});
}

TrenderInfo::~TrenderInfo() {
    for (auto it = infos().begin(); it != infos().end();)
        it = it->second == this ? infos().erase(it) : std::next(it);
}

void TrenderInfo::deleteRenderInfo(TrenderInfo* info) {
    if (!info)
        return;
    TdependGraph* graph = info->graph();
    if (!graph) {
        delete info;
        return;
    }
    TDNarray linkers;
    TdnLightLink::getLinkNodes(linkers, false, graph);
    std::vector<TdependNode*> members = {info->fInitialShadingGroup, info->fDefaultLightList,
                                         info->fLightList, info->fDefaultLightSet,
                                         info->fDefaultObjectSet};
    info->appendShadingDefaults(members);
    for (TdependNode* linker : linkers)
        if (linker->isDefaultNode())
            members.push_back(linker);
    for (TdependNode* node : info->settingsMembers())
        members.push_back(node);
    // Only what is still in the scene: a member may have been deleted.
    const std::vector<TdependNode*> nodes = graph->nodes();
    for (TdependNode* node : nodes)
        if (std::find(members.begin(), members.end(), node) != members.end())
            graph->deleteNode(node);
    graph->deleteNode(info);
}

TdnLightLink* TrenderInfo::activeLinkNode() const {
    TDNarray linkers;
    TdnLightLink::getLinkNodes(linkers, false, graph());
    for (TdependNode* n : linkers)
        if (n->flagWord() & kFromReferencedScene)
            return castTo<TdnLightLink>(n);
    return linkers.empty() ? nullptr : castTo<TdnLightLink>(linkers.front());
}

// ---------------------------------------------------------------- lights

namespace {
// The plug by which a node joins the light list.
Tplug lightPlugOf(const TdependNode* node) {
    const Tattribute* lightData = node->findAttribute("lightData");
    return Tplug(node, lightData ? lightData : &TdependNode::aMessage);
}
} // namespace

bool TrenderInfo::isSceneLight(const TdependNode* node) {
    auto* n = const_cast<TdependNode*>(node);
    if (!n)
        return false;
    if (castTo<TlightShape>(n))
        return true;
    // Records that only pass light on are not lights of the scene.
    if (castTo<TdnDefaultLightList>(n) || castTo<TdnSwatchLight>(n))
        return false;
    return n->findAttribute("lightData") != nullptr;
}

void TrenderInfo::addLight(TdependNode* node, TDGcommand& command) {
    if (!node || !fLightList || !fDefaultLightSet)
        return;
    if (!isLight(node)) {
        Tplug slot(fLightList, &TdnLightList::aLights);
        slot.setMultiIndex(&TdnLightList::aLights, fLightList->nextFreeIndex());
        command.newConnectionToMake(lightPlugOf(node), slot);
    }
    TselectionList items;
    if (TdagObject* dag = TdagObject::fromNode(node))
        items.add(dag->firstPath()); // instance 0: its instObjGroups[0]
    else
        items.add(node); // its message
    fDefaultLightSet->addMembers(items, command);
}

bool TrenderInfo::isLight(const TdependNode* node) const {
    if (!node || !fLightList)
        return false;
    TplugArray destinations;
    lightPlugOf(node).getAllDestinationsToNode(fLightList, destinations);
    return !destinations.empty();
}

// ---------------------------------------------------------------- shading groups

bool TrenderInfo::addShadingGroup(TDNshadingEngine* engine, TDGcommand& command,
                                  bool connectDefault) {
    if (!engine || !(engine->restrictions() & TobjectSet::kRenderableOnly))
        return false;
    if (connectDefault)
        connectDefaultShader(engine, command);
    // Every group but the initial particle group would also get a material
    // info (the initial shading group the scene's default one): that node
    // type does not exist yet.
    addSet(*engine, command);
    linkShadingGroupToDefaultLightSet(engine, command);
    shadowLinkShadingGroupToDefaultLightSet(engine, command);
    return true;
}

void TrenderInfo::connectDefaultShader(TDNshadingEngine* engine, TDGcommand& command) {
    const Tattribute* surfaceShader = engine->findAttribute("surfaceShader");
    if (!surfaceShader || !fDefaultShader)
        return;
    const Tplug destination(engine, surfaceShader);
    if (!destination.source().isNull())
        return; // the group has a shader already
    command.newConnectionToMake(Tplug(fDefaultShader, &TdnLambert::aOutColor), destination);
}

bool TrenderInfo::linkToDefaultLightSet(TDNshadingEngine* engine, int list, TDGcommand& command) {
    TdnLightLink* linker = activeLinkNode();
    if (!engine || !linker || !fDefaultLightSet)
        return false;
    if (linker->isAlreadyConnected(engine, fDefaultLightSet, list))
        return true;
    TrelationshipLightLink link(linker, TdnLightLink::fMultiParentAttr[list], engine,
                                fDefaultLightSet);
    return link.applyRelationship(&command);
}

bool TrenderInfo::linkShadingGroupToDefaultLightSet(TDNshadingEngine* engine, TDGcommand& command) {
    return linkToDefaultLightSet(engine, TdnLightLink::kLink, command);
}

bool TrenderInfo::shadowLinkShadingGroupToDefaultLightSet(TDNshadingEngine* engine,
                                                          TDGcommand& command) {
    return linkToDefaultLightSet(engine, TdnLightLink::kShadowLink, command);
}

bool TrenderInfo::linkWithShadowsShadingGroupToDefaultLightSet(TDNshadingEngine* engine,
                                                               TDGcommand& command) {
    const bool lit = linkShadingGroupToDefaultLightSet(engine, command);
    const bool shadowed = shadowLinkShadingGroupToDefaultLightSet(engine, command);
    return lit && shadowed;
}

void TrenderInfo::nodeAddedToScene(TdependNode& node, TDGcommand& command) {
    TdependGraph* graph = node.graph();
    TrenderInfo* info = graph ? find(*graph) : nullptr;
    if (!info || &node == info)
        return;
    if (auto* engine = castTo<TDNshadingEngine>(&node)) {
        info->addShadingGroup(engine, command, true);
        return;
    }
    if (isSceneLight(&node)) {
        info->addLight(&node, command);
        return;
    }
    info->addByClassification(&node, command);
}

// ---------------------------------------------------------------- render node lists

namespace {

// Connects the node's message to the next free element of the list.
template <class List>
void joinList(List* list, TdependNode* node, TDGcommand& command) {
    if (!list || !node)
        return;
    Tplug slot(list, &List::listAttribute());
    slot.setMultiIndex(&List::listAttribute(), list->nextFreeIndex());
    command.newConnectionToMake(Tplug(node, &TdependNode::aMessage), slot);
}

template <class List>
bool inList(const List* list, const TdependNode* node) {
    if (!list || !node)
        return false;
    TplugArray destinations;
    Tplug(node, &TdependNode::aMessage).getAllDestinationsToNode(list, destinations);
    return !destinations.empty();
}

} // namespace

void TrenderInfo::addShader(TdependNode* node, TDGcommand& command) {
    joinList(fShaderList, node, command);
}
void TrenderInfo::addTexture(TdependNode* node, TDGcommand& command) {
    joinList(fTextureList, node, command);
}
void TrenderInfo::addUtility(TdependNode* node, TDGcommand& command) {
    joinList(fUtilityList, node, command);
}
void TrenderInfo::addRendering(TdependNode* node, TDGcommand& command) {
    joinList(fRenderingList, node, command);
}
void TrenderInfo::addPostProcess(TdependNode* node, TDGcommand& command) {
    joinList(fPostProcessList, node, command);
}

bool TrenderInfo::isShader(const TdependNode* node) const {
    return inList(fShaderList, node);
}
bool TrenderInfo::isTexture(const TdependNode* node) const {
    return inList(fTextureList, node);
}
bool TrenderInfo::isUtility(const TdependNode* node) const {
    return inList(fUtilityList, node);
}
bool TrenderInfo::isRendering(const TdependNode* node) const {
    return inList(fRenderingList, node);
}
bool TrenderInfo::isPostProcess(const TdependNode* node) const {
    return inList(fPostProcessList, node);
}

bool TrenderInfo::addByClassification(TdependNode* node, TDGcommand& command) {
    if (!node)
        return false;
    using Add = void (TrenderInfo::*)(TdependNode*, TDGcommand&);
    static const std::pair<std::string_view, Add> kLists[] = {
        {"shader", &TrenderInfo::addShader},
        {"texture", &TrenderInfo::addTexture},
        {"utility", &TrenderInfo::addUtility},
        {"rendering", &TrenderInfo::addRendering},
        {"postprocess", &TrenderInfo::addPostProcess}};
    const Tstring classification = TclassificationMgr::classification(node->typeName());
    for (size_t at = 0; at <= classification.size();) {
        size_t end = classification.find(':', at);
        if (end == Tstring::npos)
            end = classification.size();
        const std::string_view path(classification.data() + at, end - at);
        const std::string_view head = path.substr(0, path.find('/'));
        for (const auto& [name, add] : kLists)
            if (head == name) {
                (this->*add)(node, command);
                return true;
            }
        at = end + 1;
    }
    return false;
}

// ---------------------------------------------------------------- class tests

bool TrenderInfo::isRenderNode(const TdependNode* node) {
    if (!node)
        return false;
    const Tstring classification = TclassificationMgr::classification(node->typeName());
    if (classification.empty())
        return false;
    for (const char* word : {"rendernode", "utility", "rendering", "postprocess", "shader",
                             "texture", "light", "imageplane", "camera"})
        if (classification.find(word) != Tstring::npos)
            return true;
    return false;
}

bool TrenderInfo::usedForVolumeShading(const TdependNode* node) {
    const Tattribute* outColor = node ? node->findAttribute("outColor") : nullptr;
    if (!outColor)
        return false;
    TplugArray destinations;
    Tplug(node, outColor).getAllDestinations(destinations);
    // An attribute without a long name answers its short name as longName().
    return std::any_of(destinations.begin(), destinations.end(),
                       [](const Tplug& d) { return d.attribute()->longName() == "volumeShader"; });
}

// ---------------------------------------------------------------- callbacks

namespace {
struct CallbackList {
    std::vector<TrenderCallback*> callbacks;
    bool unique = false;
};
CallbackList& callbackList() {
    static auto* list = new CallbackList;
    return *list;
}
} // namespace

TrenderCallback::~TrenderCallback() {
    removeCallback(this);
}

bool TrenderCallback::addCallback(TrenderCallback* callback) {
    auto& list = callbackList();
    if (!callback ||
        std::find(list.callbacks.begin(), list.callbacks.end(), callback) != list.callbacks.end())
        return false;
    const auto at = std::lower_bound(
        list.callbacks.begin(), list.callbacks.end(), callback,
        [](const TrenderCallback* a, const TrenderCallback* b) { return *a < *b; });
    if (list.unique && at != list.callbacks.end() && **at == *callback)
        return false;
    list.callbacks.insert(at, callback);
    return true;
}

bool TrenderCallback::removeCallback(TrenderCallback* callback) {
    auto& c = callbackList().callbacks;
    const auto it = std::find(c.begin(), c.end(), callback);
    if (it == c.end())
        return false;
    c.erase(it);
    return true;
}

bool TrenderCallback::callbacksExist() {
    return !callbackList().callbacks.empty();
}

const std::vector<TrenderCallback*>& TrenderCallback::callbacks() {
    return callbackList().callbacks;
}

void TrenderCallback::setUniquePriorities(bool on) {
    callbackList().unique = on;
}

void TrenderCallback::invokeInitialize() {
    for (TrenderCallback* c : callbacks())
        c->initialize();
}

void TrenderCallback::invokeFinalize() {
    for (TrenderCallback* c : callbacks())
        c->finalize();
}

int TrenderCallback::invokeShadowCast(const TshadowCallbackData& data) {
    for (TrenderCallback* c : callbacks())
        if (const int r = c->shadowCastCallback(data))
            return r;
    return 0;
}

int TrenderCallback::invokeRender(const TrenderCallbackData& data) {
    for (TrenderCallback* c : callbacks()) {
        // A callback may evaluate the scene at other times; the render goes
        // on at its own.
        TdependGraph* graph = TdependGraph::fsCurrentGraph;
        const double time = graph ? graph->time() : 0.0;
        const int r = c->renderCallback(data);
        if (graph && TdependGraph::fsCurrentGraph == graph && graph->time() != time)
            graph->setTime(time);
        if (r)
            return r;
    }
    return 0;
}

int TrenderCallback::invokePostProcess(const TrenderCallbackData& data) {
    for (TrenderCallback* c : callbacks())
        if (const int r = c->postProcessCallback(data))
            return r;
    return 0;
}

bool TrenderCallback::invokeCastsShadows() {
    for (TrenderCallback* c : callbacks())
        if (c->castsShadows())
            return true;
    return false;
}

bool TrenderCallback::invokeUseShaderGlow() {
    bool any = false;
    for (TrenderCallback* c : callbacks())
        any = c->useShaderGlow() || any;
    return any;
}

// ---------------------------------------------------------------- render utilities

float TrenderUtilities::cheapSin(float x) {
    // The fraction of the period, in [0, 1]: a negative x has 1 added.
    float f = x - std::trunc(x);
    if (x < 0.0f)
        f += 1.0f;
    if (f < 0.5f) {
        const float d = std::fabs(0.25f - f);
        return 1.0f - 16.0f * d * d;
    }
    if (f < 0.75f) {
        const float d = 0.75f - f;
        return 16.0f * d * d - 1.0f;
    }
    const float d = f - 0.75f;
    return 16.0f * d * d - 1.0f;
}

namespace {

// Reads a value of T from an attribute's value at `at`.
template <class T>
bool readAs(const Tattribute& a, const void* at, T& out) {
    if constexpr (std::is_same_v<T, Tstring>) {
        if (a.kind() == TattrKind::Typed) {
            const Tdata& d = *static_cast<const Tdata*>(at);
            const Tstring* s = OrvoStringOf(d);
            out = s ? *s : d.text();
            return true;
        }
        std::vector<std::string> words;
        a.formatValue(at, words);
        out.clear();
        for (const std::string& w : words)
            out += (out.empty() ? "" : " ") + w;
        return true;
    } else {
        constexpr int kCount = std::is_same_v<T, T3Float> ? 3 : std::is_same_v<T, T2Float> ? 2 : 1;
        if (a.numericCount() < kCount)
            return false;
        if constexpr (std::is_same_v<T, T3Float>)
            out = {float(a.numericGet(at, 0)), float(a.numericGet(at, 1)),
                   float(a.numericGet(at, 2))};
        else if constexpr (std::is_same_v<T, T2Float>)
            out = {float(a.numericGet(at, 0)), float(a.numericGet(at, 1))};
        else if constexpr (std::is_same_v<T, bool>)
            out = a.numericGet(at, 0) != 0.0;
        else
            out = T(a.numericGet(at, 0));
        return true;
    }
}

// The words of a value of T, as a set takes them.
template <class T>
std::vector<std::string> wordsOf(const T& value) {
    if constexpr (std::is_same_v<T, Tstring>)
        return {value};
    else if constexpr (std::is_same_v<T, bool>)
        return {value ? "true" : "false"};
    else if constexpr (std::is_same_v<T, T3Float>)
        return {qsl::formatNumber(value.x), qsl::formatNumber(value.y), qsl::formatNumber(value.z)};
    else if constexpr (std::is_same_v<T, T2Float>)
        return {qsl::formatNumber(value.x), qsl::formatNumber(value.y)};
    else
        return {qsl::formatNumber(double(value))};
}

// The value a node holds for a plug itself, without pulling connections.
template <class T>
bool plainValue(const Tplug& plug, T& out) {
    if (plug.isNull())
        return false;
    const Tattribute& a = *plug.attribute();
    TordinaryDataBlock& block = plug.node()->forceGetDatablock();
    block.setCurrentIndex(0);
    if (a.isArrayDescendant() || (a.isArray() && !(plug.mode() & Tplug::kWholeArray))) {
        try {
            const TdataHandle h = block.elementValue(plug, false);
            if (!h.isNull())
                return readAs(a, h.address(), out);
        } catch (const TDEbadMultiIndex&) {
        }
        return TrenderUtilities::getDefaultValue(a, out); // no element: the default
    }
    if (a.isArray())
        return false;
    return readAs(a, block.valueAddress(a, 0), out);
}

} // namespace

template <class T>
bool TrenderUtilities::getValue(const Tplug& plug, T& out) {
    if (plug.isNull() || !plug.node()->graph())
        return false;
    try {
        const TdataHandle h = plug.node()->graph()->evaluate(plug);
        return !h.isNull() && readAs(*plug.attribute(), h.address(), out);
    } catch (const std::exception&) {
        return false;
    }
}

template <class T>
bool TrenderUtilities::setValue(const Tplug& plug, const T& value) {
    if (plug.isNull() || !plug.node()->graph())
        return false;
    try {
        plug.node()->graph()->setPlugValueFromWords(plug, wordsOf(value));
    } catch (const TgraphError&) {
        return false;
    }
    return true;
}

bool TrenderUtilities::isPlugOnRenderNode(const Tplug& plug) {
    return !plug.isNull() && TrenderInfo::isRenderNode(plug.node());
}

namespace {
bool connectedHereOrBelow(const Tplug& plug) {
    if (TrenderUtilities::isPlugOnRenderNode(plug.source()))
        return true;
    for (const Tplug& child : plug.children())
        if (connectedHereOrBelow(child))
            return true;
    return false;
}
} // namespace

bool TrenderUtilities::isConnected(const Tplug& plug) {
    if (plug.isNull())
        return false;
    // A child takes its value through its compound's connection too.
    for (Tplug up = plug.parent(); !up.isNull(); up = up.parent())
        if (isPlugOnRenderNode(up.source()))
            return true;
    return connectedHereOrBelow(plug);
}

template <class T>
bool TrenderUtilities::getUnconnectedValue(const Tplug& plug, T& out) {
    return !isConnected(plug) && plainValue(plug, out);
}

template <class T>
bool TrenderUtilities::getUnconnectedValue(const TdependNode* node, const Tattribute& attribute,
                                           T& out) {
    return node && getUnconnectedValue(Tplug(node, &attribute), out);
}

template <class T>
bool TrenderUtilities::getUnconnectedValue(const TdependNode* node, const char* attributeName,
                                           T& out) {
    const Tattribute* a = node && attributeName ? node->findAttribute(attributeName) : nullptr;
    return a && getUnconnectedValue(Tplug(node, a), out);
}

template <class T>
bool TrenderUtilities::getDefaultValue(const Tattribute& attribute, T& out) {
    if (attribute.isArray() || attribute.dataSize() == 0)
        return false;
    std::vector<std::max_align_t> scratch(attribute.dataSize() / sizeof(std::max_align_t) + 2);
    attribute.constructValue(scratch.data());
    const bool ok = readAs(attribute, scratch.data(), out);
    attribute.destroyValue(scratch.data());
    return ok;
}

bool TrenderUtilities::getMultiplierNodeGainValue(const Tplug& plug, float& gain) {
    const Tplug source = plug.source();
    auto* md = castTo<TdnMultiplyDivide>(source.node());
    if (!md)
        return false;
    int16_t operation = 0;
    if (!getUnconnectedValue(Tplug(md, &TdnMultiplyDivide::aOperation), operation) ||
        operation != TdnKernel<TdnMultiplyDivide>::kMultiply)
        return false;
    const Tattribute* a = source.attribute();
    const Tattribute* multiplier = nullptr;
    if (a == &TdnMultiplyDivide::aOutputX)
        multiplier = &TdnMultiplyDivide::aInput2X;
    else if (a == &TdnMultiplyDivide::aOutputY)
        multiplier = &TdnMultiplyDivide::aInput2Y;
    else if (a == &TdnMultiplyDivide::aOutputZ)
        multiplier = &TdnMultiplyDivide::aInput2Z;
    if (multiplier)
        return getUnconnectedValue(Tplug(md, multiplier), gain);
    if (a != &TdnMultiplyDivide::aOutput)
        return false;
    T3Float m;
    if (!getUnconnectedValue(Tplug(md, &TdnMultiplyDivide::aInput2), m) || m.x != m.y || m.y != m.z)
        return false;
    gain = m.x;
    return true;
}

// The value types the helpers serve.
#define ORVO_RENDER_UTILITY_TYPES(X)                                                               \
    X(bool) X(int16_t) X(int32_t) X(float) X(double) X(T2Float) X(T3Float) X(Tstring)
#define ORVO_INSTANTIATE(T)                                                                        \
    template bool TrenderUtilities::getValue<T>(const Tplug&, T&);                                 \
    template bool TrenderUtilities::setValue<T>(const Tplug&, const T&);                           \
    template bool TrenderUtilities::getUnconnectedValue<T>(const Tplug&, T&);                      \
    template bool TrenderUtilities::getUnconnectedValue<T>(const TdependNode*, const Tattribute&,  \
                                                           T&);                                    \
    template bool TrenderUtilities::getUnconnectedValue<T>(const TdependNode*, const char*, T&);   \
    template bool TrenderUtilities::getDefaultValue<T>(const Tattribute&, T&);
ORVO_RENDER_UTILITY_TYPES(ORVO_INSTANTIATE)
#undef ORVO_INSTANTIATE
#undef ORVO_RENDER_UTILITY_TYPES
