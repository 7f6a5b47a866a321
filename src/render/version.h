#pragma once

// Version of the reference renderer library.
const char* OrvoRenderVersion();
