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
#include "apps/orvo/scene.h"
#include "host/graph.h"
#include "host/qsl/interpreter.h"
#include "render/default_scene.h"
#include "render/image_io.h"
#include "render/render_error.h"
#include "render/renderer.h"

namespace orvo::cli {

namespace {

struct RenderOptions {
    std::string scene;
    std::string output = ".";
    std::vector<double> frames;
    std::vector<unsigned> resolution{640, 360};
    unsigned threads = 0;
    unsigned spp = 4;
    std::string format = "png";
    bool floatExr = false;
};

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

int runRender(const RenderOptions& options) {
    InterruptGuard interrupts;
    if (options.resolution.size() != 2 || options.resolution[0] == 0 ||
        options.resolution[1] == 0 || options.resolution[0] > 16384 ||
        options.resolution[1] > 16384)
        throw UserError("orvo render: --res takes a width and a height from 1 to 16384");
    if (options.spp == 0 || options.spp > 1024)
        throw UserError("orvo render: --spp takes a count from 1 to 1024");
    double first = 1.0, last = 1.0, step = 1.0;
    if (!options.frames.empty()) {
        first = options.frames[0];
        last = options.frames.size() > 1 ? options.frames[1] : first;
        step = options.frames.size() > 2 ? options.frames[2] : 1.0;
        if (!(step > 0.0) || last < first)
            throw UserError("orvo render: --frames A B STEP needs A <= B and a STEP above 0");
    }
    TimageFormat format;
    if (options.format == "png") {
        if (options.floatExr)
            throw UserError("orvo render: --float applies to EXR images (--format exr)");
        format = TimageFormat::Png;
    } else if (options.format == "exr") {
        format = options.floatExr ? TimageFormat::ExrFloat : TimageFormat::ExrHalf;
    } else {
        throw UserError(
            fmt::format("orvo render: --format '{}': choose png or exr", options.format));
    }

    const bool builtIn = options.scene.empty();
    const std::string sceneName = builtIn ? OrvoDefaultSceneName() : options.scene;
    auto graph = builtIn ? loadDefaultScene() : loadScene(options.scene);
    const std::string stem = std::filesystem::path(sceneName).stem().string();

    std::error_code ec;
    std::filesystem::create_directories(options.output, ec);
    if (!std::filesystem::is_directory(options.output))
        throw UserError(fmt::format("orvo render: {}: cannot make the output folder{}",
                                    options.output, ec ? ": " + ec.message() : ""));

    TrenderOptions settings;
    settings.width = options.resolution[0];
    settings.height = options.resolution[1];
    settings.samplesPerPixel = options.spp;
    settings.threads = options.threads;
    settings.depthMapDirectory = (std::filesystem::path(options.output) / "depth").string();
    Trenderer renderer(settings);

    const bool terminal = ::isatty(STDERR_FILENO) == 1;
    const auto start = std::chrono::steady_clock::now();
    uint64_t samples = 0;
    unsigned frames = 0;
    const unsigned frameCount = unsigned(std::floor((last - first) / step + 1e-9)) + 1;
    for (unsigned n = 0; n < frameCount; ++n) {
        const double frame = first + n * step;
        graph->setTime(frame);
        const std::string file =
            (std::filesystem::path(options.output) /
             fmt::format("{}.{}.{}", stem, frameText(frame), OrvoImageExtension(format)))
                .string();
        const auto frameStart = std::chrono::steady_clock::now();
        auto progress = [&](unsigned done, unsigned total) {
            if (!terminal || total == 0)
                return;
            const double elapsed =
                std::chrono::duration<double>(std::chrono::steady_clock::now() - frameStart)
                    .count();
            const double share = double(done) / double(total);
            const int width = 30, filled = int(share * width);
            const std::string left = done ? clock(elapsed / share - elapsed) : "?";
            std::fprintf(stderr, "\rframe %s [%s%s] %3d%%  %s elapsed, %s left ",
                         frameText(frame).c_str(), std::string(size_t(filled), '#').c_str(),
                         std::string(size_t(width - filled), '-').c_str(), int(share * 100.0),
                         clock(elapsed).c_str(), left.c_str());
            std::fflush(stderr);
        };
        TrenderedImage image;
        TframeStats stats;
        bool complete = false;
        try {
            complete = renderer.renderFrame(*graph, sceneName, uint32_t(std::lround(frame * 16.0)),
                                            image, stats, &gInterrupted, progress);
        } catch (const TrenderError& e) {
            if (terminal)
                std::fputs("\n", stderr);
            throw UserError(e.what());
        }
        if (terminal)
            std::fputs("\r\033[K", stderr);
        if (!complete) {
            throw UserError(fmt::format("orvo render: interrupted; frame {} was not written",
                                        frameText(frame)));
        }
        try {
            OrvoWriteImage(file, image, format);
        } catch (const TrenderError& e) {
            throw UserError(e.what());
        }
        samples += stats.samplesShaded;
        ++frames;
        std::printf("frame %s: %s  %ux%u, %u spp, %.2f s, %s samples\n", frameText(frame).c_str(),
                    file.c_str(), settings.width, settings.height, settings.samplesPerPixel,
                    stats.seconds, grouped(stats.samplesShaded).c_str());
        std::fflush(stdout);
        if (gInterrupted.load() && n + 1 < frameCount)
            throw UserError(
                fmt::format("orvo render: interrupted after frame {}", frameText(frame)));
    }
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("rendered %u frame%s in %.2f s with %u thread%s: %s samples shaded, %s samples "
                "per second\n",
                frames, frames == 1 ? "" : "s", seconds, renderer.threadCount(),
                renderer.threadCount() == 1 ? "" : "s", grouped(samples).c_str(),
                grouped(uint64_t(seconds > 0.0 ? double(samples) / seconds : 0.0)).c_str());
    return kExitSuccess;
}

} // namespace

void addRenderCommand(CLI::App& app, CommandRun& run) {
    auto options = std::make_shared<RenderOptions>();
    CLI::App* sub =
        app.add_subcommand("render", "Render a scene (the built-in default scene without one)");
    sub->add_option("scene", options->scene, "Scene file (.qsl); none: the built-in scene");
    sub->add_option("-o,--output", options->output, "Folder for the images (default: .)");
    sub->add_option("--frames", options->frames, "First and last frame, and the step (1 1 1)")
        ->expected(2, 3);
    sub->add_option("--res", options->resolution, "Width and height in pixels (640 360)")
        ->expected(2);
    sub->add_option("--threads", options->threads, "Render threads (default: one per core)");
    sub->add_option("--spp", options->spp, "Samples per pixel (4)");
    sub->add_option("--format", options->format, "png (8-bit, sRGB) or exr (linear, half)");
    sub->add_flag("--float", options->floatExr, "EXR with 32-bit float channels");
    sub->callback([&run, options] {
        run = [options] {
            return runRender(*options);
        };
    });
}

} // namespace orvo::cli
