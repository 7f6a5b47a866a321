// From a file texture's attributes to the files of a frame. Patterns of
// frame and tile tokens are the resolver script's business
// (orvo.app.general.fileTexturePathResolver); this side asks it once per
// node and frame and keeps the answer.

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "host/messages.h"
#include "host/python.h"
#include "host/scene_folder.h"
#include "textures/file_texture.h"

namespace {

const char* const kResolver = "orvo.app.general.fileTexturePathResolver";

bool call(const char* function, const TpythonValue::List& args, TpythonValue& out, Tstring& error) {
    std::optional<TpythonValue> result =
        TpythonInterpreter::call(kResolver, function, args, &error);
    if (!result)
        return false;
    out = std::move(*result);
    return true;
}

} // namespace

TdataHandle TdnFileTexture::plugValue(const Tattribute& attribute) {
    // The node's own block, its connected inputs pulled: this runs inside
    // the node's compute as well as before a render.
    return forceGetDatablock().inputValue(attribute);
}

Tstring TdnFileTexture::stringValue(const Tattribute& attribute) {
    const TdataHandle h = plugValue(attribute);
    if (h.isNull())
        return {};
    const Tstring* text = OrvoStringOf(h.as<Tdata>());
    return text ? *text : Tstring();
}

bool TdnFileTexture::getRawFileTextureName(Tstring& name, bool resolved) {
    name = stringValue(aFileTextureName);
    if (name.empty() || !resolved)
        return !name.empty();
    // A relative name is relative to the scene file that set it, when a
    // script did; otherwise to the working folder.
    std::filesystem::path path(name);
    const std::string folder = OrvoNodeSceneFolder(this);
    if (path.is_relative() && !folder.empty())
        name = (std::filesystem::path(folder) / path).lexically_normal().string();
    return true;
}

int TdnFileTexture::currentFrame() {
    return plugValue(aFrameExtension).asInt() + plugValue(aFrameOffset).asInt();
}

Tstring TdnFileTexture::fileTextureNamePattern() {
    return stringValue(aFileTextureNamePattern);
}

Tstring TdnFileTexture::computedFileTextureNamePattern() {
    return stringValue(aComputedFileTextureNamePattern);
}

Tstring TdnFileTexture::getCurrentTextureNamePattern() {
    Tstring raw;
    getRawFileTextureName(raw);
    const bool frames = plugValue(aUseFrameExtension).asBool();
    const int16_t mode = plugValue(aUvTilingMode).asShort();
    if (raw.empty() || (!frames && (mode == K::kOff || mode == K::kExplicitTiles)))
        return raw;
    TpythonValue out;
    Tstring error;
    if (!call("getFilePatternString", {raw, frames, int(mode)}, out, error) || !out.asString()) {
        warnOnce("pattern:" + raw,
                 TstringId("s_TfileTextureStrings.rNameResolverFailed")
                     .format(name(), raw, error.empty() ? "not a string" : error));
        return raw;
    }
    return *out.asString();
}

const TdnFileTexture::FileData& TdnFileTexture::getCachedFileDataForFrame(int frame) {
    if (auto it = fFileData.find(frame); it != fFileData.end())
        return it->second;
    FileData& data = fFileData[frame];
    Tstring raw;
    getRawFileTextureName(raw);
    const bool frames = plugValue(aUseFrameExtension).asBool();
    const int16_t mode = plugValue(aUvTilingMode).asShort();

    if (mode == K::kExplicitTiles) {
        // The tiles are listed on the node: a name and a position each,
        // relative names as for fileTextureName.
        data.tiled = true;
        const std::string folder = OrvoNodeSceneFolder(this);
        TuInt32Array indices;
        getExistingMultiAttributeIndices(Tplug(this, &aExplicitUvTiles), indices);
        for (const uint32_t index : indices) {
            auto at = [&](const Tattribute& child) {
                Tplug plug(this, &child);
                plug.setMultiIndex(&aExplicitUvTiles, index);
                return plug;
            };
            const Tplug namePlug = at(aExplicitUvTileName);
            const Tplug uPlug = at(aExplicitUvTilePositionU);
            const Tplug vPlug = at(aExplicitUvTilePositionV);
            const TdataHandle nameValue = forceGetDatablock().inputValue(namePlug);
            const Tstring* text =
                nameValue.isNull() ? nullptr : OrvoStringOf(nameValue.as<Tdata>());
            if (!text || text->empty())
                continue;
            std::filesystem::path path(*text);
            if (path.is_relative() && !folder.empty())
                path = std::filesystem::path(folder) / path;
            const TdataHandle uValue = forceGetDatablock().inputValue(uPlug);
            const float u = uValue.isNull() ? 0.0f : uValue.asFloat();
            const TdataHandle vValue = forceGetDatablock().inputValue(vPlug);
            const float v = vValue.isNull() ? 0.0f : vValue.asFloat();
            data.names.push_back(path.lexically_normal().string());
            data.tiles.emplace_back(int(std::floor(u)), int(std::floor(v)));
        }
        // The base tile: the first one's position when none is set.
        if (data.names.empty() && !raw.empty()) {
            data.names.push_back(raw);
            const float u = plugValue(aBaseExplicitUvTilePositionU).asFloat();
            const float v = plugValue(aBaseExplicitUvTilePositionV).asFloat();
            data.tiles.emplace_back(int(std::floor(u)), int(std::floor(v)));
        } else if (!raw.empty()) {
            const float u = plugValue(aBaseExplicitUvTilePositionU).asFloat();
            const float v = plugValue(aBaseExplicitUvTilePositionV).asFloat();
            data.names.insert(data.names.begin(), raw);
            data.tiles.insert(data.tiles.begin(), {int(std::floor(u)), int(std::floor(v))});
        }
        return data;
    }
    if (raw.empty())
        return data;
    if (!frames && mode == K::kOff) {
        data.names.push_back(raw);
        return data;
    }

    data.tiled = mode != K::kOff;
    data.pattern = getCurrentTextureNamePattern();
    // Without frames the resolver takes the text None for the frame.
    const TpythonValue frameArg = frames ? TpythonValue(frame) : TpythonValue("None");
    TpythonValue files;
    Tstring error;
    if (!call("findAllFilesForPattern", {data.pattern, frameArg}, files, error) ||
        !files.asList()) {
        data.error = error.empty() ? "the file list is not a list" : error;
        return data;
    }
    for (const TpythonValue& f : *files.asList())
        if (const Tstring* s = f.asString())
            data.names.push_back(*s);
    if (!data.tiled || data.names.empty())
        return data;
    TpythonValue uvs;
    if (!call("computeUVForFiles",
              {TpythonValue(TpythonValue::List(files.asList()->begin(), files.asList()->end())),
               data.pattern},
              uvs, error) ||
        !uvs.asList() || uvs.asList()->size() != data.names.size()) {
        data.error = error.empty() ? "the tile positions do not match the files" : error;
        data.names.clear();
        return data;
    }
    for (const TpythonValue& uv : *uvs.asList()) {
        const TpythonValue::List* pair = uv.asList();
        const auto u = pair && pair->size() == 2 ? (*pair)[0].asNumber() : std::nullopt;
        const auto v = pair && pair->size() == 2 ? (*pair)[1].asNumber() : std::nullopt;
        data.tiles.emplace_back(u ? int(std::floor(*u)) : 0, v ? int(std::floor(*v)) : 0);
    }
    return data;
}

std::vector<TdnFileTexture::FileData> TdnFileTexture::getFileDataForAllFrames() {
    std::vector<FileData> all;
    const int start = plugValue(aStartCycleExtension).asInt();
    const int end = plugValue(aEndCycleExtension).asInt();
    const int by = std::max(1, plugValue(aByCycleIncrement).asInt());
    for (int frame = start; frame <= end; frame += by)
        all.push_back(getCachedFileDataForFrame(frame));
    return all;
}

bool TdnFileTexture::getExactTextureName(Tstring& name) {
    const FileData& data = getCachedFileDataForCurrentFrame();
    if (data.names.empty())
        return false;
    name = data.names.front();
    return true;
}

Tstring TdnFileTexture::getPyramidUniqueIdentifier(const Tstring& file) {
    return Tpyramid::getUniqueIdentifier(file, false, plugValue(aPreFilter).asBool(),
                                         plugValue(aPreFilterRadius).asFloat());
}

bool TdnFileTexture::hasBOTFile() {
    Tstring name;
    return getExactTextureName(name) && Tpyramid::IsItABOTFile(name, nullptr, nullptr);
}
