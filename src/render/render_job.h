#pragma once

// A render of a scene as its settings tell it: which images, in which
// order, under which names. `orvo names` prints the plan and `orvo render`
// runs it, so the two cannot disagree.
//
// The plan comes from the snapshot of the render settings of each render
// layer (TrenderInfo::setCommonRenderGlobals): the frame range and step,
// the resolution, the output format, the renderable cameras and the
// layer's passes. Command-line choices override the scene's. Images go
// frame by frame; within a frame layer by layer in creation order; within a
// layer camera by camera in creation order, and for each camera its passes
// (one render task: the passes of a camera and layer render in one run).

#include <atomic>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "render/image_io.h"
#include "render/renderer.h"
#include "settings/common_render_globals.h"

class TdependGraph;
class TdnRenderLayer;

// What a command line sets in place of the scene's settings.
struct TrenderOverrides {
    // First, last and step: renders these frames, animation on.
    std::optional<double> firstFrame, lastFrame, frameStep;
    std::optional<unsigned> width, height;
    // A renderGlobals.imageFormat value (see OrvoImageFormatFromKeyword).
    std::optional<int> imageFormat;
    // OpenEXR with 32-bit float channels.
    bool floatExr = false;
    // Skip images whose file exists, as skipExistingFrames on does.
    bool skipExisting = false;
    // Render only these frames of the plan (a farm task's share).
    std::optional<std::vector<double>> onlyFrames;
};

class TrenderJob {
public:
    // One image of the render.
    struct Image {
        std::string path;   // the output folder joined with the name, or an absolute name
        double frame = 0.0; // the scene time it shows, in frames
        size_t layer = 0;   // index into layers()
        size_t task = 0;    // index into tasks()
        int pass = 0;       // the pass's render pass control value
        std::string passName;
        TdagPath camera;
        std::string cameraName; // the camera's transform
        // The file is there and the settings say to skip existing frames.
        bool exists = false;
    };
    // One render layer (or none, for a scene without layers) and its settings.
    struct Layer {
        const TdnRenderLayer* layer = nullptr;
        std::string name; // the layer's name, empty for none
        TcommonRenderGlobalsData globals;
        std::vector<double> frames;
        TimageWriteSpec format;
        unsigned width = 0, height = 0;
    };

    // One renderer invocation a frame: the passes of one camera in one
    // layer, rendered in one run. Tasks come from the scene's renders as
    // image sources, merged so that the passes of a camera and layer are one.
    struct Task {
        size_t layer = 0; // index into layers()
        TdagPath camera;
        std::string cameraName;
        std::vector<int> passes;          // render pass control values, in the layer's order
        std::vector<std::string> sources; // the image source of each pass's image
        // Each pass's image name by frame, before the output folder.
        std::vector<std::vector<std::pair<double, std::string>>> names;
        std::string nameAt(size_t pass, double frame) const;
    };

    // Plans the render of `graph`, whose file is `scenePath`, into
    // `outputFolder`. Throws TrenderError, naming the scene and the setting,
    // for a plan that cannot be rendered: an output format that cannot be
    // written, a frame range that goes nowhere, a render layer without a
    // renderable camera, a hook that does not parse, two images with one name.
    TrenderJob(TdependGraph& graph, const std::string& scenePath, const std::string& outputFolder,
               const TrenderOverrides& overrides = {});

    // The scene token of names: the file's name without its folder and ".qsl".
    const std::string& sceneName() const { return fSceneName; }
    const std::vector<Layer>& layers() const { return fLayers; }
    // Every image, in render order; images that exist with skipExistingFrames on included.
    const std::vector<Image>& images() const { return fImages; }
    // The render tasks, in render order within each frame.
    const std::vector<Task>& tasks() const { return fTasks; }
    // The images the render writes: the others, without those skipped.
    std::vector<const Image*> imagesToWrite() const;
    // The render threads the scene asks for: numCpusToUse of the default
    // render globals (0, all), at most the processors this process may use.
    unsigned threads() const { return fThreads; }
    // The settings as the current layer sees them: the hooks that run once
    // (preQsl, postQsl) and once a frame (preRenderQsl, postRenderQsl).
    const TcommonRenderGlobalsData& sceneGlobals() const { return fSceneGlobals; }

    // Hears how the run goes. `started` comes before each image, `progress`
    // while it renders, `written` and `skipped` after it.
    struct Listener {
        virtual ~Listener() = default;
        virtual void started(const Image&) {}
        virtual void progress(const Image&, unsigned done, unsigned total) {}
        virtual void written(const Image&, const TframeStats&) {}
        // Why: "exists" (skipExistingFrames) or "callback" (a render callback took it).
        virtual void skipped(const Image&, const char* why) {}
    };
    // Runs the plan: the hooks in the scene language at their moments, the
    // render callbacks, and each image rendered and written. Returns false
    // when `cancel` stopped it (the image in hand is not written). Throws
    // TrenderError for a hook that fails or an image that cannot be written.
    bool run(const TrenderOptions& options, Listener& listener,
             const std::atomic<bool>* cancel = nullptr);

    // Frames of a range: first, first + step, ... up to last; one frame
    // when they are equal. Empty when the step is 0 or leads away from last.
    static std::vector<double> frameRange(double first, double last, double step);
    // Frames compare with a little slack: 0.1 + 0.2 steps are still frame 0.3.
    static bool sameFrame(double a, double b);

private:
    void planTasks(const TrenderSettingsOverrides& settings,
                   const std::vector<std::vector<int>>& passes,
                   const std::vector<TdagPathArray>& cameras);
    void checkHooks() const;
    void runHook(const std::string& text, const char* attribute) const;

    TdependGraph& fGraph;
    std::string fScenePath;
    std::string fSceneName;
    std::string fFolder;
    TcommonRenderGlobalsData fSceneGlobals;
    std::vector<Layer> fLayers;
    std::vector<Task> fTasks;
    std::vector<Image> fImages;
    unsigned fThreads = 1;
};
