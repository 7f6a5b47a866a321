#pragma once

// How the application runs: true in a batch run (the command-line tool, a
// render farm job), false in an interactive session. Things that name files
// after the scene tell the two apart. Set once, by the application, before
// any render.
extern bool gBatchMode;
