#pragma once

// Frames on a render farm. The plan of a render is cut into chunks of
// frames; each chunk is one task of one Slurm array job, which runs
// `orvo render` on the frames of its chunk. The farm renders; we write the
// job and read back what became of it.
//
// A submission keeps a small record (the scene, the output folder, each
// chunk's frames and the images they write) under the user's state folder,
// $XDG_STATE_HOME/orvo/farm (~/.local/state/orvo/farm), so that
// `orvo render --farm-status JOBID` can tell which frames failed.

#include <string>
#include <vector>

#include "render/render_job.h"

namespace orvo::cli::farm {

struct SubmitOptions {
    std::string scene;                // absolute
    std::string output;               // absolute
    unsigned chunk = 1;               // frames a task
    unsigned cpus = 1;                // cores a task asks for and renders with
    bool dryRun = false;              // print the job script, submit nothing
    std::vector<std::string> sbatch;  // extra "#SBATCH" arguments (--farm-arg)
    std::vector<std::string> forward; // `orvo render` options every task repeats
};

// Frames in render order cut into runs of `chunk`.
std::vector<std::vector<double>> chunkFrames(const std::vector<double>& frames, unsigned chunk);

// The frames of `job` with an image still to write (every image counts,
// whatever skipExistingFrames says), in render order.
std::vector<double> framesToRender(const TrenderJob& job);

// The job script of `chunks` for `options`.
std::string jobScript(const SubmitOptions& options, const std::string& tool,
                      const std::string& sceneName, const std::vector<std::vector<double>>& chunks);

// Submits (or with dryRun prints) the job for the frames of `job` still to
// render. Prints the job id on stdout. Throws UserError when sbatch is
// missing or refuses the job.
int submit(const TrenderJob& job, const SubmitOptions& options);

// Prints what became of each chunk of a job submitted from here, and the
// frames that failed. Throws UserError for a job this machine did not submit.
int status(const std::string& jobId);

} // namespace orvo::cli::farm
