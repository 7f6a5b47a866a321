#pragma once

// What a renderer asks of colour management about the scene's nodes.

#include <vector>

#include "host/types.h"

class TdependGraph;

namespace TcolorMgtRenderUtilities {

// The file textures whose colorManagementEnabled plug is connected, by
// absolute name, put in front of `names`. (This host has no image planes.)
void GetColorManagedNodeNames(const TdependGraph& graph, std::vector<Tstring>& names);
// The same walk and condition, for those whose colour space is not an input
// space of the configuration.
void GetMissingColorSpaceNodeNames(const TdependGraph& graph, std::vector<Tstring>& names);

} // namespace TcolorMgtRenderUtilities
