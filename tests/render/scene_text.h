#pragma once

// Scenes written in the tests themselves, loaded as `orvo render` loads a
// file, and a sink that keeps what the renderer warns about.

#include <memory>
#include <string>
#include <vector>

#include "host/graph.h"
#include "host/messages.h"
#include "host/qsl/interpreter.h"
#include "support/message_capture.h"

inline std::unique_ptr<TdependGraph> sceneFromText(const std::string& text,
                                                   const std::string& name = "test.qsl") {
    auto graph = std::make_unique<TdependGraph>();
    TdependGraph::fsCurrentGraph = graph.get();
    qsl::Interpreter(*graph).runText(text, name);
    return graph;
}

using orvo_test::MessageCapture;

// Refraction, reflection and ray-traced shadows need this: with it off a
// frame gives no material or light a ray sampler.
inline const char* kRayTracingOn = "set defaultRenderQuality.enableRaytracing true\n";

// A camera at the origin looking down -Z whose image plane at distance 1
// is 2 wide (focal length 35 mm over a film back of 70 / 25.4 inches).
inline const char* kUnitCamera = R"(
node transform camera1
node camera cameraShape1 -parent camera1
set cameraShape1.focalLength 35
set cameraShape1.horizontalFilmAperture 2.75590551
)";

// A 4 by 4 square facing the camera at depth 2, filling its view: u runs
// along +X and v along +Y, each from 0 to 1 across the square.
inline const char* kSquareAtDepth2 = R"(
node transform square
set square.translate 0 0 -2
set square.rotate 90 0 0
node mesh squareShape -parent square
set squareShape.primitive plane
set squareShape.width 4
set squareShape.depth 4
set squareShape.segmentsU 1
set squareShape.segmentsV 1
)";

// A wide wall of flat green (0, 0.4, 0) at depth 6, a dark blue background.
inline const char* kGreenWall = R"(
set cameraShape1.backgroundColor 0 0 0.5
node transform wall
set wall.translate 0 0 -6
set wall.rotate 90 0 0
node mesh wallShape -parent wall
set wallShape.primitive plane
set wallShape.width 100
set wallShape.depth 100
node checker wallColour
set wallColour.color1 0 0.4 0
set wallColour.color2 0 0.4 0
node shadingEngine wallSG
connect wallColour.outColor wallSG.surfaceShader
member wallSG wallShape
)";
