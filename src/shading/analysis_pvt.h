#pragma once

// The working state of one compilation: a description per node reached,
// their connection lists, the pending list of on-demand segments, and what
// emission builds from them. It lives for one analysis.

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "shading/shading_engine.h"

// How a value reaches an attribute.
enum TSEconnectionKind : uint8_t {
    kConnPlaceholder = 0, // unconnected, or a constant source
    kConnConstantBuffer = 1,
    kConnVarying = 2,
    kConnLightData = 3,
    kConnFieldRequest = 4, // a sample field read by a node
    kConnToField = 5,      // a node's output into a requested field
    kConnCapturedConstant = 6,
    kConnLoopEdge = 7,
    kConnUserField = 8,
};

struct TSEconnection {
    TSEconnectionKind kind = kConnPlaceholder;
    TSEnodeDescription* upstream = nullptr;
    Tplug source;                                     // the upstream plug
    const Tattribute* destination = nullptr;          // the attribute fed here
    unsigned logicalIndex = Tplug::kNoIndex;          // array element of the destination
    uint8_t memory = 0;                               // 0 none, 1 constant, 2 variable
    int field = -1;                                   // sample field, for kinds 4, 5, 6, 8
    std::shared_ptr<std::vector<std::byte>> constant; // kinds 1 and 6
    uint16_t segment = 0;                             // the segment that computes the source
    bool otherDB = false; // the consumer reads the producer's block in place
};

struct TSEnodeDescription {
    TSEnodeDescription* next = nullptr;
    TSEnodeDescription* root = nullptr;
    TdependNode* node = nullptr;
    const TdependencyMatrix* matrix = nullptr;
    std::vector<uint8_t> state;   // 0 not reached, 1 constant, 2 varying
    std::vector<int> segmentMark; // last segment the attribute was emitted into
    std::vector<int> fieldOfAttribute;
    std::vector<uint32_t> kind; // the AttrInfo type
    unsigned useCounts[2] = {0, 0};
    bool segmented = false;
    bool visited = false;
    bool live = false;
    bool inProgress = false;
    std::vector<TSEconnection> connections;
    // Arrays: per array attribute, the element indices and MultiInfo records.
    std::map<const Tattribute*, std::vector<unsigned>> arrayElements;
    std::vector<MultiInfo> multis;
    std::map<const Tattribute*, size_t> arrayHeader; // index of the array's header in multis
    int block = -1;
    AttrInfo* infos = nullptr;       // made at emission, owned by the opus
    MultiInfo* multiTable = nullptr; // likewise
    std::vector<Tplug> inTraversal;  // plugs of this node being followed now
};

// A varying output that more than one consumer reads: it becomes a segment.
struct TSEpending {
    TSEnodeDescription* description = nullptr;
    Tplug plug;
    bool cleared = false;
};

class TSEanalysis {
public:
    TSEanalysis(TDNshadingEngine& engine, TSEoption option);
    ~TSEanalysis();

    // Walks the network from the requested fields. False when none is served.
    bool satisfySampler(TbitField64 request, TbitField64& provided);
    // A light compiled on its own: its lightData goes to the sample field
    // of that name. False when the node has no light data.
    bool satisfyLight(TdependNode* light);
    // Materials get the gathered lights in their lightDataArray (set before
    // satisfySampler when the group has lights).
    void setLightDataPort(bool on) { fLightDataPort = on; }
    // Fields that the lights of the group read: the samples need them too.
    void addNeeded(TbitField64 fields) { fNeeded |= fields; }
    bool lightsWanted() const { return fLightsWanted; }
    void buildSampleDataOffsets(TbitField64 request, TbitField64 provided);
    void cutLoops();
    void segment();
    // Lays out blocks, fills constants and emits the instruction list.
    void distribute(TshadingOpus& opus);
    // The earlier segment whose run also computes the output of `p` (see
    // TSEopusLayout::SegmentOutput::family), or 0.
    uint16_t familyOf(const TSEpending& p,
                      const std::vector<TSEopusLayout::SegmentOutput>& earlier) const;

    TbitField64 needed() const { return fNeeded; }
    const std::vector<unsigned>& offsets() const { return fOffsets; }
    std::vector<std::string>& report() { return fReport; }
    TSEnodeDescription* find(const TdependNode* node) const;

private:
    TSEnodeDescription* describe(TdependNode* node);
    int findSource(TSEsampleType type, const std::string& name, unsigned port,
                   TSEnodeDescription& description, const Tattribute* attribute, int field);
    int findSourceAtRoot(unsigned field);
    void traverseNode(const Tplug& plug, TSEnodeDescription* consumer);
    void postVisit(TSEnodeDescription& d, const Tattribute& attribute,
                   TSEnodeDescription* consumer);
    uint8_t processConnection(TSEnodeDescription& d, const Tattribute& attribute,
                              uint8_t parentOwn);
    uint8_t processArray(TSEnodeDescription& d, const Tattribute& array);
    void lightDataInput(TSEnodeDescription& d, const Tattribute& array);
    bool affects(const TSEnodeDescription& d, const Tattribute& from, const Tattribute& to) const;
    std::shared_ptr<std::vector<std::byte>> capture(const Tplug& plug, bool& zero);

    // Emission.
    void shortenChains(TSEnodeDescription& d);
    void layoutBlock(TSEnodeDescription& d, TSEopusLayout& layout);
    void fillConstants(TSEnodeDescription& d, TSEopusLayout& layout);
    void emit(TSEnodeDescription& d, const Tattribute& attribute, int segment, bool topLevel,
              TSEopusLayout& layout);
    void emitCopy(TSEopusLayout& layout, const TSEdescriptorHalf& source,
                  const TSEdescriptorHalf& destination);
    TSEdescriptorHalf blockHalf(const TSEnodeDescription& d, const Tattribute& attribute,
                                unsigned logicalIndex) const;
    void assignThreads(TSEnodeDescription& d);
    // The MultiInfo record of element `logicalIndex` of `array`, or of its
    // descendant `leaf` in that element.
    static MultiInfo* recordOf(TSEnodeDescription& d, const Tattribute& array,
                               unsigned logicalIndex, const Tattribute& leaf);

    TDNshadingEngine& fEngine;
    TSEoption fOption;
    TSEsampleType fSampleType;
    TSEnodeDescription fRoot;
    std::map<const TdependNode*, std::unique_ptr<TSEnodeDescription>> fDescriptions;
    std::vector<TSEnodeDescription*> fOrder; // in the order they were made
    std::vector<TSEpending> fPending;
    std::map<std::pair<const TSEnodeDescription*, const Tattribute*>, uint16_t> fSegmentOf;
    TbitField64 fRequest, fProvided, fNeeded;
    bool fLightsWanted = false;
    bool fLightDataPort = false;
    std::vector<unsigned> fOffsets;
    std::vector<std::string> fReport;
};
