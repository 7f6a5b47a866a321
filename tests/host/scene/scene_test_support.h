#pragma once

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "host/graph.h"
#include "host/qsl/interpreter.h"
#include "host/scene/dag.h"
#include "host/scene/matrix.h"

// Runs Qsl text against a graph, as if read from a file in `folder`.
inline void runScene(TdependGraph& graph, const std::string& text,
                     const std::string& file = "scene.qsl") {
    std::ostringstream out;
    qsl::Interpreter(graph, out).runText(text, file);
}

// The error a script gives, or "" when it runs.
inline std::string sceneError(TdependGraph& graph, const std::string& text,
                              const std::string& file = "scene.qsl") {
    try {
        runScene(graph, text, file);
    } catch (const qsl::ParseError& e) {
        return e.what();
    }
    return {};
}

inline TdagPath pathNamed(const TdependGraph& graph, const std::string& name) {
    const auto paths = TdagPath::pathsNamed(graph, name);
    EXPECT_EQ(paths.size(), 1u) << name;
    return paths.empty() ? TdagPath() : paths.front();
}

#define EXPECT_VEC_NEAR(v, X, Y, Z, tol)                                                           \
    do {                                                                                           \
        EXPECT_NEAR((v).x, (X), (tol));                                                            \
        EXPECT_NEAR((v).y, (Y), (tol));                                                            \
        EXPECT_NEAR((v).z, (Z), (tol));                                                            \
    } while (0)
