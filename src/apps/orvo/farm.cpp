#include "apps/orvo/farm.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "apps/orvo/cli.h"
#include "apps/orvo/process.h"
#include "host/file_replace.h"

namespace orvo::cli::farm {

namespace {

namespace fs = std::filesystem;

std::string frameWord(double frame) {
    return fmt::format("{}", frame);
}

std::string frameList(const std::vector<double>& frames, const char* separator) {
    std::string text;
    for (const double f : frames)
        text += (text.empty() ? "" : separator) + frameWord(f);
    return text;
}

// A word for a shell: in single quotes, each quote closed, escaped, reopened.
std::string quoted(const std::string& word) {
    std::string out = "'";
    for (const char c : word)
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

fs::path stateFolder() {
    if (const char* state = std::getenv("XDG_STATE_HOME"); state && *state == '/')
        return fs::path(state) / "orvo" / "farm";
    if (const char* home = std::getenv("HOME"); home && *home)
        return fs::path(home) / ".local" / "state" / "orvo" / "farm";
    return fs::temp_directory_path() / "orvo-farm";
}

fs::path recordPath(const std::string& jobId) {
    return stateFolder() / (jobId + ".job");
}

// ---------------------------------------------------------------- the record

struct Record {
    std::string job, scene, output;
    std::vector<std::vector<double>> chunks;
    // Per chunk: (frame, image path).
    std::vector<std::vector<std::pair<double, std::string>>> images;
};

void writeRecord(const Record& record) {
    std::error_code ec;
    fs::create_directories(stateFolder(), ec);
    const std::string path = recordPath(record.job).string();
    TfileReplacement file(path);
    {
        std::ofstream out(file.temporary());
        out << "orvo farm job 1\n";
        out << "job\t" << record.job << "\nscene\t" << record.scene << "\noutput\t" << record.output
            << "\n";
        for (size_t c = 0; c < record.chunks.size(); ++c) {
            out << "chunk\t" << c << "\t" << frameList(record.chunks[c], " ") << "\n";
            for (const auto& [frame, image] : record.images[c])
                out << "image\t" << c << "\t" << frameWord(frame) << "\t" << image << "\n";
        }
        if (!out.flush())
            throw UserError(
                fmt::format("orvo render: {}: cannot write the farm job's record", path));
    }
    if (const std::string why = file.commit(); !why.empty())
        throw UserError(fmt::format("orvo render: {}: {}", path, why));
}

Record readRecord(const std::string& jobId) {
    const fs::path path = recordPath(jobId);
    std::ifstream in(path);
    if (!in)
        throw UserError(fmt::format(
            "orvo render: --farm-status {}: no farm job {} was submitted from here (no {})", jobId,
            jobId, path.string()));
    Record record;
    std::string line;
    unsigned number = 0;
    auto bad = [&]() {
        return UserError(
            fmt::format("{}:{}: not a farm job record this orvo reads", path.string(), number));
    };
    while (std::getline(in, line)) {
        ++number;
        if (number == 1) {
            if (line != "orvo farm job 1")
                throw bad();
            continue;
        }
        std::vector<std::string> fields;
        std::istringstream split(line);
        for (std::string field; std::getline(split, field, '\t');)
            fields.push_back(field);
        if (fields.empty())
            continue;
        if (fields[0] == "job" && fields.size() == 2) {
            record.job = fields[1];
        } else if (fields[0] == "scene" && fields.size() == 2) {
            record.scene = fields[1];
        } else if (fields[0] == "output" && fields.size() == 2) {
            record.output = fields[1];
        } else if (fields[0] == "chunk" && fields.size() == 3) {
            std::vector<double> frames;
            std::istringstream words(fields[2]);
            for (double f; words >> f;)
                frames.push_back(f);
            record.chunks.push_back(std::move(frames));
            record.images.emplace_back();
        } else if (fields[0] == "image" && fields.size() == 4) {
            const size_t chunk = std::strtoul(fields[1].c_str(), nullptr, 10);
            if (chunk >= record.images.size())
                throw bad();
            record.images[chunk].emplace_back(std::strtod(fields[2].c_str(), nullptr), fields[3]);
        } else {
            throw bad();
        }
    }
    if (number == 0)
        throw bad();
    return record;
}

// ---------------------------------------------------------------- scheduler states

struct TaskState {
    std::string state; // "COMPLETED", "FAILED", "PENDING"... empty: not known
    std::string exitCode;
};

// "3", "1-4", "0,2-3" and a "%N" limit after them.
std::vector<unsigned> indexList(std::string text) {
    std::vector<unsigned> out;
    if (const size_t limit = text.find('%'); limit != std::string::npos)
        text.erase(limit);
    std::istringstream parts(text);
    for (std::string part; std::getline(parts, part, ',');) {
        const size_t dash = part.find('-');
        char* end = nullptr;
        const unsigned long first = std::strtoul(part.c_str(), &end, 10);
        if (end == part.c_str())
            continue;
        const unsigned long last =
            dash == std::string::npos ? first : std::strtoul(part.c_str() + dash + 1, nullptr, 10);
        for (unsigned long i = first; i <= last && i - first < 100000; ++i)
            out.push_back(unsigned(i));
    }
    return out;
}

// sacct -P: "JOB_TASK|STATE|EXIT", a pending range as "JOB_[1-3]", steps
// ("JOB_1.batch") left out.
void readAccounting(const std::string& jobId, const std::string& text,
                    std::map<unsigned, TaskState>& states) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::vector<std::string> fields;
        std::istringstream split(line);
        for (std::string field; std::getline(split, field, '|');)
            fields.push_back(field);
        if (fields.size() < 3 || fields[0].find('.') != std::string::npos ||
            fields[0].rfind(jobId + "_", 0) != 0)
            continue;
        std::string tasks = fields[0].substr(jobId.size() + 1);
        if (!tasks.empty() && tasks.front() == '[') {
            tasks.erase(0, 1);
            if (!tasks.empty() && tasks.back() == ']')
                tasks.pop_back();
        }
        // "CANCELLED by 0": the state is the first word.
        const std::string state = fields[1].substr(0, fields[1].find(' '));
        for (const unsigned i : indexList(tasks))
            states[i] = {state, fields[2]};
    }
}

// scontrol -o show job: one line per task (or per pending range) of words
// "Key=value".
void readController(const std::string& text, std::map<unsigned, TaskState>& states) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::map<std::string, std::string> words;
        std::istringstream split(line);
        for (std::string word; split >> word;)
            if (const size_t eq = word.find('='); eq != std::string::npos)
                words[word.substr(0, eq)] = word.substr(eq + 1);
        if (!words.count("ArrayTaskId") || !words.count("JobState"))
            continue;
        for (const unsigned i : indexList(words["ArrayTaskId"]))
            states[i] = {words["JobState"], words["ExitCode"]};
    }
}

// What the scheduler knows of each array task: from accounting when the
// cluster keeps it, else from the controller while it still holds the job.
std::map<unsigned, TaskState> queryStates(const std::string& jobId, std::string& source) {
    std::map<unsigned, TaskState> states;
    const ProcessResult sacct =
        runProcess({"sacct", "-j", jobId, "-P", "-n", "-o", "JobID,State,ExitCode"});
    if (sacct.started && sacct.exitCode == 0)
        readAccounting(jobId, sacct.out, states);
    if (!states.empty()) {
        source = "sacct";
        return states;
    }
    const ProcessResult scontrol = runProcess({"scontrol", "-o", "show", "job", jobId});
    if (scontrol.started && scontrol.exitCode == 0)
        readController(scontrol.out, states);
    source = states.empty() ? "" : "scontrol";
    return states;
}

bool finished(const std::string& state) {
    static const char* const kEnds[] = {"COMPLETED", "FAILED",      "CANCELLED",     "TIMEOUT",
                                        "NODE_FAIL", "PREEMPTED",   "OUT_OF_MEMORY", "BOOT_FAIL",
                                        "DEADLINE",  "SPECIAL_EXIT"};
    return std::any_of(std::begin(kEnds), std::end(kEnds),
                       [&](const char* end) { return state == end; });
}

} // namespace

// ---------------------------------------------------------------- submitting

std::vector<std::vector<double>> chunkFrames(const std::vector<double>& frames, unsigned chunk) {
    std::vector<std::vector<double>> chunks;
    const size_t size = std::max(1u, chunk);
    for (size_t i = 0; i < frames.size(); i += size)
        chunks.emplace_back(frames.begin() + long(i),
                            frames.begin() + long(std::min(frames.size(), i + size)));
    return chunks;
}

std::vector<double> framesToRender(const TrenderJob& job) {
    std::vector<double> frames;
    for (const TrenderJob::Image& image : job.images()) {
        std::error_code ec;
        if (fs::exists(image.path, ec))
            continue;
        if (std::none_of(frames.begin(), frames.end(),
                         [&](double f) { return TrenderJob::sameFrame(f, image.frame); }))
            frames.push_back(image.frame);
    }
    return frames;
}

std::string jobScript(const SubmitOptions& options, const std::string& tool,
                      const std::string& sceneName,
                      const std::vector<std::vector<double>>& chunks) {
    const fs::path logs = fs::path(options.output) / "farm_logs";
    std::string script = "#!/bin/bash\n";
    script += fmt::format("#SBATCH --job-name=orvo:{}\n", sceneName);
    script += fmt::format("#SBATCH --array=0-{}\n", chunks.size() - 1);
    script += fmt::format("#SBATCH --cpus-per-task={}\n", options.cpus);
    script += fmt::format("#SBATCH --output={}\n", (logs / "%x_%A_%a.log").string());
    for (const std::string& arg : options.sbatch)
        script += "#SBATCH " + arg + "\n";
    size_t frames = 0;
    for (const auto& c : chunks)
        frames += c.size();
    script += fmt::format("#\n# {} frame{} of {} in {} chunk{} of at most {}; each array task "
                          "renders the frames\n# of its chunk. Images already there are kept "
                          "(--skip-existing), so a task\n# that runs again renders only what "
                          "is missing.\n",
                          frames, frames == 1 ? "" : "s", options.scene, chunks.size(),
                          chunks.size() == 1 ? "" : "s", options.chunk);
    script += "set -euo pipefail\nchunks=(\n";
    for (const auto& c : chunks)
        script += "  " + frameList(c, ",") + "\n";
    script += ")\n";
    std::string command = quoted(tool) + " render " + quoted(options.scene) + " -o " +
                          quoted(options.output) +
                          " --only-frames \"${chunks[$SLURM_ARRAY_TASK_ID]}\" --skip-existing "
                          "--threads \"${SLURM_CPUS_PER_TASK:-" +
                          std::to_string(options.cpus) + "}\"";
    for (const std::string& word : options.forward)
        command += " " + quoted(word);
    script += "exec " + command + "\n";
    return script;
}

int submit(const TrenderJob& job, const SubmitOptions& options) {
    const std::vector<double> frames = framesToRender(job);
    if (frames.empty()) {
        std::fprintf(stderr, "orvo render: every image of %s is there; nothing to submit\n",
                     options.scene.c_str());
        return kExitSuccess;
    }
    const auto chunks = chunkFrames(frames, options.chunk);
    std::error_code ec;
    const fs::path self = fs::read_symlink("/proc/self/exe", ec);
    const std::string tool = ec ? std::string("orvo") : self.string();
    const std::string script = jobScript(options, tool, job.sceneName(), chunks);
    if (options.dryRun) {
        std::fputs(script.c_str(), stdout);
        return kExitSuccess;
    }

    // The scheduler writes the logs but does not make their folder.
    const fs::path logs = fs::path(options.output) / "farm_logs";
    // Folders made here go again when the job is not submitted.
    std::vector<fs::path> made;
    for (fs::path p = logs; !p.empty() && !fs::exists(p, ec); p = p.parent_path())
        made.push_back(p);
    fs::create_directories(logs, ec);
    if (!fs::is_directory(logs))
        throw UserError(fmt::format("orvo render: {}: cannot make the folder for the farm's logs",
                                    logs.string()));
    struct Unmake {
        std::vector<fs::path>& folders;
        bool keep = false;
        ~Unmake() {
            std::error_code ignored;
            if (!keep)
                for (const fs::path& p : folders)
                    fs::remove(p, ignored); // only while empty
        }
    } unmake{made};
    const ProcessResult sbatch = runProcess({"sbatch", "--parsable"}, script);
    if (!sbatch.started)
        throw UserError("orvo render: --farm slurm: cannot run sbatch; is Slurm's client "
                        "installed (Debian: slurm-client) and on PATH?");
    if (sbatch.exitCode != 0) {
        std::string why = sbatch.err.empty() ? sbatch.out : sbatch.err;
        std::replace(why.begin(), why.end(), '\n', ' ');
        while (!why.empty() && why.back() == ' ')
            why.pop_back();
        throw UserError(
            fmt::format("orvo render: sbatch refused the job (exit {}): {}", sbatch.exitCode, why));
    }
    // "12345" or "12345;cluster".
    std::string jobId = sbatch.out.substr(0, sbatch.out.find_first_of(";\n"));
    if (jobId.empty() || jobId.find_first_not_of("0123456789") != std::string::npos)
        throw UserError(fmt::format("orvo render: sbatch answered '{}', not a job id", sbatch.out));

    Record record;
    record.job = jobId;
    record.scene = options.scene;
    record.output = options.output;
    record.chunks = chunks;
    for (const auto& chunk : chunks) {
        std::vector<std::pair<double, std::string>> images;
        for (const TrenderJob::Image& image : job.images())
            if (std::any_of(chunk.begin(), chunk.end(),
                            [&](double f) { return TrenderJob::sameFrame(f, image.frame); }))
                images.emplace_back(image.frame, image.path);
        record.images.push_back(std::move(images));
    }
    unmake.keep = true;
    writeRecord(record);
    std::printf("%s\n", jobId.c_str());
    std::fprintf(stderr,
                 "orvo render: submitted farm job %s: %zu frame%s in %zu task%s; logs in %s; "
                 "orvo render --farm-status %s tells how it goes\n",
                 jobId.c_str(), frames.size(), frames.size() == 1 ? "" : "s", chunks.size(),
                 chunks.size() == 1 ? "" : "s", logs.c_str(), jobId.c_str());
    return kExitSuccess;
}

// ---------------------------------------------------------------- status

int status(const std::string& jobId) {
    if (jobId.empty() || jobId.find_first_not_of("0123456789") != std::string::npos)
        throw UserError(fmt::format("orvo render: --farm-status takes a job id, not '{}'", jobId));
    const Record record = readRecord(jobId);
    std::string source;
    const std::map<unsigned, TaskState> states = queryStates(jobId, source);

    size_t frames = 0;
    for (const auto& c : record.chunks)
        frames += c.size();
    std::printf("job %s: %s, %zu frame%s in %zu task%s, images in %s%s\n", jobId.c_str(),
                record.scene.c_str(), frames, frames == 1 ? "" : "s", record.chunks.size(),
                record.chunks.size() == 1 ? "" : "s", record.output.c_str(),
                source.empty() ? " (the scheduler no longer knows the job: images only)" : "");
    std::vector<double> failed, waiting;
    for (size_t c = 0; c < record.chunks.size(); ++c) {
        const auto found = states.find(unsigned(c));
        const TaskState state = found == states.end() ? TaskState() : found->second;
        std::vector<double> missing;
        for (const double frame : record.chunks[c]) {
            bool complete = true;
            for (const auto& [f, path] : record.images[c]) {
                std::error_code ec;
                if (TrenderJob::sameFrame(f, frame) && !fs::exists(path, ec))
                    complete = false;
            }
            if (!complete)
                missing.push_back(frame);
        }
        std::string what = state.state.empty() ? "not known to the scheduler" : state.state;
        if (!state.exitCode.empty() && state.exitCode != "0:0")
            what += " (exit " + state.exitCode + ")";
        if (missing.empty())
            what += ", every image there";
        else
            what += ", missing: frame" + std::string(missing.size() == 1 ? " " : "s ") +
                    frameList(missing, " ");
        std::printf("task %zu, frame%s %s: %s\n", c, record.chunks[c].size() == 1 ? "" : "s",
                    frameList(record.chunks[c], " ").c_str(), what.c_str());
        const bool ended = state.state.empty() || finished(state.state);
        for (const double f : missing)
            (ended ? failed : waiting).push_back(f);
    }
    if (!failed.empty())
        std::printf("failed frames: %s\n", frameList(failed, " ").c_str());
    if (!waiting.empty())
        std::printf("frames to come: %s\n", frameList(waiting, " ").c_str());
    if (failed.empty() && waiting.empty())
        std::printf("every frame is done\n");
    else if (!failed.empty())
        std::printf("submit the scene again to render the failed frames only\n");
    return kExitSuccess;
}

} // namespace orvo::cli::farm
