#pragma once

// What the programs that render whole example scenes share: reading the
// scene, the median of their passes, and the options they take
// (--passes N --res W H --spp S --threads T).

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "render/renderer.h"

inline std::string benchReadFile(const std::string& path) {
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

inline double benchMedian(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

// Reads the options over the defaults in `passes` and `options`.
inline void benchRenderArgs(int argc, char** argv, int& passes, TrenderOptions& options) {
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--passes" && i + 1 < argc)
            passes = std::max(1, std::atoi(argv[++i]));
        else if (a == "--res" && i + 2 < argc) {
            options.width = unsigned(std::atoi(argv[++i]));
            options.height = unsigned(std::atoi(argv[++i]));
        } else if (a == "--spp" && i + 1 < argc)
            options.samplesPerPixel = unsigned(std::atoi(argv[++i]));
        else if (a == "--threads" && i + 1 < argc)
            options.threads = unsigned(std::atoi(argv[++i]));
    }
}
