#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "apps/orvo/cli.h"
#include "apps/orvo/farm.h"
#include "apps/orvo/render_options.h"
#include "apps/orvo/scene.h"
#include "host/graph.h"
#include "host/qsl/interpreter.h"
#include "host/scene/render_layer.h"
#include "render/default_scene.h"
#include "render/image_io.h"
#include "render/render_error.h"
#include "render/render_job.h"
#include "render/renderer.h"
#include "textures/file_texture.h"

namespace orvo::cli {

namespace {

struct RenderOptions {
    std::string scene;
    std::string output = ".";
    std::vector<double> frames;
    std::vector<unsigned> resolution;
    unsigned threads = 0;
    unsigned spp = 4;
    std::string format;
    bool floatExr = false;
    bool abortOnMissingTexture = false;
    bool noPost = false;
    bool plan = false;
    std::string onlyFrames;
    bool skipExisting = false;
    // On a farm.
    std::string farm;
    unsigned chunk = 1;
    unsigned farmCpus = 1;
    bool dryRun = false;
    std::vector<std::string> farmArgs;
    std::string farmStatus;
};

// "1,2,5" into frames.
std::vector<double> parseFrameList(const std::string& text) {
    std::vector<double> frames;
    size_t at = 0;
    while (at <= text.size()) {
        const size_t comma = std::min(text.find(',', at), text.size());
        const std::string word = text.substr(at, comma - at);
        char* end = nullptr;
        const double frame = std::strtod(word.c_str(), &end);
        if (word.empty() || *end != '\0' || !std::isfinite(frame))
            throw UserError(fmt::format(
                "orvo render: --only-frames takes frames separated by commas (\"1,2,5\"), not "
                "'{}'",
                text));
        frames.push_back(frame);
        at = comma + 1;
    }
    return frames;
}

// The options every farm task repeats: what changes the plan or the pictures.
std::vector<std::string> forwardedOptions(const RenderOptions& options) {
    std::vector<std::string> out;
    auto number = [](double v) {
        return fmt::format("{}", v);
    };
    if (!options.frames.empty()) {
        out.push_back("--frames");
        for (const double f : options.frames)
            out.push_back(number(f));
    }
    if (!options.resolution.empty()) {
        out.push_back("--res");
        for (const unsigned r : options.resolution)
            out.push_back(std::to_string(r));
    }
    out.push_back("--spp");
    out.push_back(std::to_string(options.spp));
    if (!options.format.empty()) {
        out.push_back("--format");
        out.push_back(options.format);
    }
    if (options.floatExr)
        out.push_back("--float");
    if (options.noPost)
        out.push_back("--no-post");
    if (options.abortOnMissingTexture)
        out.push_back("--abort-on-missing-texture");
    return out;
}

// Ctrl-C asks the render to stop after the tiles in hand; the frame is then
// dropped and nothing is written. A second Ctrl-C ends the process at once.
std::atomic<bool> gInterrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "the signal handler stores a flag");

void onInterrupt(int) {
    gInterrupted.store(true);
    ::signal(SIGINT, SIG_DFL);
}

class InterruptGuard {
public:
    InterruptGuard() {
        gInterrupted.store(false);
        struct sigaction action {};
        action.sa_handler = onInterrupt;
        sigemptyset(&action.sa_mask);
        ::sigaction(SIGINT, &action, &fPrevious);
    }
    ~InterruptGuard() { ::sigaction(SIGINT, &fPrevious, nullptr); }
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;

private:
    struct sigaction fPrevious {};
};

std::string clock(double seconds) {
    const long s = std::lround(std::max(0.0, seconds));
    return s >= 3600 ? fmt::format("{}:{:02}:{:02}", s / 3600, (s / 60) % 60, s % 60)
                     : fmt::format("{}:{:02}", s / 60, s % 60);
}

// 1234567 as "1,234,567".
std::string grouped(uint64_t n) {
    std::string digits = std::to_string(n), out;
    for (size_t i = 0; i < digits.size(); ++i) {
        if (i && (digits.size() - i) % 3 == 0)
            out.push_back(',');
        out.push_back(digits[i]);
    }
    return out;
}

// Frame 1 as "0001", frame 2.5 as "0002.5".
std::string frameText(double frame) {
    const double whole = std::floor(frame);
    std::string text = fmt::format("{:04}", long(whole));
    if (frame != whole) {
        std::string fraction = fmt::format("{:.4f}", frame - whole).substr(1);
        while (fraction.back() == '0')
            fraction.pop_back();
        text += fraction;
    }
    return text;
}

std::unique_ptr<TdependGraph> loadDefaultScene() {
    auto graph = std::make_unique<TdependGraph>();
    TdependGraph::fsCurrentGraph = graph.get();
    try {
        qsl::Interpreter(*graph).runText(OrvoDefaultSceneText(), OrvoDefaultSceneName());
    } catch (const qsl::ParseError& e) {
        throw std::runtime_error(std::string("the built-in default scene: ") + e.what());
    }
    return graph;
}

// Prints each image as it is done, and on a terminal a progress bar.
class RenderReport : public TrenderJob::Listener {
public:
    RenderReport(const TrenderJob& job, unsigned spp, bool terminal)
        : fJob(job), fSpp(spp), fTerminal(terminal) {}

    void started(const TrenderJob::Image& image) override {
        fStart = std::chrono::steady_clock::now();
        fInHand = &image;
    }
    void progress(const TrenderJob::Image& image, unsigned done, unsigned total) override {
        if (!fTerminal || total == 0)
            return;
        const double elapsed =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - fStart).count();
        const double share = double(done) / double(total);
        const int width = 30, filled = int(share * width);
        const std::string left = done ? clock(elapsed / share - elapsed) : "?";
        std::fprintf(stderr, "\rframe %s [%s%s] %3d%%  %s elapsed, %s left ",
                     frameText(image.frame).c_str(), std::string(size_t(filled), '#').c_str(),
                     std::string(size_t(width - filled), '-').c_str(), int(share * 100.0),
                     clock(elapsed).c_str(), left.c_str());
        std::fflush(stderr);
    }
    void written(const TrenderJob::Image& image, const TframeStats& stats) override {
        clearLine();
        fInHand = nullptr;
        fSamples += stats.samplesShaded;
        ++fImages;
        if (fFrames.empty() || fFrames.back() != image.frame)
            fFrames.push_back(image.frame);
        const TrenderJob::Layer& layer = fJob.layers()[image.layer];
        std::printf("frame %s: %s  %ux%u, %u spp, %.2f s, %s samples\n",
                    frameText(image.frame).c_str(), image.path.c_str(), layer.width, layer.height,
                    fSpp, stats.seconds, grouped(stats.samplesShaded).c_str());
        std::fflush(stdout);
    }
    void skipped(const TrenderJob::Image& image, const char* why) override {
        clearLine();
        std::printf("frame %s: %s  skipped: %s\n", frameText(image.frame).c_str(),
                    image.path.c_str(),
                    std::string(why) == "exists" ? "it exists and skipExistingFrames is on"
                                                 : "a render callback took it");
        std::fflush(stdout);
    }
    void clearLine() const {
        if (fTerminal)
            std::fputs("\r\033[K", stderr);
    }

    // The image in hand when a run stopped, or null.
    const TrenderJob::Image* inHand() const { return fInHand; }
    const std::vector<double>& frames() const { return fFrames; }
    unsigned images() const { return fImages; }
    uint64_t samples() const { return fSamples; }

private:
    const TrenderJob& fJob;
    unsigned fSpp;
    bool fTerminal;
    std::chrono::steady_clock::time_point fStart;
    const TrenderJob::Image* fInHand = nullptr;
    std::vector<double> fFrames;
    unsigned fImages = 0;
    uint64_t fSamples = 0;
};

// The render tasks and, under each, the images it writes frame by frame.
void printPlan(const TrenderJob& job) {
    for (size_t t = 0; t < job.tasks().size(); ++t) {
        const TrenderJob::Task& task = job.tasks()[t];
        const TrenderJob::Layer& layer = job.layers()[task.layer];
        std::string passes;
        for (const int pass : task.passes)
            passes += std::string(passes.empty() ? "" : " ") + TdnRenderLayer::passName(pass);
        std::printf("task %zu: camera %s, layer %s, %ux%u, pass%s %s\n", t + 1,
                    task.cameraName.c_str(), layer.name.empty() ? "(none)" : layer.name.c_str(),
                    layer.width, layer.height, task.passes.size() == 1 ? "" : "es", passes.c_str());
        for (const TrenderJob::Image& image : job.images())
            if (image.task == t)
                std::printf("  frame %s %-8s %s%s\n", frameText(image.frame).c_str(),
                            image.passName.c_str(), image.path.c_str(),
                            image.exists ? "  (exists: skipped)" : "");
    }
}

int runRender(const RenderOptions& options) {
    if (!options.farmStatus.empty())
        return farm::status(options.farmStatus);
    const bool onFarm = !options.farm.empty();
    if (onFarm && options.farm != "slurm")
        throw UserError(
            fmt::format("orvo render: --farm {}: orvo submits to slurm only", options.farm));
    if (options.dryRun && !onFarm)
        throw UserError("orvo render: --dry-run prints a farm job; give --farm slurm");
    if (onFarm && options.scene.empty())
        throw UserError("orvo render: --farm needs a scene file that the farm's machines can "
                        "read");
    if (onFarm && (options.chunk == 0 || options.farmCpus == 0))
        throw UserError("orvo render: --chunk and --farm-cpus take a count of at least 1");

    InterruptGuard interrupts;
    RenderChoices choices;
    choices.frames = options.frames;
    choices.format = options.format;
    choices.resolution = options.resolution;
    choices.spp = options.spp;
    choices.threads = options.threads;
    choices.floatExr = options.floatExr;
    choices.postEffects = !options.noPost;
    TrenderOverrides overrides = renderOverrides(choices, "render");
    if (!options.onlyFrames.empty())
        overrides.onlyFrames = parseFrameList(options.onlyFrames);
    overrides.skipExisting = options.skipExisting;

    const bool builtIn = options.scene.empty();
    const std::string sceneName = builtIn ? OrvoDefaultSceneName() : options.scene;
    auto graph = builtIn ? loadDefaultScene() : loadScene(options.scene);
    // A farm's machines find the scene and the images by absolute paths.
    const std::string output =
        onFarm ? std::filesystem::absolute(options.output).lexically_normal().string()
               : options.output;
    std::unique_ptr<TrenderJob> job =
        planRender(*graph, sceneName, output, choices, overrides, "render");

    if (options.plan) {
        printPlan(*job);
        return kExitSuccess;
    }
    if (onFarm) {
        farm::SubmitOptions submit;
        submit.scene = std::filesystem::absolute(options.scene).lexically_normal().string();
        submit.output = std::filesystem::absolute(options.output).lexically_normal().string();
        submit.chunk = options.chunk;
        submit.cpus = options.farmCpus;
        submit.dryRun = options.dryRun;
        submit.sbatch = options.farmArgs;
        submit.forward = forwardedOptions(options);
        return farm::submit(*job, submit);
    }

    const TrenderOptions settings = renderSettings(*job, options.output, choices, "render");
    const unsigned threads = Trenderer(settings).threadCount();

    const bool terminal = ::isatty(STDERR_FILENO) == 1;
    RenderReport report(*job, options.spp, terminal);
    const auto start = std::chrono::steady_clock::now();
    bool complete = false;
    try {
        complete = job->run(settings, report, &gInterrupted);
    } catch (const TrenderError& e) {
        report.clearLine();
        throw UserError(e.what());
    }
    if (!complete) {
        report.clearLine();
        if (const TrenderJob::Image* image = report.inHand())
            throw UserError(fmt::format("orvo render: interrupted; frame {} ({}) was not written",
                                        frameText(image->frame), image->path));
        throw UserError(
            "orvo render: interrupted after frame " +
            (report.frames().empty() ? std::string("none") : frameText(report.frames().back())));
    }
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const size_t frames = report.frames().size();
    const std::string what = report.images() == frames
                                 ? fmt::format("{} frame{}", frames, frames == 1 ? "" : "s")
                                 : fmt::format("{} images ({} frame{})", report.images(), frames,
                                               frames == 1 ? "" : "s");
    std::printf(
        "rendered %s in %.2f s with %u thread%s: %s samples shaded, %s samples "
        "per second\n",
        what.c_str(), seconds, threads, threads == 1 ? "" : "s", grouped(report.samples()).c_str(),
        grouped(uint64_t(seconds > 0.0 ? double(report.samples()) / seconds : 0.0)).c_str());
    return kExitSuccess;
}

} // namespace

void addRenderCommand(CLI::App& app, CommandRun& run) {
    auto options = std::make_shared<RenderOptions>();
    CLI::App* sub = app.add_subcommand(
        "render", "Render a scene as its render settings say (the built-in default scene "
                  "without one); the options below override the scene's settings");
    sub->add_option("scene", options->scene, "Scene file (.qsl); none: the built-in scene");
    sub->add_option("-o,--output", options->output, "Folder for the images (default: .)");
    addFramesAndFormatOptions(*sub, options->frames, options->format);
    sub->add_option("--res", options->resolution,
                    "Width and height in pixels; overrides the scene's defaultResolution "
                    "(960 540 unless the scene sets it)")
        ->expected(2);
    sub->add_option("--threads", options->threads,
                    "Render threads; overrides the scene's numCpusToUse (0, the default: one "
                    "per core)");
    sub->add_option("--spp", options->spp, "Samples per pixel (4)");
    sub->add_flag("--float", options->floatExr,
                  "EXR with 32-bit float channels; overrides the scene's exrPixelType");
    sub->add_flag("--abort-on-missing-texture", options->abortOnMissingTexture,
                  "End with status 1 at the first texture file that cannot be found");
    sub->add_flag("--no-post", options->noPost,
                  "Leave out the post effects (shader glow, optical effects, depth of field)");
    sub->add_flag("--plan", options->plan,
                  "Print the render tasks (one run a frame renders the passes of one camera in "
                  "one layer) and the images of each, without rendering");
    sub->add_option("--only-frames", options->onlyFrames,
                    "Render only these frames of the scene's range, separated by commas "
                    "(\"1,2,5\")");
    sub->add_flag("--skip-existing", options->skipExisting,
                  "Keep images that are already there, as skipExistingFrames does");
    sub->add_option("--farm", options->farm,
                    "Submit the frames to a render farm as one array job: slurm");
    sub->add_option("--chunk", options->chunk, "Frames each farm task renders (1)");
    sub->add_option("--farm-cpus", options->farmCpus,
                    "Cores each farm task asks for and renders with (1)");
    sub->add_option("--farm-arg", options->farmArgs,
                    "An sbatch option for the job, such as --partition=render (repeatable)")
        ->allow_extra_args(false);
    sub->add_flag("--dry-run", options->dryRun,
                  "With --farm: print the job script, submit nothing");
    sub->add_option("--farm-status", options->farmStatus,
                    "Tell how the farm job JOBID goes: each task's state and the frames that "
                    "failed");
    sub->callback([&run, options] {
        run = [options] {
            TdnFileTexture::abortOnMissingTexture(options->abortOnMissingTexture);
            return runRender(*options);
        };
    });
}

} // namespace orvo::cli
