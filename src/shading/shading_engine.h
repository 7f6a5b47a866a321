#pragma once

// The shading group. When a renderer wants samples of the group for a
// purpose (an option), the engine compiles the network behind the group once
// into a TshadingOpus: it walks the network from the requested sample
// fields, decides for every attribute whether it is constant or varies per
// sample, lays out the data blocks and emits the instruction list.

#include <array>
#include <atomic>
#include <iosfwd>
#include <vector>

#include "host/graph.h"
#include "host/node_pattern.h"
#include "shading/dispatch_compute.h"
#include "shading/opus.h"
#include "shading/render_thread.h"
#include "shading/sample.h"

struct TSEnodeDescription;
class TSEanalysis;

// The purpose of a compilation, 0 to 11; 11 compiles a light.
using TSEoption = unsigned;
constexpr TSEoption kTSEoptionCount = 12;
// A surface seen by a camera or a traced ray: colour, transparency, glow
// and matte.
constexpr TSEoption kTSEsurfaceOption = 0;
// A surface between a point and a light: transparency and shadow
// attenuation, for shadow rays.
constexpr TSEoption kTSEshadowOption = 3;
constexpr TSEoption kTSElightOption = 11;

// Sample types, by number: 0 surface, 1 volume, 2 image, 3 displacement,
// 4 light.
enum TSEsampleType : unsigned {
    kSurfaceSample = 0,
    kVolumeSample = 1,
    kImageSample = 2,
    kDisplacementSample = 3,
    kLightSample = 4,
};

// The light data records of the shadow lists, with their own child names.
class TattributeLightDataBogus : public TattributeLightData {
public:
    TattributeLightDataBogus(Tstring l, Tstring s)
        : TattributeLightData(std::move(l), std::move(s), "bogus", "b") {}
};
class TattributeLightDataD : public TattributeLightData {
public:
    TattributeLightDataD(Tstring l, Tstring s)
        : TattributeLightData(std::move(l), std::move(s), "DShadow", "D") {}
};
class TattributeLightDataL : public TattributeLightData {
public:
    TattributeLightDataL(Tstring l, Tstring s)
        : TattributeLightData(std::move(l), std::move(s), "LShadow", "L") {}
};
class TattributeLightDataX : public TattributeLightData {
public:
    TattributeLightDataX(Tstring l, Tstring s)
        : TattributeLightData(std::move(l), std::move(s), "XShadow", "X") {}
};

#define ORVO_SCHEMA_TDNshadingEngine(A, C2, C3)                                                    \
    A(TattributeTyped, Unsolicited, "unsolicited", "un", .disconnect(1))                           \
    A(TattributeTyped, DisplacementShader, "displacementShader", "ds", .disconnect(1))             \
    A(TattributeTyped, ImageShader, "imageShader", "is", .disconnect(1))                           \
    A(TattributeTyped, VolumeShader, "volumeShader", "vs", .disconnect(1))                         \
    A(TattributeTyped, SurfaceShader, "surfaceShader", "ss", .disconnect(1))                       \
    A(TattributeTyped, DefaultLights, "defaultLights", "dl", .disconnect(1))                       \
    A(TattributeTyped, LinkedLights, "linkedLights", "ll", .disconnect(1))                         \
    A(TattributeTyped, IgnoredLights, "ignoredLights", "xl", .disconnect(1))                       \
    A(TattributeLightDataBogus, BogusAttribute, "bogusAttribute", "blt", .implicitLight())         \
    A(TattributeLightDataD, DefaultShadows, "defaultShadows", "dsw", .implicitLight())             \
    A(TattributeLightDataL, LinkedShadows, "linkedShadows", "lsw", .implicitLight())               \
    A(TattributeLightDataX, IgnoredShadows, "ignoredShadows", "xsw", .implicitLight())

ORVO_NODE(TDNshadingEngine, TDNdispatchCompute, "shadingEngine", "SHAD", 320, "kShadingEngine",
          "shadingEngine", "n_shadingEngine")

class TDNshadingEngine : public TdnPattern<TDNshadingEngine, TDNdispatchCompute> {
public:
    TDNshadingEngine();
    ~TDNshadingEngine() override;

    // The static accessors only this type has: sa<Name>() and attr<Name>().
#define ORVO_SE_ACCESSOR(Class, Name, Long, Short, Setup)                                          \
    static Class& sa##Name() {                                                                     \
        return a##Name;                                                                            \
    }                                                                                              \
    Class& attr##Name() const {                                                                    \
        return a##Name;                                                                            \
    }
    ORVO_SCHEMA_TDNshadingEngine(ORVO_SE_ACCESSOR, , )
#undef ORVO_SE_ACCESSOR

        // ---- options
        // The fixed request of each option: the fields a renderer wants back.
        static TbitField64 samplerRequest(TSEoption option);
    static TSEsampleType sampleTypeOf(TSEoption option);

    TshadingOpus* controlBlock(TSEoption option) const {
        return fOptions[option].opus.load(std::memory_order_acquire);
    }
    bool initRequired(TSEoption option) const {
        return !fOptions[option].opus.load(std::memory_order_acquire);
    }
    const unsigned* fieldOffsetTable(TSEoption option) const;
    unsigned sampleSize(TSEoption option) const {
        return fOptions[option].sampleSize;
    }
    TbitField64 requestedForOption(TSEoption option) const {
        return fOptions[option].needed;
    }
    bool needs(TSEoption option, unsigned field) const {
        return fOptions[option].needed.test(field);
    }

    // Compiles the network for `option` if no opus exists for it yet, under
    // the engine's mutex. `provided` receives the fields the network serves.
    // False when it serves none.
    bool analyse(TSEoption option, TbitField64* provided, TframeSampleData* frame = nullptr,
                 const TgeoManagerBase* geometry = nullptr, TrenderThreadBase* thread = nullptr);
    // Clears slot `option`: no opus, static offsets, nothing needed.
    void releaseOpus(TSEoption option);

    // ---- render set-up
    void initializeConnected(TframeSampleData* frame = nullptr, TbaseDeepRaster* raster = nullptr);
    // Frees what a render set up (opuses, the network's references, the
    // user fields); nothing for an engine that no render initialised.
    void resetShadingEngine();
    bool isInitialized() const {
        return fInitialized;
    }
    const std::vector<TdependNode*>& nodeTable() const {
        return fNodeTable;
    }
    bool isNodeInTable(const TdependNode* node) const;

    bool surfaceIsOpaque() const {
        return fSurfaceIsOpaque;
    }
    bool volumeIsOpaque() const {
        return fVolumeIsOpaque;
    }
    bool surfaceIsDisplaced() const {
        return fSurfaceIsDisplaced;
    }
    // Whether a material of the surface network traces refraction or
    // reflection rays (TshadingNode::transparencyOptions), as of the last
    // set-up.
    bool surfaceIsRefracting() const {
        return fSurfaceIsRefracting;
    }
    bool surfaceIsReflecting() const {
        return fSurfaceIsReflecting;
    }
    bool surfaceIsUseBackground() const {
        return fSurfaceIsUseBackground;
    }

    // ---- reference counting; 0xFFFFFFFF means counting is off
    void disableReferenceCounting() {
        fReferences.store(0xFFFFFFFFu);
    }
    bool referenceCountingEnabled() const {
        return fReferences.load() != 0xFFFFFFFFu;
    }
    void incrementReferenceCount();
    unsigned decrementReferenceCount();
    unsigned referenceCount() const {
        return fReferences.load();
    }

    // ---- asked by nodes during analysis
    // True if the description isn't known or the plug isn't connected;
    // otherwise whether the upstream attribute varies.
    bool sampleDependent(void* description, const Tplug* plug) const;
    // The value identifying an object to a node, read through the plug.
    void* getObjectId(void* description, const Tplug* plug) const;
    // A node asks for a user sample field (a renderer fills it per object).
    unsigned defineUserSampleData(TSEnodeDescription* description, const Tattribute* attribute,
                                  unsigned a, unsigned b, const TuserSampleFill** fills,
                                  unsigned fillCount);

    // ---- housekeeping
    bool canBeDeleted() const {
        return false;
    }
    unsigned fenceNode() const {
        return 0;
    }
    // Takes over the members of another shading group, and its pairs on
    // the light linkers. Answers 0, or all ones when `other` is not a
    // shading group.
    unsigned merge(TDGcommand& command, TdependNode* other);
    // Nodes fed by the group's message plug that travel with a duplicate.
    void aboutToDuplicate(std::vector<TdependNode*>& out) const;
    void performResetOnFileNewOrFileOpen() {
        resetShadingEngine();
    }
    // True when a member of the group is a shape the renderer sees.
    static bool sIsUsedOnVisibleShape(const TDNshadingEngine& engine);
    unsigned numberOfLights(TSEoption option) const;

    // ---- lights
    // Gathers, for the lights pass and the shadows pass, which lights reach
    // each member of the set: from links to the group itself, to object sets
    // holding members, to members directly, and ignore links. Run by
    // initializeConnected and, when no render set-up ran, by analyse.
    void gatherLights();
    bool lightsGathered() const {
        return fLightsGathered;
    }
    // Member `member` (its position in completeGroupedMembers) is lit, or
    // shadowed, by `light`. False past the last member or for a light that
    // isn't in the list.
    bool litBy(unsigned member, const TdependNode* light) const;
    bool shadowedBy(unsigned member, const TdependNode* light) const;
    // The lightData plugs of the gathered lights, in light number order.
    const std::vector<Tplug>& lightList(bool shadows = false) const {
        return fLights[shadows ? 1 : 0].lights;
    }
    // The row of member `member`: bit i means light i lights it. Null past
    // the last member.
    const TbitFieldFixedN* lightRow(unsigned member, bool shadows = false) const;
    unsigned lightRowCount(unsigned member, bool shadows = false) const;
    unsigned lightMemberCount() const {
        return unsigned(fLights[0].rows.size());
    }
    // The bits mapLights sets.
    static constexpr unsigned kLightsUseDepthMaps = 8u;
    static constexpr unsigned kLightsTraceShadows = 32u;
    // Sets kLightsUseDepthMaps in `flags` when a light uses depth map
    // shadows, kLightsTraceShadows when one traces shadow rays.
    void mapLights(unsigned& flags, const TdependNode* shape = nullptr) const;

    // What compiling an option made, as data: the text report prints it and
    // scripts read it field by field.
    struct CompileSummary {
        struct Light {
            std::string name; // "?" for a light whose opus is gone
            size_t instructions = 0;
        };
        struct Segment {
            size_t first = 0, last = 0; // instructions [first, last)
            bool root = false;
            std::string attribute; // what the segment computes ("?": unknown)
            unsigned block = 0;
        };
        std::string group;
        unsigned option = 0;
        bool compiled = false; // false: no requested field is served
        std::vector<std::string> provides, needs;
        bool surfaceIsOpaque = false;
        std::vector<Light> lights;
        unsigned sampleSize = 0, fullSampleSize = 0;
        size_t frameSize = 0, perSampleSize = 0;
        std::vector<std::string> analysis; // per node, the attribute states
        std::vector<Segment> segments;
        std::vector<std::string> instructions;
    };
    CompileSummary compileSummary(TSEoption option) const;

    // The compile report of an option: nodes and attribute states, segments,
    // instructions, sizes; with `dumps`, the data block tables too.
    void compileReport(std::ostream& out, TSEoption option, bool dumps) const;

    bool computePlug(const Tplug& plug, TdataBlock& block) override;

private:
    friend class TSEanalysis;
    struct OptionSlot {
        // Read by render threads outside the analysis lock.
        std::atomic<TshadingOpus*> opus{nullptr};
        std::vector<unsigned> offsets; // empty: the static layout
        unsigned sampleSize = Tsample::kStaticSize;
        TbitField64 needed;
        TbitField64 provided;
        // What the compile report shows, kept from the analysis.
        std::vector<std::string> report;
    };
    // The opus of a light, compiled on first use and shared through the
    // opus table; each call takes a reference. Null for a node without
    // light data.
    TshadingOpus* compileLight(TdependNode* light);
    void buildNodeTable(const Tplug& plug);
    void processNodeTable(TframeSampleData* frame);
    void cleanUpNetwork();
    // Deletes the opus of every option, whatever the engine's state.
    void deleteOpuses();
    void moveLightLinks(TDNshadingEngine& other, TDGcommand& command);

    std::array<OptionSlot, kTSEoptionCount> fOptions;
    std::atomic<unsigned> fReferences{0};
    bool fInitialized = false;
    bool fSurfaceIsOpaque = false;
    bool fVolumeIsOpaque = false;
    bool fSurfaceIsDisplaced = true;
    bool fSurfaceIsRefracting = false;
    bool fSurfaceIsReflecting = false;
    bool fSurfaceIsUseBackground = false;
    std::vector<TdependNode*> fNodeTable;
    TSEudSampleTable fUserTable;
    // The lights of each pass (lights, shadows): a row of bits per member
    // and the list of lightData plugs the bits number.
    struct LightPass {
        std::vector<TbitFieldFixedN> rows;
        std::vector<unsigned> rowCounts;
        std::vector<Tplug> lights;
    };
    std::array<LightPass, 2> fLights;
    bool fLightsGathered = false;
    TbaseDeepRaster* fRaster = nullptr;
};
