// The orvo extension module (orvo._orvo): scenes, plugs, shading, compile
// reports, image names and renders for Python scripts. The package
// python/orvo re-exports it.

#include <pybind11/pybind11.h>

#include "host/version.h"
#include "scene.h"

PYBIND11_MODULE(_orvo, m) {
    m.doc() = "Scenes, plugs, shading and rendering of the orvo render model.";
    m.def("version", &OrvoHostVersion, "The version of the orvo libraries.");
    orvo::python::bindScene(m);
}
