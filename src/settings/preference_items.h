#pragma once

// Preference items of the settings: each makes its settings node the first
// time it is asked for it, and gives the host the command line that makes
// the node again when preferences are saved.

#include "host/types.h"

class TdependGraph;
class TdependNode;

class TpreferenceItem {
public:
    virtual ~TpreferenceItem() = default;
    // The node, made in `graph` on the first call.
    TdependNode* node(TdependGraph& graph);
    // The command line that re-creates the node.
    virtual Tstring commandString() const = 0;
    // The name the node is made under.
    virtual Tstring instanceName() const = 0;

protected:
    // Makes the node: named, not deletable by the user (bit 0x200 of the
    // flag word cleared), implicitly created. A failure removes what was
    // made and answers false.
    virtual bool create(TdependGraph& graph) = 0;
    bool createNode(TdependGraph& graph, const char* type);

private:
    TdependNode* fNode = nullptr;
    TdependGraph* fGraph = nullptr;
};

class TprefDNresolution : public TpreferenceItem {
public:
    Tstring commandString() const override { return "resolutionNode -name defaultResolution;"; }
    Tstring instanceName() const override { return "defaultResolution"; }
    bool createDNresolution(TdependGraph& graph) { return createNode(graph, "resolution"); }

protected:
    bool create(TdependGraph& graph) override { return createDNresolution(graph); }
};

class TprefDNrenderQuality : public TpreferenceItem {
public:
    Tstring commandString() const override {
        return "renderQualityNode -name defaultRenderQuality;";
    }
    Tstring instanceName() const override { return "defaultRenderQuality"; }
    bool createDNrenderQuality(TdependGraph& graph) { return createNode(graph, "renderQuality"); }

protected:
    bool create(TdependGraph& graph) override { return createDNrenderQuality(graph); }
};

class TprefDNrenderGlobals : public TpreferenceItem {
public:
    Tstring commandString() const override { return "renderGlobalsNode -name renderGlobals1;"; }
    Tstring instanceName() const override { return "renderGlobals1"; }
    bool createDNrenderGlobals(TdependGraph& graph) { return createNode(graph, "renderGlobals"); }

protected:
    bool create(TdependGraph& graph) override { return createDNrenderGlobals(graph); }
};
