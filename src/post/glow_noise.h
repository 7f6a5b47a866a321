#pragma once

// The noise that shapes glows: a small periodic lattice of pseudo-random
// values smoothed by a quadratic spline, the radial star and noise pattern
// built on it, and the plain random values lens flares pick sizes and hues
// from. Each table is filled once per process from a 16-bit linear
// congruential sequence, so the same scene glows the same on any machine.

namespace orvo::post {

// The table the lattice and the random values read: 65535 values in -1..1.
const double* glowNoiseTable();

// Smooth periodic noise over a 32 x 32 lattice: each coordinate wraps at 1.
// Roughly -0.5..0.5.
float glowNoise(double x1, double x2);

// The star and radial-noise factor of a glow at cell or direction (y, x)
// from the centre: 1 with neither, else star arms of `points` points
// scaled by `star`, times a noise around the circle at `frequency`.
// `rotation` turns the pattern, in degrees.
float radialGlowNoise(double y, double x, float star, float points, float noise, float frequency,
                      float rotation);

// Entry |i| of the random table, wrapped modulo its length.
double randomNoise(long i);

} // namespace orvo::post
