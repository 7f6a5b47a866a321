#pragma once

// The render model declares its node types with the host's node type
// pattern (host/node_pattern.h), the same one the host's scene types use.
// Render-model-wide helpers of the pattern belong here.
#include "host/node_pattern.h"
