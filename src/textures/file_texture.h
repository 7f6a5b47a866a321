#pragma once

// file: the texture that reads an image from disk. It takes a file name
// (with frame numbers and UV tile tokens) to pyramids, and a sample to a
// filtered colour.
//
// The way from name to pixels runs once per render (and again when a name
// attribute changes outside one): the name is resolved for the frame, each
// file's pyramid is found in the inventory or built and registered there, so
// nodes reading one file share one pyramid. UV tiles load lazily, each the
// first time a sample lands in it. Sampling reads the pyramids without a
// lock; BOT pyramids go through the reading thread's block cache.
//
// A file that is missing or cannot be read is reported once per render with
// the node's name and the file's, and the texture renders its default colour.
//
// The placement's attributes are duplicated here and fed by connection
// (connectPlacement): the coordinate arrives already placed on uvCoord, and
// the node reads the wrap flags and the filter footprint itself.

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "colour/colour_choice.h"
#include "host/types.h"
#include "textures/pyramid.h"
#include "textures/tx2d.h"

class TdependGraph;

#define ORVO_FT_STRING(A, Name, Long, Short) A(TattributeTyped, Name, Long, Short, .input())
#define ORVO_FT_BOOL(A, Name, Long, Short, Default)                                                \
    A(TattributeBoolean, Name, Long, Short, .input().setNativeDefaultData(Default))
#define ORVO_FT_INT(A, Name, Long, Short, Default)                                                 \
    A(TattributeInt32, Name, Long, Short, .input().setNativeDefaultData(Default))
#define ORVO_FT_FLOAT(A, Name, Long, Short, Default)                                               \
    A(TattributeFloat, Name, Long, Short, .input().setNativeDefaultData(Default))

#define ORVO_SCHEMA_TdnFileTexture(A, C2, C3)                                                      \
    ORVO_FT_STRING(A, FileTextureName, "fileTextureName", "ftn")                                   \
    ORVO_FT_STRING(A, FileTextureNamePattern, "fileTextureNamePattern", "ftnp")                    \
    ORVO_FT_STRING(A, ComputedFileTextureNamePattern, "computedFileTextureNamePattern", "cfnp")    \
    ORVO_FT_BOOL(A, DisableFileLoad, "disableFileLoad", "dfl", false)                              \
    ORVO_FT_BOOL(A, UseFrameExtension, "useFrameExtension", "ufe", false)                          \
    ORVO_FT_INT(A, FrameExtension, "frameExtension", "fe", 1)                                      \
    ORVO_FT_INT(A, FrameOffset, "frameOffset", "io", 0)                                            \
    ORVO_FT_BOOL(A, UseHardwareTextureCycling, "useHardwareTextureCycling", "uhtc", false)         \
    ORVO_FT_INT(A, StartCycleExtension, "startCycleExtension", "sce", 1)                           \
    ORVO_FT_INT(A, EndCycleExtension, "endCycleExtension", "ece", 1)                               \
    A(TattributeInt32, ByCycleIncrement, "byCycleIncrement", "bci",                                \
      .input().setNativeDefaultData(1).min(1))                                                     \
    ORVO_FT_BOOL(A, ForceSwatchGen, "forceSwatchGen", "fsg", true)                                 \
    A(TattributeEnum, FilterType, "filterType", "ft",                                              \
      .input()                                                                                     \
          .ORVO_FIELD(kNoFilter, "Off")                                                            \
          .ORVO_FIELD(kMipMapFilter, "Mipmap")                                                     \
          .ORVO_FIELD(kBoxFilter, "Box")                                                           \
          .ORVO_FIELD(kQuadraticFilter, "Quadratic")                                               \
          .ORVO_FIELD(kQuarticFilter, "Quartic")                                                   \
          .ORVO_FIELD(kGuassFilter, "Gaussian")                                                    \
          .setNativeDefaultData(3))                                                                \
    A(TattributeFloat, FilterWidth, "filterWidth", "fw",                                           \
      .input().setNativeDefaultData(0.707f).range(0.35, 1.05))                                     \
    ORVO_FT_BOOL(A, PreFilter, "preFilter", "pf", false)                                           \
    A(TattributeFloat, PreFilterRadius, "preFilterRadius", "pfr",                                  \
      .input().setNativeDefaultData(2.0f).range(1, 10))                                            \
    ORVO_FT_BOOL(A, UseCache, "useCache", "uca", false)                                            \
    ORVO_FT_BOOL(A, UseMaximumRes, "useMaximumRes", "umr", false)                                  \
    A(TattributeEnum, UvTilingMode, "uvTilingMode", "uvt",                                         \
      .input()                                                                                     \
          .ORVO_FIELD(kOff, "Off")                                                                 \
          .ORVO_FIELD(kTaggedZero, "0-based (ZBrush)")                                             \
          .ORVO_FIELD(kTaggedOne, "1-based (Plasmo)")                                              \
          .ORVO_FIELD(kUDIM, "UDIM (Mari)")                                                        \
          .ORVO_FIELD(kExplicitTiles, "Explicit Tiles")                                            \
          .setNativeDefaultData(0))                                                                \
    A(TattributeArrayOf<TattributeCompound>, ExplicitUvTiles, "explicitUvTiles", "euvt",           \
      .inputParent())                                                                              \
    A(TattributeTyped, ExplicitUvTileName, "explicitUvTileName", "eutn",                           \
      .input().childOf(ExplicitUvTiles))                                                           \
    C2(Tattribute2Float, ExplicitUvTilePosition, "explicitUvTilePosition", "eup", ORVO_UV,         \
       .inputParent().lastChildOf(ExplicitUvTiles), .input().setNativeDefaultData(0.0f))           \
    C2(Tattribute2Float, BaseExplicitUvTilePosition, "baseExplicitUvTilePosition", "bup", ORVO_UV, \
       .inputParent(), .input().setNativeDefaultData(0.0f))                                        \
    ORVO_FT_BOOL(A, UvTileProxyDirty, "uvTileProxyDirty", "utpd", true)                            \
    ORVO_FT_BOOL(A, UvTileProxyGenerate, "uvTileProxyGenerate", "utpg", false)                     \
    A(TattributeEnum, UvTileProxyQuality, "uvTileProxyQuality", "utpq",                            \
      .input()                                                                                     \
          .ORVO_FIELD(kDisabledProxy, "Disable Preview")                                           \
          .ORVO_FIELD(kHighQualityProxy, "High Quality")                                           \
          .ORVO_FIELD(kMediumQualityProxy, "Medium Quality")                                       \
          .ORVO_FIELD(kLowQualityProxy, "Low Quality")                                             \
          .setNativeDefaultData(1))                                                                \
    C2(Tattribute2Float, Coverage, "coverage", "c", ORVO_UV, .inputParent(),                       \
       .input().setNativeDefaultData(1.0f))                                                        \
    ORVO_FT_FLOAT(A, TranslateFrameU, "translateFrameU", "tfu", 0.0f)                              \
    ORVO_FT_FLOAT(A, TranslateFrameV, "translateFrameV", "tfv", 0.0f)                              \
    A(TattributeDoubleAngle, RotateFrame, "rotateFrame", "rf", .input().setNativeDefaultData(0.0)) \
    ORVO_FT_BOOL(A, DoTransform, "doTransform", "dt", true)                                        \
    ORVO_FT_BOOL(A, MirrorU, "mirrorU", "mu", false)                                               \
    ORVO_FT_BOOL(A, MirrorV, "mirrorV", "mv", false)                                               \
    ORVO_FT_BOOL(A, Stagger, "stagger", "s", false)                                                \
    ORVO_FT_BOOL(A, WrapU, "wrapU", "wu", true)                                                    \
    ORVO_FT_BOOL(A, WrapV, "wrapV", "wv", true)                                                    \
    A(Tattribute2Float, RepeatUV, "repeatUV", "re", .inputParent())                                \
    A(TattributeFloat, RepeatU, "repeatU", "reu",                                                  \
      .input().setNativeDefaultData(1.0f).childOf(RepeatUV))                                       \
    A(TattributeFloat, RepeatV, "repeatV", "rev",                                                  \
      .input().setNativeDefaultData(1.0f).childOf(RepeatUV))                                       \
    C2(Tattribute2Float, Offset, "offset", "of", ORVO_UV, .inputParent(),                          \
       .input().setNativeDefaultData(0.0f))                                                        \
    A(TattributeDoubleAngle, RotateUV, "rotateUV", "ro", .input().setNativeDefaultData(0.0))       \
    ORVO_FT_FLOAT(A, NoiseU, "noiseU", "nu", 0.0f)                                                 \
    ORVO_FT_FLOAT(A, NoiseV, "noiseV", "nv", 0.0f)                                                 \
    ORVO_FT_BOOL(A, BlurPixelation, "blurPixelation", "blp", true)                                 \
    C3(Tattribute3Float, VertexCameraOne, "vertexCameraOne", "c1", ORVO_XYZ, .implicitSample(),    \
       .implicitSample().setNativeDefaultData(0.0f))                                               \
    C3(Tattribute3Float, VertexCameraTwo, "vertexCameraTwo", "c2", ORVO_XYZ, .implicitSample(),    \
       .implicitSample().setNativeDefaultData(0.0f))                                               \
    C3(Tattribute3Float, VertexCameraThree, "vertexCameraThree", "c3", ORVO_XYZ,                   \
       .implicitSample(), .implicitSample().setNativeDefaultData(0.0f))                            \
    C2(Tattribute2Float, VertexUvOne, "vertexUvOne", "t1", ORVO_UV, .implicitSample(),             \
       .implicitSample().setNativeDefaultData(0.0f))                                               \
    C2(Tattribute2Float, VertexUvTwo, "vertexUvTwo", "t2", ORVO_UV, .implicitSample(),             \
       .implicitSample().setNativeDefaultData(0.0f))                                               \
    C2(Tattribute2Float, VertexUvThree, "vertexUvThree", "t3", ORVO_UV, .implicitSample(),         \
       .implicitSample().setNativeDefaultData(0.0f))                                               \
    A(TattributeChar, ObjectType, "objectType", "oty", .implicitSample().setNativeDefaultData(0))  \
    A(TattributeInt16, RayDepth, "rayDepth", "rd", .implicitSample().setNativeDefaultData(0))      \
    A(TattributeInt32, PrimitiveId, "primitiveId", "pi",                                           \
      .implicitSample().setNativeDefaultData(0))                                                   \
    C2(Tattribute2Float, PixelCenter, "pixelCenter", "pc", ORVO_XY, .implicitSample(),             \
       .implicitSample().setNativeDefaultData(0.0f))                                               \
    ORVO_FT_FLOAT(A, Exposure, "exposure", "exp", 0.0f)                                            \
    A(TattributeEnum, HdrMapping, "hdrMapping", "hm",                                              \
      .input()                                                                                     \
          .ORVO_FIELD(kClamp, "Clamp")                                                             \
          .ORVO_FIELD(kLinear, "Linear")                                                           \
          .ORVO_FIELD(kExponential, "Exponential")                                                 \
          .setNativeDefaultData(0))                                                                \
    A(TattributeFloat, HdrExposure, "hdrExposure", "he",                                           \
      .input().setNativeDefaultData(0.0f).range(-10, 10))                                          \
    A(TattributeTyped, DirtyPixelRegion, "dirtyPixelRegion", "dpr", .input())                      \
    A(TattributeEnum, PtexFilterType, "ptexFilterType", "pft",                                     \
      .input()                                                                                     \
          .ORVO_FIELD(kPtexPoint, "Point")                                                         \
          .ORVO_FIELD(kPtexBilinear, "Bilinear")                                                   \
          .ORVO_FIELD(kPtexBox, "Box")                                                             \
          .ORVO_FIELD(kPtexGaussian, "Gaussian")                                                   \
          .ORVO_FIELD(kPtexBicubic, "Bicubic")                                                     \
          .ORVO_FIELD(kPtexBspline, "B-spline")                                                    \
          .ORVO_FIELD(kPtexCatmullRom, "Catmull-Rom")                                              \
          .ORVO_FIELD(kPtexMitchell, "Mitchell")                                                   \
          .setNativeDefaultData(3))                                                                \
    ORVO_FT_FLOAT(A, PtexFilterWidth, "ptexFilterWidth", "pfw", 1.0f)                              \
    ORVO_FT_FLOAT(A, PtexFilterBlur, "ptexFilterBlur", "pfb", 0.0f)                                \
    ORVO_FT_FLOAT(A, PtexFilterSharpness, "ptexFilterSharpness", "pfs", 1.0f)                      \
    ORVO_FT_BOOL(A, PtexFilterInterpolateLevels, "ptexFilterInterpolateLevels", "pfil", true)      \
    ORVO_FT_INT(A, ColorProfile, "colorProfile", "cp", -1)                                         \
    ORVO_FT_STRING(A, ColorSpace, "colorSpace", "cs")                                              \
    ORVO_FT_BOOL(A, IgnoreColorSpaceFileRules, "ignoreColorSpaceFileRules", "ifr", false)          \
    ORVO_FT_STRING(A, WorkingSpace, "workingSpace", "ws")                                          \
    ORVO_FT_BOOL(A, ColorManagementEnabled, "colorManagementEnabled", "cme", true)                 \
    ORVO_FT_BOOL(A, ColorManagementConfigFileEnabled, "colorManagementConfigFileEnabled", "cmcf",  \
                 false)                                                                            \
    ORVO_FT_STRING(A, ColorManagementConfigFilePath, "colorManagementConfigFilePath", "cmcp")      \
    C2(Tattribute2Float, OutSize, "outSize", "os", ORVO_XY, .output(),                             \
       .output().setNativeDefaultData(0.0f))                                                       \
    A(TattributeBoolean, FileHasAlpha, "fileHasAlpha", "fha",                                      \
      .output().setNativeDefaultData(false))                                                       \
    C3(Tattribute3Float, OutTransparency, "outTransparency", "ot", ORVO_RGB, .output(),            \
       .output().setNativeDefaultData(0.0f))                                                       \
    A(TattributeInt32, InfoBits, "infoBits", "ib", .output().setNativeDefaultData(0))

class TdnFileTexture;
template <>
struct TdnKernel<TdnFileTexture> {
    enum : int16_t {
        kNoFilter = 0,
        kMipMapFilter = 1,
        kBoxFilter = 2,
        kQuadraticFilter = 3,
        kQuarticFilter = 4,
        kGuassFilter = 5,
    };
    enum : int16_t {
        kOff = 0,
        kTaggedZero = 1,
        kTaggedOne = 2,
        kUDIM = 3,
        kExplicitTiles = 4,
    };
    enum : int16_t {
        kDisabledProxy = 0,
        kHighQualityProxy = 1,
        kMediumQualityProxy = 2,
        kLowQualityProxy = 3,
    };
    enum : int16_t { kClamp = 0, kLinear = 1, kExponential = 2 };
    enum : int16_t {
        kPtexPoint = 0,
        kPtexBilinear = 1,
        kPtexBox = 2,
        kPtexGaussian = 3,
        kPtexBicubic = 4,
        kPtexBspline = 5,
        kPtexCatmullRom = 6,
        kPtexMitchell = 7,
    };
};

ORVO_NODE(TdnFileTexture, TdnTx2D, "file", "RTFT", 489, "kFileTexture",
          "texture/2d:drawdb/shader/texture/2d/file", "n_file")

class TdnFileTexture : public TdnPattern<TdnFileTexture, TdnTx2D> {
public:
    using K = TdnKernel<TdnFileTexture>;

    // infoBits: what the node knows of its file after loading.
    enum InfoBit : int32_t {
        kInfoLoaded = 1,   // a pyramid is there (or, with tiles, a tile was found)
        kInfoFloat = 2,    // the file holds floating-point samples
        kInfoBOT = 4,      // read from a block ordered texture file
        kInfoTiled = 8,    // UV tiles
        kInfoMissing = 16, // the file (or a tile) could not be found or read
    };

    // One file of the current frame: its pyramid (null until loaded or when
    // it failed) and, for a tile, the lower left corner of its unit square
    // in UV.
    struct Tile {
        Tstring name;
        int u = 0;
        int v = 0;
        std::atomic<Tpyramid*> pyramid{nullptr};
        std::atomic<int> state{0}; // 0 not loaded, 1 loading, 2 done
        // The file's input colour, chosen as it loads.
        std::shared_ptr<const TcolourInputChoice> colour;
    };

    // What a name resolves to for one frame: the exact names and, with
    // tiles, where each lies.
    struct FileData {
        Tstring pattern; // computedFileTextureNamePattern
        std::vector<Tstring> names;
        std::vector<std::pair<int, int>> tiles;
        bool tiled = false;
        Tstring error; // why nothing could be resolved
    };

    // The settings a sample is read with, fixed when the files load.
    struct Settings {
        int16_t filterType = 3;
        float filterWidth = 0.707f;
        bool preFilter = false;
        float preFilterRadius = 2.0f;
        bool useCache = false;
        bool useMaximumRes = false;
        bool blurPixelation = true;
        bool disableFileLoad = false;
        bool wrapU = true;
        bool wrapV = true;
        float exposure = 0.0f;
        int16_t hdrMapping = 0;
        float hdrExposure = 0.0f;
    };

    TdnFileTexture();
    ~TdnFileTexture() override;

    // ---- statics
    static void disableFileTextureLoad();
    static void enableFileTextureLoad();
    static bool isFileTextureLoadDisabled();
    // In batch mode, a missing texture ends the process with status 1.
    static void abortOnMissingTexture(bool on);
    static bool abortsOnMissingTexture();
    // Block cache slots for render threads.
    static void setThreadCount(unsigned threads);
    static void setRelativeThreadCount(int change);
    static void initThreadLocalCache();
    static void freeThreadLocalCache();

    // Connects a placement's outputs and attributes to a file texture.
    static void connectPlacement(TdependGraph& graph, TdependNode& placement, TdependNode& file);

    // ---- names
    // fileTextureName as set (the host's path resolution is the file
    // system's: a relative name is relative to the working folder).
    bool getRawFileTextureName(Tstring& name, bool resolved = true);
    // The exact name for the current frame: the raw name without frames and
    // tiles, else the first file the pattern finds. False when there is none.
    bool getExactTextureName(Tstring& name);
    // The pattern for the current settings, through the resolver.
    Tstring getCurrentTextureNamePattern();
    Tstring fileTextureNamePattern();
    Tstring computedFileTextureNamePattern();
    // The frame number the name uses: frameExtension + frameOffset.
    int currentFrame();
    // The files of `frame`, resolved once per node and frame.
    const FileData& getCachedFileDataForFrame(int frame);
    const FileData& getCachedFileDataForCurrentFrame() {
        return getCachedFileDataForFrame(currentFrame());
    }
    // Every frame of the cycle range (start .. end by the increment).
    std::vector<FileData> getFileDataForAllFrames();
    bool hasBOTFile();
    // The inventory key of a file for the node's prefilter settings.
    Tstring getPyramidUniqueIdentifier(const Tstring& name);

    // ---- pixels
    // The current pyramid (the first tile's with tiles), loading if needed.
    Tpyramid* currentPyramid();
    bool fileHasAlpha();
    const Settings& settings() const { return fSettings; }

    // The input colour of the current files, loading them (every tile) if
    // needed: the space each is read in and the rule that chose it.
    std::vector<TcolourInputChoice> colourProvenance();
    // Chooses the input colour of a loaded file (the file rules', or the
    // node's colorSpace when it ignores the rules).
    TcolourInputChoice chooseColour(const Tstring& file, bool floatFile);
    // Exposure and HDR mapping of a float file's colour.
    static void applyHdr(const Settings& s, T3Float& c);
    // The colour of a pyramid at (u, v) with a footprint of `size` in UV,
    // by the settings' filter, in the file's own encoding.
    static void samplePyramid(const Tpyramid& pyramid, const Settings& s, float u, float v,
                              float size, T3Float& color, float& alpha);
    // The four smooth filters: a kernel of `size` (in UV, narrowed by the
    // filter width) over the texels of the level it spans a few texels of.
    // False when it cannot (a zero or bad size): use getMapColor.
    static bool filterFileTexture(const Tpyramid& pyramid, const Settings& s, float u, float v,
                                  float size, T3Float& color, float& alpha);
    // The kernel's weight at t (distance over radius, 0 .. 1).
    static float filterWeight(int16_t filterType, float t);

    // ---- render
    void shadingNodeInit(TframeSampleData* frame) override;
    void shadingNodeOnDemand(Tplug& plug, TdataBlock& block) override;
    void endOfRender() override;
    void setDirty(TmsgDirty& msg) override;

    bool computePlug(const Tplug& plug, TdataBlock& block) override;
    ORVO_TX2D_OVERRIDES

private:
    // Resolves the names for the frame and loads the files (tiles load on
    // first use). Once until the next render or change.
    void ensureLoaded();
    void loadLocked();
    void freePyramids();
    // Finds or builds the pyramid of one file; reports failures.
    Tpyramid* initTexture(const Tstring& name, bool reportMissing);
    Tpyramid* loadTile(Tile& tile);
    // Reports once per render and file.
    void warnOnce(const Tstring& key, const Tstring& text);
    void reportMissing(const Tstring& name);
    // The tile a coordinate falls in, shifted into it; null outside all.
    Tile* tileAt(float& u, float& v);
    // Colour and alpha of one sample in linear colour, and the pyramid read;
    // null for the default colour.
    const Tpyramid* sampleAt(float u, float v, float size, T3Float& c, float& a);
    bool isOutput(const Tattribute* attribute) const;

    TdataHandle plugValue(const Tattribute& attribute);
    Tstring stringValue(const Tattribute& attribute);

    Settings fSettings;
    std::mutex fLoadMutex;
    std::atomic<bool> fLoaded{false};
    // The files of the frame being rendered; tiles are indexed by a grid
    // over their UV bounds.
    std::vector<std::unique_ptr<Tile>> fTiles;
    bool fTiled = false;
    int fGridU0 = 0, fGridV0 = 0, fGridW = 0, fGridH = 0;
    std::vector<int> fGrid;
    std::vector<std::vector<std::unique_ptr<Tile>>> fRetiredTiles;
    std::vector<std::vector<int>> fRetiredGrids;
    // What chooses the files' input colour, read as the files load (tiles
    // load later, on render threads, and must not evaluate plugs).
    TcolourRenderSettings fColourSettings;
    Tstring fColorSpace;
    bool fIgnoreColourRules = false;
    bool fColourManaged = true;
    // Cached resolutions by frame; dropped when a name attribute changes.
    std::map<int, FileData> fFileData;
    std::mutex fWarnMutex;
    std::vector<Tstring> fWarned;
    bool fFileIsFloat = false;
    bool fMipmapWarned = false;
};
