#pragma once

// What render threads share with the shading core: the process-wide table
// of compiled opuses (keyed by node and option, so that a light's opus is
// shared by every shading group it lights), and the base classes renderers
// derive their frames, groups and geometry managers from.

#include <cstdint>

class TdependNode;
class TshadingOpus;
class TDNshadingEngine;

// Per-frame data renderers pass through; the shading core only hands it on.
class TframeSampleData {
public:
    virtual ~TframeSampleData() = default;
};

// A renderer's geometry manager: it may ask for sample fields of its own.
class TgeoManagerBase {
public:
    virtual ~TgeoManagerBase() = default;
    virtual uint64_t fieldsWanted() const { return 0; }
};

// A renderer's group of samples (an object): its identity and shadow flag.
class TrenderGroupBase {
public:
    virtual ~TrenderGroupBase() = default;
    virtual unsigned objectId() const { return 0; }
    virtual const TgeoManagerBase* geometryManager() const { return nullptr; }
    virtual bool receiveShadows() const { return true; }
};

class TbaseDeepRaster {
public:
    virtual ~TbaseDeepRaster() = default;
};

class TrenderThreadBase {
public:
    virtual ~TrenderThreadBase() = default;

    // The opus record of (node, option). Sets *slot to the record's opus
    // slot; answers whether an opus is already in it. The first caller of a
    // new record fills the slot. Each call takes a reference.
    static bool getOpus(TshadingOpus**& slot, TdependNode* node, unsigned option);
    // Gives back a reference; the opus goes with the last one, or at once
    // with `force`.
    static void deleteOpus(TdependNode* node, unsigned option, bool force);
    // Releases every record (end of render).
    static void deleteAllOpuses();
    // The reference count of a record, 0 when there is none (for tests).
    static unsigned opusReferences(const TdependNode* node, unsigned option);
};
