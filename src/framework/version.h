#pragma once

// Version of the render model library, for `orvo --version` and for checking
// that a renderer loaded the library it was built against.
const char* OrvoRenderModelVersion();
