#pragma once

// The catalogue of colour transforms: one colour configuration loaded
// through OpenColorIO, its colour spaces and views by name, and processors
// between them. There is one per process; the scene's colour settings tell
// it which configuration to load (the built-in one in share/orvo/ocio, the
// file the OCIO variable names, or the scene's own path).
//
// A view transform is a display's view, named "View (Display)", for
// example "Standard (sRGB)".

#include <memory>
#include <mutex>
#include <string>
#include <vector>

// A colour transform ready to apply; an empty one leaves values alone.
// Applying is thread-safe and allocates nothing.
class TcolourProcessor {
public:
    struct Impl;
    TcolourProcessor() = default;
    explicit TcolourProcessor(std::shared_ptr<const Impl> impl) : fImpl(std::move(impl)) {}
    bool isNoOp() const { return !fImpl; }
    // One RGB triple in place.
    void apply(float* rgb) const;
    // `count` pixels of `stride` floats each, the first three RGB.
    void apply(float* pixels, size_t count, size_t stride) const;

private:
    std::shared_ptr<const Impl> fImpl;
};

class TcolorMgtCatalog {
public:
    static TcolorMgtCatalog& instance();
    // share/orvo/ocio/config.ocio of the source tree or the installation.
    static std::string builtinConfigPath();
    // The names of the built-in configuration's spaces and views that the
    // native defaults use.
    static const char* kSceneLinear;
    static const char* kSrgb;
    static const char* kRaw;
    static const char* kStandardView;

    // Loads a configuration; an empty path loads the built-in one. When the
    // file cannot be loaded the built-in one stays (or becomes) current and
    // `why` says what is wrong with the file, naming it.
    bool load(const std::string& path, std::string& why);
    // The configuration in force, loading the built-in one on first use.
    std::string configPath();
    bool usesBuiltin();
    // How many times a configuration has been loaded: a processor made under
    // an older generation may name spaces that are gone.
    unsigned generation();

    std::vector<std::string> colorSpaceNames();
    // The scene-linear spaces, fit to render in.
    std::vector<std::string> workingSpaceNames();
    std::vector<std::string> viewTransformNames();
    bool hasColorSpace(const std::string& name);
    bool hasViewTransform(const std::string& name);

    // From one colour space to another. False, with `why`, for an unknown
    // name. A conversion that changes nothing gives an empty processor.
    bool processor(const std::string& from, const std::string& to, TcolourProcessor& out,
                   std::string& why);
    // From a space to a display through a view transform ("View (Display)").
    bool viewProcessor(const std::string& from, const std::string& viewTransform,
                       TcolourProcessor& out, std::string& why);
    // An output transform: a view transform, or with a colour conversion a
    // colour space.
    bool outputProcessor(const std::string& from, const std::string& name, bool useColorConversion,
                         TcolourProcessor& out, std::string& why);

    // The colour space the configuration's own file rules give a file, and
    // the name of the rule that gave it.
    bool configFileRule(const std::string& path, std::string& space, std::string& rule);
    // The colour space a display's view shows, or empty.
    std::string viewColorSpace(const std::string& display, const std::string& view);

    // Splits "View (Display)"; false when the text is not of that form.
    static bool splitViewTransform(const std::string& name, std::string& view,
                                   std::string& display);

private:
    TcolorMgtCatalog() = default;
    struct State;
    std::shared_ptr<const State> current();
    std::mutex fMutex;
    std::shared_ptr<const State> fState;
    unsigned fGeneration = 0;
};
