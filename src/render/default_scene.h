#pragma once

// The scene `orvo render` renders when it is given none. Its text is
// compiled into the renderer from examples/default_scene.qsl, so the tool
// renders it from any folder.
const char* OrvoDefaultSceneText();
// The name the scene goes by in messages and output files.
const char* OrvoDefaultSceneName();
