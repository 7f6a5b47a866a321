#include "host/colour/catalog.h"

#include <dlfcn.h>

#include <OpenColorIO/OpenColorIO.h>
#include <filesystem>
#include <fmt/format.h>

namespace OCIO = OCIO_NAMESPACE;

const char* TcolorMgtCatalog::kSceneLinear = "scene-linear Rec.709-sRGB";
const char* TcolorMgtCatalog::kSrgb = "sRGB";
const char* TcolorMgtCatalog::kRaw = "Raw";
const char* TcolorMgtCatalog::kStandardView = "Standard (sRGB)";

struct TcolourProcessor::Impl {
    OCIO::ConstCPUProcessorRcPtr cpu;
};

void TcolourProcessor::apply(float* rgb) const {
    if (fImpl)
        fImpl->cpu->applyRGB(rgb);
}

void TcolourProcessor::apply(float* pixels, size_t count, size_t stride) const {
    if (!fImpl || count == 0)
        return;
    OCIO::PackedImageDesc image(pixels, long(count), 1, 3, OCIO::BIT_DEPTH_F32, sizeof(float),
                                ptrdiff_t(stride * sizeof(float)),
                                ptrdiff_t(count * stride * sizeof(float)));
    fImpl->cpu->apply(image);
}

struct TcolorMgtCatalog::State {
    OCIO::ConstConfigRcPtr config;
    std::string path;
    bool builtin = true;
};

namespace {

// The installed file is share/orvo/ocio under the prefix the library sits in
// (prefix/lib/liborvo_host.so); a build tree uses the sources.
std::string findBuiltin() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&findBuiltin), &info) && info.dli_fname) {
        namespace fs = std::filesystem;
        const fs::path installed = fs::path(info.dli_fname).parent_path().parent_path() / "share" /
                                   "orvo" / "ocio" / "config.ocio";
        std::error_code ec;
        if (fs::is_regular_file(installed, ec))
            return installed.string();
    }
    return std::string(ORVO_SHARE_DIR) + "/ocio/config.ocio";
}

// OpenColorIO reports through its own logger as well as by exception; the
// exception is what a user sees, once, so the logger stays quiet.
void quietLogging() {
    static const bool once = [] {
        OCIO::SetLoggingLevel(OCIO::LOGGING_LEVEL_NONE);
        return true;
    }();
    (void)once;
}

OCIO::ConstConfigRcPtr readConfig(const std::string& path) {
    OCIO::ConstConfigRcPtr config = OCIO::Config::CreateFromFile(path.c_str());
    config->validate();
    return config;
}

} // namespace

TcolorMgtCatalog& TcolorMgtCatalog::instance() {
    static TcolorMgtCatalog catalog;
    return catalog;
}

std::string TcolorMgtCatalog::builtinConfigPath() {
    static const std::string path = findBuiltin();
    return path;
}

bool TcolorMgtCatalog::load(const std::string& path, std::string& why) {
    quietLogging();
    auto state = std::make_shared<State>();
    bool ok = true;
    if (!path.empty()) {
        try {
            if (!std::filesystem::is_regular_file(path))
                throw std::runtime_error("no such file");
            state->config = readConfig(path);
            state->path = path;
            state->builtin = false;
        } catch (const std::exception& e) {
            why = fmt::format("{}: not a usable colour configuration ({}); the built-in one is "
                              "used",
                              path, e.what());
            ok = false;
        }
    }
    if (!state->config) {
        const std::string builtin = builtinConfigPath();
        try {
            state->config = readConfig(builtin);
        } catch (const std::exception& e) {
            // An installation without its own file: a raw configuration
            // keeps the program going, and the message says why colours
            // are off.
            state->config = OCIO::Config::CreateRaw();
            why = fmt::format("{}: the built-in colour configuration cannot be read ({})", builtin,
                              e.what());
            ok = false;
        }
        state->path = builtin;
        state->builtin = true;
    }
    std::lock_guard lock(fMutex);
    fState = std::move(state);
    ++fGeneration;
    return ok;
}

std::shared_ptr<const TcolorMgtCatalog::State> TcolorMgtCatalog::current() {
    {
        std::lock_guard lock(fMutex);
        if (fState)
            return fState;
    }
    std::string why;
    load("", why);
    std::lock_guard lock(fMutex);
    return fState;
}

std::string TcolorMgtCatalog::configPath() {
    return current()->path;
}

bool TcolorMgtCatalog::usesBuiltin() {
    return current()->builtin;
}

unsigned TcolorMgtCatalog::generation() {
    current();
    std::lock_guard lock(fMutex);
    return fGeneration;
}

std::vector<std::string> TcolorMgtCatalog::colorSpaceNames() {
    const auto state = current();
    std::vector<std::string> names;
    for (int i = 0; i < state->config->getNumColorSpaces(); ++i)
        names.emplace_back(state->config->getColorSpaceNameByIndex(i));
    return names;
}

std::vector<std::string> TcolorMgtCatalog::workingSpaceNames() {
    const auto state = current();
    std::vector<std::string> names;
    for (int i = 0; i < state->config->getNumColorSpaces(); ++i) {
        const char* name = state->config->getColorSpaceNameByIndex(i);
        OCIO::ConstColorSpaceRcPtr space = state->config->getColorSpace(name);
        if (space && !space->isData() && std::string(space->getEncoding()) == "scene-linear")
            names.emplace_back(name);
    }
    // A configuration that does not tell encodings: its scene-linear role.
    if (names.empty()) {
        if (OCIO::ConstColorSpaceRcPtr s = state->config->getColorSpace(OCIO::ROLE_SCENE_LINEAR))
            names.emplace_back(s->getName());
    }
    return names;
}

std::vector<std::string> TcolorMgtCatalog::viewTransformNames() {
    const auto state = current();
    std::vector<std::string> names;
    const OCIO::ConstConfigRcPtr& c = state->config;
    for (int d = 0; d < c->getNumDisplays(); ++d) {
        const char* display = c->getDisplay(d);
        for (int v = 0; v < c->getNumViews(display); ++v)
            names.push_back(fmt::format("{} ({})", c->getView(display, v), display));
    }
    return names;
}

bool TcolorMgtCatalog::hasColorSpace(const std::string& name) {
    return !name.empty() && current()->config->getColorSpace(name.c_str()) != nullptr;
}

bool TcolorMgtCatalog::hasViewTransform(const std::string& name) {
    for (const std::string& n : viewTransformNames())
        if (n == name)
            return true;
    return false;
}

bool TcolorMgtCatalog::splitViewTransform(const std::string& name, std::string& view,
                                          std::string& display) {
    const size_t open = name.rfind(" (");
    if (open == std::string::npos || name.size() < open + 3 || name.back() != ')')
        return false;
    view = name.substr(0, open);
    display = name.substr(open + 2, name.size() - open - 3);
    return true;
}

bool TcolorMgtCatalog::configFileRule(const std::string& path, std::string& space,
                                      std::string& rule) {
    const auto state = current();
    try {
        size_t index = 0;
        const char* name = state->config->getColorSpaceFromFilepath(path.c_str(), index);
        // A rule may name a role ("default"): the space it stands for.
        OCIO::ConstColorSpaceRcPtr found =
            name && *name ? state->config->getColorSpace(name) : nullptr;
        if (!found)
            return false;
        space = found->getName();
        OCIO::ConstFileRulesRcPtr rules = state->config->getFileRules();
        rule = rules && index < rules->getNumEntries() ? rules->getName(index) : "";
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

std::string TcolorMgtCatalog::viewColorSpace(const std::string& display, const std::string& view) {
    const char* space =
        current()->config->getDisplayViewColorSpaceName(display.c_str(), view.c_str());
    return space ? space : "";
}

namespace {

TcolourProcessor wrap(const OCIO::ConstProcessorRcPtr& processor) {
    if (processor->isNoOp())
        return {};
    auto impl = std::make_shared<TcolourProcessor::Impl>();
    impl->cpu = processor->getDefaultCPUProcessor();
    return TcolourProcessor(std::move(impl));
}

} // namespace

bool TcolorMgtCatalog::processor(const std::string& from, const std::string& to,
                                 TcolourProcessor& out, std::string& why) {
    const auto state = current();
    for (const std::string* name : {&from, &to})
        if (name->empty() || !state->config->getColorSpace(name->c_str())) {
            why = fmt::format("unknown colour space '{}'", *name);
            return false;
        }
    try {
        out = wrap(state->config->getProcessor(from.c_str(), to.c_str()));
        return true;
    } catch (const std::exception& e) {
        why = e.what();
        return false;
    }
}

bool TcolorMgtCatalog::viewProcessor(const std::string& from, const std::string& viewTransform,
                                     TcolourProcessor& out, std::string& why) {
    const auto state = current();
    std::string view, display;
    if (!state->config->getColorSpace(from.c_str())) {
        why = fmt::format("unknown colour space '{}'", from);
        return false;
    }
    if (!splitViewTransform(viewTransform, view, display) || !hasViewTransform(viewTransform)) {
        why = fmt::format("unknown view transform '{}'", viewTransform);
        return false;
    }
    try {
        out = wrap(state->config->getProcessor(from.c_str(), display.c_str(), view.c_str(),
                                               OCIO::TRANSFORM_DIR_FORWARD));
        return true;
    } catch (const std::exception& e) {
        why = e.what();
        return false;
    }
}

bool TcolorMgtCatalog::outputProcessor(const std::string& from, const std::string& name,
                                       bool useColorConversion, TcolourProcessor& out,
                                       std::string& why) {
    if (useColorConversion)
        return processor(from, name, out, why);
    return viewProcessor(from, name, out, why);
}
