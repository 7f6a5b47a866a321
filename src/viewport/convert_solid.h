#pragma once

// The viewport's baker of shading networks (installed into the host's
// TbaseAccessor when the library loads).

// True while a bake runs: the shading group it makes for itself and its
// connections are no edits of the scene, and listeners ignore them.
bool OrvoViewportIsBaking();
