#include "scene.h"

#include <fmt/format.h>
#include <frameobject.h>
#include <pybind11/stl.h>

#include <atomic>
#include <fstream>
#include <mutex>
#include <sstream>

#include "apps/orvo/cli.h"
#include "apps/orvo/node_types.h"
#include "apps/orvo/scene.h"
#include "host/env.h"
#include "host/file_replace.h"
#include "host/graph.h"
#include "host/qsl/interpreter.h"
#include "host/qsl/parser.h"

namespace orvo::python {

namespace {

// The lock every scene call holds, and the thread holding it.
std::mutex gHostMutex;
std::atomic<std::thread::id> gHostOwner{};

// A word of a generated statement, quoted when it would not read back.
std::string word(const std::string& text) {
    return qsl::needsQuoting(text) ? qsl::quote(text) : text;
}

// A Python value as the words of a `set` statement: numbers, true/false,
// quoted strings; tuples and lists (nested too, as a matrix's rows) give
// their items in order.
void appendWords(const py::handle& value, std::string& out) {
    if (py::isinstance<py::bool_>(value)) {
        out += value.cast<bool>() ? " true" : " false";
    } else if (py::isinstance<py::int_>(value)) {
        out += " " + py::str(value).cast<std::string>();
    } else if (py::isinstance<py::float_>(value)) {
        // repr gives the shortest text that reads back as the same double.
        out += " " + py::repr(value).cast<std::string>();
    } else if (py::isinstance<py::str>(value)) {
        out += " " + qsl::quote(value.cast<std::string>());
    } else if (py::isinstance<py::tuple>(value) || py::isinstance<py::list>(value)) {
        for (const py::handle item : value)
            appendWords(item, out);
    } else {
        throw callerFailure(fmt::format("cannot set a plug to a {}: use numbers, booleans, "
                                        "strings, or tuples of them",
                                        py::str(py::type::of(value)).cast<std::string>()));
    }
}

// A word of a plug's value as a Python value: the way `orvo eval --json`
// reads words. Numbers of a floating-point plug are floats even when
// whole; those of the others are ints.
py::object fromWord(const std::string& w, bool floating) {
    if (w == "true" || w == "false")
        return py::bool_(w == "true");
    if (const auto n = OrvoParseInteger(w); n && !floating)
        return py::int_(*n);
    if (const auto d = OrvoParseDouble(w))
        return py::float_(*d);
    if (w.size() >= 2 && w.front() == '"' && w.back() == '"') {
        std::string text;
        for (size_t i = 1; i + 1 < w.size(); ++i) {
            if (w[i] == '\\' && i + 2 < w.size()) {
                ++i;
                text.push_back(w[i] == 'n' ? '\n' : w[i] == 't' ? '\t' : w[i]);
            } else {
                text.push_back(w[i]);
            }
        }
        return py::str(text);
    }
    return py::str(w);
}

// Whether the attribute holds floating-point numbers (floats, doubles,
// angles, times, matrices, number arrays) rather than integers, booleans,
// enums or strings.
bool isFloatingPoint(const Tattribute& attribute) {
    const std::string name = attribute.className();
    for (const char* part : {"Float", "Flt", "Double", "Time", "NumberArray"})
        if (name.find(part) != std::string::npos)
            return true;
    return false;
}

std::string plugText(const Node& node, const std::string& attribute) {
    return node.name + "." + attribute;
}

// A plug named by "node.attr" or by a (Node, "attr") pair.
std::string plugArgument(const py::handle& plug) {
    if (py::isinstance<py::str>(plug))
        return plug.cast<std::string>();
    if (py::isinstance<py::tuple>(plug) && py::len(plug) == 2) {
        const py::tuple pair = py::reinterpret_borrow<py::tuple>(plug);
        if (py::isinstance<Node>(pair[0]) && py::isinstance<py::str>(pair[1]))
            return plugText(pair[0].cast<const Node&>(), pair[1].cast<std::string>());
    }
    throw callerFailure("a plug is named \"node.attribute\" or given as (node, \"attribute\")");
}

TdependNode& findNode(TdependGraph& graph, const Scene& scene, const std::string& name) {
    TdependNode* node = graph.findNode(name);
    if (!node)
        throw callerFailure(fmt::format("{}: no node named '{}'", scene.label(), name));
    return *node;
}

Node nodeObject(py::object scene, std::string name) {
    return Node{std::move(scene), std::move(name)};
}

} // namespace

SceneFailure callerFailure(std::string message) {
    SceneFailure failure{std::move(message), "<python>", 0};
    PyFrameObject* frame = PyEval_GetFrame();
    if (frame) {
        failure.line = PyFrame_GetLineNumber(frame);
        PyCodeObject* code = PyFrame_GetCode(frame);
        failure.file = py::reinterpret_steal<py::object>(reinterpret_cast<PyObject*>(code))
                           .attr("co_filename")
                           .cast<std::string>();
    }
    return failure;
}

Scene::Use::Use(Scene& scene) : fGraph(*scene.fGraph) {
    if (gHostOwner.load() == std::this_thread::get_id())
        throw std::runtime_error("orvo: a scene cannot be used while this thread renders (from "
                                 "a progress callback)");
    {
        py::gil_scoped_release unlocked;
        gHostMutex.lock();
    }
    gHostOwner.store(std::this_thread::get_id());
    TdependGraph::fsCurrentGraph = &fGraph;
}

Scene::Use::~Use() {
    gHostOwner.store(std::thread::id());
    gHostMutex.unlock();
}

Scene::Scene() : fGraph(std::make_unique<TdependGraph>()) {
    Use use(*this);
    fGraph->initializeScene();
}

Scene::Scene(std::unique_ptr<TdependGraph> graph, std::string path)
    : fGraph(std::move(graph)), fPath(std::move(path)) {}

Scene::~Scene() {
    // The graph's nodes may be in use by the host's current-graph pointer;
    // its destructor clears that, under the lock like every other call.
    py::gil_scoped_release unlocked;
    std::lock_guard<std::mutex> lock(gHostMutex);
    fGraph.reset();
}

void Scene::run(const std::string& text, const std::string& name) {
    std::ostringstream printed;
    {
        Use use(*this);
        qsl::Interpreter(use.graph(), printed).runText(text, name);
    }
    if (!printed.str().empty())
        py::print(printed.str(), py::arg("end") = "");
}

void Scene::runForCaller(const std::string& statement) {
    try {
        run(statement, "<python>");
    } catch (const qsl::ParseError& e) {
        throw callerFailure(e.message());
    }
}

void bindScene(py::module_& m) {
    const py::object sceneError = py::module_::import("orvo.errors").attr("SceneError");
    m.attr("SceneError") = sceneError;
    // Keep the class alive for the translator (modules are not unloaded).
    static PyObject* errorClass = sceneError.inc_ref().ptr();
    py::register_exception_translator([](std::exception_ptr p) {
        auto raise = [](const std::string& message, const std::string& file, int line) {
            py::object error = py::reinterpret_borrow<py::object>(errorClass)(message, file, line);
            PyErr_SetObject(errorClass, error.ptr());
        };
        try {
            if (p)
                std::rethrow_exception(p);
        } catch (const SceneFailure& e) {
            raise(e.message, e.file, e.line);
        } catch (const qsl::ParseError& e) {
            raise(e.message(), e.where().file, e.where().line);
        } catch (const orvo::cli::UserError& e) {
            const SceneFailure at = callerFailure(e.what());
            raise(at.message, at.file, at.line);
        } catch (const TgraphError& e) {
            const SceneFailure at = callerFailure(e.what());
            raise(at.message, at.file, at.line);
        }
    });

    m.def(
        "node_types",
        [] {
            const std::string text = orvo::cli::nodeTypesJson(TdependGraph::nodeTypes());
            return py::module_::import("json").attr("loads")(text);
        },
        "Every registered node type, as `orvo nodes --json` prints them: a list of dicts with\n"
        "'type', 'iffTag', 'apiType', 'apiTypeString', 'classification', 'base' and\n"
        "'attributes' (each with 'long', 'short', 'class', 'parent', 'default', 'flags').");

    py::class_<Node>(m, "Node", "A node of a scene. node[\"attr\"] reads and sets its plugs.")
        .def_property_readonly(
            "name", [](const Node& n) { return n.name; }, "The node's name.")
        .def_property_readonly(
            "type",
            [](const Node& n) {
                Scene::Use use(n.owner());
                return findNode(use.graph(), n.owner(), n.name).typeName();
            },
            "The node's type name.")
        .def_property_readonly(
            "scene", [](const Node& n) { return n.scene; }, "The scene the node is in.")
        .def(
            "__getitem__",
            [](const Node& n, const std::string& attribute) -> py::object {
                std::vector<std::string> words;
                bool floating = false;
                {
                    Scene::Use use(n.owner());
                    findNode(use.graph(), n.owner(), n.name);
                    const Tplug plug = use.graph().findPlug(plugText(n, attribute));
                    words = use.graph().evaluateToWords(plug);
                    floating = isFloatingPoint(*plug.attribute());
                }
                if (words.size() == 1)
                    return fromWord(words[0], floating);
                py::tuple values(words.size());
                for (size_t i = 0; i < words.size(); ++i)
                    values[i] = fromWord(words[i], floating);
                py::object out = values;
                return out;
            },
            py::arg("attribute"),
            "The plug's value, computed when an input is connected: a number, a bool, a string, "
            "or a tuple of them.")
        .def(
            "__setitem__",
            [](Node& n, const std::string& attribute, const py::handle& value) {
                std::string statement = "set " + word(plugText(n, attribute));
                appendWords(value, statement);
                n.owner().runForCaller(statement);
            },
            py::arg("attribute"), py::arg("value"),
            "Sets the plug as the scene language's `set` does (enum labels as strings).")
        .def(
            "plug",
            [](const Node& n, const std::string& attribute) { return plugText(n, attribute); },
            py::arg("attribute"), "The plug's name, \"node.attribute\", for connect().")
        .def("__eq__",
             [](const Node& a, const Node& b) { return a.scene.is(b.scene) && a.name == b.name; })
        .def("__hash__", [](const Node& n) { return py::hash(py::str(n.name)); })
        .def("__repr__", [](const Node& n) { return fmt::format("<orvo.Node '{}'>", n.name); });

    py::class_<Scene> scene(m, "Scene",
                            "A scene: a graph of nodes, loaded from a .qsl file or built by "
                            "script.");
    scene.def(py::init<>(), "An empty scene, with the nodes every scene starts with.")
        .def_static(
            "load",
            [](const std::string& path) {
                std::unique_ptr<TdependGraph> graph;
                {
                    py::gil_scoped_release unlocked;
                    std::lock_guard<std::mutex> lock(gHostMutex);
                    graph = orvo::cli::readScene(path);
                }
                return std::make_unique<Scene>(std::move(graph), path);
            },
            py::arg("path"),
            "Reads a scene file. Raises SceneError with the file and line of the first error.")
        .def_property_readonly("path", &Scene::path,
                               "The file the scene was loaded from ('' for a new scene).")
        .def("run", &Scene::run, py::arg("text"), py::arg("name") = "<string>",
             "Runs scene-language text, all or nothing: when a statement fails, nothing it did\n"
             "stays, and SceneError names `name` and the line.")
        .def(
            "save",
            [](Scene& self, const std::string& path) {
                std::string text;
                {
                    Scene::Use use(self);
                    text = qsl::writeScene(use.graph());
                }
                TfileReplacement file(path);
                {
                    std::ofstream out(file.temporary(), std::ios::binary);
                    out << text;
                    out.close();
                    if (!out)
                        throw callerFailure(fmt::format("{}: cannot write the scene", path));
                }
                if (const std::string why = file.commit(true); !why.empty())
                    throw callerFailure(fmt::format("{}: {}", path, why));
                self.setPath(path);
            },
            py::arg("path"),
            "Writes the scene as a .qsl file (whole or not at all); loading it gives the same "
            "nodes, values and connections. The scene's path becomes `path`.")
        .def(
            "node",
            [](py::object self, const std::string& name) {
                Scene& s = self.cast<Scene&>();
                {
                    Scene::Use use(s);
                    findNode(use.graph(), s, name);
                }
                return nodeObject(self, name);
            },
            py::arg("name"), "The node named `name`; SceneError when there is none.")
        .def(
            "create",
            [](py::object self, const std::string& type, const std::string& name,
               const std::optional<std::string>& parent) {
                std::string statement = "node " + word(type) + " " + word(name);
                if (parent)
                    statement += " -parent " + word(*parent);
                self.cast<Scene&>().runForCaller(statement);
                return nodeObject(self, name);
            },
            py::arg("type"), py::arg("name"), py::arg("parent") = py::none(),
            "Creates a node, as the scene language's `node TYPE NAME -parent P` does (a shape "
            "needs a transform parent).")
        .def(
            "nodes",
            [](py::object self, const std::optional<std::string>& type) {
                Scene& s = self.cast<Scene&>();
                std::vector<std::string> names;
                {
                    Scene::Use use(s);
                    Tmetaclass* meta = nullptr;
                    if (type) {
                        TdependNodeClass* c = TdependGraph::findNodeType(*type);
                        if (!c)
                            throw callerFailure(fmt::format("unknown node type '{}'", *type));
                        meta = c->metaclass();
                    }
                    for (TdependNode* node : use.graph().nodes())
                        if (!meta || node->cast(meta))
                            names.push_back(node->name());
                }
                py::list out;
                for (std::string& name : names)
                    out.append(nodeObject(self, std::move(name)));
                return out;
            },
            py::arg("type") = py::none(),
            "The nodes in creation order; with `type`, those of that type or one derived from it.")
        .def(
            "connect",
            [](Scene& self, const py::handle& source, const py::handle& destination) {
                self.runForCaller("connect " + word(plugArgument(source)) + " " +
                                  word(plugArgument(destination)));
            },
            py::arg("source"), py::arg("destination"),
            "Connects two plugs, each \"node.attr\" or (node, \"attr\").")
        .def(
            "disconnect",
            [](Scene& self, const py::handle& source, const py::handle& destination) {
                self.runForCaller("disconnect " + word(plugArgument(source)) + " " +
                                  word(plugArgument(destination)));
            },
            py::arg("source"), py::arg("destination"), "Breaks a connection between two plugs.")
        .def("__repr__", [](const Scene& s) {
            return s.path().empty() ? std::string("<orvo.Scene>")
                                    : fmt::format("<orvo.Scene '{}'>", s.path());
        });

    bindShading(m, scene);
    bindRender(scene);
}

} // namespace orvo::python
