// Scene.shade, Scene.compile and Scene.names: the tool's shade, compile
// and names commands, for scripts.

#include <fmt/format.h>

#include <sstream>

#include "apps/orvo/cli.h"
#include "apps/orvo/render_options.h"
#include "apps/orvo/shade_grid.h"
#include "host/graph.h"
#include "render/render_error.h"
#include "render/render_job.h"
#include <pybind11/stl.h>

#include "scene.h"
#include "shading/shading_engine.h"

namespace orvo::python {

namespace {

// The shaded grid: float32 values, row j = 0 first, each cell the outputs'
// numbers in order. Python sees it through the buffer protocol.
struct ShadeBuffer {
    std::vector<float> values;
    py::ssize_t height = 0, width = 0, channels = 0;
};

// The field's numbers as floats into `out`; returns how many.
unsigned writeFloats(const Tsample& sample, unsigned field, float* out) {
    using K = Tsample::FieldKind;
    const void* p = sample.field(field);
    const K kind = Tsample::fieldKind(field);
    switch (kind) {
    case K::Float3:
    case K::Float2:
    case K::Float:
    case K::Matrix: {
        const unsigned n = orvo::cli::floatsOf(kind);
        const auto* f = static_cast<const float*>(p);
        std::copy(f, f + n, out);
        return n;
    }
    case K::Int32:
        *out = float(*static_cast<const int32_t*>(p));
        return 1;
    case K::UInt32:
        *out = float(*static_cast<const uint32_t*>(p));
        return 1;
    case K::Int16:
        *out = float(*static_cast<const int16_t*>(p));
        return 1;
    case K::Char:
        *out = float(*static_cast<const char*>(p));
        return 1;
    case K::Bool:
        *out = *static_cast<const bool*>(p) ? 1.0f : 0.0f;
        return 1;
    default:
        return 0;
    }
}

std::vector<double> numbersOf(const py::handle& value, const std::string& name) {
    std::vector<double> out;
    if (py::isinstance<py::tuple>(value) || py::isinstance<py::list>(value)) {
        for (const py::handle item : value)
            out.push_back(item.cast<double>());
    } else if (PyNumber_Check(value.ptr())) {
        out.push_back(value.cast<double>());
    } else {
        throw callerFailure(
            fmt::format("shade: field {} takes a number or a tuple of numbers", name));
    }
    return out;
}

unsigned optionNumber(unsigned option) {
    if (option >= kTSEoptionCount)
        throw callerFailure(
            fmt::format("option {} is out of range: 0 to {}", option, kTSEoptionCount - 1));
    return option;
}

py::dict compileDict(const TDNshadingEngine::CompileSummary& s, const std::string& text) {
    py::dict d;
    d["group"] = s.group;
    d["option"] = s.option;
    d["compiled"] = s.compiled;
    d["provides"] = py::cast(s.provides);
    d["needs"] = py::cast(s.needs);
    d["surface_is_opaque"] = s.surfaceIsOpaque;
    py::list lights;
    for (const auto& l : s.lights) {
        py::dict light;
        light["name"] = l.name;
        light["instructions"] = l.instructions;
        lights.append(light);
    }
    d["lights"] = lights;
    d["sample_size"] = s.sampleSize;
    d["full_sample_size"] = s.fullSampleSize;
    d["frame_size"] = s.frameSize;
    d["per_sample_size"] = s.perSampleSize;
    d["analysis"] = py::cast(s.analysis);
    py::list segments;
    for (const auto& g : s.segments) {
        py::dict segment;
        segment["first"] = g.first;
        segment["last"] = g.last;
        segment["root"] = g.root;
        segment["attribute"] = g.root ? py::object(py::none()) : py::object(py::str(g.attribute));
        segment["block"] = g.block;
        segments.append(segment);
    }
    d["segments"] = segments;
    d["instructions"] = py::cast(s.instructions);
    d["text"] = text;
    return d;
}

} // namespace

void bindShading(py::module_& m, py::class_<Scene>& scene) {
    py::class_<ShadeBuffer>(m, "ShadeBuffer", py::buffer_protocol(),
                            "The values of a shaded grid, float32 of shape (height, width, "
                            "channels). Scene.shade returns a memoryview of one.")
        .def_buffer([](ShadeBuffer& b) {
            return py::buffer_info(
                b.values.data(), sizeof(float), py::format_descriptor<float>::format(), 3,
                {b.height, b.width, b.channels},
                {py::ssize_t(sizeof(float)) * b.width * b.channels,
                 py::ssize_t(sizeof(float)) * b.channels, py::ssize_t(sizeof(float))});
        });

    scene.def(
        "shade",
        [](Scene& self, const std::string& group, const std::pair<unsigned, unsigned>& res,
           const py::dict& fields, const std::vector<std::string>& outputs, unsigned option,
           int pass) {
            orvo::cli::GridRequest request;
            request.group = group;
            request.sceneName = self.label();
            request.command = "shade";
            request.outputsOption = "outputs";
            request.option = optionNumber(option);
            request.pass = pass;
            request.width = res.first;
            request.height = res.second;
            request.outputs = outputs;
            if (res.first == 0 || res.second == 0 ||
                uint64_t(res.first) * res.second > uint64_t(1) << 28)
                throw callerFailure(
                    fmt::format("shade: res ({}, {}) must be above 0 and at most 2^28 samples",
                                res.first, res.second));
            for (const auto& [key, value] : fields) {
                const std::string name = py::str(key).cast<std::string>();
                request.fields.push_back(
                    orvo::cli::makeGridField(name, numbersOf(value, name), "shade: fields"));
            }
            auto buffer = std::make_unique<ShadeBuffer>();
            buffer->width = res.first;
            buffer->height = res.second;
            ShadeBuffer* out = buffer.get();
            {
                Scene::Use use(self);
                py::gil_scoped_release unlocked;
                std::vector<unsigned> fieldsRead;
                orvo::cli::shadeGrid(
                    use.graph(), request,
                    [&](const std::vector<unsigned>& read, unsigned) {
                        fieldsRead = read;
                        for (unsigned f : read)
                            out->channels += orvo::cli::floatsOf(Tsample::fieldKind(f));
                        out->values.assign(
                            size_t(out->width) * size_t(out->height) * size_t(out->channels), 0.0f);
                    },
                    // Straight into the buffer: no object made per sample.
                    [&](unsigned cell, const Tsample& sample) {
                        float* at = out->values.data() + size_t(cell) * size_t(out->channels);
                        for (unsigned f : fieldsRead)
                            at += writeFloats(sample, f, at);
                    });
            }
            return py::memoryview(py::cast(std::move(buffer)));
        },
        py::arg("group"), py::arg("res") = std::make_pair(4u, 4u), py::arg("fields") = py::dict(),
        py::arg("outputs") = std::vector<std::string>{"outColor"}, py::arg("option") = 0u,
        py::arg("pass_") = 0,
        "Shades a grid of samples through the shading group `group`, as `orvo shade` does:\n"
        "sample (i, j) has uvCoord ((i + 0.5) / w, (j + 0.5) / h), and every sample the\n"
        "values of `fields` (sample field name -> number or tuple). Returns a memoryview of\n"
        "float32 with shape (h, w, channels): row j = 0 first, each cell the numbers of\n"
        "`outputs` in order (outColor alone by default: 3 channels). `option` is what to\n"
        "shade for (0: surface), `pass_` the render pass.");

    scene.def(
        "compile",
        [](Scene& self, const std::string& group, unsigned option) {
            optionNumber(option);
            std::string text;
            TDNshadingEngine::CompileSummary summary;
            {
                Scene::Use use(self);
                TDNshadingEngine& engine =
                    orvo::cli::findShadingGroup(use.graph(), group, self.label(), "compile");
                engine.analyse(option, nullptr);
                std::ostringstream report;
                engine.compileReport(report, option, false);
                text = report.str();
                summary = engine.compileSummary(option);
                TrenderThreadBase::deleteAllOpuses();
            }
            return compileDict(summary, text);
        },
        py::arg("group"), py::arg("option") = 0u,
        "The compile report of a shading group, as a dict: 'provides' and 'needs' (sample\n"
        "fields), 'lights', the sizes, 'analysis' (per node, the attribute states),\n"
        "'segments', 'instructions', and 'text', what `orvo compile` prints.");

    scene.def(
        "names",
        [](Scene& self, const std::string& outputDir,
           const std::optional<std::vector<double>>& frames, const std::string& format) {
            TrenderOverrides overrides;
            orvo::cli::parseFramesAndFormat(frames.value_or(std::vector<double>{}), format,
                                            overrides, "names");
            std::vector<std::string> paths;
            Scene::Use use(self);
            try {
                TrenderJob job(use.graph(), self.label(), outputDir, overrides);
                for (const TrenderJob::Image* image : job.imagesToWrite())
                    paths.push_back(image->path);
            } catch (const TrenderError& e) {
                throw callerFailure(e.what());
            }
            return paths;
        },
        py::arg("output_dir") = ".", py::arg("frames") = py::none(), py::arg("format") = "",
        "The path of every image render(output_dir) would write, in render order, as `orvo\n"
        "names` prints them. `frames` is (first, last) or (first, last, step); `format` an\n"
        "image format keyword.");
}

} // namespace orvo::python
