#pragma once

// Shading a grid of samples through a shading group, as a renderer would:
// `orvo shade` prints the results and the Python module hands them over as
// a buffer. Sample (i, j) of a W x H grid has uvCoord ((i + 0.5) / W,
// (j + 0.5) / H), row j = 0 first, and the fields given for every sample.

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "shading/sample.h"

class TdependGraph;
class TDNshadingEngine;

namespace orvo::cli {

// The numbers a field holds (3 for a colour, 16 for a matrix); 0 for a
// field that cannot be given or read as numbers.
unsigned floatsOf(Tsample::FieldKind kind);

// The field's value as numbers.
std::vector<double> readField(const Tsample& sample, unsigned field);

// A sample field to set on every sample: its number and its bytes.
struct GridField {
    unsigned field;
    std::vector<std::byte> bytes;
};

// The field named `name` holding `values`. Throws UserError, starting with
// `what` (say "orvo shade: --field"), for an unknown field, one that takes
// no numbers or a wrong count of them.
GridField makeGridField(const std::string& name, const std::vector<double>& values,
                        const std::string& what);

// The shading group `group` of the scene; throws UserError, starting with
// `command` and naming `sceneName`, when there is no such node or it is not
// a shading group.
TDNshadingEngine& findShadingGroup(TdependGraph& graph, const std::string& group,
                                   const std::string& sceneName, const std::string& command);

struct GridRequest {
    std::string group;
    std::string sceneName; // in messages
    std::string command;   // starts messages, e.g. "orvo shade"
    unsigned option = 0;
    int pass = 0;
    unsigned width = 4, height = 4;
    std::vector<GridField> fields;
    // Fields to read back; empty: every field the group provides.
    std::vector<std::string> outputs;
    std::string outputsOption = "--print"; // names the outputs in messages
};

// Shades the grid. Once the group is compiled, `ready` hears the fields to
// read back (in order) and the sample size, and may throw to refuse; then
// `done(cell, sample)` is called for each shaded sample, cell = j * W + i.
// Throws UserError for a bad group, output name or grid.
void shadeGrid(
    TdependGraph& graph, const GridRequest& request,
    const std::function<void(const std::vector<unsigned>& outputs, unsigned sampleSize)>& ready,
    const std::function<void(unsigned cell, const Tsample& sample)>& done);

} // namespace orvo::cli
