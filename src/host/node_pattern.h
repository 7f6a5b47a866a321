#pragma once

// The node type pattern, shared by the host's scene types and the render
// model's node types. A node type T is declared by one schema block in
// its header, a list of its attributes in schema order:
//
//   #define ORVO_SCHEMA_TdnReverse(A, C2, C3) <backslash>
//       C3(Tattribute3Float, Input, "input", "i", ORVO_XYZ, .inputParent(), .input()) <backslash>
//       C3(Tattribute3Float, Output, "output", "o", ORVO_XYZ, .output(), .output())
//   ORVO_NODE(TdnReverse, TdependNode, "reverse", "RRVS", 464, "kReverse",
//             "utility/general:drawdb/shader/operation/reverse", "n_reverse")
//   class TdnReverse : public TdnPattern<TdnReverse, TdependNode> { ... };
//
// A(Class, Name, "long", "short", setup) is one attribute; C2 and C3 are a
// compound with two or three float children named by suffix, the parent's
// setup and the children's setup. Each entry becomes a member Name of the
// descriptor TdnVS<T>, a static reference aName of its exact class in
// TdnAttr<T>, and one addition in appendAttributes. The setups run in schema
// order when the descriptor is built, after compounds are wired.
//
// In the node's source file:
//   ORVO_DEPENDENCIES(TdnReverse) { affectsPaired(m, Input, Output); }
//   ORVO_REGISTER_NODE(TdnReverse);
// and the compute.

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>

#include "host/attribute.h"
#include "host/classification.h"
#include "host/debug.h"
#include "host/dependnode.h"
#include "host/graph.h"
#include "host/metaclass.h"
#include "host/shadingnode.h"

// Plug expressions are rooted at a type through its Attributes constant.
namespace PlugExprs {
struct ExprRoot {};
} // namespace PlugExprs

// Identity of a node type: what ORVO_NODE states.
template <class T>
struct TdnIdentity;

// The enumerations of a node type: k<Name> enumerators of its enum fields.
template <class T>
struct TdnKernel {};

template <class T>
struct TdnVS;

template <class T>
struct TdnAttr;

// Storage for a lazily built descriptor and its flags: `once` when it is
// built, `wired` when it knows its class record and parent (set by the node
// type's face on first use). The descriptor is an inactive union member until
// built, so the static attribute references can name its members from load
// on without building it; once built (or rebuilt after a clean-up, in the same
// place and of the same type) they name the live attributes.
template <class VS>
struct TdnVsPtr {
    union Slot {
        constexpr Slot() : none() {}
        ~Slot() {}
        char none;
        VS vs;
    } slot;
    bool once;
    bool wired;

    VS* get() { return &slot.vs; }
    // Builds the descriptor in place on first call. No lock: descriptors are
    // first touched at load or from the main thread.
    VS* ensure() {
        if (!once) {
            std::construct_at(&slot.vs);
            once = true;
        }
        return &slot.vs;
    }
};

// Base of every TdnVS<T>: the own attributes in schema order, and the
// dependency helpers that schemas use.
template <class T, class Parent>
struct TdnVSBase : public TdependNodeVS, public TdnKernel<T> {
    std::vector<Tattribute*> fOwn;

    bool appendAttributes(TattributeList& list) override {
        TdependNodeVS* parent = Parent::sVsBaseData();
        if (parent && parent != this) {
            const bool parentOk = parent->appendAttributes(list);
            if (!parentOk)
                return parentOk;
        }
        bool ok = true;
        for (Tattribute* a : fOwn) {
            if (list.addAttribute(a)) {
                a->setOwner(this);
                a->ref();
            } else {
                ok = false; // keep going: every addition is attempted
            }
        }
        return ok;
    }

    void initializeThreadSafety() override {
        TdependNodeClass* mine = classRecord();
        TdependNodeVS* parent = Parent::sVsBaseData();
        if (mine)
            mine->threadSafety = parent && parent->classRecord()
                                     ? parent->classRecord()->threadSafety
                                     : TdnIdentity<T>::kThreadSafety;
    }

protected:
    // An attribute with the children its own class built, depth first (a
    // light data record makes its fields itself). Children that a later
    // entry attaches with childOf are entries of their own.
    void ownTree(Tattribute& a) {
        fOwn.push_back(&a);
        for (Tattribute* c : a.children())
            ownTree(*c);
    }

    bool parentDependencies(TdependencyMatrix& m) {
        TdependNodeVS* parent = Parent::sVsBaseData();
        return !parent || parent == this || parent->setupDependencies(m);
    }

    // `from` dirties `to`; `to` is written by compute.
    static void affects(TdependencyMatrix& m, Tattribute& from, Tattribute& to) {
        m.attributeAffects(from, to, false);
        to.setComputeModifies(true);
    }
    // Every attribute of `from`'s tree dirties every attribute of `to`'s.
    static void affectsAll(TdependencyMatrix& m, Tattribute& from, Tattribute& to) {
        forTree(from,
                [&](Tattribute& f) { forTree(to, [&](Tattribute& t) { affects(m, f, t); }); });
    }
    // Component-wise: the parents, and the children paired by position.
    static void affectsPaired(TdependencyMatrix& m, Tattribute& from, Tattribute& to) {
        const uint32_t n = std::min(from.numChildren(), to.numChildren());
        for (uint32_t i = 0; i < n; ++i)
            affects(m, *from.child(i), *to.child(i));
        affects(m, from, to);
    }
    template <class F>
    static void forTree(Tattribute& a, F&& f) {
        f(a);
        for (Tattribute* c : a.children())
            forTree(*c, f);
    }
};

// Suffixes of compound children: tokens for member and long names, then for
// short names.
#define ORVO_XYZ X, Y, Z, x, y, z
#define ORVO_RGB R, G, B, r, g, b
#define ORVO_HSV H, S, V, h, s, v
#define ORVO_LXYZ x, y, z, x, y, z
#define ORVO_XY X, Y, x, y
#define ORVO_LXY x, y, x, y
#define ORVO_UV U, V, u, v

#define ORVO_PP_EXPAND(...) __VA_ARGS__

// A compound of three floats whose children are not named by a suffix on
// the parent's names (tangentUCamera "tu" has children "tangentUx" "tux"):
// the parent, then its three children by their own names, each with its
// own default.
#define ORVO_C3_NAMED(A, Name, Long, Short, l1, l2, l3, s1, s2, s3, d1, d2, d3, PSetup, CSetup)    \
    A(Tattribute3Float, Name, Long, Short, PSetup)                                                 \
    A(TattributeFloat, Name##1, l1, s1, CSetup.setNativeDefaultData(d1).childOf(Name))             \
    A(TattributeFloat, Name##2, l2, s2, CSetup.setNativeDefaultData(d2).childOf(Name))             \
    A(TattributeFloat, Name##3, l3, s3, CSetup.setNativeDefaultData(d3).childOf(Name))

// ---- descriptor members
#define ORVO_VS_MEMBER_A(Class, Name, Long, Short, Setup) Class Name{Long, Short};
#define ORVO_VS_MEMBER_C2(Class, Name, Long, Short, Sfx, PSetup, CSetup)                           \
    ORVO_PP_EXPAND(ORVO_VS_MEMBER_C2__(Class, Name, Long, Short, Sfx))
#define ORVO_VS_MEMBER_C2__(Class, Name, Long, Short, S1, S2, s1, s2)                              \
    Class Name{Long, Short};                                                                       \
    TattributeFloat Name##S1{Long #S1, Short #s1};                                                 \
    TattributeFloat Name##S2{Long #S2, Short #s2};
#define ORVO_VS_MEMBER_C3(Class, Name, Long, Short, Sfx, PSetup, CSetup)                           \
    ORVO_PP_EXPAND(ORVO_VS_MEMBER_C3__(Class, Name, Long, Short, Sfx))
#define ORVO_VS_MEMBER_C3__(Class, Name, Long, Short, S1, S2, S3, s1, s2, s3)                      \
    Class Name{Long, Short};                                                                       \
    TattributeFloat Name##S1{Long #S1, Short #s1};                                                 \
    TattributeFloat Name##S2{Long #S2, Short #s2};                                                 \
    TattributeFloat Name##S3{Long #S3, Short #s3};

// ---- wiring of compounds (first pass of the descriptor constructor)
#define ORVO_VS_WIRE_A(Class, Name, Long, Short, Setup)
#define ORVO_VS_WIRE_C2(Class, Name, Long, Short, Sfx, PSetup, CSetup)                             \
    ORVO_PP_EXPAND(ORVO_VS_WIRE_C2__(Name, Sfx))
#define ORVO_VS_WIRE_C2__(Name, S1, S2, s1, s2)                                                    \
    Name.addChild(Name##S1);                                                                       \
    Name.addChild(Name##S2);
#define ORVO_VS_WIRE_C3(Class, Name, Long, Short, Sfx, PSetup, CSetup)                             \
    ORVO_PP_EXPAND(ORVO_VS_WIRE_C3__(Name, Sfx))
#define ORVO_VS_WIRE_C3__(Name, S1, S2, S3, s1, s2, s3)                                            \
    Name.addChild(Name##S1);                                                                       \
    Name.addChild(Name##S2);                                                                       \
    Name.addChild(Name##S3);

// ---- setups (second pass), and the list of own attributes
#define ORVO_VS_SETUP_A(Class, Name, Long, Short, Setup)                                           \
    Name Setup;                                                                                    \
    this->ownTree(Name);
#define ORVO_VS_SETUP_C2(Class, Name, Long, Short, Sfx, PSetup, CSetup)                            \
    ORVO_PP_EXPAND(ORVO_VS_SETUP_C2__(Name, PSetup, CSetup, Sfx))
#define ORVO_VS_SETUP_C2__(Name, PSetup, CSetup, S1, S2, s1, s2)                                   \
    Name##S1 CSetup;                                                                               \
    Name##S2 CSetup;                                                                               \
    Name PSetup;                                                                                   \
    fOwn.push_back(&Name);                                                                         \
    fOwn.push_back(&Name##S1);                                                                     \
    fOwn.push_back(&Name##S2);
#define ORVO_VS_SETUP_C3(Class, Name, Long, Short, Sfx, PSetup, CSetup)                            \
    ORVO_PP_EXPAND(ORVO_VS_SETUP_C3__(Name, PSetup, CSetup, Sfx))
#define ORVO_VS_SETUP_C3__(Name, PSetup, CSetup, S1, S2, S3, s1, s2, s3)                           \
    Name##S1 CSetup;                                                                               \
    Name##S2 CSetup;                                                                               \
    Name##S3 CSetup;                                                                               \
    Name PSetup;                                                                                   \
    fOwn.push_back(&Name);                                                                         \
    fOwn.push_back(&Name##S1);                                                                     \
    fOwn.push_back(&Name##S2);                                                                     \
    fOwn.push_back(&Name##S3);

// ---- static references
#define ORVO_ATTR_REF(Class, Name) static inline Class& a##Name = fsVsData.slot.vs.Name;
#define ORVO_ATTR_A(Class, Name, Long, Short, Setup) ORVO_ATTR_REF(Class, Name)
#define ORVO_ATTR_C2(Class, Name, Long, Short, Sfx, PSetup, CSetup)                                \
    ORVO_PP_EXPAND(ORVO_ATTR_C2__(Class, Name, Sfx))
#define ORVO_ATTR_C2__(Class, Name, S1, S2, s1, s2)                                                \
    ORVO_ATTR_REF(Class, Name)                                                                     \
    ORVO_ATTR_REF(TattributeFloat, Name##S1)                                                       \
    ORVO_ATTR_REF(TattributeFloat, Name##S2)
#define ORVO_ATTR_C3(Class, Name, Long, Short, Sfx, PSetup, CSetup)                                \
    ORVO_PP_EXPAND(ORVO_ATTR_C3__(Class, Name, Sfx))
#define ORVO_ATTR_C3__(Class, Name, S1, S2, S3, s1, s2, s3)                                        \
    ORVO_ATTR_REF(Class, Name)                                                                     \
    ORVO_ATTR_REF(TattributeFloat, Name##S1)                                                       \
    ORVO_ATTR_REF(TattributeFloat, Name##S2)                                                       \
    ORVO_ATTR_REF(TattributeFloat, Name##S3)

// An enum field of a TdnKernel enumerator: .ORVO_FIELD(kNone, "No operation")
#define ORVO_FIELD(k, Label) addField(Label, #k, k)

// Declares a node type's identity, descriptor and static attribute
// references, from its schema block ORVO_SCHEMA_<T>.
#define ORVO_NODE(T, Parent, TypeName, Tag, Api, ApiString, Classification, NodeNameString)        \
    class T;                                                                                       \
    template <>                                                                                    \
    struct TdnIdentity<T> {                                                                        \
        using ParentType = Parent;                                                                 \
        static constexpr const char* kClassName = #T;                                              \
        static constexpr const char* kTypeName = TypeName;                                         \
        static constexpr const char* kIffTag = Tag;                                                \
        static constexpr int kApiType = Api;                                                       \
        static constexpr const char* kApiString = ApiString;                                       \
        static constexpr const char* kClassification = Classification;                             \
        static constexpr const char* kNodeNameString = NodeNameString;                             \
        static constexpr uint32_t kThreadSafety = 0;                                               \
    };                                                                                             \
    template <>                                                                                    \
    struct TdnVS<T> : public TdnVSBase<T, Parent> {                                                \
        ORVO_SCHEMA_##T(ORVO_VS_MEMBER_A, ORVO_VS_MEMBER_C2, ORVO_VS_MEMBER_C3) TdnVS();           \
        bool setupDependencies(TdependencyMatrix& m) override;                                     \
        void declareDependencies(TdependencyMatrix& m);                                            \
    };                                                                                             \
    template <>                                                                                    \
    struct TdnAttr<T> : public TdnKernel<T> {                                                      \
        static inline TdnVsPtr<TdnVS<T>> fsVsData{};                                               \
        static constexpr PlugExprs::ExprRoot Attributes{};                                         \
        ORVO_SCHEMA_##T(ORVO_ATTR_A, ORVO_ATTR_C2, ORVO_ATTR_C3)                                   \
    };

// Defines the descriptor constructor: wiring, then setups in schema order,
// then the n_<type> string on every attribute.
#define ORVO_DEFINE_SCHEMA(T)                                                                      \
    TdnVS<T>::TdnVS() {                                                                            \
        ORVO_SCHEMA_##T(ORVO_VS_WIRE_A, ORVO_VS_WIRE_C2, ORVO_VS_WIRE_C3);                         \
        ORVO_SCHEMA_##T(ORVO_VS_SETUP_A, ORVO_VS_SETUP_C2, ORVO_VS_SETUP_C3);                      \
        for (Tattribute * a : fOwn)                                                                \
            a->setNodeNameString(TdnIdentity<T>::kNodeNameString);                                 \
    }

// Defines setupDependencies: the parent's first, then the body that follows
// (with `m` the matrix).
#define ORVO_DEPENDENCIES(T)                                                                       \
    bool TdnVS<T>::setupDependencies(TdependencyMatrix& m) {                                       \
        if (!this->parentDependencies(m))                                                          \
            return false;                                                                          \
        declareDependencies(m);                                                                    \
        return true;                                                                               \
    }                                                                                              \
    void TdnVS<T>::declareDependencies([[maybe_unused]] TdependencyMatrix& m)

// The generated face of a node type: statics, identity overrides and the
// compute dispatch. T derives from TdnPattern<T, Base>.
template <class T, class Base>
class TdnPattern : public Base, public TdnAttr<T> {
public:
    using Identity = TdnIdentity<T>;
    using VS = TdnVS<T>;
    using BaseType = Base;

    TdnPattern() { sVsData(); }

    static VS* sVsData() {
        auto& storage = TdnAttr<T>::fsVsData;
        VS* vs = storage.ensure();
        if (!storage.wired) {
            storage.wired = true;
            vs->setClassRecord(sMeta ? reinterpret_cast<TdependNodeMetaClass*>(sClassStorage)
                                     : nullptr);
            vs->setParentData(Base::sVsBaseData());
        }
        return vs;
    }
    static TdependNodeVS* sVsBaseData() { return sVsData(); }
    static TdependNodeVS* sVsParentData() { return Base::sVsBaseData(); }
    static Tstring sTypeName() { return Identity::kTypeName; }
    static const TiffTag* sIffTag() {
        if (!sTag)
            sTag = new TiffTag(TiffTag::make(Identity::kIffTag));
        return sTag;
    }
    static bool sInitializeClass() { return sVsData()->initializeClass(); }
    static bool sCleanupClass() {
        delete sTag;
        sTag = nullptr;
        VS* vs = sVsData();
        const bool result = vs->cleanupClass();
        vs->~VS();
        TdnAttr<T>::fsVsData.once = TdnAttr<T>::fsVsData.wired = false;
        return result;
    }
    static Tmetaclass* sTypeof() { return sMeta; }

    // Makes a node of the type `meta` names, if it is this type or derives
    // from it; null otherwise.
    static T* construct(Tmetaclass* meta) {
        if (!meta || !sMeta || !meta->istype(sMeta))
            return nullptr;
        return fromVoid(meta->construct(meta));
    }
    static T* constructInPlace(Tmetaclass* meta, void* where) {
        if (!meta || !sMeta || !meta->istype(sMeta))
            return nullptr;
        return fromVoid(meta->constructInPlace(meta, where));
    }

    Tmetaclass* typeof() const override { return sMeta; }
    void* cast(Tmetaclass* meta) override {
        if (meta && meta == sMeta)
            return static_cast<T*>(this);
        return Base::cast(meta);
    }
    TdependNodeVS* vsData() const override { return sVsData(); }
    Tstring typeName() const override { return sTypeName(); }
    const TiffTag* iffTag() const override { return sIffTag(); }
    int apiType() const override { return Identity::kApiType; }
    Tstring apiTypeString() const override { return Identity::kApiString; }

    void footprint(Footprint& fp) const override {
        if (Footprint::sTrace())
            fp.trace += std::string("Measure Footprint of ") + Identity::kClassName + "\n";
        Base::footprint(fp);
        fp.size = sizeof(T);
    }
    void debug(TdebugOutput& out, const TdebugDetails& details) const override {
        out.openSection("{} (type {})", this->name(), sTypeName());
        Base::debug(out, details);
        out.closeSection();
    }

    // A plug this type computes: one of its own attributes that compute writes.
    static bool computesAttribute(const Tattribute* a) {
        return a && a->computeModifies() && a->owner() == sVsData();
    }

    // The scalar entry is a run of one at the element where the block stands.
    bool computePlug(const Tplug& plug, TdataBlock& block) override {
        if (!computesAttribute(plug.attribute()))
            return Base::computePlug(plug, block);
        return static_cast<T*>(this)->vectorComputePlug(plug, block, block.currentIndex(), 1);
    }

    // Registration at load: see ORVO_REGISTER_NODE.
    static void registerType();

private:
    static T* fromVoid(void* made) {
        return made ? static_cast<T*>(static_cast<TdependNode*>(made)) : nullptr;
    }
    static void* factory(Tmetaclass* meta, void* where) {
        T* node = where ? new (where) T() : new (std::nothrow) T();
        if (!node)
            return nullptr;
        node->finishCreation(meta);
        return static_cast<void*>(static_cast<TdependNode*>(node));
    }
    static void clearOnceAtExit() {
        TdnAttr<T>::fsVsData.once = TdnAttr<T>::fsVsData.wired = false;
    }
    static void destroyMetaAtExit() { reinterpret_cast<Tmetaclass*>(sMetaStorage)->~Tmetaclass(); }
    static void unregisterAtExit() {
        auto* record = reinterpret_cast<TdependNodeMetaClass*>(sClassStorage);
        TdependGraph::unregisterNodeType(record);
        record->~TdependNodeMetaClass();
    }

    static inline Tmetaclass* sMeta = nullptr;
    static inline TiffTag* sTag = nullptr;
    alignas(Tmetaclass) static inline unsigned char sMetaStorage[sizeof(Tmetaclass)];
    alignas(TdependNodeMetaClass) static inline unsigned char sClassStorage[sizeof(
        TdependNodeMetaClass)];
};

template <class T, class Base>
void TdnPattern<T, Base>::registerType() {
    // Once, and after the parent type: the metaclass records the parent's
    // metaclass, which must exist by then whatever the order of loading.
    static bool registered = false;
    if (registered)
        return;
    registered = true;
    if constexpr (requires { Base::registerType(); })
        Base::registerType();
    // 1. The descriptor storage starts empty, and forgets itself at exit.
    TdnAttr<T>::fsVsData.once = TdnAttr<T>::fsVsData.wired = false;
    std::atexit(&clearOnceAtExit);
    // 2. The API type.
    TapiTypeTable::add(Identity::kApiType, Identity::kApiString, 4);
    // 3. The metaclass, with the shading-node interface as second parent for
    //    shading types.
    Tmetaclass* second = std::is_base_of_v<TshadingNode, T> ? TshadingNodeTmeta() : nullptr;
    new (sMetaStorage) Tmetaclass(&sMeta, Identity::kTypeName, sizeof(T), &factory,
                                  TiffTag::make(Identity::kIffTag), 0, Base::sTypeof(), second);
    std::atexit(&destroyMetaAtExit);
    // 4. The classification.
    TclassificationMgr::registerClassification(Identity::kTypeName, Identity::kClassification);
    // 5. The class record, entered in the graph. No attribute is built yet.
    auto* record = new (sClassStorage) TdependNodeMetaClass(
        sMeta, &sVsBaseData, &sVsParentData, &sTypeName, &sIffTag, &sCleanupClass, 32);
    record->trailingWord = 0;
    record->classification = Identity::kClassification;
    record->apiType = Identity::kApiType;
    record->apiTypeString = Identity::kApiString;
    TdependGraph::registerNodeType(record);
    std::atexit(&unregisterAtExit);
}

// Defines the schema constructor and registers the type at library load.
#define ORVO_REGISTER_NODE(T)                                                                      \
    ORVO_DEFINE_SCHEMA(T)                                                                          \
    namespace {                                                                                    \
    const bool sRegistered_##T = (T::registerType(), true);                                        \
    }
