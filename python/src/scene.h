#pragma once

// The objects behind orvo.Scene and orvo.Node.
//
// The host keeps one current graph for the whole process and its graphs are
// not made to be used by two threads at once, so every call that touches a
// scene holds one process-wide lock (waiting for it without the Python lock,
// so that a render in another thread can call back into Python meanwhile).

#include <memory>
#include <string>
#include <thread>

#include <pybind11/pybind11.h>

class TdependGraph;

namespace orvo::python {

namespace py = pybind11;

// An error to raise as orvo.SceneError.
struct SceneFailure {
    std::string message;
    std::string file;
    int line = 0;
};

// The Python file and line that called into the module, for errors of a
// call rather than of a script.
SceneFailure callerFailure(std::string message);

class Scene {
public:
    Scene();
    explicit Scene(std::unique_ptr<TdependGraph> graph, std::string path);
    ~Scene();
    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;

    // Takes the process-wide lock for a call and makes the graph the
    // current one; raises RuntimeError for a call from within this thread's
    // own render (its progress callback).
    class Use {
    public:
        explicit Use(Scene& scene);
        ~Use();
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;
        TdependGraph& graph() { return fGraph; }

    private:
        TdependGraph& fGraph;
    };

    TdependGraph& graphUnlocked() { return *fGraph; }
    const std::string& path() const { return fPath; }
    void setPath(std::string path) { fPath = std::move(path); }
    // The scene's name in messages and image names: its file, or
    // "untitled" for a scene never loaded.
    std::string label() const { return fPath.empty() ? "untitled" : fPath; }

    // Runs Qsl text as one undoable edit; a script error is raised with its
    // file and line, where `name` is the text's file name.
    void run(const std::string& text, const std::string& name);
    // Runs one generated statement on behalf of the calling Python line: an
    // error is raised at that line.
    void runForCaller(const std::string& statement);

private:
    std::unique_ptr<TdependGraph> fGraph;
    std::string fPath;
};

// A node of a scene, by name.
struct Node {
    py::object scene; // the orvo.Scene, kept alive
    std::string name;
    Scene& owner() const { return scene.cast<Scene&>(); }
};

void bindScene(py::module_& m);
void bindShading(py::module_& m, py::class_<Scene>& scene);
void bindRender(py::class_<Scene>& scene);

} // namespace orvo::python
