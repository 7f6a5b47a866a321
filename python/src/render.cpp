// Scene.render: the tool's render, for scripts. The render runs without the
// Python lock, so other Python threads go on meanwhile; the progress
// callback takes the lock for its call.

#include <fmt/format.h>

#include <atomic>
#include <optional>

#include "apps/orvo/cli.h"
#include "apps/orvo/render_options.h"
#include "host/graph.h"
#include "render/render_error.h"
#include "render/render_job.h"
#include <pybind11/stl.h>

#include "scene.h"

namespace orvo::python {

namespace {

// Passes progress to the script's callable and keeps the written paths. An
// exception from the callable (a KeyboardInterrupt too) stops the render
// and is raised once it has stopped.
class ProgressToPython : public TrenderJob::Listener {
public:
    ProgressToPython(py::object callback, std::atomic<bool>& cancel)
        : fCallback(std::move(callback)), fCancel(cancel) {}
    ~ProgressToPython() override {
        py::gil_scoped_acquire locked;
        fCallback = py::object();
        fError.reset();
    }
    ProgressToPython(const ProgressToPython&) = delete;
    ProgressToPython& operator=(const ProgressToPython&) = delete;

    void progress(const TrenderJob::Image& image, unsigned done, unsigned total) override {
        call(image.path, done, total);
    }
    void written(const TrenderJob::Image& image, const TframeStats&) override {
        fWritten.push_back(image.path);
    }

    const std::vector<std::string>& written() const { return fWritten; }

    // Raises what the callback raised, if it did; with the Python lock held.
    void raiseIfFailed() {
        if (fError) {
            py::error_already_set error = std::move(*fError);
            fError.reset();
            throw error;
        }
    }

private:
    void call(const std::string& path, unsigned done, unsigned total) {
        if (fCancel.load())
            return;
        py::gil_scoped_acquire locked;
        try {
            // Ctrl-C while the render ran without the lock shows up here.
            if (PyErr_CheckSignals() != 0)
                throw py::error_already_set();
            if (fCallback && !fCallback.is_none())
                fCallback(path, done, total);
        } catch (py::error_already_set& e) {
            fError.emplace(std::move(e));
            fCancel.store(true);
        }
    }

    py::object fCallback;
    std::atomic<bool>& fCancel;
    std::optional<py::error_already_set> fError;
    std::vector<std::string> fWritten;
};

} // namespace

void bindRender(py::class_<Scene>& scene) {
    scene.def(
        "render",
        [](Scene& self, const std::string& outputDir,
           const std::optional<std::pair<unsigned, unsigned>>& res,
           const std::optional<std::vector<double>>& frames, const std::optional<unsigned>& spp,
           const py::object& progress, const std::optional<unsigned>& threads) {
            if (!progress.is_none() && !PyCallable_Check(progress.ptr()))
                throw callerFailure("render: progress must be callable or None");
            orvo::cli::RenderChoices choices;
            if (frames)
                choices.frames = *frames;
            if (res)
                choices.resolution = {res->first, res->second};
            choices.spp = spp.value_or(4);
            choices.threads = threads.value_or(0);
            const TrenderOverrides overrides = orvo::cli::renderOverrides(choices, "render");

            std::atomic<bool> cancel{false};
            ProgressToPython listener(progress, cancel);
            bool complete = false;
            {
                Scene::Use use(self);
                auto job = orvo::cli::planRender(use.graph(), self.label(), outputDir, choices,
                                                 overrides, "render");
                const TrenderOptions settings =
                    orvo::cli::renderSettings(*job, outputDir, choices, "render");
                py::gil_scoped_release unlocked;
                try {
                    complete = job->run(settings, listener, &cancel);
                } catch (const TrenderError& e) {
                    throw orvo::cli::UserError(e.what());
                }
            }
            listener.raiseIfFailed();
            if (!complete)
                throw callerFailure("render: stopped before the last image");
            return listener.written();
        },
        py::arg("output_dir"), py::arg("res") = py::none(), py::arg("frames") = py::none(),
        py::arg("spp") = py::none(), py::arg("progress") = py::none(),
        py::arg("threads") = py::none(),
        "Renders the scene as its render settings say into `output_dir`, as `orvo render`\n"
        "does, and returns the paths written. `res` (w, h), `frames` (first, last[, step]),\n"
        "`spp` (samples per pixel, 4) and `threads` override the scene's settings.\n"
        "`progress(path, done, total)` is called about ten times a second with the tiles done;\n"
        "an exception it raises stops the render and is raised here. Other Python threads run\n"
        "while the render does.");
}

} // namespace orvo::python
