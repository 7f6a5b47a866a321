#pragma once

#include <cstddef>

// Large scratch buffers that live for a while and then go at once, such as
// the full-size depth buffers of a shadow map between its depth pass and its
// tiles: they are mapped straight from the system, so that freeing one gives
// its pages back rather than leaving a hole in the heap. `name` says what the
// buffer is for in the warning a failed mapping gives.

// `bytes` of zeroed memory, aligned to 64 bytes; null (with a warning) when
// the system has none to give or `bytes` is 0.
void* mmapAlloc(size_t bytes, const char* name);
// Gives back a block of mmapAlloc; null is ignored.
void mmapFree(void* block);
// The size asked for when the block was made.
size_t mmapSize(const void* block);
