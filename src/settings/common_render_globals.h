#pragma once

// The settings of one render as seen from one render layer, copied out of
// the settings nodes into a plain value (TrenderInfo::setCommonRenderGlobals
// fills it), and the output names of every layer, camera, pass, field and
// frame that come from it. A render reads this snapshot, never the nodes.

#include <climits>
#include <cstdint>
#include <optional>
#include <vector>

#include "host/scene/dag.h"
#include "host/types.h"

class TdependGraph;
class TdependNode;
class TdnRenderLayer;

// A time in frames.
using TanimTime = double;
using TstringArray = std::vector<Tstring>;

// A pixel of an 8-bit image as the host's image library lays it out.
struct Tpixel32 {
    uint8_t b = 0, g = 0, r = 0, a = 255;
};

// Settings that a caller (a command line) puts in place of the scene's
// when a snapshot is taken; what is unset comes from the scene.
struct TrenderSettingsOverrides {
    std::optional<bool> animation;
    std::optional<TanimTime> startFrame, endFrame;
    std::optional<float> byFrameStep;
    std::optional<int32_t> imageFormat;
    std::optional<int32_t> width, height;
};

// Which form of a name getImageName gives (only the numbers matter):
// 0 relative to the project's image folder, 1 the full path, 2 the full
// path of a temporary file.
using TpathType = int;

class TcommonRenderGlobalsData {
public:
    TcommonRenderGlobalsData() = default;

    // ---- the snapshot, in the order TrenderInfo::setCommonRenderGlobals fills it
    Tstring rendererName;
    Tstring imageFilePrefix;
    Tstring bufferNamePattern;
    Tstring fixedBufferNamePattern;
    Tstring untruncatedBufferName;
    int32_t maxBufferNameLength = INT32_MAX;
    Tstring versionName;
    // The naming scheme (see setImageFormat): 0 "name", 1 "name.ext",
    // 2 "name.#.ext", 3 "name.ext.#", 4 "name.#", 5 "name#.ext",
    // 6 "name_#.ext"; 7 and 8 a multi-frame format without and with an
    // extension.
    int32_t namingScheme = 0;
    uint32_t framePadding = 0;
    Tstring namePattern;
    Tstring fixedNamePattern;
    int32_t outFormat = 0; // imageFormat
    Tstring imfPluginKey;
    Tstring extension; // without its dot
    TanimTime startFrame = 1.0;
    TanimTime endFrame = 10.0;
    float byFrame = 1.0f; // byFrameStep
    bool skipExistingFrames = false;
    bool renderAll = true;
    uint16_t outFormatControl = 0;
    Tstring outFormatExt;
    bool modifyExtension = false; // frame renumbering
    float startExtension = 1.0f;
    float byExtension = 1.0f;
    int32_t width = 640;
    int32_t height = 480;
    float deviceAspectRatio = 1.7777777f;
    float pixelAspectRatio = 1.0f;
    float dotsPerInch = 72.0f;
    bool enableDefaultLight = true;
    Tstring preQsl, postQsl, preRenderLayerQsl, postRenderLayerQsl, preRenderQsl, postRenderQsl;
    bool useRenderPassSubdirs = false;
    bool multiplePasses = false;
    bool multipleLayers = false;
    bool multipleCameras = false;
    bool frameInName = false;
    bool multipleBufferCameras = true;
    Tstring passName, fieldName, frameOverride;

    // The scene the snapshot was taken of (null: the current graph).
    TdependGraph* graph = nullptr;

    // ---- formats
    // The extension (without its dot) that the output format gives.
    Tstring getFormatExtension() const;
    // The image-library format key of the output format ("UNKNOWN" for a
    // value the table does not know).
    Tstring getImfFormat() const;
    static Tstring getCustomImageExtension(const Tstring& key);
    static Tstring getPluginImageExtension(const Tstring& key, const Tstring& fallback);
    // outFormat is a format that holds every frame in one file (movies,
    // and the vector formats but Illustrator).
    bool isMultiframeFormat() const;
    static bool isMultiframeFormat(int32_t format);
    bool isAnimated() const { return namingScheme > 1; }

    // ---- changes a render makes between images
    // The prefix; a scheme by its text ("name.#.ext") or digit ("3").
    void setImageName(const Tstring& prefix);
    void setImageFormat(const Tstring& scheme);
    void setFieldName(const Tstring& field);
    void setUseRenderPassSubdirs(bool on);
    // Kept only when the layer renders several passes; otherwise cleared.
    void setPassName(const Tstring& pass);
    void setFrameOverride(const Tstring& text) { frameOverride = text; }
    // Builds namePattern from the prefix, scheme, padding and extension.
    void updateNamePattern();

    // ---- names
    // The name of the image of `camera` (a camera's name) and `layer` at
    // `time` (frames). See the .cpp for the steps.
    Tstring getImageName(TpathType pathType, TanimTime time, const Tstring& scene,
                         const Tstring& camera, const TdnRenderLayer* layer,
                         const Tstring& customExtension = {}, bool makeDirectories = false,
                         bool noFrame = false, const Tstring& customTokens = {},
                         bool keepUnknownTokens = false, bool forcePassDirectory = false);
    // Every image of a layer at `time`: passes outermost, then renderable
    // cameras, then fields. `labels` receives "layer[_camera][_pass][_field]".
    void getAllImageNames(TpathType pathType, TanimTime time, const Tstring& scene,
                          const TdnRenderLayer* layer, const TstringArray* fields,
                          const TstringArray* passes, TstringArray& names, TstringArray& labels);
    // The buffer (channel) name of a render pass node, for a layer and a
    // camera; empty for a node that is no render pass with a "passID".
    Tstring getBufferName(const TdependNode* source, const TdnRenderLayer* layer,
                          const Tstring& camera, const Tstring& customTokens = {},
                          bool keepUnknownTokens = false);

    // ---- set-up, from TrenderInfo::setCommonRenderGlobals
    void initializeImageNameSettings(const TdnRenderLayer* layer,
                                     const TdnRenderLayer* defaultLayer,
                                     const TdnRenderLayer* currentLayer);
    void initializeBufferNameSettings();

    // ---- cameras
    // Every path to a camera whose `renderable` is on as `layer` sees it
    // (cameras in creation order, each camera's paths last first), and
    // the cameras' names: the name of each path's transform.
    TdagPathArray getRenderableCameras(const TdnRenderLayer* layer) const;
    TstringArray getRenderableCameraNames(const TdnRenderLayer* layer) const;
    static Tstring cameraName(const TdagPath& path);
    // The background of the first renderable camera, black without one.
    static Tpixel32 getCommonBackGroundColor();

    static Tstring getPreRenderFrameCmd() { return "prepareRender -invokePreRenderFrame"; }
    static Tstring getPostRenderFrameCmd() { return "prepareRender -invokePostRenderFrame"; }

    int32_t getMaxBufferNameLength() const { return maxBufferNameLength; }
    const Tstring& getUntrucatedBufferName() const { return untruncatedBufferName; }
    const Tstring& getNameFixedPattern() const { return fixedNamePattern; }

    // The folder of the project's images, in front of relative names of
    // path types 1 and 2. Empty by default: names stay relative.
    static void setProjectImagesDirectory(const Tstring& folder);
    static Tstring projectImagesDirectory();
    static bool isAbsoluteName(const Tstring& name);

private:
    TdependGraph* sceneGraph() const;
    void refix();
    // The layer's pass states that are on, in the order the layer keeps them.
    static int passCount(const TdnRenderLayer* layer);
};
