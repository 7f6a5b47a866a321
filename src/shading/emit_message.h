#pragma once

// Writes `text` and a line end to standard error, in one call that holds the
// stream's lock, so that lines from render threads do not interleave. A null
// text writes the line end alone.
void TrenderEmitMessage(const char* text);
