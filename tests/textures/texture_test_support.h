#pragma once

// Helpers shared by the texture tests: a placement in front of a texture in
// a graph, values as floats, and a bake through mapUVtoClr.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/graph.h"
#include "textures/tx2d.h"

namespace orvo_test {

inline void set(TdependGraph& g, const std::string& plug, std::vector<std::string> words) {
    g.setPlugValueFromWords(g.findPlug(plug), words);
}

inline void set(TdependGraph& g, const std::string& plug, std::vector<double> values) {
    std::vector<std::string> words;
    for (double v : values)
        words.push_back(OrvoFormatFloat(v));
    g.setPlugValueFromWords(g.findPlug(plug), words);
}

inline std::vector<float> eval(TdependGraph& g, const std::string& plug) {
    std::vector<float> out;
    for (const std::string& w : g.evaluateToWords(g.findPlug(plug)))
        out.push_back(std::stof(w));
    return out;
}

// A texture of `type` named "t" behind a placement "p": p.outUV feeds
// t.uvCoord and p.outUvFilterSize feeds t.uvFilterSize.
struct PlacedTexture {
    TdependGraph g;
    TdependNode* place = nullptr;
    TdnTx2D* texture = nullptr;

    explicit PlacedTexture(const std::string& type) {
        place = g.createNode("place2dTexture", "p");
        TdependNode* t = g.createNode(type, "t");
        texture = static_cast<TdnTx2D*>(t->cast(TdnTx2D::sTypeof()));
        g.connect(g.findPlug("p.outUV"), g.findPlug("t.uvCoord"));
        g.connect(g.findPlug("p.outUvFilterSize"), g.findPlug("t.uvFilterSize"));
    }

    // The texture's colour and alpha with the surface at (u, v).
    std::vector<float> at(double u, double v) {
        set(g, "p.uvCoord", std::vector<double>{u, v});
        std::vector<float> out = eval(g, "t.outColor");
        out.push_back(eval(g, "t.outAlpha").at(0));
        return out;
    }

    // The same through mapUVtoClr.
    std::vector<float> baked(double u, double v) {
        TplugArray plugs;
        T4dDblVectorArray colors;
        TdoubleArray alphas;
        const TdoubleArray us{u}, vs{v};
        texture->mapUVtoClr(plugs, &colors, nullptr, &alphas, &us, &vs);
        if (colors.size() != 1 || alphas.size() != 1)
            return {};
        return {float(colors[0].x), float(colors[0].y), float(colors[0].z), float(alphas[0])};
    }
};

// Colour and alpha within a tolerance.
inline void expectRgba(const std::vector<float>& got, float r, float g, float b, float a,
                       float tolerance, const std::string& what) {
    ASSERT_EQ(got.size(), 4u) << what;
    EXPECT_NEAR(got[0], r, tolerance) << what << " red";
    EXPECT_NEAR(got[1], g, tolerance) << what << " green";
    EXPECT_NEAR(got[2], b, tolerance) << what << " blue";
    EXPECT_NEAR(got[3], a, tolerance) << what << " alpha";
}

inline void expectGrey(const std::vector<float>& got, float v, float tolerance,
                       const std::string& what) {
    expectRgba(got, v, v, v, v, tolerance, what);
}

} // namespace orvo_test
