#include "settings/common_render_globals.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <mutex>

#include "framework/render_info.h"
#include "host/graph.h"
#include "host/messages.h"
#include "host/scene/camera.h"
#include "host/scene/render_layer.h"
#include "settings/image_name.h"
#include "settings/render_globals.h"

namespace {

using K = TdnKernel<TdnRenderGlobals>;

// The project's images folder; set by tools before names are made.
Tstring& imagesDirectory() {
    static Tstring folder;
    return folder;
}

// The text a layer gives names: its node's name, empty for none.
Tstring layerText(const TdnRenderLayer* layer) {
    return layer ? layer->name() : Tstring();
}

} // namespace

// ---------------------------------------------------------------- formats

Tstring TcommonRenderGlobalsData::getFormatExtension() const {
    if (outFormatControl == K::kNoOutputExt)
        return {};
    if (outFormatControl == K::kArbOutputExt)
        return outFormatExt;
    switch (outFormat) {
    case K::kGIF:
        return "gif";
    case K::kSI:
        return "pic";
    case K::kRLA:
        return "rla";
    case K::kTIFF:
    case K::kTIFF16:
        return "tif";
    case K::kSGI:
    case K::kSGI16:
        return "sgi";
    case K::kVELD:
        return "vld";
    case K::kIFF:
    case K::kIFF16:
    case K::kPHOTOSHOPLAYERED:
        return "iff";
    case K::kJPEG:
        return "jpg";
    case K::kEPS:
        return "eps";
    case K::kCINEON:
        return "cin";
    case K::kQUANTEL:
        return "yuv";
    case K::kTARGA:
        return "tga";
    case K::kBMP:
        return "bmp";
    case K::kSGIMV:
        return "mov";
    case K::kQT:
        return "qt";
    case K::kAVI:
        return "avi";
    case K::kMACPAINT:
        return "pntg";
    case K::kPHOTOSHOP:
        return "psd";
    case K::kPNG:
        return "png";
    case K::kQUICKDRAW:
        return "pict";
    case K::kQTIMAGE:
        return "qtif";
    case K::kDDS:
        return "dds";
    case K::kEXR:
        return "exr";
    case K::kSWF:
        return "swf";
    case K::kAI:
        return "ai";
    case K::kSVG:
        return "svg";
    case K::kSWFT:
        return "swft";
    case K::kIMF:
        return getPluginImageExtension(imfPluginKey, extension);
    case K::kCustom:
        return getCustomImageExtension(imfPluginKey);
    default:
        return extension;
    }
}

Tstring TcommonRenderGlobalsData::getImfFormat() const {
    switch (outFormat) {
    case K::kSI:
        return "pic";
    case K::kSGIMV:
        return "mov";
    case K::kPHOTOSHOPLAYERED:
        return "psdLayered";
    case K::kIFF:
    case K::kIFF16:
    case K::kSWF:
    case K::kAI:
    case K::kSVG:
    case K::kSWFT:
        return {};
    case K::kIMF:
    case K::kCustom:
        return imfPluginKey;
    case K::kGIF:
    case K::kRLA:
    case K::kTIFF:
    case K::kTIFF16:
    case K::kSGI:
    case K::kSGI16:
    case K::kVELD:
    case K::kJPEG:
    case K::kEPS:
    case K::kCINEON:
    case K::kQUANTEL:
    case K::kTARGA:
    case K::kBMP:
    case K::kQT:
    case K::kAVI:
    case K::kMACPAINT:
    case K::kPHOTOSHOP:
    case K::kPNG:
    case K::kQUICKDRAW:
    case K::kQTIMAGE:
    case K::kDDS:
    case K::kEXR: {
        // The same names as the extension table.
        TcommonRenderGlobalsData plain;
        plain.outFormat = outFormat;
        return plain.getFormatExtension();
    }
    default:
        return "UNKNOWN";
    }
}

Tstring TcommonRenderGlobalsData::getCustomImageExtension(const Tstring& key) {
    if (key == "tifu")
        return "tif";
    if (key == "qntntsc" || key == "qntpal")
        return "yuv";
    if (key == "psdLayered")
        return "psd";
    return key;
}

Tstring TcommonRenderGlobalsData::getPluginImageExtension(const Tstring& key,
                                                          const Tstring& fallback) {
    return key == "sony" ? Tstring("tim") : fallback;
}

bool TcommonRenderGlobalsData::isMultiframeFormat(int32_t format) {
    // Movies (21 to 23) and the vector formats 60, 62 and 63; Illustrator
    // (61) writes one file a frame.
    constexpr uint64_t kMask = 0xD000000000E00000ull;
    return format >= 0 && format <= 63 && ((kMask >> format) & 1u);
}

bool TcommonRenderGlobalsData::isMultiframeFormat() const {
    return isMultiframeFormat(outFormat);
}

// ---------------------------------------------------------------- patterns

void TcommonRenderGlobalsData::updateNamePattern() {
    const Tstring number = "%" + std::to_string(framePadding) + "n";
    auto hasToken = [this](char letter, bool oneDigitAtMost) {
        // "%[-_./]?e" and "%[-_./]?[0-9]?n": the prefix's own tokens.
        const Tstring& p = imageFilePrefix;
        for (size_t at = p.find('%'); at != Tstring::npos; at = p.find('%', at + 1)) {
            size_t i = at + 1;
            if (i < p.size() && Tstring("-_./").find(p[i]) != Tstring::npos)
                ++i;
            if (oneDigitAtMost && i < p.size() && p[i] >= '0' && p[i] <= '9' && i + 1 < p.size() &&
                p[i + 1] == letter)
                return true;
            if (i < p.size() && p[i] == letter)
                return true;
        }
        return false;
    };
    const Tstring extensionPart = hasToken('e', false) ? Tstring() : Tstring(".%e");
    const bool prefixHasFrame = hasToken('n', true);
    Tstring tail;
    switch (namingScheme) {
    case 1:
    case 8:
        tail = extensionPart;
        break;
    case 2:
        tail = prefixHasFrame ? extensionPart : "." + number + extensionPart;
        break;
    case 3:
        tail = prefixHasFrame ? extensionPart : extensionPart + "." + number;
        break;
    case 4:
        tail = prefixHasFrame ? Tstring() : "." + number;
        break;
    case 5:
        tail = prefixHasFrame ? extensionPart : number + extensionPart;
        break;
    case 6:
        tail = prefixHasFrame ? extensionPart : "_" + number + extensionPart;
        break;
    default: // 0, 7
        break;
    }
    namePattern = (imageFilePrefix.empty() ? Tstring("%s") : imageFilePrefix) + tail;
}

void TcommonRenderGlobalsData::refix() {
    frameInName = namingScheme > 1 && !isMultiframeFormat();
    fixedNamePattern =
        TimageName::fixPattern(namePattern, frameInName, multipleCameras || !fieldName.empty(),
                               multipleLayers || multiplePasses, useRenderPassSubdirs);
}

void TcommonRenderGlobalsData::setImageName(const Tstring& prefix) {
    imageFilePrefix = prefix;
    updateNamePattern();
    refix();
}

void TcommonRenderGlobalsData::setImageFormat(const Tstring& scheme) {
    static const char* const kForms[] = {"name",   "name.ext",  "name.#.ext", "name.ext.#",
                                         "name.#", "name#.ext", "name_#.ext"};
    int value = -1;
    for (int i = 0; i < 7; ++i)
        if (scheme == kForms[i] || scheme == std::to_string(i + 1))
            value = i;
    if (value < 0)
        return; // neither a form nor its digit: the scheme stands
    if (isMultiframeFormat()) {
        if (value > 1)
            return;
        value += 7;
    }
    namingScheme = value;
    updateNamePattern();
    refix();
}

void TcommonRenderGlobalsData::setFieldName(const Tstring& field) {
    fieldName = field;
    updateNamePattern();
    refix();
}

void TcommonRenderGlobalsData::setUseRenderPassSubdirs(bool on) {
    useRenderPassSubdirs = on;
    refix();
}

void TcommonRenderGlobalsData::setPassName(const Tstring& pass) {
    passName = multiplePasses ? pass : Tstring();
}

// ---------------------------------------------------------------- names

void TcommonRenderGlobalsData::setProjectImagesDirectory(const Tstring& folder) {
    imagesDirectory() = folder;
}

Tstring TcommonRenderGlobalsData::projectImagesDirectory() {
    return imagesDirectory();
}

bool TcommonRenderGlobalsData::isAbsoluteName(const Tstring& name) {
    return (!name.empty() && (name[0] == '\\' || name[0] == '/')) ||
           (name.size() >= 2 && name[1] == ':');
}

Tstring TcommonRenderGlobalsData::getImageName(TpathType pathType, TanimTime time,
                                               const Tstring& scene, const Tstring& camera,
                                               const TdnRenderLayer* layer,
                                               const Tstring& customExtension, bool makeDirectories,
                                               bool noFrame, const Tstring& customTokens,
                                               bool keepUnknownTokens, bool forcePassDirectory) {
    // A pass directory for this name alone.
    const bool switchPassDirectory = forcePassDirectory && !useRenderPassSubdirs;
    if (switchPassDirectory)
        setUseRenderPassSubdirs(true);

    int32_t frame = 0;
    if (frameInName) {
        const double number = modifyExtension
                                  ? (time - startFrame) / double(byFrame) * double(byExtension) +
                                        double(startExtension)
                                  : time;
        const double limited = std::clamp(number, double(INT32_MIN), double(INT32_MAX));
        frame = int32_t(std::lround(limited));
    }

    Tstring ext;
    if (!customExtension.empty())
        ext = getCustomImageExtension(customExtension);
    else if (outFormatControl == K::kDefaultOutputExt)
        ext = getFormatExtension();
    else
        ext = outFormatExt;

    Tstring name = TimageName::relativeFileName(
        fixedNamePattern, frame, frameOverride.empty() ? frameInName : false, frameOverride, ext,
        scene, camera, layerText(layer), passName, fieldName, versionName, noFrame, customTokens,
        keepUnknownTokens);

    if (pathType == 2)
        name = isAbsoluteName(name) ? TimageName::addBeforeExtension(name, "_tmp") : "tmp/" + name;
    if ((pathType == 1 || pathType == 2) && !isAbsoluteName(name) &&
        !projectImagesDirectory().empty())
        name = projectImagesDirectory() + "/" + name;
    if (makeDirectories && (pathType == 1 || pathType == 2)) {
        const std::filesystem::path folder = std::filesystem::path(name).parent_path();
        std::error_code ec;
        if (!folder.empty())
            std::filesystem::create_directories(folder, ec);
    }

    if (switchPassDirectory)
        setUseRenderPassSubdirs(false);
    return name;
}

void TcommonRenderGlobalsData::getAllImageNames(TpathType pathType, TanimTime time,
                                                const Tstring& scene, const TdnRenderLayer* layer,
                                                const TstringArray* fields,
                                                const TstringArray* passes, TstringArray& names,
                                                TstringArray& labels) {
    names.clear();
    const TstringArray cameras = getRenderableCameraNames(layer);
    const bool manyFields = fields && fields->size() > 1;
    const bool manyPasses = passes && passes->size() > 1;
    if (!manyFields && !fieldName.empty())
        setFieldName({});
    if (!manyPasses)
        setPassName({});
    const size_t passCount = manyPasses ? passes->size() : 1;
    const size_t fieldCount = manyFields ? fields->size() : 1;
    for (size_t p = 0; p < passCount; ++p) {
        if (manyPasses)
            setPassName((*passes)[p]);
        for (const Tstring& camera : cameras) {
            for (size_t f = 0; f < fieldCount; ++f) {
                if (manyFields)
                    setFieldName((*fields)[f]);
                names.push_back(getImageName(pathType, time, scene, camera, layer));
                Tstring label = layerText(layer);
                if (cameras.size() > 1)
                    label += "_" + camera;
                if (manyPasses)
                    label += "_" + (*passes)[p];
                if (manyFields)
                    label += "_" + (*fields)[f];
                labels.push_back(label);
            }
        }
    }
}

Tstring TcommonRenderGlobalsData::getBufferName(const TdependNode* source,
                                                const TdnRenderLayer* layer, const Tstring& camera,
                                                const Tstring& customTokens,
                                                bool keepUnknownTokens) {
    if (!source || source->typeName() != "renderPass")
        return {};
    const Tattribute* passId = source->findAttribute("passID");
    if (!passId || passId->kind() != TattrKind::Typed)
        return {};
    const TplugValue value = TdnRenderLayer::readValue(Tplug(source, passId), nullptr);
    const Tstring* passType = OrvoStringOf(*static_cast<const Tdata*>(value.address()));
    if (!passType)
        return {};
    const Tstring name = TimageName::getBufferName(
        fixedBufferNamePattern, *passType, source->name(), camera, layerText(layer),
        untruncatedBufferName, maxBufferNameLength, customTokens, keepUnknownTokens);
    if (name != untruncatedBufferName)
        TcommandEngine::displayWarning(
            TstringId("s_TcommonRenderGlobalsDataString.rExrChannelNameTrunctionWarning")
                .format(untruncatedBufferName, maxBufferNameLength, name));
    return name;
}

// ---------------------------------------------------------------- set-up

int TcommonRenderGlobalsData::passCount(const TdnRenderLayer* layer) {
    return layer ? int(layer->passesOn().size()) : 0;
}

void TcommonRenderGlobalsData::initializeImageNameSettings(const TdnRenderLayer* layer,
                                                           const TdnRenderLayer* defaultLayer,
                                                           const TdnRenderLayer* currentLayer) {
    (void)defaultLayer;
    const TdnRenderLayer* seen = layer ? layer : currentLayer;
    if (imfPluginKey != "exr" && seen) {
        // Render pass nodes and render targets are not in this host's scene
        // model: the pass states alone decide, and they need no directory.
        useRenderPassSubdirs = false;
        multiplePasses = passCount(seen) > 1;
    } else if (imfPluginKey == "exr") {
        useRenderPassSubdirs = false; // a layered file needs no pass directory
    }
    frameInName = namingScheme > 1 && !isMultiframeFormat();
    multipleCameras = getRenderableCameras(seen).size() > 1;
    TdependGraph* g = sceneGraph();
    if (g && TdnRenderLayerManager::find(*g))
        multipleLayers = !TdnRenderLayerManager::defaultLayerOnly(*g);
    // A scene of this host without render layers has no layer manager; it
    // renders through no layer, and its names are made all the same.
    refix();
}

void TcommonRenderGlobalsData::initializeBufferNameSettings() {
    multipleBufferCameras = getRenderableCameras(nullptr).size() > 1;
    fixedBufferNamePattern =
        TimageName::fixBufferNamePattern(bufferNamePattern, multipleBufferCameras);
}

// ---------------------------------------------------------------- cameras

TdependGraph* TcommonRenderGlobalsData::sceneGraph() const {
    return graph ? graph : TdependGraph::fsCurrentGraph;
}

TdagPathArray TcommonRenderGlobalsData::getRenderableCameras(const TdnRenderLayer* layer) const {
    TdagPathArray out;
    TdependGraph* g = sceneGraph();
    if (!g)
        return out;
    for (TdependNode* node : g->nodes()) {
        auto* camera = dynamic_cast<TcameraShape*>(node);
        if (!camera)
            continue;
        const TplugValue renderable = TrenderInfo::getDataFromPlug(
            Tplug(camera, &TcameraShape::aRenderable), layer, nullptr, nullptr);
        if (!renderable.asBool())
            continue;
        const TdagPathArray paths = camera->getAllPaths();
        out.insert(out.end(), paths.rbegin(), paths.rend());
    }
    return out;
}

Tstring TcommonRenderGlobalsData::cameraName(const TdagPath& path) {
    const TdagObject* transform = path.transform();
    if (transform)
        return transform->name();
    return path.node() ? path.node()->name() : Tstring();
}

TstringArray TcommonRenderGlobalsData::getRenderableCameraNames(const TdnRenderLayer* layer) const {
    TstringArray names;
    for (const TdagPath& path : getRenderableCameras(layer))
        names.push_back(cameraName(path));
    return names;
}

Tpixel32 TcommonRenderGlobalsData::getCommonBackGroundColor() {
    Tpixel32 pixel;
    TdependGraph* g = TdependGraph::fsCurrentGraph;
    if (!g)
        return pixel;
    const TdnRenderLayer* layer = TdnRenderLayerManager::currentLayer(*g);
    if (layer && layer->isDefaultLayer())
        layer = nullptr;
    for (TdependNode* node : g->nodes()) {
        auto* camera = dynamic_cast<TcameraShape*>(node);
        if (!camera || !camera->isRenderable(layer))
            continue;
        const T3Float colour = camera->backgroundColor(layer);
        auto byte = [](float c) {
            return uint8_t(std::clamp(c, 0.0f, 1.0f) * 255.0f);
        };
        pixel.r = byte(colour.x);
        pixel.g = byte(colour.y);
        pixel.b = byte(colour.z);
        break;
    }
    return pixel;
}
