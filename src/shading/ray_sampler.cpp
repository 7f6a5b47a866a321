#include "shading/ray_sampler.h"

int32_t currentRenderPassControl = 0;
bool inSampleSwatchMode = false;
