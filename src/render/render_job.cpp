#include "render/render_job.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>
#include <set>

#include "colour/colour_choice.h"
#include "framework/render_info.h"
#include "host/graph.h"
#include "host/messages.h"
#include "host/qsl/interpreter.h"
#include "host/scene/image_source.h"
#include "host/scene/render_layer.h"
#include "render/render_error.h"
#include "settings/image_sources.h"
#include "settings/render_globals.h"
#include "settings/render_lists.h"

namespace {

namespace fs = std::filesystem;

// The scene token: the file's name without ".qsl".
std::string sceneToken(const std::string& path) {
    std::string name = fs::path(path).filename().string();
    const std::string suffix = ".qsl";
    if (name.size() > suffix.size() &&
        name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0)
        name.erase(name.size() - suffix.size());
    return name;
}

// The output folder and a name, as a user reads them: "DIR/name", an
// absolute name as it stands.
std::string joinFolder(const std::string& folder, const std::string& name) {
    if (TcommonRenderGlobalsData::isAbsoluteName(name) || folder.empty())
        return name;
    return folder.back() == '/' ? folder + name : folder + "/" + name;
}

std::string frameWords(double frame) {
    return fmt::format("{}", frame);
}

// The values of the default render globals that the snapshot does not keep.
int globalsValue(TrenderInfo& info, const Tattribute& attribute, const TdnRenderLayer* layer) {
    return TrenderInfo::getDataFromPlug(Tplug(info.defaultGlobals(), &attribute), layer, nullptr,
                                        nullptr)
        .asInt();
}

// The scene's word for an output format: its label ("EPS"), or the number.
std::string formatLabel(int format) {
    for (const TattributeEnum::Field& field : TdnRenderGlobals::aImageFormat.fields())
        if (field.value == format)
            return "\"" + field.label + "\"";
    return std::to_string(format);
}

// A render tells each message once: the same warning for every frame,
// camera and layer says nothing new. Messages come from render threads too.
class TmessagesOnce {
public:
    TmessagesOnce()
        : fPrevious(
              TcommandEngine::setSink([this](TcommandEngine::Severity severity,
                                             const std::string& text) { pass(severity, text); })) {}
    ~TmessagesOnce() { TcommandEngine::setSink(fPrevious); }
    TmessagesOnce(const TmessagesOnce&) = delete;
    TmessagesOnce& operator=(const TmessagesOnce&) = delete;

private:
    void pass(TcommandEngine::Severity severity, const std::string& text) {
        {
            std::lock_guard lock(fMutex);
            if (!fSeen.insert(text).second)
                return;
        }
        if (fPrevious) {
            fPrevious(severity, text);
            return;
        }
        TcommandEngine::printDefault(severity, text);
    }

    TcommandEngine::Sink fPrevious;
    std::mutex fMutex;
    std::set<std::string> fSeen;
};

// Calls finalize on the render callbacks however a run ends.
struct CallbackSession {
    CallbackSession() { TrenderCallback::invokeInitialize(); }
    ~CallbackSession() { TrenderCallback::invokeFinalize(); }
    CallbackSession(const CallbackSession&) = delete;
    CallbackSession& operator=(const CallbackSession&) = delete;
};

} // namespace

bool TrenderJob::sameFrame(double a, double b) {
    return std::fabs(a - b) <= 1e-6 * std::max(1.0, std::fabs(a));
}

std::vector<double> TrenderJob::frameRange(double first, double last, double step) {
    std::vector<double> frames;
    if (sameFrame(first, last))
        return {first};
    if (step == 0.0 || !std::isfinite(step) || (last - first) / step < 0.0)
        return frames;
    const double count = std::floor((last - first) / step + 1e-9);
    if (count > 1e6)
        return frames; // a range no render walks
    // Frames keep nine decimals: 0 + 3 * 0.1 is frame 0.3, not 0.30000000000000004.
    for (long i = 0; i <= long(count); ++i)
        frames.push_back(std::round((first + double(i) * step) * 1e9) / 1e9);
    return frames;
}

TrenderJob::TrenderJob(TdependGraph& graph, const std::string& scenePath,
                       const std::string& outputFolder, const TrenderOverrides& overrides)
    : fGraph(graph), fScenePath(scenePath), fSceneName(sceneToken(scenePath)),
      fFolder(outputFolder) {
    TmessagesOnce once;
    TrenderInfo* info = TrenderInfo::getRenderInfo(graph);
    TrenderSettingsOverrides settings;
    if (overrides.firstFrame) {
        settings.animation = true;
        settings.startFrame = *overrides.firstFrame;
        settings.endFrame = overrides.lastFrame.value_or(*overrides.firstFrame);
        settings.byFrameStep = float(overrides.frameStep.value_or(1.0));
    }
    if (overrides.width)
        settings.width = int32_t(*overrides.width);
    if (overrides.height)
        settings.height = int32_t(*overrides.height);
    settings.imageFormat = overrides.imageFormat;
    info->setCommonRenderGlobals(fSceneGlobals, nullptr, &settings);
    fThreads = info->defaultGlobals()->numberOfCpusToUse();

    const TlayerList layers(true, &graph);
    if (layers.empty())
        TcommandEngine::displayWarning(fmt::format(
            "{}: no render layer is renderable; there is nothing to render", fScenePath));
    for (const TdnRenderLayer* layer : layers) {
        Layer plan;
        plan.layer = layer;
        plan.name = layer ? layer->name() : std::string();
        info->setCommonRenderGlobals(plan.globals, layer, &settings);
        const TcommonRenderGlobalsData& g = plan.globals;
        const std::string where =
            layer ? fmt::format("{}: render layer '{}'", fScenePath, plan.name) : fScenePath;

        // Frames: the range when animation is on, else the start frame alone.
        const bool animated = settings.animation.value_or(
            globalsValue(*info, TdnRenderGlobals::aAnimation, layer) != 0);
        if (!animated) {
            plan.frames = {g.startFrame};
        } else {
            // The step is kept as a float: read back the decimal it was
            // written as, so that 0.1 steps arrive at 0.3 and not short of it.
            const double step = std::strtod(fmt::format("{}", g.byFrame).c_str(), nullptr);
            plan.frames = frameRange(g.startFrame, g.endFrame, step);
            if (plan.frames.empty())
                throw TrenderError(fmt::format(
                    "{}: error: the frames from {} to {} by {} are no range a render can walk "
                    "(defaultRenderGlobals startFrame, endFrame, byFrameStep)",
                    where, frameWords(g.startFrame), frameWords(g.endFrame),
                    frameWords(g.byFrame)));
        }

        // The output format, and a size the renderer takes.
        std::string why;
        const int pixelType = globalsValue(*info, TdnRenderGlobals::aExrPixelType, layer);
        const int compression = globalsValue(*info, TdnRenderGlobals::aExrCompression, layer);
        if (!OrvoImageWriteSpec(g.outFormat, g.imfPluginKey, pixelType, compression, plan.format,
                                why))
            throw TrenderError(fmt::format("{}: error: {}{}", where, why,
                                           overrides.imageFormat
                                               ? std::string(" (--format)")
                                               : " (defaultRenderGlobals.imageFormat is " +
                                                     formatLabel(g.outFormat) + ")"));
        if (overrides.floatExr && plan.format.linear())
            plan.format.bits = 32;
        // Integer files go through the scene's output transform.
        const TcolourRenderSettings colour = OrvoColourRenderSettings(&graph);
        plan.format.colour = {colour.workingSpace, colour.outputTransform,
                              colour.outputUseColorConversion};
        if (g.width < 1 || g.height < 1 || g.width > 16384 || g.height > 16384)
            throw TrenderError(fmt::format("{}: error: the image size {}x{} is outside 1 to 16384 "
                                           "(defaultResolution width, height)",
                                           where, g.width, g.height));
        plan.width = unsigned(g.width);
        plan.height = unsigned(g.height);
        fLayers.push_back(std::move(plan));
    }

    // Frame by frame, then layer by layer, pass by pass, camera by camera.
    std::vector<double> frames;
    for (const Layer& plan : fLayers)
        for (const double f : plan.frames)
            if (std::none_of(frames.begin(), frames.end(),
                             [f](double g) { return sameFrame(f, g); }))
                frames.push_back(f);
    // In the direction the frames were asked for: a negative step renders backwards.
    const bool backwards = std::any_of(fLayers.begin(), fLayers.end(), [](const Layer& plan) {
        return plan.frames.size() > 1 && plan.frames[1] < plan.frames[0];
    });
    std::stable_sort(frames.begin(), frames.end(),
                     [backwards](double a, double b) { return backwards ? a > b : a < b; });
    if (overrides.onlyFrames) {
        for (const double f : *overrides.onlyFrames)
            if (std::none_of(frames.begin(), frames.end(),
                             [f](double g) { return sameFrame(f, g); }))
                throw TrenderError(fmt::format("{}: error: frame {} is not one the scene renders",
                                               fScenePath, frameWords(f)));
        std::erase_if(frames, [&](double g) {
            return std::none_of(overrides.onlyFrames->begin(), overrides.onlyFrames->end(),
                                [g](double f) { return sameFrame(f, g); });
        });
    }

    std::vector<std::vector<int>> passes(fLayers.size());
    std::vector<TdagPathArray> cameras(fLayers.size());
    for (size_t i = 0; i < fLayers.size(); ++i) {
        Layer& plan = fLayers[i];
        passes[i] = plan.layer ? plan.layer->passesOn() : std::vector<int>{0};
        if (passes[i].empty())
            TcommandEngine::displayWarning(fmt::format(
                "{}: render layer '{}' has no pass on; it renders nothing", fScenePath, plan.name));
        cameras[i] = plan.globals.getRenderableCameras(plan.layer);
        if (cameras[i].empty() && !passes[i].empty())
            throw TrenderError(
                plan.layer ? fmt::format("{}: error: render layer '{}' has no renderable camera",
                                         fScenePath, plan.name)
                           : fmt::format("{}: error: the scene has no renderable camera; add one "
                                         "with 'node camera NAME -parent TRANSFORM'",
                                         fScenePath));
    }

    planTasks(settings, passes, cameras);

    std::map<std::string, size_t> byPath;
    for (const double frame : frames) {
        for (size_t t = 0; t < fTasks.size(); ++t) {
            const Task& task = fTasks[t];
            const Layer& plan = fLayers[task.layer];
            if (std::none_of(plan.frames.begin(), plan.frames.end(),
                             [frame](double f) { return sameFrame(f, frame); }))
                continue;
            for (size_t p = 0; p < task.passes.size(); ++p) {
                Image image;
                image.frame = frame;
                image.layer = task.layer;
                image.task = t;
                image.pass = task.passes[p];
                image.passName = TdnRenderLayer::passName(image.pass);
                image.camera = task.camera;
                image.cameraName = task.cameraName;
                image.path = joinFolder(fFolder, task.nameAt(p, frame));
                std::error_code ec;
                image.exists = (plan.globals.skipExistingFrames || overrides.skipExisting) &&
                               fs::exists(image.path, ec);

                const std::string key = fs::path(image.path).lexically_normal().string();
                const auto [at, fresh] = byPath.emplace(key, fImages.size());
                if (!fresh) {
                    const Image& other = fImages[at->second];
                    auto what = [this](const Image& im) {
                        const std::string& layerName = fLayers[im.layer].name;
                        return fmt::format("frame {}{}, camera {}{}", frameWords(im.frame),
                                           layerName.empty() ? "" : ", layer " + layerName,
                                           im.cameraName,
                                           im.passName == "beauty" ? "" : ", pass " + im.passName);
                    };
                    throw TrenderError(fmt::format(
                        "{}: error: two images would be written to '{}' ({} and {}); give "
                        "them names of their own (defaultRenderGlobals.imageFilePrefix and "
                        "animation)",
                        fScenePath, image.path, what(other), what(image)));
                }
                fImages.push_back(std::move(image));
            }
        }
    }
    checkHooks();
}

// ---------------------------------------------------------------- tasks

namespace {

// The scene's renders as image sources: a render target made of one
// rendered image source per layer, camera and pass, each taking its pass
// from a render pass node (one per pass name, shared). They stand in the
// scene while the plan is made and go with this object.
class TplanSources {
public:
    explicit TplanSources(TdependGraph& graph) : fGraph(graph) {}
    ~TplanSources() {
        for (auto it = fMade.rbegin(); it != fMade.rend(); ++it)
            fGraph.deleteNode(*it);
    }
    TplanSources(const TplanSources&) = delete;
    TplanSources& operator=(const TplanSources&) = delete;

    TdependNode* make(const char* type, const char* base) {
        TdependNode* node = fGraph.createNode(type, fGraph.uniqueName(base));
        fMade.push_back(node);
        return node;
    }
    void connect(TdependNode* from, TdependNode* to, const Tattribute& attribute, int index = -1) {
        Tplug destination(to, &attribute);
        if (index >= 0)
            destination.setMultiIndex(&attribute, unsigned(index));
        fGraph.connect(Tplug(from, &TdependNode::aMessage), destination);
    }

private:
    TdependGraph& fGraph;
    std::vector<TdependNode*> fMade;
};

} // namespace

std::string TrenderJob::Task::nameAt(size_t pass, double frame) const {
    for (const auto& [f, name] : names[pass])
        if (sameFrame(f, frame))
            return name;
    return {};
}

void TrenderJob::planTasks(const TrenderSettingsOverrides& settings,
                           const std::vector<std::vector<int>>& passes,
                           const std::vector<TdagPathArray>& cameras) {
    TplanSources sources(fGraph);
    auto* target = static_cast<TdnRenderTarget*>(sources.make("renderTarget", "orvoPlanTarget"));
    std::map<std::string, TdnRenderPass*> passNodes;
    std::map<const TdependNode*, TdagPath> cameraPaths;
    std::map<const TdnRenderLayer*, size_t> layerIndex;
    int element = 0;
    for (size_t i = 0; i < fLayers.size(); ++i) {
        layerIndex[fLayers[i].layer] = i;
        for (const TdagPath& camera : cameras[i]) {
            // A camera is known by its transform, which names its images;
            // a second camera under the same transform by its shape (its
            // images then take the same names, which the plan refuses).
            TdependNode* transform =
                camera.transform() ? static_cast<TdependNode*>(camera.transform()) : camera.node();
            if (!cameraPaths.emplace(transform, camera).second) {
                transform = camera.node();
                cameraPaths.emplace(transform, camera);
            }
            for (const int pass : passes[i]) {
                const std::string passName = TdnRenderLayer::passName(pass);
                TdnRenderPass*& passNode = passNodes[passName];
                if (!passNode) {
                    passNode =
                        static_cast<TdnRenderPass*>(sources.make("renderPass", "orvoPlanPass"));
                    fGraph.setPlugValueFromWords(Tplug(passNode, &TdnRenderPass::aPassId),
                                                 {passName});
                }
                TdependNode* rendered = sources.make("renderedImageSource", "orvoPlanImage");
                sources.connect(transform, rendered, TdnImageSource::aCamera);
                if (fLayers[i].layer)
                    sources.connect(const_cast<TdnRenderLayer*>(fLayers[i].layer), rendered,
                                    TdnRenderedImageSource::aRenderLayer);
                sources.connect(passNode, rendered, TdnRenderedImageSource::aImageSource);
                sources.connect(rendered, target, TdnRenderTarget::aImageSources, element++);
            }
        }
    }

    const auto graph = imageSourceDependencies::getDependencies(target);
    const TrenderTaskList tasks = imageSourceDependencies::mergeRenderTasks(
        imageSourceDependencies::getRenderTasks(*graph, TrenderContext()),
        TpassRenderTaskMergeStrategy());

    // Each rendered source names its image; its pass renders in the task
    // of its camera and layer.
    std::map<std::pair<TrenderContext, const TdnImageSource*>, const TdnRenderedImageSource*>
        imageOf;
    for (const TrenderTask& task : tasks)
        if (const auto* rendered =
                dynamic_cast<const TdnRenderedImageSource*>(task.firstDep()->node()))
            imageOf[{task.context(), rendered->connectedImageSource()}] = rendered;

    for (const TrenderTask& task : tasks) {
        if (!dynamic_cast<const TdnRenderPass*>(task.firstDep()->node()))
            continue;
        Task plan;
        plan.layer = layerIndex.at(task.context().layer);
        const Layer& layer = fLayers[plan.layer];
        plan.camera = cameraPaths.at(task.context().camera);
        plan.cameraName = TcommonRenderGlobalsData::cameraName(plan.camera);
        // The passes in the layer's order.
        for (const int pass : passes[plan.layer])
            for (const TrenderDependencyPtr& dependency : task.deps()) {
                const auto* passNode = static_cast<const TdnRenderPass*>(dependency->node());
                if (passNode->passId() != TdnRenderLayer::passName(pass))
                    continue;
                const TdnRenderedImageSource* image = imageOf.at({task.context(), passNode});
                plan.passes.push_back(pass);
                plan.sources.push_back(image->name());
                std::vector<std::pair<double, std::string>> names;
                for (const double frame : layer.frames)
                    names.emplace_back(
                        frame, imageSourceUtil::getImageName(image, 0, frame, fSceneName, nullptr,
                                                             nullptr, nullptr, &settings));
                plan.names.push_back(std::move(names));
            }
        fTasks.push_back(std::move(plan));
    }
}

std::vector<const TrenderJob::Image*> TrenderJob::imagesToWrite() const {
    std::vector<const Image*> out;
    for (const Image& image : fImages)
        if (!image.exists)
            out.push_back(&image);
    return out;
}

// ---------------------------------------------------------------- hooks

void TrenderJob::checkHooks() const {
    // A hook that cannot be read is found before anything renders.
    auto check = [](const std::string& text, const std::string& name) {
        if (text.empty())
            return;
        try {
            qsl::parse(text, name);
        } catch (const qsl::ParseError& e) {
            throw TrenderError(e.what());
        }
    };
    const TcommonRenderGlobalsData& s = fSceneGlobals;
    check(s.preQsl, "defaultRenderGlobals.preQsl");
    check(s.postQsl, "defaultRenderGlobals.postQsl");
    check(s.preRenderQsl, "defaultRenderGlobals.preRenderQsl");
    check(s.postRenderQsl, "defaultRenderGlobals.postRenderQsl");
    for (const Layer& plan : fLayers) {
        check(plan.globals.preRenderLayerQsl, "defaultRenderGlobals.preRenderLayerQsl");
        check(plan.globals.postRenderLayerQsl, "defaultRenderGlobals.postRenderLayerQsl");
    }
}

void TrenderJob::runHook(const std::string& text, const char* attribute) const {
    if (text.empty())
        return;
    try {
        qsl::Interpreter(fGraph).runText(text, std::string("defaultRenderGlobals.") + attribute);
    } catch (const qsl::ParseError& e) {
        throw TrenderError(e.what());
    }
}

// ---------------------------------------------------------------- running

bool TrenderJob::run(const TrenderOptions& options, Listener& listener,
                     const std::atomic<bool>* cancel) {
    TmessagesOnce once;
    CallbackSession callbacks;
    runHook(fSceneGlobals.preQsl, "preQsl");
    size_t i = 0;
    while (i < fImages.size()) {
        const double frame = fImages[i].frame;
        fGraph.setTime(frame);
        runHook(fSceneGlobals.preRenderQsl, "preRenderQsl");
        while (i < fImages.size() && sameFrame(fImages[i].frame, frame)) {
            const size_t layerIndex = fImages[i].layer;
            const Layer& plan = fLayers[layerIndex];
            runHook(plan.globals.preRenderLayerQsl, "preRenderLayerQsl");
            while (i < fImages.size() && sameFrame(fImages[i].frame, frame) &&
                   fImages[i].layer == layerIndex) {
                // One task: the images of one camera's passes, rendered in one run.
                const size_t taskIndex = fImages[i].task;
                std::vector<size_t> toRender;
                std::vector<TrenderCallbackData> callbackData;
                for (; i < fImages.size() && sameFrame(fImages[i].frame, frame) &&
                       fImages[i].task == taskIndex;
                     ++i) {
                    const Image& image = fImages[i];
                    if (image.exists) {
                        listener.skipped(image, "exists");
                        continue;
                    }
                    // What the render callbacks are told: the image's number
                    // in the render (words0[0]), the camera, world to eye, the
                    // size (ints0) and the pass (shorts0[0]).
                    TrenderCallbackData data;
                    data.words0[0] = i;
                    data.path = image.camera;
                    data.matrix = image.camera.inclusiveMatrixInverse().asFloat();
                    data.ints0[0] = plan.width;
                    data.ints0[1] = plan.height;
                    data.shorts0[0] = int16_t(image.pass);
                    if (TrenderCallback::invokeRender(data) != 0) {
                        listener.skipped(image, "callback");
                        continue;
                    }
                    toRender.push_back(i);
                    callbackData.push_back(data);
                }
                if (toRender.empty())
                    continue;

                TrenderOptions sized = options;
                sized.width = plan.width;
                sized.height = plan.height;
                TrenderView view;
                view.layer = plan.layer;
                view.camera = fImages[toRender.front()].camera;
                std::vector<int> passes;
                for (const size_t k : toRender)
                    passes.push_back(fImages[k].pass);
                const Image* inHand = nullptr;
                const bool complete = Trenderer(sized).renderPasses(
                    fGraph, fScenePath, uint32_t(std::lround(frame * 16.0)), view, passes,
                    [&](size_t p) {
                        inHand = &fImages[toRender[p]];
                        listener.started(*inHand);
                    },
                    [&](size_t p, TrenderedImage& pixels, const TframeStats& stats) {
                        const Image& image = fImages[toRender[p]];
                        const fs::path folder = fs::path(image.path).parent_path();
                        std::error_code ec;
                        if (!folder.empty())
                            fs::create_directories(folder, ec);
                        OrvoWriteImage(image.path, pixels, plan.format);
                        TrenderCallback::invokePostProcess(callbackData[p]);
                        listener.written(image, stats);
                    },
                    cancel,
                    [&](unsigned done, unsigned total) {
                        if (inHand)
                            listener.progress(*inHand, done, total);
                    });
                if (!complete)
                    return false;
                if (cancel && cancel->load() && i < fImages.size())
                    return false;
            }
            runHook(plan.globals.postRenderLayerQsl, "postRenderLayerQsl");
        }
        runHook(fSceneGlobals.postRenderQsl, "postRenderQsl");
    }
    runHook(fSceneGlobals.postQsl, "postQsl");
    return true;
}
