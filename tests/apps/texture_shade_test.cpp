#include "test_paths.h"
#include <gtest/gtest.h>

#include <stdlib.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/run_tool.h"

// A procedural texture shaded through a shading group by `orvo shade`,
// behind a placement, from end to end: the tool, the engine and the nodes
// together (each texture's values are checked node by node in
// tests/textures). Sample (i, j) of a W x H
// grid has uvCoord ((i + 0.5) / W, (j + 0.5) / H); the scenes place the
// texture so that those coordinates land where the values are known.

namespace {

std::string scenePath(const std::string& texture) {
    return std::string(ORVO_TEST_DATA_DIR) + "/scenes/textures/" + texture + ".qsl";
}

using Colour = std::vector<double>;

// outColor of every sample of one `orvo shade --json` run, by (i, j).
class Shaded {
public:
    Shaded(const std::string& texture, const std::string& group, int width, int height,
           const std::vector<std::string>& extra = {}) {
        std::vector<std::string> args{"shade",
                                      scenePath(texture),
                                      "-g",
                                      group,
                                      "--res",
                                      std::to_string(width),
                                      std::to_string(height),
                                      "--json"};
        args.insert(args.end(), extra.begin(), extra.end());
        const ToolResult r = runTool(args);
        EXPECT_EQ(r.exitCode, 0) << r.err;
        std::istringstream lines(r.out);
        std::string line;
        while (std::getline(lines, line)) {
            int i = 0, j = 0;
            double c[3];
            if (std::sscanf(line.c_str(), "{\"i\": %d, \"j\": %d, \"outColor\": [%lf, %lf, %lf]}",
                            &i, &j, &c[0], &c[1], &c[2]) == 5)
                fCells[{i, j}] = {c[0], c[1], c[2]};
        }
        EXPECT_EQ(fCells.size(), size_t(width * height)) << r.out;
    }

    // Empty when the tool printed no such sample.
    Colour operator()(int i, int j) const {
        const auto found = fCells.find({i, j});
        return found == fCells.end() ? Colour{} : found->second;
    }

private:
    std::map<std::pair<int, int>, Colour> fCells;
};

void expectColour(const Colour& got, double r, double g, double b, double tolerance,
                  const std::string& what) {
    ASSERT_EQ(got.size(), 3u) << what;
    EXPECT_NEAR(got[0], r, tolerance) << what << " red";
    EXPECT_NEAR(got[1], g, tolerance) << what << " green";
    EXPECT_NEAR(got[2], b, tolerance) << what << " blue";
}

void expectGrey(const Colour& got, double v, double tolerance, const std::string& what) {
    expectColour(got, v, v, v, tolerance, what);
}

// A texture's outColor and then outAlpha through graph evaluation (`orvo
// eval`), with the placement "place" of its scene given the uvCoord and
// uvFilterSize of a sample.
class GraphEvaluation {
public:
    GraphEvaluation() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "orvo-texshade-XXXXXX").string();
        if (::mkdtemp(pattern.data()))
            fDir = pattern;
    }
    ~GraphEvaluation() {
        std::error_code ec;
        if (!fDir.empty())
            std::filesystem::remove_all(fDir, ec);
    }
    GraphEvaluation(const GraphEvaluation&) = delete;
    GraphEvaluation& operator=(const GraphEvaluation&) = delete;

    std::vector<double> at(const std::string& texture, const std::string& node, double u, double v,
                           double filterSize = 0.0) {
        if (fDir.empty()) {
            ADD_FAILURE() << "no temporary folder";
            return {};
        }
        const std::filesystem::path scene = fDir / "at.qsl";
        char values[128];
        std::snprintf(values, sizeof values,
                      "set place.uvCoord %.9g %.9g\nset place.uvFilterSize %.9g %.9g\n", u, v,
                      filterSize, filterSize);
        std::ofstream(scene) << "source \"" << scenePath(texture) << "\"\n" << values;
        const ToolResult r =
            runTool({"eval", scene.string(), node + ".outColor", node + ".outAlpha"});
        EXPECT_EQ(r.exitCode, 0) << r.err;
        std::vector<double> out;
        std::istringstream lines(r.out);
        std::string line;
        while (std::getline(lines, line)) {
            std::istringstream words(line.substr(line.find('=') + 1));
            for (double x; words >> x;)
                out.push_back(x);
        }
        EXPECT_EQ(out.size(), 4u) << r.out;
        return out;
    }

private:
    std::filesystem::path fDir;
};

TEST(TextureShade, CheckerThroughAPlacement) {
    // 5 x 4 samples: u = 0.1, 0.3, 0.5, 0.7, 0.9; v = 0.125, 0.375, 0.625,
    // 0.875. U: coverage 0.5 without wrap gives u / 0.5 = 0.2, 0.6, 1.0, then
    // 1.4 and 1.8 are outside; repeat 3 and offset -1 give -0.4, 0.8, 2.0,
    // which the checker reads as 0.6, 0.8, 0. V: repeat 2 gives 0.25, 0.75,
    // 1.25 -> 0.25, 1.75 -> 0.75.
    const Shaded board("checker", "sg", 5, 4);
    // As the graph tests' squares: u above 0.5 and v not is a color2 square,
    // black; both above 0.5 is a color1 square, white. -0.4 reads as 0.6.
    expectGrey(board(0, 0), 0.0, 0.0, "below 0, color2 square");
    expectGrey(board(0, 1), 1.0, 0.0, "below 0, color1 square");
    expectGrey(board(1, 0), 0.0, 0.0, "color2 square");
    expectGrey(board(1, 2), 0.0, 0.0, "the next V tile, the same square");
    expectGrey(board(1, 3), 1.0, 0.0, "color1 square in the next V tile");
    // u = 2.0 is a tile edge: fract of 2u is 0, c = 0, e = 0.5: the even mix
    // (the graph test's "centre line").
    expectGrey(board(2, 1), 0.5, 0.0, "tile edge");
    // Outside: the default colour, red.
    expectColour(board(3, 0), 1.0, 0.0, 0.0, 0.0, "outside");
    expectColour(board(4, 3), 1.0, 0.0, 0.0, 0.0, "outside");

    // A filter size of 0.05 on the sample becomes 0.05 * 3 / 0.5 = 0.3 by
    // 0.05 * 2 / 1 = 0.1 in the placement: a = 0.6, b = 0.2.
    const Shaded soft("checker", "sg", 5, 4, {"--field", "uvFilterSize=0.05,0.05"});
    // (0.8, 0.25): p = fract 1.6 = 0.6 -> 0.4, q = 0.5; a > p and p b = 0.08
    // is not above q a = 0.3: c = p / a = 2/3, e = 5/6; a color2 square, so
    // w1 = 1/6 of white.
    expectGrey(soft(1, 0), 1.0 / 6.0, 1e-6, "softened color2 square");
    // (0.6, 0.75): p = fract 1.2 = 0.2, q = 0.5: c = 0.2 / 0.6 = 1/3,
    // e = 2/3 of white on a color1 square.
    expectGrey(soft(0, 1), 2.0 / 3.0, 1e-6, "softened color1 square");
    expectGrey(soft(2, 1), 0.5, 0.0, "tile edge"); // p = 0 still gives c = 0
    expectColour(soft(3, 0), 1.0, 0.0, 0.0, 0.0, "outside");
}

TEST(TextureShade, CheckerColoursThatVaryAreReadWhereTheirSquaresShow) {
    // u = 0.1 ... 0.9, v = 0.125 ... 0.875, one batch. color1 is (u, 1, 1),
    // color2 (0, v, 0); with no filter a square shows its colour alone.
    const Shaded board("checker_fed", "sg", 5, 4);
    expectColour(board(0, 0), 0.1, 1.0, 1.0, 1e-7, "color1 square");
    expectColour(board(1, 1), 0.3, 1.0, 1.0, 1e-7, "color1 square");
    expectColour(board(3, 0), 0.0, 0.125, 0.0, 0.0, "color2 square");
    expectColour(board(1, 2), 0.0, 0.625, 0.0, 0.0, "color2 square");
    expectColour(board(4, 3), 0.9, 1.0, 1.0, 1e-7, "color1 square, second run");
    // u = 0.5 is an edge: the even mix of both, each at its own sample:
    // (0.5 (0.5, 1, 1) + 0.5 (0, v, 0)).
    expectColour(board(2, 0), 0.25, 0.5625, 0.5, 0.0, "edge, v 0.125");
    expectColour(board(2, 3), 0.25, 0.9375, 0.5, 0.0, "edge, v 0.875");
}

TEST(TextureShade, ARampEntryFedPerSampleMatchesGraphEvaluation) {
    // 4 x 2 samples: u = 0.125 ... 0.875, v = 0.25, 0.75. The last entry
    // (position 1) is the checker: black where u > 0.5 and v < 0.5 or the
    // reverse, blue elsewhere. Linear from red at 0: (1 - u) red + u entry.
    const Shaded ramp("ramp_entry", "sg", 4, 2);
    expectColour(ramp(3, 1), 0.125, 0.0, 0.875, 1e-6, "u 0.875 over a blue square");
    expectColour(ramp(3, 0), 0.125, 0.0, 0.0, 1e-6, "u 0.875 over a black square");
    expectColour(ramp(0, 0), 0.875, 0.0, 0.125, 1e-6, "u 0.125 over a blue square");
    GraphEvaluation graph;
    for (int j = 0; j < 2; ++j)
        for (int i = 0; i < 4; ++i) {
            const std::vector<double> at =
                graph.at("ramp_entry", "tex", (i + 0.5) / 4, (j + 0.5) / 2);
            ASSERT_EQ(at.size(), 4u);
            expectColour(ramp(i, j), at[0], at[1], at[2], 1e-6, "as graph evaluation");
        }
}

TEST(TextureShade, ChildrenOfOneElementFedByOneSharedNodeLandApart) {
    // input3D[0] = (u, v, 3), input3D[1] = (0.5, 0.5, 0.5): the sum.
    const ToolResult r =
        runTool({"shade", std::string(ORVO_TEST_DATA_DIR) + "/scenes/element_children.qsl", "-g",
                 "sg", "--res", "2", "2"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "0 0  outColor = 0.75 0.75 3.5\n"
                     "1 0  outColor = 1.25 0.75 3.5\n"
                     "0 1  outColor = 0.75 1.25 3.5\n"
                     "1 1  outColor = 1.25 1.25 3.5\n");
}

} // namespace
