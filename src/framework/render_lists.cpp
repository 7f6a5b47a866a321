#include "framework/render_lists.h"

ORVO_REGISTER_NODE(TdnShaderList)
ORVO_DEPENDENCIES(TdnShaderList) {}

ORVO_REGISTER_NODE(TdnTextureList)
ORVO_DEPENDENCIES(TdnTextureList) {}

ORVO_REGISTER_NODE(TdnRenderUtilityList)
ORVO_DEPENDENCIES(TdnRenderUtilityList) {}

ORVO_REGISTER_NODE(TdnRenderingList)
ORVO_DEPENDENCIES(TdnRenderingList) {}

ORVO_REGISTER_NODE(TdnPostProcessList)
ORVO_DEPENDENCIES(TdnPostProcessList) {}
