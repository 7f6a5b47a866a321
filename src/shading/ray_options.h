#pragma once

// What a material does with rays, as TshadingNode::transparencyOptions
// answers: bits a shading group gathers over its network and a renderer
// reads. A refracting material traces what lies behind it itself, so a
// renderer that sees one need not look through the surface a second time;
// a reflecting one traces mirror rays.

inline constexpr unsigned kRayOptionRefracts = 0x1;
inline constexpr unsigned kRayOptionReflects = 0x2;
