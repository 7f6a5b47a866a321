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

// The procedural 2D textures shaded through a shading group by `orvo shade`,
// each behind a placement (tests/scenes/textures). Sample (i, j) of a W x H
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

// One channel, NaN (which fails every comparison) when the sample is missing.
double channel(const Colour& c, size_t k) {
    return k < c.size() ? c[k] : std::nan("");
}

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

void expectSameColour(const Colour& got, const Colour& want, double tolerance,
                      const std::string& what) {
    ASSERT_EQ(want.size(), 3u) << what;
    expectColour(got, want[0], want[1], want[2], tolerance, what);
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

// The colour part of what GraphEvaluation::at returns.
Colour colourOf(const std::vector<double>& rgba) {
    return rgba.size() == 4 ? Colour(rgba.begin(), rgba.begin() + 3) : Colour{};
}

// Noise patterns repeat with period 1 in u; where the tool reads one whole
// periods apart the levels add their constant offsets to coordinates of
// different size, which round differently in 32-bit floats.
constexpr double kPeriodTolerance = 1e-5;

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

TEST(TextureShade, GridThroughAPlacement) {
    // 5 x 5 samples: u and v = 0.1, 0.3, 0.5, 0.7, 0.9. U: translateFrame 0.3
    // without wrap gives u - 0.3 = -0.2 (outside), 0, 0.2, 0.4, 0.6; repeat
    // 2.5 and offset -1 give -1, -0.5, 0, 0.5, read as 0, 0.5, 0, 0.5. V:
    // offset -0.5 gives -0.4, -0.2, 0, 0.2, 0.4, read as 0.6, 0.8, 0, 0.2,
    // 0.4. Lines lie within uWidth / 2 = 0.05 of a tile border.
    const Shaded grid("grid", "sg", 5, 5);
    for (int j = 0; j < 5; ++j)
        expectGrey(grid(0, j), 0.5, 0.0, "outside: the default colour");
    // With no filter the box is 1e-8 wide: on a line k = 0, w = 1, the line
    // colour; in the filler k = 1, w = 0, the filler colour.
    expectColour(grid(1, 0), 1.0, 0.0, 0.0, 1e-6, "u = -1 on a line");
    expectColour(grid(3, 1), 1.0, 0.0, 0.0, 1e-6, "u = 0 on a line");
    expectColour(grid(2, 2), 1.0, 0.0, 0.0, 1e-6, "v = 0 on a line");
    expectColour(grid(2, 0), 0.2, 0.4, 0.6, 1e-6, "u = -0.5 in the filler");
    expectColour(grid(4, 4), 0.2, 0.4, 0.6, 1e-6, "filler");

    // A filter size of (0.04, 0.1) on the sample becomes (0.04 * 2.5, 0.1) =
    // (0.1, 0.1) in the placement: a box of 0.2 by 0.2.
    const Shaded soft("grid", "sg", 5, 5, {"--field", "uvFilterSize=0.04,0.1"});
    // Centred on a U line at v = 0.6: the box spans -0.1 .. 0.1 in u, of
    // which 0.05 on each side is filler: k = 0.1 * 0.2 / 0.04 = 0.5, w = 0.5:
    // (0.6, 0.2, 0.3), as the graph test's "half covered".
    expectColour(soft(1, 0), 0.6, 0.2, 0.3, 1e-6, "half covered");
    expectColour(soft(2, 0), 0.2, 0.4, 0.6, 1e-6, "box in the filler");
    // On the crossing of two lines four corners of 0.05 by 0.05 are filler:
    // k = 0.01 / 0.04 = 0.25, w = 0.75: filler + (line - filler) 0.75 =
    // (0.2 + 0.6, 0.4 - 0.3, 0.6 - 0.45).
    expectColour(soft(1, 2), 0.8, 0.1, 0.15, 1e-6, "crossing");
    expectGrey(soft(0, 0), 0.5, 0.0, "outside");
}

TEST(TextureShade, BulgeThroughAPlacement) {
    // 4 x 4 samples: u and v = 0.125, 0.375, 0.625, 0.875. U: offset -0.375
    // gives -0.25, 0, 0.25, 0.5, read as 0.75, 0, 0.25, 0.5. V: coverage 0.5
    // without wrap gives v / 0.5 = 0.25, 0.75 and two rows outside; repeat
    // 1.5 gives 0.375, 1.125, read as 0.375, 0.125.
    // Each axis gives the factor cheapSin(0.25 (2x - 0.1) / 0.9), or 0 when
    // 2x is not inside 0.1 .. 1.9:
    //   x = 0.25 or 0.75: cheapSin(0.1111) = 1 - 16 * 0.1389^2 = 0.691358
    //     (the graph test's "quarter"; -0.25 reads as 0.75, its mirror);
    //   x = 0: 0 (the graph test's "origin"); x = 0.5: 1 ("centre");
    //   x = 0.375: cheapSin(0.25 * 0.65 / 0.9 = 0.180556)
    //     = 1 - 16 * 0.069444^2 = 0.922840;
    //   x = 0.125: cheapSin(0.25 * 0.15 / 0.9 = 0.041667)
    //     = 1 - 16 * 0.208333^2 = 0.305556.
    const Shaded bulge("bulge", "sg", 4, 4);
    expectGrey(bulge(3, 0), 0.9228395, 1e-6, "centre in u, 0.375 in v");
    expectGrey(bulge(0, 0), 0.6380125, 1e-6, "below 0: 0.691358 * 0.922840");
    expectGrey(bulge(2, 0), 0.6380125, 1e-6, "0.691358 * 0.922840");
    expectGrey(bulge(1, 0), 0.0, 0.0, "on the tile edge");
    expectGrey(bulge(1, 1), 0.0, 0.0, "on the tile edge");
    expectGrey(bulge(2, 1), 0.2112483, 1e-6, "the next V tile: 0.691358 * 0.305556");
    expectGrey(bulge(3, 1), 0.3055556, 1e-6, "the next V tile, centre in u");
    expectColour(bulge(0, 2), 0.0, 0.0, 1.0, 0.0, "outside: the default colour");
    expectColour(bulge(3, 3), 0.0, 0.0, 1.0, 0.0, "outside: the default colour");
}

TEST(TextureShade, RampThroughAPlacement) {
    // 4 x 4 samples: u and v = 0.125, 0.375, 0.625, 0.875. U: coverage 0.5
    // without wrap gives u / 0.5 = 0.25, 0.75 and two columns outside;
    // offset -0.5 gives -0.25, 0.25, read as 0.75, 0.25. V: repeat 2 and
    // offset -0.25 give 0, 0.5, 1.0, 1.5, read as 0, 0.5, 1.0 (an exact 1
    // stays 1), 0.5.
    // Diagonal: x = (u + v) / 2; from red at 0 to white at 1 with weight
    // t^2 (the graph test's "Exponential Up"): (1, x^2, x^2).
    const Shaded ramp("ramp", "sg", 4, 4);
    expectColour(ramp(0, 0), 1.0, 0.140625, 0.140625, 1e-7, "below 0: x = 0.375");
    expectColour(ramp(1, 0), 1.0, 0.015625, 0.015625, 1e-7, "x = 0.125");
    expectColour(ramp(0, 1), 1.0, 0.390625, 0.390625, 1e-7, "x = 0.625");
    expectColour(ramp(0, 2), 1.0, 0.765625, 0.765625, 1e-7, "tile edge: x = (0.75 + 1) / 2");
    expectColour(ramp(1, 1), 1.0, 0.140625, 0.140625, 1e-7, "x = 0.375");
    expectColour(ramp(1, 3), 1.0, 0.140625, 0.140625, 1e-7, "the next V tile: x = 0.375");
    expectColour(ramp(2, 0), 0.0, 1.0, 0.0, 0.0, "outside: the default colour");
    expectColour(ramp(3, 3), 0.0, 1.0, 0.0, 0.0, "outside: the default colour");
}

TEST(TextureShade, FractalThroughAPlacement) {
    // 8 x 2 samples: u = (i + 0.5) / 8, v = 0.25, 0.75. U: coverage 0.5
    // without wrap gives u / 0.5 = 0.125, 0.375, 0.625, 0.875 for i = 0 .. 3
    // and outside for the rest; repeat 4 and offset -2 give -1.5, -0.5, 0.5,
    // 1.5, whole units apart. noise2 repeats with period 1, and each level
    // moves the coordinates by frequencyRatio 2 and constants, so a whole
    // unit stays a whole number of periods: those four samples agree.
    const Shaded fractal("fractal", "sg", 8, 2);
    for (int j = 0; j < 2; ++j) {
        const Colour first = fractal(0, j);
        ASSERT_EQ(first.size(), 3u);
        EXPECT_EQ(first[0], first[1]);
        EXPECT_EQ(first[0], first[2]);
        for (int i = 1; i < 4; ++i)
            expectSameColour(fractal(i, j), first, kPeriodTolerance, "a whole period on");
        for (int i = 4; i < 8; ++i)
            expectColour(fractal(i, j), 1.0, 0.0, 0.0, 0.0, "outside: the default colour");
    }
    // The pattern does vary, so the agreement above is not that of a flat
    // one.
    EXPECT_GT(std::abs(channel(fractal(0, 0), 0) - channel(fractal(0, 1), 0)), 1e-3);

    // The same values as graph evaluation at the samples' coordinates.
    GraphEvaluation graph;
    const std::vector<double> a = graph.at("fractal", "tex", 0.0625, 0.25);
    const std::vector<double> b = graph.at("fractal", "tex", 0.3125, 0.75);
    expectSameColour(fractal(0, 0), colourOf(a), 1e-7, "as graph evaluation at (0.0625, 0.25)");
    expectSameColour(fractal(2, 1), colourOf(b), 1e-7, "as graph evaluation at (0.3125, 0.75)");

    // Alpha, shown as red: the value * alphaGain 0.5 + alphaOffset 0.25.
    // Outside it is the luminance of the default colour, with no effect:
    // 0.3 * 1 (not 0.3 * 0.5 + 0.25).
    const Shaded alpha("fractal", "sgAlpha", 8, 2);
    expectColour(alpha(0, 0), channel(fractal(0, 0), 0) * 0.5 + 0.25, 0.0, 0.0, 1e-7, "alpha");
    expectColour(alpha(2, 1), channel(fractal(2, 1), 0) * 0.5 + 0.25, 0.0, 0.0, 1e-7, "alpha");
    ASSERT_EQ(a.size(), 4u);
    EXPECT_NEAR(channel(alpha(0, 0), 0), a[3], 1e-7) << "alpha as graph evaluation";
    expectColour(alpha(5, 1), 0.3, 0.0, 0.0, 1e-7, "alpha outside");

    // Amplitude 0 stops at the first level: (0 + 1) / 2 + threshold 0.2 =
    // 0.7 (the graph test's "amplitude 0"), then colorGain (1, 0.5, 2), with
    // no clamp: (0.7, 0.35, 1.4).
    const Shaded flat("fractal", "sgFlat", 8, 2);
    for (int i = 0; i < 4; ++i)
        expectColour(flat(i, 1), 0.7, 0.35, 1.4, 1e-6, "amplitude 0");
    expectGrey(flat(6, 0), 0.5, 0.0, "outside: the default colour");
}

TEST(TextureShade, NoiseThroughAPlacement) {
    // The fractal's placement (see above): for i = 0 .. 3 of 8 x 2 samples u
    // becomes -1.5, -0.5, 0.5, 1.5, the rest is outside. The billow's blob
    // lattice at frequency 20 repeats once per unit, and each octave doubles
    // the coordinates (ratio 1 / frequencyRatio 2): those four agree.
    const Shaded noise("noise", "sg", 8, 2);
    for (int j = 0; j < 2; ++j) {
        const Colour first = noise(0, j);
        ASSERT_EQ(first.size(), 3u);
        EXPECT_EQ(first[0], first[1]);
        EXPECT_EQ(first[0], first[2]);
        for (int i = 1; i < 4; ++i)
            expectSameColour(noise(i, j), first, kPeriodTolerance, "a whole period on");
        for (int i = 4; i < 8; ++i)
            expectColour(noise(i, j), 1.0, 0.0, 0.0, 0.0, "outside: the default colour");
    }
    EXPECT_GT(std::abs(channel(noise(0, 0), 0) - channel(noise(0, 1), 0)), 1e-3)
        << "not a flat pattern";

    GraphEvaluation graph;
    expectSameColour(noise(0, 0), colourOf(graph.at("noise", "tex", 0.0625, 0.25)), 1e-7,
                     "as graph evaluation at (0.0625, 0.25)");
    expectSameColour(noise(2, 1), colourOf(graph.at("noise", "tex", 0.3125, 0.75)), 1e-7,
                     "as graph evaluation at (0.3125, 0.75)");

    // randomness 2: density min(1, 2 - 2) = 0 leaves no blobs, and only the
    // threshold 0.3 remains (the graph test's "threshold").
    const Shaded flat("noise", "sgFlat", 8, 2);
    for (int i = 0; i < 4; ++i)
        expectGrey(flat(i, 0), 0.3, 1e-6, "no blobs");
    expectGrey(flat(7, 1), 0.5, 0.0, "outside: the default colour");
}

TEST(TextureShade, MountainThroughAPlacement) {
    // The fractal's placement (see above) on 8 x 8 samples: for i = 0 .. 3 u
    // becomes -1.5, -0.5, 0.5, 1.5, the rest is outside. A filter size of
    // 0.001 becomes 0.001 * 4 / 0.5 = 0.008 in U: levels = ln(0.008 * 32) /
    // -0.6931 = 1.966, one whole level and most of the next, few enough to
    // keep the coordinates small. Both passes double the frequency and add
    // constants per level, so those four samples agree.
    const std::vector<std::string> filter{"--field", "uvFilterSize=0.001,0.001"};
    const Colour snow{1.0, 1.0, 1.0};
    const Colour rock{0.262, 0.102, 0.0};
    const Shaded mountain("mountain", "sg", 8, 8, filter);
    const Shaded alpha("mountain", "sgAlpha", 8, 8, filter);
    for (int j = 0; j < 2; ++j) {
        const Colour first = mountain(0, j);
        ASSERT_EQ(first.size(), 3u);
        const bool isSnow = std::abs(first[1] - 1.0) < 1e-6;
        expectSameColour(first, isSnow ? snow : rock, 1e-6, "snow or rock");
        for (int i = 1; i < 4; ++i) {
            expectSameColour(mountain(i, j), first, 0.0, "a whole period on");
            EXPECT_NEAR(channel(alpha(i, j), 0), channel(alpha(0, j), 0), kPeriodTolerance)
                << "height a whole period on";
        }
        for (int i = 4; i < 8; ++i) {
            expectColour(mountain(i, j), 0.0, 0.0, 1.0, 0.0, "outside: the default colour");
            // The luminance of blue.
            EXPECT_NEAR(channel(alpha(i, j), 0), 0.11, 1e-7) << "alpha outside";
        }
    }

    EXPECT_GT(std::abs(channel(alpha(0, 0), 0) - channel(alpha(0, 1), 0)), 1e-3)
        << "not a flat height";

    GraphEvaluation graph;
    const std::vector<double> a = graph.at("mountain", "tex", 0.0625, 0.0625, 0.001);
    const std::vector<double> b = graph.at("mountain", "tex", 0.3125, 0.1875, 0.001);
    ASSERT_EQ(a.size(), 4u);
    ASSERT_EQ(b.size(), 4u);
    expectSameColour(mountain(0, 0), colourOf(a), 1e-7, "as graph evaluation (0.0625, 0.0625)");
    expectSameColour(mountain(2, 1), colourOf(b), 1e-7, "as graph evaluation (0.3125, 0.1875)");
    EXPECT_NEAR(channel(alpha(0, 0), 0), a[3], 1e-7) << "height as graph evaluation";
    EXPECT_NEAR(channel(alpha(2, 1), 0), b[3], 1e-7) << "height as graph evaluation";

    // Amplitude 0: no slope, e = 0, below the limit 2 * 0.5 + 0.8 = 1.8, so
    // snow (0.9, 0.8, 0.7); no height, alpha (0 + 1) / 2 (shown as green).
    // Outside: the default colour green, alpha its luminance 0.59.
    const Shaded flat("mountain", "sgFlat", 8, 8, filter);
    for (int i = 0; i < 4; ++i) {
        expectColour(flat(i, 3), 0.9, 0.8, 0.7, 1e-6, "amplitude 0: snow");
        EXPECT_NEAR(channel(alpha(i, 3), 1), 0.5, 1e-7) << "amplitude 0: height 0";
    }
    expectColour(flat(5, 3), 0.0, 1.0, 0.0, 0.0, "outside: the default colour");
    EXPECT_NEAR(channel(alpha(5, 3), 1), 0.59, 1e-7) << "alpha outside";
}

} // namespace
