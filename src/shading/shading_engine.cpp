#include "shading/shading_engine.h"

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <ostream>

#include <fmt/format.h>

#include "host/graph.h"
#include "host/node_mutex.h"
#include "shading/analysis_pvt.h"
#include "shading/ray_options.h"
#include "shading/render_thread.h"

ORVO_REGISTER_NODE(TDNshadingEngine)

ORVO_DEPENDENCIES(TDNshadingEngine) {}

namespace {

TbitField64 fields(std::initializer_list<unsigned> list) {
    TbitField64 f;
    for (unsigned i : list)
        f.set(i);
    return f;
}

} // namespace

TDNshadingEngine::TDNshadingEngine() {
    setRestrictions(kRenderableOnly);
}

TDNshadingEngine::~TDNshadingEngine() {
    resetShadingEngine();
    // Opuses compiled without a render set-up (a compile from a tool)
    // outlive a reset; they must not outlive the engine.
    deleteOpuses();
}

TbitField64 TDNshadingEngine::samplerRequest(TSEoption option) {
    using namespace TsampleFields;
    switch (option) {
    case 0:
        return fields({outColor, outTransparency, outGlowColor, outMatteOpacity});
    case 1:
    case 6:
        return fields({outColor, outTransparency, outGlowColor, outMatteOpacity,
                       blobbySurfaceFactor, particleEntryParam, particleExitParam});
    case 2:
        return fields({displacement});
    case 3:
        return fields({outTransparency, flippedNormal, translucenceDepth, shadowAttenuation});
    case 4:
    case 7:
        return fields(
            {outTransparency, blobbySurfaceFactor, particleEntryParam, particleExitParam});
    case 5:
        return fields({outParticleEmission, lightTable});
    case 8:
        return fields({outColor, outTransparency});
    case 9:
        return fields({outColor, outTransparency, lightTable});
    case 10:
        return fields({outColor, lightTable});
    default:
        return TbitField64();
    }
}

TSEsampleType TDNshadingEngine::sampleTypeOf(TSEoption option) {
    switch (option) {
    case 1:
    case 4:
    case 5:
        return kVolumeSample; // the volume analyser
    case 2:
        return kDisplacementSample;
    case kTSElightOption:
        return kLightSample;
    default:
        return kSurfaceSample;
    }
}

const unsigned* TDNshadingEngine::fieldOffsetTable(TSEoption option) const {
    const auto& offsets = fOptions[option].offsets;
    return offsets.empty() ? Tsample::staticOffsets() : offsets.data();
}

bool TDNshadingEngine::analyse(TSEoption option, TbitField64* provided, TframeSampleData*,
                               const TgeoManagerBase* geometry, TrenderThreadBase*) {
    if (option >= kTSEoptionCount)
        return false;
    // Several render threads may arrive at once: one compiles, the others
    // wait here and then find the opus.
    std::recursive_mutex* mutex = TdepNodeMutexMgr::obtainNodeMutex(this);
    struct Return {
        const TdependNode* node;
        ~Return() { TdepNodeMutexMgr::returnMutex(node); }
    } giveBack{this}; // after the lock below is released
    std::lock_guard lock(*mutex);

    OptionSlot& slot = fOptions[option];
    TshadingOpus** record = nullptr;
    if (TrenderThreadBase::getOpus(record, this, option)) {
        TshadingOpus* held = slot.opus.load();
        if (held && held != *record)
            std::fprintf(stderr, "analysis error 1 opt=%d\n", int(option));
        if (held != *record)
            slot.opus.store(*record, std::memory_order_release);
        if (provided)
            *provided = slot.provided;
        return slot.provided.any();
    }
    if (*record)
        return false;

    TSEanalysis analysis(*this, option);
    if (!fLightsGathered)
        gatherLights();
    const std::vector<Tplug>& lights = fLights[0].lights;
    analysis.setLightDataPort(!lights.empty());
    const TbitField64 request = samplerRequest(option);
    TbitField64 served;
    if (!analysis.satisfySampler(request, served)) {
        if (provided)
            *provided = TbitField64();
        return false;
    }
    if (geometry)
        (void)geometry->fieldsWanted();
    // Each light is compiled once, for every group it lights; the samples
    // of this group must hold what the lights read.
    std::vector<TshadingOpus*> lightOpuses;
    if (analysis.lightsWanted())
        for (const Tplug& light : lights) {
            TshadingOpus* lightOpus = compileLight(light.node());
            if (lightOpus)
                analysis.addNeeded(lightOpus->needs());
            lightOpuses.push_back(lightOpus);
        }
    analysis.buildSampleDataOffsets(request, served);
    analysis.cutLoops();
    analysis.segment();
    auto opus = std::make_unique<TshadingOpus>(this, option);
    analysis.distribute(*opus);
    if (!lightOpuses.empty()) {
        opus->addIlluminationData(fLights[0].rows, unsigned(lightOpuses.size()));
        for (size_t i = 0; i < lightOpuses.size(); ++i)
            opus->addIlluminatingLight(unsigned(i), lightOpuses[i]);
    }
    slot.offsets = analysis.offsets();
    slot.sampleSize = slot.offsets.back();
    slot.needed = analysis.needed();
    slot.provided = served;
    slot.report = std::move(analysis.report());
    if (!fUserTable.empty())
        opus->addUserSampleData(std::move(fUserTable));
    fUserTable.clear();
    TshadingOpus* made = opus.release();
    *record = made;
    slot.opus.store(made, std::memory_order_release);
    if (provided)
        *provided = served;
    return true;
}

TshadingOpus* TDNshadingEngine::compileLight(TdependNode* light) {
    // Groups compile on several threads at once; a light is compiled by the
    // first group that needs it and found in the table by the others.
    static std::mutex compiling;
    std::lock_guard lock(compiling);
    TshadingOpus** record = nullptr;
    if (TrenderThreadBase::getOpus(record, light, kTSElightOption))
        return *record;
    TSEanalysis analysis(*this, kTSElightOption);
    if (!analysis.satisfyLight(light)) {
        TrenderThreadBase::deleteOpus(light, kTSElightOption, true);
        return nullptr;
    }
    TbitField64 request;
    request.set(TsampleFields::lightData);
    analysis.buildSampleDataOffsets(request, request);
    analysis.cutLoops();
    analysis.segment();
    auto opus = std::make_unique<TshadingOpus>(light, kTSElightOption);
    analysis.distribute(*opus);
    *record = opus.release();
    return *record;
}

void TDNshadingEngine::releaseOpus(TSEoption option) {
    OptionSlot& slot = fOptions[option];
    slot.opus.store(nullptr, std::memory_order_release);
    slot.offsets.clear();
    slot.sampleSize = 0;
    slot.needed = TbitField64();
}

void TDNshadingEngine::buildNodeTable(const Tplug& plug) {
    if (plug.isNull())
        return;
    TdependNode* node = plug.node();
    for (auto it = fNodeTable.rbegin(); it != fNodeTable.rend(); ++it)
        if (*it == node)
            return;
    fNodeTable.push_back(node);
    for (const Tattribute* root : node->vsData()->roots()) {
        std::vector<Tplug> stack{Tplug(node, root)};
        while (!stack.empty()) {
            const Tplug p = stack.back();
            stack.pop_back();
            buildNodeTable(p.source());
            for (const Tattribute* c : p.attribute()->children())
                stack.push_back(p[c]);
        }
        if (root->isArray() && node->graph())
            for (const auto& [source, destination] : node->graph()->connections())
                if (destination.node() == node && (destination.attribute() == root ||
                                                   destination.attribute()->isDescendentOf(*root)))
                    buildNodeTable(source);
    }
}

void TDNshadingEngine::processNodeTable(TframeSampleData* frame) {
    fSurfaceIsRefracting = fSurfaceIsReflecting = false;
    fSurfaceIsUseBackground = false;
    for (size_t i = fNodeTable.size(); i-- > 0;) {
        TdependNode* node = fNodeTable[i];
        auto* shading =
            node ? static_cast<TshadingNode*>(node->cast(TshadingNode::sTypeof())) : nullptr;
        if (!shading) {
            fNodeTable[i] = nullptr;
            continue;
        }
        shading->incrementReferenceCount(frame);
        // A material that refracts traces what lies behind it itself: a
        // renderer must not look through the surface a second time. One
        // that reflects traces mirror rays.
        const unsigned rays = shading->transparencyOptions();
        fSurfaceIsRefracting = fSurfaceIsRefracting || (rays & kRayOptionRefracts);
        fSurfaceIsReflecting = fSurfaceIsReflecting || (rays & kRayOptionReflects);
    }
    fNodeTable.erase(std::remove(fNodeTable.begin(), fNodeTable.end(), nullptr), fNodeTable.end());
}

void TDNshadingEngine::cleanUpNetwork() {
    for (size_t i = fNodeTable.size(); i-- > 0;)
        if (auto* shading =
                static_cast<TshadingNode*>(fNodeTable[i]->cast(TshadingNode::sTypeof())))
            shading->decrementReferenceCount();
    fNodeTable.clear();
}

void TDNshadingEngine::initializeConnected(TframeSampleData* frame, TbaseDeepRaster* raster) {
    resetShadingEngine();
    fInitialized = true;
    fRaster = raster;
    for (const Tattribute* shader : {&aSurfaceShader, &aVolumeShader, &aDisplacementShader})
        buildNodeTable(Tplug(this, shader).source());
    gatherLights();
    // Lights and what feeds them are prepared for the frame like the rest.
    for (const LightPass& pass : fLights)
        for (const Tplug& light : pass.lights)
            buildNodeTable(light);
    processNodeTable(frame);
}

void TDNshadingEngine::resetShadingEngine() {
    // An engine that no render set up has nothing of a render to free: its
    // opuses, compiled by a tool, stay until they are deleted or the engine
    // goes.
    if (!fInitialized)
        return;
    fLightsGathered = false; // links may have changed since
    fSurfaceIsOpaque = fVolumeIsOpaque = false;
    fSurfaceIsRefracting = fSurfaceIsReflecting = fSurfaceIsUseBackground = false;
    deleteOpuses();
    cleanUpNetwork();
    if (referenceCountingEnabled())
        fReferences.store(0);
    fRaster = nullptr;
    fUserTable.clear();
    fInitialized = false;
}

void TDNshadingEngine::deleteOpuses() {
    for (TSEoption option = 0; option < kTSEoptionCount; ++option)
        if (fOptions[option].opus.load()) {
            TrenderThreadBase::deleteOpus(this, option, true);
            releaseOpus(option);
        }
}

bool TDNshadingEngine::isNodeInTable(const TdependNode* node) const {
    return std::find(fNodeTable.begin(), fNodeTable.end(), node) != fNodeTable.end();
}

void TDNshadingEngine::incrementReferenceCount() {
    unsigned current = fReferences.load();
    while (current != 0xFFFFFFFFu && !fReferences.compare_exchange_weak(current, current + 1)) {
    }
}

unsigned TDNshadingEngine::decrementReferenceCount() {
    unsigned current = fReferences.load();
    while (current != 0xFFFFFFFFu && current != 0 &&
           !fReferences.compare_exchange_weak(current, current - 1)) {
    }
    return current == 0xFFFFFFFFu ? current : (current ? current - 1 : 0);
}

bool TDNshadingEngine::sampleDependent(void* description, const Tplug* plug) const {
    auto* d = static_cast<TSEnodeDescription*>(description);
    if (!d || !plug)
        return true;
    const Tplug source = plug->source();
    if (source.isNull())
        return true;
    // The upstream is described by the analysis that is running.
    for (const TSEconnection& c : d->connections)
        if (c.source == source && c.upstream)
            return c.upstream->state[source.attribute()->index()] == 2;
    return true;
}

void* TDNshadingEngine::getObjectId(void*, const Tplug* plug) const {
    if (!plug || plug->isNull())
        return nullptr;
    const Tplug source = plug->source();
    TdependNode* node = source.isNull() ? plug->node() : source.node();
    // In a render the id is the renderer's own, the one its samples carry;
    // elsewhere a node stands for itself.
    const TframeConstants* frame = TframeConstants::current();
    if (frame && frame->objectIdentity())
        return frame->objectIdentity()->objectIdOf(node);
    return node;
}

unsigned TDNshadingEngine::defineUserSampleData(TSEnodeDescription* description,
                                                const Tattribute* attribute, unsigned a, unsigned b,
                                                const TuserSampleFill** fills, unsigned fillCount) {
    const unsigned field = unsigned(fUserTable.size()) + 1 + TsampleFields::kCount;
    TSEudSampleEntry entry;
    entry.fills = fills;
    entry.fillCount = fillCount;
    entry.sourceField = a;
    entry.destinationField = field;
    entry.size = attribute ? attribute->dataSize() : 0;
    entry.reserved[0] = b;
    fUserTable.push_back(entry);
    if (description) {
        TSEconnection c;
        c.kind = kConnUserField;
        c.destination = attribute;
        c.field = int(field);
        c.memory = 3;
        description->connections.push_back(std::move(c));
    }
    return field;
}

unsigned TDNshadingEngine::merge(TDGcommand& command, TdependNode* other) {
    auto* group = other ? static_cast<TDNshadingEngine*>(other->cast(sTypeof())) : nullptr;
    if (!group || group == this)
        return ~0u;
    TselectionList members;
    group->completeGroupedMembers(members);
    TobjectSet_utility::moveItemsToSet(members, group, *this, command);
    moveLightLinks(*group, command);
    return 0;
}

namespace {

// The other end of a pair on a light linker: the sibling of `end` in its
// element (the light of an object, the object of a light).
Tplug pairedEnd(const Tplug& end) {
    const Tplug element = end.parent();
    for (const Tplug& child : element.isNull() ? TplugArray() : element.children())
        if (child.attribute() != end.attribute())
            return child;
    return {};
}

} // namespace

void TDNshadingEngine::moveLightLinks(TDNshadingEngine& other, TDGcommand& command) {
    // The group takes over the other's pairs on the light linkers: its
    // objects now light (and shadow) as they did. A pair this group has
    // already is dropped rather than doubled.
    TplugArray destinations;
    Tplug(&other, &aMessage).getAllDestinations(destinations);
    TplugArray mine;
    Tplug(this, &aMessage).getAllDestinations(mine);
    for (const Tplug& end : destinations) {
        if (!end.node() || end.node()->typeName() != "lightLinker")
            continue;
        const Tplug pair = pairedEnd(end);
        const Tplug light = pair.isNull() ? Tplug() : pair.source();
        const bool held =
            !light.isNull() && std::any_of(mine.begin(), mine.end(), [&](const Tplug& m) {
                return m.node() == end.node() && m.attribute() == end.attribute() &&
                       pairedEnd(m).source().node() == light.node();
            });
        command.newConnectionToBreak(Tplug(&other, &aMessage), end);
        if (held)
            command.newConnectionToBreak(light, pair);
        else
            command.newConnectionToMake(Tplug(this, &aMessage), end);
    }
}

void TDNshadingEngine::aboutToDuplicate(std::vector<TdependNode*>& out) const {
    TplugArray destinations;
    Tplug(this, &aMessage).getAllDestinations(destinations);
    for (const Tplug& d : destinations)
        if (d.node() && d.node()->typeName() == "materialInfo") {
            out.push_back(d.node());
            return;
        }
}

bool TDNshadingEngine::sIsUsedOnVisibleShape(const TDNshadingEngine& engine) {
    TselectionList members;
    engine.completeGroupedMembers(members);
    for (const TdagSelectionItem& item : members)
        if (item.isDag() && TdagPathUtils::isObjectVisibleToRenderer(item.path()))
            return true;
    return false;
}

unsigned TDNshadingEngine::numberOfLights(TSEoption option) const {
    const TshadingOpus* opus = fOptions[option].opus.load();
    return opus ? opus->numberOfLights() : 0;
}

bool TDNshadingEngine::computePlug(const Tplug& plug, TdataBlock& block) {
    return TDNdispatchCompute::computePlug(plug, block);
}

TDNshadingEngine::CompileSummary TDNshadingEngine::compileSummary(TSEoption option) const {
    const OptionSlot& slot = fOptions[option];
    const TshadingOpus* opus = slot.opus.load();
    CompileSummary summary;
    summary.group = name();
    summary.option = option;
    if (!opus)
        return summary;
    summary.compiled = true;
    const char* const* names = Tsample::fieldNames();
    for (unsigned i = 0; i < 64; ++i) {
        if (slot.provided.test(i))
            summary.provides.push_back(names[i]);
        if (slot.needed.test(i))
            summary.needs.push_back(names[i]);
    }
    summary.surfaceIsOpaque = fSurfaceIsOpaque;
    for (unsigned i = 0; i < opus->numberOfLights(); ++i) {
        const TshadingOpus* light = opus->illuminatingLight(i);
        summary.lights.push_back({light ? light->node()->name() : std::string("?"),
                                  light ? light->instructions().size() : 0});
    }
    summary.sampleSize = slot.sampleSize;
    summary.fullSampleSize = Tsample::kStaticSize;
    summary.frameSize = opus->frameSize();
    summary.perSampleSize = opus->perSampleSize();
    summary.analysis = slot.report;
    const auto& table = opus->segmentTable();
    for (size_t s = 1; s < table.size(); ++s) {
        const auto& o = opus->layout().segmentOutputs[s];
        summary.segments.push_back({size_t(table[s - 1]), size_t(table[s]), s == 1,
                                    o.attribute ? o.attribute->longName() : "?", o.block});
    }
    auto half = [&](const TSEdescriptorHalf& h) -> std::string {
        switch (h.mode) {
        case kDataInBlock:
            return fmt::format("block {} {}{}", h.block, h.attribute ? h.attribute->longName() : "",
                               h.depth ? fmt::format(" +{}", h.arrayOffsets[0]) : std::string());
        case kDataSampleField:
            return fmt::format("sample.{}", names[h.block]);
        case kDataConstant:
            return "constant";
        case kDataLightBuilder:
            return "the lights of the sample's illumination slot";
        default:
            return "frame constant";
        }
    };
    for (const TSEinstruction& in : opus->instructions()) {
        std::string text;
        switch (in.opcode) {
        case kOpCompute:
        case kOpComputeLocked:
            text = fmt::format("compute {} (block {})", in.compute.plug->name(), in.compute.block);
            break;
        case kOpSetUpBlock:
            text = fmt::format("set up block {} for {}, {} bytes per sample", in.setUp.block,
                               in.setUp.node->name(), in.setUp.stride);
            break;
        case kOpCopy:
            text = fmt::format("copy {} -> {}", half(in.copy.descriptor->source),
                               half(in.copy.descriptor->destination));
            break;
        case kOpLinkOtherDB:
            text = fmt::format("link block {} {} -> block {} {} (read in place, no copy)",
                               in.link.sourceBlock, in.link.sourceAttribute->longName(),
                               in.link.destinationBlock, in.link.attribute->longName());
            break;
        default:
            text = fmt::format("opcode {}", in.opcode);
        }
        summary.instructions.push_back(std::move(text));
    }
    return summary;
}

void TDNshadingEngine::compileReport(std::ostream& out, TSEoption option, bool dumps) const {
    const CompileSummary summary = compileSummary(option);
    out << "shading group " << summary.group << ", option " << option << '\n';
    if (!summary.compiled) {
        out << "  nothing to shade: no requested field is served\n";
        return;
    }
    auto joined = [](const std::vector<std::string>& words) {
        std::string text;
        for (const std::string& w : words)
            text += (text.empty() ? "" : " ") + w;
        return text.empty() ? std::string("-") : text;
    };
    out << "  provides: " << joined(summary.provides) << '\n';
    out << "  needs from the sample: " << joined(summary.needs) << '\n';
    out << "  surface is opaque: " << (summary.surfaceIsOpaque ? "yes" : "no") << '\n';
    if (!summary.lights.empty()) {
        std::string names;
        for (size_t i = 0; i < summary.lights.size(); ++i) {
            const CompileSummary::Light& light = summary.lights[i];
            names += fmt::format("{}{}{}", i ? ", " : "", light.name,
                                 light.name != "?"
                                     ? fmt::format(" ({} instructions)", light.instructions)
                                     : std::string());
        }
        out << "  lights: " << summary.lights.size() << ": " << names << '\n';
    }
    out << fmt::format("  sample size {} bytes (the full layout is {}), frame {} bytes, "
                       "{} variable bytes per sample\n",
                       summary.sampleSize, summary.fullSampleSize, summary.frameSize,
                       summary.perSampleSize);
    out << '\n';
    for (const std::string& line : summary.analysis)
        out << line << '\n';
    out << "\nsegments\n";
    for (size_t s = 0; s < summary.segments.size(); ++s) {
        const CompileSummary::Segment& g = summary.segments[s];
        out << fmt::format("  {} instructions {}..{}{}\n", s + 1, g.first, g.last,
                           g.root ? "  (root)"
                                  : fmt::format("  computes {} of block {}", g.attribute, g.block));
    }
    out << "\ninstructions\n";
    for (size_t i = 0; i < summary.instructions.size(); ++i)
        out << fmt::format("  {:>4}  {}\n", i, summary.instructions[i]);
    const TshadingOpus* opus = fOptions[option].opus.load();
    if (!dumps)
        return;
    out << "\ndata block tables\n";
    for (unsigned b = 0; b < opus->numberOfBlocks(); ++b) {
        TdataBlockRendering block;
        block.initialize(opus->layout().blockNodes[b], opus->layout().attrInfos[b].get(),
                         opus->layout().multiInfos[b].get(), opus->layout().initLists[b].get(),
                         opus->layout().constants[b].get(), 0, nullptr, 0, nullptr);
        block.dumpAttrInfo(out);
        block.dumpMultiInfo(out);
    }
}
