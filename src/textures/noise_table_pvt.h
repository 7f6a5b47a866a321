#pragma once

// The new random table: 65,535 values uniform on -1 .. 1, six significant
// digits each, and a 65,536th entry of 0. Generated once by
// textures/tools/make_noise_table.cxx and shipped as data, so that renders
// repeat across runs and machines.
extern const float kOrvoNewNoiseTable[65536];
