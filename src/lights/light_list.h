#pragma once

// The scene's lights. Every light's `lightData` feeds an element of the
// light list's `lights`: that is what makes a node a light of the scene.
// The default light list gathers light records into one: its `lightData`
// is the light that the records of `lightDataArray` make together.
// TlightList is the list of light paths that tools keep and watch.

#include <map>
#include <vector>

#include "framework/node_pattern.h"
#include "host/scene/dag.h"

#define ORVO_SCHEMA_TdnLightList(A, C2, C3)                                                        \
    A(TattributeArrayOf<TattributeMessage>, Lights, "lights", "l", .flagsOn(0))

ORVO_NODE(TdnLightList, TdependNode, "lightList", "LLST", 373, "kLightList", "rendernode/list",
          "n_lightList")

class TdnLightList : public TdnPattern<TdnLightList, TdependNode> {
public:
    // The nodes whose plugs feed `lights`, in element order.
    std::vector<TdependNode*> lights() const;
    // The element after the last one in use.
    unsigned nextFreeIndex() const;

    void connectionMade(const Tplug& mine, const Tplug& other, bool asSource) override;
    void connectionBroken(const Tplug& mine, const Tplug& other, bool asSource) override;

private:
    std::map<unsigned, TdependNode*> fLights; // element index -> light
};

// A light record whose children carry an "Out" suffix, so that a node can
// hold an input array of records and an output record side by side.
class TattributeLightDataOut : public TattributeLightData {
public:
    TattributeLightDataOut(Tstring longName, Tstring shortName);
};

#define ORVO_SCHEMA_TdnDefaultLightList(A, C2, C3)                                                 \
    A(TattributeArrayOf<TattributeLightData>, LightDataArray, "lightDataArray", "lda",             \
      .flagsOff(TattrFlag::kStorable))                                                             \
    A(TattributeLightDataOut, LightData, "lightData", "ltd", .output())

ORVO_NODE(TdnDefaultLightList, TdependNode, "defaultLightList", "DEFL", 317, "kDefaultLightList",
          "rendernode/list", "n_defaultLightList")

// The records of lightDataArray make one record:
//   intensity            the sum of the intensities
//   preShadowIntensity   the sum of the pre-shadow intensities
//   direction            the directions weighted by the luminance of each
//                        intensity, normalised; (0, 0, 1) when they cancel
//   ambient, diffuse, specular   set when any record sets them
//   shadowFraction       the fractions weighted by pre-shadow intensity
//   blindData            the record's own with one record, else null
// With no record the light is dark: zero intensity, no flag set.
class TdnDefaultLightList : public TdnPattern<TdnDefaultLightList, TdependNode> {
public:
    static TlightData combine(const TlightData* records, unsigned count);

    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override;
};

// A list of DAG paths that tells its clients when it changes.
class TrenderList {
public:
    virtual ~TrenderList();

    // False (and no change) when the path is there already, or not there.
    virtual bool addToList(const TdagPath& path);
    virtual bool removeFromList(const TdagPath& path);
    const TdagPathArray& paths() const { return fPaths; }
    bool contains(const TdagPath& path) const;

    // Clients hear of each change of the list (its server-modified message).
    using ModifiedFn = void (*)(TrenderList& list, void* client);
    void addClient(void* client, ModifiedFn modified);
    void removeClient(const void* client);

protected:
    void sendModified();

private:
    TdagPathArray fPaths;
    std::vector<std::pair<void*, ModifiedFn>> fClients;
};

class TlightList : public TrenderList {
public:
    bool addToList(const TdagPath& path) override;
    bool removeFromList(const TdagPath& path) override;

    // The first path of every light of the scene that isn't exclusive: that
    // lights every object it isn't kept from, as a member of the scene's
    // default light set. In scene order.
    static void getDefaultList(const TdependGraph& graph, TdagPathArray& out);
};
