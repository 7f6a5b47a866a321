#include "settings/render_quality.h"

ORVO_REGISTER_NODE(TdnRenderQuality)
ORVO_DEPENDENCIES(TdnRenderQuality) {}

void TdnRenderQuality::setThreshold(float red, float green, float blue, float coverage) {
    setRedThreshold(red);
    setGreenThreshold(green);
    setBlueThreshold(blue);
    setCoverageThreshold(coverage);
}
