#pragma once

// A colour configuration of a user's own, as small as one can be: one
// scene-linear space "lin" and a display "Screen" with the view "Plain".
// Tests append spaces to it where they need more.
inline constexpr const char* kTinyOcioConfig = R"(ocio_profile_version: 2
roles:
  default: lin
  scene_linear: lin
displays:
  Screen:
    - !<View> {name: Plain, colorspace: lin}
colorspaces:
  - !<ColorSpace> {name: lin, encoding: scene-linear}
)";
