#pragma once

// The texture a material info shows: what stands between a shading network
// and a texture on the drawing card. By what the shown plug belongs to it
// reads a file directly (kind 1), takes the node's swatch (2), has the
// network baked into an image (3), or picks a child per object through a
// shading switch (4). It keeps its textures until a change that matters
// marks them stale, and is told of changes by listening to the nodes it
// shows.

#include <memory>
#include <vector>

#include "framework/nodes/utility/render_utilities.h"
#include "host/draw/port.h"
#include "host/draw/texture_object.h"
#include "host/node_messages.h"
#include "host/pixel_map.h"
#include "host/plug.h"
#include "host/scene/dag.h"
#include "viewport/evaluate_texture_info.h"

class TmaterialInfo;
class TdnFileTexture;

// The top of the compound that `a` belongs to (`a` itself when it stands
// alone): a texture or material is shown by its output as a whole.
const Tattribute& OrvoRootAttribute(const Tattribute& a);

// The value of a node's attribute by name, or `fallback` when there is no
// node or it has no such attribute: the viewport reads nodes of several
// types through names they may not all have.
template <class T>
T OrvoAttributeValue(const TdependNode* node, const char* name, T fallback) {
    const Tattribute* a = node ? node->findAttribute(name) : nullptr;
    T out = fallback;
    return a && TrenderUtilities::getValue(Tplug(node, a), out) ? out : fallback;
}

class TmaterialTexture : public Tclient {
public:
    enum Kind : int32_t {
        kFile = 1,
        kSwatch = 2,
        kConvertSolid = 3,
        kSwitch = 4,
        kLayered = 5,
        kCubeMap = 6,
        kSphereMap = 7,
        kMultiple = 8,
    };
    // State bits.
    enum : uint32_t {
        kCycling = 0x1,       // file cycling: one texture a frame
        kHasBotFile = 0x2,    // the file has a block-ordered texture file
        kFileStale = 0x4,     // the file's image must be read again
        kSwatchStale = 0x8,   // the swatch must be taken again
        kBakeStale = 0x10,    // the baked images must be baked again
        kAskSupported = 0x20, // whether the file can be shown must be asked again
        kCycleRangeChanged = 0x40,
        kSharingStale = 0x80, // the sharing with another info must be looked up again
        kEnvStale = 0x100,
        kMultipleStale = 0x200,
        kFilterChanged = 0x400, // textureFilter changed
    };

    // `info` owns this (or the switch this is a child of, for `info`);
    // `plug` is the output shown.
    TmaterialTexture(TmaterialInfo* info, const Tplug& plug);
    ~TmaterialTexture() override;
    TmaterialTexture(const TmaterialTexture&) = delete;
    TmaterialTexture& operator=(const TmaterialTexture&) = delete;

    Kind kind() const { return fKind; }
    const Tplug& plug() const { return fPlug; }
    uint32_t stateBits() const { return fState; }
    bool hasState(uint32_t bits) const { return (fState & bits) != 0; }
    // The bit of this kind that says its images are stale.
    bool isDirty() const;

    // The texture for a draw of `object`, computing it when stale. With
    // `info` the pieces go there too (reset first): the tiles of a texture
    // in UV tiles, the placement and the UV range.
    TsharedGlTextureObject textureObject(T3dPort& port, const TdagPath& object,
                                         TevaluateTextureInfo* info = nullptr);
    size_t textureObjectsCount() const { return fTextures.size(); }
    TsharedGlTextureObject textureObject(size_t index) const {
        return index < fTextures.size() ? fTextures[index] : nullptr;
    }
    // How many images were read or baked so far: a draw that finds its
    // texture current adds none.
    unsigned computeCount() const { return fComputeCount; }

    // A plug of the shown node went dirty.
    void dirty(const Tplug& plug);
    // Frees the images; the structure stays.
    void purge();
    // A texture of this one that can serve `other` (the same file).
    TsharedGlTextureObject find(const TmaterialTexture& other, const Tstring& fileName) const;

    // The colour of a draw without the texture, and with it.
    T3Float getDefaultColor(const TdagPath& path) const;
    T3Float getTextureColor(const TdagPath& path) const;
    // The placement of the texture on the surface, for the texture matrix:
    // rotate (degrees, applied first), scale, offset, then the last angle.
    void getTextureTransform(const TdagPath& path, float& rotate, float& scaleU, float& scaleV,
                             float& offsetU, float& offsetV, float& angle) const;
    // The UV range the texture covers: (0, 0) to (1, 1) but for bakes.
    void getUvRange(const TdagPath& path, T2Float& lo, T2Float& hi) const;

    // A file in UV tiles: one texture a tile.
    bool tileSources() const { return fTileSources; }
    int32_t tileCount() const { return fTileCount; }

    // The slot of `frame` in a cycle of file frames from `start` to `end`
    // by `by` (0 counts as 1): (frame - start) / by, from 0 to
    // |(end - start) / by|. A frame outside the cycle gives slot 0 and
    // `inside` false.
    static int cycleSlot(int frame, int start, int end, int by, bool& inside);

    // Whether the file may be drawn directly (it looks as rendered).
    bool isSupportedFile();
    // The side of a bake of `node` in pixels.
    static unsigned nodeResolution(const TdependNode* node);

    // Class settings.
    static bool fsHardwareRender;
    static int fsHardwareRenderResolution;
    static bool fsDisableTextureCompute;

    // ---- Tclient
    void attributeChanged(TdependNode& node, const TattributeChangedMsg& msg) override;
    void nodeDirty(TdependNode& node, const TnodeDirtyMsg& msg) override;
    void nodeDeleted(TdependNode& node) override;

private:
    void chooseKind();
    void listenTo(TdependNode* node, unsigned kinds);
    void listenUpstream();
    void setState(uint32_t bits, bool on) { fState = on ? fState | bits : fState & ~bits; }
    TsharedGlTextureObject computeFile(T3dPort& port);
    TsharedGlTextureObject newFileTexture(T3dPort& port, const TpixelMap& map, size_t slot);
    void fillInfo(TevaluateTextureInfo& info, const TdagPath& path) const;
    // Warns once per file name that nothing was found for it.
    void warnNoFile(TdnFileTexture& file, const Tstring& why);
    TsharedGlTextureObject computeSwatch(T3dPort& port);
    TsharedGlTextureObject computeConvertSolid(T3dPort& port, const TdagPath& object);
    TsharedGlTextureObject upload(T3dPort& port, const TpixelMap& map, size_t slot);
    void applyFilter(TglTextureObject& texture);
    TdnFileTexture* file() const;
    bool colorTranspBothConnected() const;
    // Switches.
    void buildSwitch();
    TmaterialTexture* findSwitchPath(const TdagPath& path) const;
    void refresh();

    TmaterialInfo* fInfo;
    Kind fKind = kConvertSolid;
    Tplug fPlug;
    uint32_t fState = 0;
    std::vector<TdagPath> fPaths;
    std::vector<std::unique_ptr<TmaterialTexture>> fChildren;
    std::vector<TsharedGlTextureObject> fTextures;
    std::vector<std::pair<T2Float, T2Float>> fUvRanges;
    std::vector<TdependNode*> fSources;
    std::shared_ptr<const TpixelMap> fSwatch;
    Tstring fFileName;   // the file shown, for sharing
    Tstring fWarnedName; // the name last warned of as finding no file
    // The cycle the slots of fTextures were loaded for (start, end, by).
    int fCycle[3] = {0, 0, 0};
    std::vector<std::pair<int, int>> fTilePositions;
    int32_t fTileCount = 0;
    bool fTileSources = false;
    unsigned fComputeCount = 0;
    bool fOpaque = false;
    bool fForceClamp = true;
};
