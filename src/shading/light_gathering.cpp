// Which lights reach which member of a shading group. The links live on
// light linker nodes: pairs of a light (or a set of lights) and an object
// (a shading group, an object set, or an object). A pass gathers entries of
// (light plug, flag word) from every source, takes away what ignore links
// say, merges duplicates and numbers the lights; each member gets a row of
// bits over those numbers.

#include <algorithm>

#include "host/graph.h"
#include "host/scene/dag.h"
#include "host/scene/light_shape.h"
#include "host/scene/object_set.h"
#include "host/scene/render_layer.h"
#include "shading/shading_engine.h"

namespace {

// The flag word of an entry.
constexpr uint32_t kMemberMask = 0x7FFFFFFu; // the member the entry applies to
constexpr uint32_t kThroughSet = 0x8000000u; // found in a set of lights
constexpr uint32_t kShared = 0x10000000u;    // the light has entries for other members
constexpr uint32_t kRemoved = 0x20000000u;
constexpr uint32_t kOwned = 0x40000000u; // the plug was made by the gathering
constexpr uint32_t kAllMembers = 0x80000000u;

// The child names of the four lists of a light linker, by pass.
struct LinkNames {
    const char* object;
    const char* light;
    const char* objectIgnored;
    const char* lightIgnored;
};
constexpr LinkNames kPassNames[2] = {
    {"object", "light", "objectIgnored", "lightIgnored"},
    {"shadowObject", "shadowLight", "shadowObjectIgnored", "shadowLightIgnored"},
};

bool visible(const TdependNode* node) {
    const auto* dag = dynamic_cast<const TdagObject*>(node);
    if (!dag)
        return true; // a light that isn't placed in the scene (a swatch light)
    const TdagPath path = dag->firstPath();
    return path.isValid() && TdagPathUtils::isObjectVisibleToRenderer(path) &&
           dag->inCurrentRenderLayer();
}

Tplug lightDataPlug(const TdependNode* node) {
    const Tattribute* a = node ? node->findAttribute("lightData") : nullptr;
    return a && a->isReadable() ? Tplug(node, a) : Tplug();
}

TobjectSet* asSet(TdependNode* node) {
    return node ? static_cast<TobjectSet*>(node->cast(TobjectSet::sTypeof())) : nullptr;
}

class Gathering {
public:
    Gathering(const TDNshadingEngine& engine, bool shadows) : fEngine(engine), fPass(shadows) {
        engine.completeGroupedMembers(fMembers);
    }

    void run() {
        addDefaultLights();
        addSGLinkedLights();
        addObjectSetLinkedLights();
        addObjectDirectLinkedLights();
        removeIgnoredLights();
        removeDuplicateLights();
    }

    unsigned memberCount() const { return fMembers.length(); }
    const std::vector<Tplug>& plugs() const { return fPlugs; }
    const std::vector<uint32_t>& flags() const { return fFlags; }

private:
    void add(const Tplug& plug, uint32_t flag) {
        fPlugs.push_back(plug);
        fFlags.push_back(flag);
    }
    void ignore(const Tplug& plug, uint32_t flag) {
        fIgnoredPlugs.push_back(plug);
        fIgnoredFlags.push_back(flag);
    }

    // Links whose object is the shading group itself apply to all members.
    void addDefaultLights() {
        TplugArray destinations;
        Tplug(&fEngine, &TdependNode::aMessage).getAllDestinations(destinations);
        for (const Tplug& d : destinations)
            addLightsFromLinker(d, kAllMembers);
    }

    // A light, a set of lights or a node with light data connected to the
    // group's linkedLights.
    void addSGLinkedLights() {
        const Tplug source = Tplug(&fEngine, &TDNshadingEngine::aLinkedLights).source();
        if (source.isNull())
            return;
        TdependNode* node = source.node();
        const Tplug data = lightDataPlug(node);
        if (!data.isNull() && source.attribute() == data.attribute()) {
            if (visible(node))
                add(data, kAllMembers);
            return;
        }
        if (data.isNull()) {
            if (TobjectSet* set = asSet(node)) {
                TselectionList members;
                set->completeGroupedMembers(members);
                for (const TdagSelectionItem& m : members) {
                    const Tplug p = lightDataPlug(m.node());
                    if (!p.isNull() && visible(m.node()))
                        add(p, kAllMembers | kOwned);
                }
            }
            return;
        }
        if (visible(node))
            add(data, kAllMembers | kOwned);
    }

    // Links whose object is a set (or a group) that holds a member.
    void addObjectSetLinkedLights() {
        for (unsigned i = 0; i < fMembers.length(); ++i) {
            const TdagSelectionItem& member = fMembers[i];
            std::vector<TobjectSet*> sets = member.isDag()
                                                ? TobjectSet::setsOfPathAndGroups(member.path())
                                                : TobjectSet::setsOf(member.node());
            // A set inside a set links what it holds too.
            for (size_t s = 0; s < sets.size(); ++s)
                for (TobjectSet* outer : TobjectSet::setsOf(sets[s]))
                    if (std::find(sets.begin(), sets.end(), outer) == sets.end())
                        sets.push_back(outer);
            for (TobjectSet* set : sets) {
                if (set == &fEngine)
                    continue;
                TplugArray destinations;
                Tplug(set, &TdependNode::aMessage).getAllDestinations(destinations);
                for (const Tplug& d : destinations)
                    addLightsFromLinker(d, i);
            }
        }
    }

    // Links whose object is the member itself.
    void addObjectDirectLinkedLights() {
        for (unsigned i = 0; i < fMembers.length(); ++i) {
            TdependNode* node = fMembers[i].node();
            if (!node)
                continue;
            TplugArray destinations;
            Tplug(node, &TdependNode::aMessage).getAllDestinations(destinations);
            for (const Tplug& d : destinations)
                addLightsFromLinker(d, i);
        }
    }

    // `plug` is an object end of a link on a linker: take the light end of
    // the same element.
    void addLightsFromLinker(const Tplug& plug, uint32_t flag) {
        TdependNode* linker = plug.node();
        if (!linker || linker->typeName() != "lightLinker")
            return;
        if (!(plug.mode() & Tplug::kChildOrElement) || plug.logicalIndex() == Tplug::kNoIndex)
            return;
        const LinkNames& names = kPassNames[fPass ? 1 : 0];
        const std::string& name = plug.attribute()->longName();
        const bool ignoring = name == names.objectIgnored;
        if (!ignoring && name != names.object)
            return;
        const Tplug element = plug.parent();
        const Tattribute* lightAttribute =
            linker->findAttribute(ignoring ? names.lightIgnored : names.light);
        if (element.isNull() || !lightAttribute)
            return;
        const Tplug source = element[lightAttribute].source();
        if (source.isNull())
            return;
        TdependNode* node = source.node();
        if (ignoring) {
            if (TobjectSet* set = asSet(node)) {
                forLightsOfSet(*set, [&](const Tplug& p, bool below) {
                    ignore(p, flag | kOwned | kThroughSet);
                });
                return;
            }
            const Tplug p = lightDataPlug(node);
            if (!p.isNull())
                ignore(p, flag | kOwned);
            return;
        }
        if (TobjectSet* set = asSet(node)) {
            forLightsOfSet(*set, [&](const Tplug& p, bool below) {
                if (visible(p.node()))
                    add(p, flag | kOwned | (below ? kThroughSet : 0));
            });
            return;
        }
        const Tplug p = lightDataPlug(node);
        if (!p.isNull() && visible(node))
            add(p, flag | kOwned);
    }

    // Each light of a set: members with light data, lights below members
    // without (a group holding lights), and the sets that a member's
    // `light` input names. `below` is true for lights found under a member.
    template <class F>
    void forLightsOfSet(const TobjectSet& set, F&& f, unsigned depth = 0) {
        if (depth > 16)
            return; // sets naming each other: stop rather than loop
        TselectionList members;
        set.completeGroupedMembers(members);
        for (const TdagSelectionItem& m : members) {
            TdependNode* node = m.node();
            const Tplug p = lightDataPlug(node);
            if (!p.isNull()) {
                f(p, false);
                continue;
            }
            if (m.isDag()) {
                for (TdagIterator it(m.path()); !it.isDone(); it.next()) {
                    const Tplug below = lightDataPlug(it.node());
                    if (!below.isNull() && it.depth() > 0)
                        f(below, true);
                }
                continue;
            }
            if (const Tattribute* light = node ? node->findAttribute("light") : nullptr)
                if (TobjectSet* inner = asSet(Tplug(node, light).source().node()))
                    forLightsOfSet(*inner, f, depth + 1);
        }
    }

    static bool sameLight(const Tplug& a, const Tplug& b) {
        return a.node() == b.node() && a.attribute() == b.attribute();
    }

    void removeIgnoredLights() {
        for (size_t k = 0; k < fIgnoredPlugs.size(); ++k) {
            const uint32_t ig = fIgnoredFlags[k];
            for (size_t e = 0; e < fPlugs.size(); ++e) {
                const uint32_t entry = fFlags[e];
                if ((entry & kRemoved) || !sameLight(fPlugs[e], fIgnoredPlugs[k]))
                    continue;
                // An ignore found through a set doesn't undo a direct link.
                if (!((entry & kThroughSet) || !(ig & kThroughSet)))
                    continue;
                if (ig & kAllMembers) {
                    fFlags[e] |= kRemoved;
                } else if (entry & kAllMembers) {
                    // Everyone but the ignored member keeps the light.
                    fFlags[e] |= kRemoved;
                    const Tplug plug = fPlugs[e];
                    const uint32_t base =
                        ((entry & ~(kAllMembers | kMemberMask)) | kThroughSet | kShared) &
                        ~kRemoved;
                    for (unsigned m = 0; m < fMembers.length(); ++m)
                        if (m != (ig & kMemberMask))
                            add(plug, base | m);
                } else if ((entry & kMemberMask) == (ig & kMemberMask)) {
                    fFlags[e] |= kRemoved;
                }
            }
        }
    }

    void removeDuplicateLights() {
        for (size_t i = 0; i < fPlugs.size(); ++i) {
            if (fFlags[i] & kRemoved)
                continue;
            for (size_t j = i + 1; j < fPlugs.size(); ++j) {
                if ((fFlags[j] & kRemoved) || !sameLight(fPlugs[i], fPlugs[j]))
                    continue;
                const bool allI = fFlags[i] & kAllMembers, allJ = fFlags[j] & kAllMembers;
                if ((fFlags[i] & kMemberMask) == (fFlags[j] & kMemberMask) && allI == allJ) {
                    fFlags[j] |= kRemoved;
                } else if (allI || allJ) {
                    // The entry for everyone stands for the others of its light.
                    const size_t keep = allI ? i : j;
                    for (size_t o = 0; o < fPlugs.size(); ++o)
                        if (o != keep && sameLight(fPlugs[o], fPlugs[keep]) &&
                            !(fFlags[o] & kAllMembers))
                            fFlags[o] |= kRemoved;
                    if (fFlags[i] & kRemoved)
                        break;
                } else {
                    fFlags[i] |= kShared;
                    fFlags[j] |= kShared;
                }
            }
        }
    }

    const TDNshadingEngine& fEngine;
    bool fPass;
    TselectionList fMembers;
    std::vector<Tplug> fPlugs;
    std::vector<uint32_t> fFlags;
    std::vector<Tplug> fIgnoredPlugs;
    std::vector<uint32_t> fIgnoredFlags;
};

} // namespace

void TDNshadingEngine::gatherLights() {
    for (unsigned pass = 0; pass < 2; ++pass) {
        Gathering g(*this, pass == 1);
        g.run();
        LightPass& out = fLights[pass];
        out = LightPass();
        const unsigned members = g.memberCount();
        // Number the lights: one number per light plug, in order of entry.
        std::vector<int> number(g.plugs().size(), -1);
        for (size_t e = 0; e < g.plugs().size(); ++e) {
            if (g.flags()[e] & kRemoved)
                continue;
            const auto known = std::find(out.lights.begin(), out.lights.end(), g.plugs()[e]);
            number[e] = int(known - out.lights.begin());
            if (known == out.lights.end())
                out.lights.push_back(g.plugs()[e]);
        }
        out.rows.assign(members, TbitFieldFixedN(out.lights.size()));
        out.rowCounts.assign(members, 0);
        for (size_t e = 0; e < g.plugs().size(); ++e) {
            if (number[e] < 0)
                continue;
            const uint32_t flag = g.flags()[e];
            auto setBit = [&](unsigned m) {
                if (!out.rows[m].test(size_t(number[e]))) {
                    out.rows[m].set(size_t(number[e]));
                    ++out.rowCounts[m];
                }
            };
            if (flag & kAllMembers) {
                for (unsigned m = 0; m < members; ++m)
                    setBit(m);
            } else if ((flag & kMemberMask) < members) {
                setBit(flag & kMemberMask);
            }
        }
    }
    fLightsGathered = true;
}

namespace {
bool rowHas(const std::vector<TbitFieldFixedN>& rows, const std::vector<Tplug>& lights,
            unsigned member, const TdependNode* light) {
    if (member >= rows.size())
        return false;
    for (size_t i = 0; i < lights.size(); ++i)
        if (lights[i].node() == light)
            return rows[member].test(i);
    return false;
}
} // namespace

bool TDNshadingEngine::litBy(unsigned member, const TdependNode* light) const {
    return rowHas(fLights[0].rows, fLights[0].lights, member, light);
}

bool TDNshadingEngine::shadowedBy(unsigned member, const TdependNode* light) const {
    return rowHas(fLights[1].rows, fLights[1].lights, member, light);
}

const TbitFieldFixedN* TDNshadingEngine::lightRow(unsigned member, bool shadows) const {
    const LightPass& pass = fLights[shadows ? 1 : 0];
    return member < pass.rows.size() ? &pass.rows[member] : nullptr;
}

unsigned TDNshadingEngine::lightRowCount(unsigned member, bool shadows) const {
    const LightPass& pass = fLights[shadows ? 1 : 0];
    return member < pass.rowCounts.size() ? pass.rowCounts[member] : 0u;
}

void TDNshadingEngine::mapLights(unsigned& flags, const TdependNode*) const {
    for (const Tplug& plug : fLights[0].lights) {
        if ((flags & kLightsUseDepthMaps) && (flags & kLightsTraceShadows))
            return;
        TdependNode* node = plug.node();
        if (const Tattribute* dms = node->findAttribute("useDepthMapShadows"))
            if (TdnRenderLayer::readValue(Tplug(node, dms), nullptr).asBool())
                flags |= kLightsUseDepthMaps;
        if (auto* light = dynamic_cast<const TlightShape*>(node))
            if (light->useRayTraceShadows())
                flags |= kLightsTraceShadows;
    }
}
