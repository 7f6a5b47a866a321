#include <algorithm>
#include <cstring>

#include <fmt/format.h>

#include "host/graph.h"
#include "host/shadingnode.h"
#include "shading/analysis_pvt.h"

// ---------------------------------------------------------------- set-up

TSEanalysis::TSEanalysis(TDNshadingEngine& engine, TSEoption option)
    : fEngine(engine), fOption(option), fSampleType(TDNshadingEngine::sampleTypeOf(option)) {
    fRoot.root = &fRoot;
}

TSEanalysis::~TSEanalysis() = default;

TSEnodeDescription* TSEanalysis::find(const TdependNode* node) const {
    const auto it = fDescriptions.find(node);
    return it == fDescriptions.end() ? nullptr : it->second.get();
}

TSEnodeDescription* TSEanalysis::describe(TdependNode* node) {
    auto d = std::make_unique<TSEnodeDescription>();
    d->root = &fRoot;
    d->node = node;
    d->matrix = &node->vsData()->dependencies();
    const TattributeList& attributes = node->vsData()->attributes();
    const size_t n = attributes.size();
    d->state.assign(n, 0);
    d->segmentMark.assign(n, -1);
    d->kind.assign(n, kConstDefaultValue);
    d->fieldOfAttribute.assign(n, -1);
    for (size_t i = 0; i < n; ++i)
        d->fieldOfAttribute[i] = Tsample::fieldNumber(attributes[i]->longName().c_str());
    d->next = fOrder.empty() ? nullptr : fOrder.back();
    TSEnodeDescription* raw = d.get();
    fDescriptions.emplace(node, std::move(d));
    fOrder.push_back(raw);
    return raw;
}

std::shared_ptr<std::vector<std::byte>> TSEanalysis::capture(const Tplug& plug, bool& zero) {
    const Tattribute& a = *plug.attribute();
    auto buffer = std::make_shared<std::vector<std::byte>>(a.dataSize());
    TdependGraph* graph = plug.node()->graph();
    const TdataHandle value = graph ? graph->evaluate(plug) : TdataHandle();
    // A message (a shape connected to a switch) carries no bytes.
    if (!value.isNull() && !buffer->empty())
        std::memcpy(buffer->data(), value.address(), buffer->size());
    zero =
        std::all_of(buffer->begin(), buffer->end(), [](std::byte b) { return b == std::byte(0); });
    return buffer;
}

// ---------------------------------------------------------------- the walk

bool TSEanalysis::satisfySampler(TbitField64 request, TbitField64& provided) {
    fRequest = request;
    provided = TbitField64();
    if (fSampleType == kSurfaceSample)
        fEngine.fSurfaceIsOpaque = false;
    if (fSampleType == kVolumeSample)
        fEngine.fVolumeIsOpaque = false;
    if (fSampleType == kDisplacementSample)
        fEngine.fSurfaceIsDisplaced = true;

    const char* const* names = Tsample::fieldNames();
    bool transparencyRequested = false;
    for (unsigned i = 0; names[i][0]; ++i) {
        if (!request.test(i))
            continue;
        const std::string name = names[i];
        if (name == "lightTable") {
            provided.set(i);
            fLightsWanted = true;
            continue;
        }
        const int result = findSourceAtRoot(i);
        if (result != 0)
            provided.set(i);
        if (name == "outTransparency") {
            transparencyRequested = true;
            const bool opaque = result == 0 || result == 3;
            if (fSampleType == kSurfaceSample)
                fEngine.fSurfaceIsOpaque = opaque;
            if (fSampleType == kVolumeSample)
                fEngine.fVolumeIsOpaque = opaque;
        }
        if (name == "displacement" && fSampleType == kDisplacementSample &&
            (result == 0 || result == 3))
            fEngine.fSurfaceIsDisplaced = false;
    }
    // Transparency nobody asked for needn't be looked at by the renderer.
    if (!transparencyRequested) {
        if (fSampleType == kSurfaceSample)
            fEngine.fSurfaceIsOpaque = true;
        if (fSampleType == kVolumeSample)
            fEngine.fVolumeIsOpaque = true;
    }
    fProvided = provided;
    return provided.any();
}

int TSEanalysis::findSourceAtRoot(unsigned field) {
    const std::string name = Tsample::fieldNames()[field];
    // The shader connection of this sample type first, then unsolicited.
    const Tattribute* shader = nullptr;
    switch (fSampleType) {
    case kSurfaceSample:
        shader = &TDNshadingEngine::aSurfaceShader;
        break;
    case kVolumeSample:
        shader = &TDNshadingEngine::aVolumeShader;
        break;
    case kImageSample:
        shader = &TDNshadingEngine::aImageShader;
        break;
    case kDisplacementSample:
        shader = &TDNshadingEngine::aDisplacementShader;
        break;
    default:
        break;
    }
    std::vector<TdependNode*> candidates;
    for (const Tattribute* port :
         {shader, static_cast<const Tattribute*>(&TDNshadingEngine::aUnsolicited)}) {
        if (!port)
            continue;
        const Tplug source = Tplug(&fEngine, port).source();
        if (!source.isNull() && source.node() != &fEngine)
            candidates.push_back(source.node());
    }
    for (TdependNode* candidate : candidates) {
        const Tattribute* a = candidate->findAttribute(name);
        if (!a || a->parent() || !a->isReadable())
            continue;
        const Tplug plug(candidate, a);
        traverseNode(plug, &fRoot);
        TSEnodeDescription* d = find(candidate);
        TSEconnection c;
        c.upstream = d;
        c.source = plug;
        c.field = int(field);
        if (d && d->state[a->index()] == 2) {
            c.kind = kConnToField;
            c.memory = 2;
            fRoot.connections.push_back(std::move(c));
            return 2;
        }
        bool zero = false;
        c.kind = kConnCapturedConstant;
        c.memory = 1;
        c.constant = capture(plug, zero);
        fRoot.connections.push_back(std::move(c));
        return zero ? 3 : 1;
    }
    TSEconnection placeholder;
    placeholder.field = int(field);
    fRoot.connections.push_back(std::move(placeholder));
    return 0;
}

// An unconnected input of a node: a sample field of its name, the light
// data, or its own value.
int TSEanalysis::findSource(TSEsampleType, const std::string& name, unsigned, TSEnodeDescription& d,
                            const Tattribute* attribute, int field) {
    TSEconnection c;
    c.destination = attribute;
    if (name == "lightDataArray") {
        // The lights gathered for the group, per sample: a varying source.
        c.kind = kConnLightData;
        d.connections.push_back(std::move(c));
        return 2;
    }
    // Only inputs the engine fills (hidden and not saved with the scene)
    // come from the sample: a user's translucenceDepth stays the user's even
    // though a sample field bears the name.
    const bool engineFilled =
        attribute->hasFlag(TattrFlag::kHidden) && !attribute->hasFlag(TattrFlag::kStorable);
    if (field >= 0 && engineFilled && !fRequest.test(unsigned(field))) {
        c.kind = kConnFieldRequest;
        c.field = field;
        c.memory = 2;
        c.upstream = &fRoot;
        d.connections.push_back(std::move(c));
        fNeeded.set(unsigned(field));
        d.state[attribute->index()] = 2;
        d.kind[attribute->index()] = kVarPresent;
        for (const Tattribute* child : attribute->children()) {
            d.state[child->index()] = 2;
            d.kind[child->index()] = kVarUseParent;
        }
        return 2;
    }
    d.connections.push_back(std::move(c));
    return 0;
}

void TSEanalysis::traverseNode(const Tplug& plug, TSEnodeDescription* consumer) {
    TdependNode* node = plug.node();
    const Tattribute& attribute = *plug.attribute();
    if (TSEnodeDescription* known = find(node)) {
        if (known->inProgress) {
            // A loop: the value read is what stands in the block.
            if (known->state[attribute.index()] == 0)
                known->state[attribute.index()] = 1;
            return;
        }
        postVisit(*known, attribute, consumer);
        return;
    }
    TSEnodeDescription& d = *describe(node);
    d.inProgress = true;
    if (auto* shading = static_cast<TshadingNode*>(node->cast(TshadingNode::sTypeof()))) {
        TbitField64 fields = fNeeded;
        shading->analyse(&fEngine, &d, nullptr, fields);
        fNeeded = fields; // a node may drop fields it won't read (ray data without ray tracing)
    }
    for (const Tattribute* root : node->vsData()->roots()) {
        if (!root->isWritable() || root->isComputed())
            continue; // outputs are decided by the post-visit
        if (root->isArray()) {
            if (processArray(d, *root) == 0 && fLightDataPort &&
                root->longName() == "lightDataArray")
                lightDataInput(d, *root);
            continue;
        }
        const uint8_t memory = processConnection(d, *root, 0);
        if (memory == 0)
            findSource(fSampleType, root->longName(), 1, d, root,
                       d.fieldOfAttribute[root->index()]);
    }
    d.inProgress = false;
    postVisit(d, attribute, consumer);
}

bool TSEanalysis::affects(const TSEnodeDescription& d, const Tattribute& from,
                          const Tattribute& to) const {
    auto family = [](const Tattribute& a) {
        std::vector<const Tattribute*> f;
        for (const Tattribute* p = &a; p; p = p->parent())
            f.push_back(p);
        struct Down {
            static void walk(const Tattribute& x, std::vector<const Tattribute*>& out) {
                for (const Tattribute* c : x.children()) {
                    out.push_back(c);
                    walk(*c, out);
                }
            }
        };
        Down::walk(a, f);
        return f;
    };
    for (const Tattribute* i : family(from))
        for (const Tattribute* o : family(to))
            if (i->index() < d.matrix->size() && o->index() < d.matrix->size() &&
                d.matrix->affects(i->index(), o->index()))
                return true;
    return false;
}

void TSEanalysis::postVisit(TSEnodeDescription& d, const Tattribute& attribute,
                            TSEnodeDescription* consumer) {
    const uint32_t index = attribute.index();
    TbitFieldFixedN affectors;
    d.matrix->allAffectors(index, affectors);
    if (auto* shading = static_cast<TshadingNode*>(d.node->cast(TshadingNode::sTypeof())))
        shading->modifyAffects(&attribute, affectors, &fEngine, &d);
    if (d.state[index] == 0)
        d.state[index] = 1;
    bool varying = false;
    affectors.forEach([&](size_t j) {
        if (j < d.state.size() && d.state[j] == 2)
            varying = true;
    });
    // A compound output varies when a child's affector does.
    for (const Tattribute* child : attribute.children()) {
        TbitFieldFixedN childAffectors;
        d.matrix->allAffectors(child->index(), childAffectors);
        childAffectors.forEach([&](size_t j) {
            if (j < d.state.size() && d.state[j] == 2)
                varying = true;
        });
    }
    if (!varying && d.state[index] != 2)
        return;
    // Every computed attribute of a live node lies in the variable block:
    // threads that share the opus must not write one constant block.
    const TattributeList& attributes = d.node->vsData()->attributes();
    for (const Tattribute* a : attributes)
        if (a->isComputed() && !a->isArrayDescendant()) {
            d.state[a->index()] = d.state[a->index()] ? d.state[a->index()] : 1;
            d.kind[a->index()] = a->parent() ? kVarUseParent : kVarPresent;
        }
    d.state[index] = 2;
    for (const Tattribute* child : attribute.children())
        d.state[child->index()] = 2;
    d.live = true;
    ++d.useCounts[0];
    ++d.useCounts[1];
    (void)consumer;
}

namespace {

// The AttrInfo type of an attribute from its own source's memory type (0
// none, 1 constant, 2 varying), its parent's, and the strongest of its
// children's.
uint32_t combinedKind(uint8_t own, uint8_t parentOwn, uint8_t children) {
    static constexpr uint32_t kCombined[4][3] = {
        {kConstDefaultValue, kConstUseChild, kVarUseChild},
        {kConstPresent, kConstPresent, kConstPreferChild},
        {kVarPresent, kVarPreferChild, kVarPreferChild},
        {kConstDefaultValue, kConstUseParentAndChild, kVarUseParentAndChild},
    };
    if (own == 0 && parentOwn != 0 && children == 0)
        // The value is part of the parent's: where the parent's lies.
        return parentOwn == 2 ? kVarUseParent : kConstUseParent;
    const uint32_t kind = kCombined[own ? own : (parentOwn ? 3 : 0)][children];
    // A constant value under varying children varies as a whole: its own
    // constant is copied in and the children assembled over it.
    return kind == kConstPreferChild ? uint32_t(kVarPreferChild) : kind;
}

int depthOf(const Tattribute* a) {
    int depth = 0;
    for (; a; a = a->parent())
        ++depth;
    return depth;
}

} // namespace

uint8_t TSEanalysis::processConnection(TSEnodeDescription& d, const Tattribute& attribute,
                                       uint8_t parentOwn) {
    const Tplug plug(d.node, &attribute);
    const Tplug source = plug.source();
    uint8_t own = 0;
    if (!source.isNull() && !source.node()->cast(TDNshadingEngine::sTypeof())) {
        const TSEnodeDescription* before = find(source.node());
        const bool loop = before && before->inProgress;
        traverseNode(source, &d);
        TSEnodeDescription* upstream = find(source.node());
        TSEconnection c;
        c.upstream = upstream;
        c.source = source;
        c.destination = &attribute;
        if (loop) {
            c.kind = kConnLoopEdge;
            own = 1;
        } else {
            own = upstream->state[source.attribute()->index()] == 2 ? 2 : 1;
            c.kind = own == 2 ? kConnVarying : kConnPlaceholder;
        }
        c.memory = own;
        d.connections.push_back(std::move(c));
    }
    uint8_t children = 0;
    for (const Tattribute* child : attribute.children())
        children = std::max(children, processConnection(d, *child, own ? own : parentOwn));

    const uint32_t kind = combinedKind(own, parentOwn, children);
    d.kind[attribute.index()] = kind;
    d.state[attribute.index()] = (kind & kAttrInfoVariable) ? 2 : 1;
    // Unconnected children of a varying compound come with it into the
    // variable block; a child with a constant source of its own keeps it in
    // a constant slot and is copied over the compound when it is read.
    if ((kind & kAttrInfoVariable) && own)
        for (const Tattribute* child : attribute.children())
            if (d.kind[child->index()] == kConstDefaultValue ||
                d.kind[child->index()] == kConstUseParent) {
                d.kind[child->index()] = kVarUseParent;
                d.state[child->index()] = 2;
            }
    return std::max(own, children);
}

uint8_t TSEanalysis::processArray(TSEnodeDescription& d, const Tattribute& array) {
    // The elements that exist, and those that take a connection.
    TuInt32Array indices;
    d.node->getExistingMultiAttributeIndices(Tplug(d.node, &array), indices);
    TdependGraph* graph = d.node->graph();
    std::vector<std::pair<Tplug, Tplug>> feeds; // destination, source
    if (graph)
        for (const auto& [source, destination] : graph->connections()) {
            if (destination.node() != d.node || (destination.attribute() != &array &&
                                                 !destination.attribute()->isDescendentOf(array)))
                continue;
            // A connection into the whole array isn't served per element;
            // the elements keep the node's values.
            const unsigned logical = destination.multiIndex(&array);
            if (logical == Tplug::kNoIndex || source.node()->cast(TDNshadingEngine::sTypeof()))
                continue;
            feeds.emplace_back(destination, source);
            indices.push_back(logical);
        }
    std::sort(indices.begin(), indices.end());
    indices.erase(std::unique(indices.begin(), indices.end()), indices.end());
    indices.erase(std::remove(indices.begin(), indices.end(), Tplug::kNoIndex), indices.end());
    // An element's own connection is copied before its children's, which
    // override it.
    std::stable_sort(feeds.begin(), feeds.end(), [](const auto& a, const auto& b) {
        return depthOf(a.first.attribute()) < depthOf(b.first.attribute());
    });

    // The memory type of each connected element and child.
    std::map<std::pair<unsigned, const Tattribute*>, uint8_t> ownOf;
    for (const auto& [destination, source] : feeds) {
        const unsigned logical = destination.multiIndex(&array);
        const TSEnodeDescription* before = find(source.node());
        const bool loop = before && before->inProgress;
        traverseNode(source, &d);
        TSEnodeDescription* upstream = find(source.node());
        TSEconnection c;
        c.upstream = upstream;
        c.source = source;
        c.destination = destination.attribute();
        c.logicalIndex = logical;
        uint8_t own = 1;
        if (loop) {
            c.kind = kConnLoopEdge;
        } else {
            own = upstream->state[source.attribute()->index()] == 2 ? 2 : 1;
            c.kind = own == 2 ? kConnVarying : kConnPlaceholder;
        }
        c.memory = own;
        d.connections.push_back(std::move(c));
        uint8_t& known = ownOf[{logical, destination.attribute()}];
        known = std::max(known, own);
    }

    // MultiInfo: the header, then each element's record followed by the
    // records of its children, nested, in the attribute's order.
    const size_t header = d.multis.size();
    d.multis.emplace_back();
    uint8_t strongest = 0;
    struct Records {
        TSEnodeDescription& d;
        const std::map<std::pair<unsigned, const Tattribute*>, uint8_t>& ownOf;
        unsigned logical;
        // Appends the record of `a` (and under it its children's); gives
        // the strongest memory type found there.
        uint8_t add(const Tattribute& a, uint8_t parentOwn, size_t parent) {
            const size_t at = d.multis.size();
            d.multis.emplace_back();
            d.multis[at].pOff = int32_t(at - parent);
            const auto it = ownOf.find({logical, &a});
            const uint8_t own = it == ownOf.end() ? 0 : it->second;
            uint8_t children = 0;
            for (const Tattribute* child : a.children())
                children = std::max(children, add(*child, own ? own : parentOwn, at));
            MultiInfo& m = d.multis[at];
            m.kind = combinedKind(own, parentOwn, children);
            m.numKids = int16_t(a.children().size());
            if (a.isArray())
                m.setLogicalIndex(logical);
            else
                m.dOff = uint16_t(a.offsetInParent());
            return std::max(own, children);
        }
    };
    for (const unsigned logical : indices)
        strongest = std::max(strongest, Records{d, ownOf, logical}.add(array, 0, header));
    const bool varying = strongest == 2;
    MultiInfo& h = d.multis[header];
    h.kind = varying ? kVarUseChild : kConstDefaultValue;
    h.numKids = int16_t(indices.size());
    d.arrayElements[&array] = std::vector<unsigned>(indices.begin(), indices.end());
    d.kind[array.index()] = varying ? kVarUseChild : kConstDefaultValue;
    d.state[array.index()] = varying ? 2 : 1;
    d.arrayHeader[&array] = header;
    return strongest;
}

// A material's unconnected lightDataArray in a group with lights: each
// sample's array is the records of the lights of its illumination slot,
// copied in as an array header before the material computes.
void TSEanalysis::lightDataInput(TSEnodeDescription& d, const Tattribute& array) {
    d.multis[d.arrayHeader.at(&array)].kind = kVarUseChild;
    d.kind[array.index()] = kVarUseChild;
    d.state[array.index()] = 2;
    TSEconnection c;
    c.kind = kConnLightData;
    c.destination = &array;
    c.memory = 2;
    d.connections.push_back(std::move(c));
    fLightsWanted = true;
}

bool TSEanalysis::satisfyLight(TdependNode* light) {
    const Tattribute* data = light ? light->findAttribute("lightData") : nullptr;
    if (!data || data->parent() || !data->isReadable())
        return false;
    const unsigned field = TsampleFields::lightData;
    fRequest = TbitField64();
    fRequest.set(field);
    const Tplug plug(light, data);
    traverseNode(plug, &fRoot);
    TSEnodeDescription* d = find(light);
    TSEconnection c;
    c.upstream = d;
    c.source = plug;
    c.field = int(field);
    if (d && d->state[data->index()] == 2) {
        c.kind = kConnToField;
        c.memory = 2;
    } else {
        bool zero = false;
        c.kind = kConnCapturedConstant;
        c.memory = 1;
        c.constant = capture(plug, zero);
    }
    fRoot.connections.push_back(std::move(c));
    fProvided = fRequest;
    return true;
}

// ---------------------------------------------------------------- layout of samples

void TSEanalysis::buildSampleDataOffsets(TbitField64 request, TbitField64 provided) {
    const char* const* names = Tsample::fieldNames();
    const unsigned* sizes = Tsample::fieldSizes();
    const size_t userFields = fEngine.fUserTable.size();
    fOffsets.assign(65 + (userFields ? userFields + 1 : 0), 0);
    size_t at = Tsample::kHeaderSize;
    for (unsigned i = 0; i < 64; ++i) {
        const std::string name = names[i];
        if (request.test(i) && !provided.test(i))
            fNeeded.set(i);
        // With lights, the renderer says which samples may share their
        // illumination, and the lights leave their record in the sample.
        const bool slot = fNeeded.test(i) ||
                          (fLightsWanted && (name == "lightData" || name == "illuminationIndex")) ||
                          provided.test(i) || request.test(i) || name == "objectId" ||
                          (fSampleType == kVolumeSample && name == "objectType");
        if (!slot)
            continue;
        // Slots are whole words; fields holding pointers keep 8-byte alignment.
        const size_t align = sizes[i] >= 8 && (name == "objectId" || name == "lightData" ||
                                               name == "particleAttrArray" || name == "lightTable")
                                 ? 8
                                 : 4;
        at = OrvoAlignUp(at, align);
        fOffsets[i] = unsigned(at);
        at += (sizes[i] + 3) & ~3u;
    }
    // The user part: a 36-byte position record, then each user field.
    if (userFields) {
        fOffsets[64] = unsigned(at);
        at += 36;
        for (size_t u = 0; u < userFields; ++u) {
            fOffsets[65 + u] = unsigned(at);
            at += (fEngine.fUserTable[u].size + 3) & ~3u;
        }
    }
    fOffsets.back() = unsigned(OrvoAlignUp(at, 8));
}
