#include "host/python.h"

#include <dlfcn.h>

#include <filesystem>
#include <mutex>

#include <pybind11/embed.h>
#include <pybind11/stl.h>

#include "host/env.h"

namespace py = pybind11;

std::optional<double> TpythonValue::asNumber() const {
    if (const auto* i = std::get_if<long long>(&value))
        return double(*i);
    if (const auto* d = std::get_if<double>(&value))
        return *d;
    return std::nullopt;
}

namespace {

// The installed tree is share/orvo/python under the prefix the library
// sits in (prefix/lib/liborvo_host.so); a build tree has no such folder and
// uses the sources.
Tstring findPackageDirectory() {
    if (const auto custom = OrvoGetEnv("ORVO_PYTHON_DIR"); custom && !custom->empty())
        return *custom;
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&findPackageDirectory), &info) && info.dli_fname) {
        namespace fs = std::filesystem;
        const fs::path installed =
            fs::path(info.dli_fname).parent_path().parent_path() / "share" / "orvo" / "python";
        std::error_code ec;
        if (fs::is_directory(installed / "orvo", ec))
            return installed.string();
    }
    return ORVO_PYTHON_SOURCE_DIR;
}

struct Interpreter {
    std::once_flag once;
    bool ok = false;
    Tstring why;
    Tstring directory;
    PyThreadState* mainState = nullptr;

    void start() {
        std::call_once(once, [this] {
            directory = findPackageDirectory();
            try {
                if (!Py_IsInitialized()) {
                    // No signal handlers of Python's own: the host keeps its own.
                    py::initialize_interpreter(false);
                    py::module_::import("sys").attr("path").attr("insert")(0, directory);
                    // Other threads take the lock as they call.
                    mainState = PyEval_SaveThread();
                } else {
                    py::gil_scoped_acquire gil;
                    py::module_::import("sys").attr("path").attr("insert")(0, directory);
                }
                ok = true;
            } catch (const std::exception& e) {
                why = e.what();
            }
        });
    }
};

Interpreter& interpreter() {
    // Never destroyed: the interpreter lives until the process ends, and
    // finalising it from a static destructor would race other libraries'.
    static Interpreter* it = new Interpreter;
    return *it;
}

py::object toPython(const TpythonValue& v) {
    return std::visit(
        [](const auto& x) -> py::object {
            using X = std::decay_t<decltype(x)>;
            if constexpr (std::is_same_v<X, std::monostate>) {
                return py::none();
            } else if constexpr (std::is_same_v<X, TpythonValue::List>) {
                py::list list;
                for (const TpythonValue& item : x)
                    list.append(toPython(item));
                return list;
            } else {
                return py::cast(x);
            }
        },
        v.value);
}

bool fromPython(const py::handle& h, TpythonValue& out) {
    if (h.is_none()) {
        out = TpythonValue();
    } else if (py::isinstance<py::bool_>(h)) {
        out = TpythonValue(h.cast<bool>());
    } else if (py::isinstance<py::int_>(h)) {
        out = TpythonValue(h.cast<long long>());
    } else if (py::isinstance<py::float_>(h)) {
        out = TpythonValue(h.cast<double>());
    } else if (py::isinstance<py::str>(h)) {
        out = TpythonValue(h.cast<Tstring>());
    } else if (py::isinstance<py::list>(h) || py::isinstance<py::tuple>(h)) {
        TpythonValue::List list;
        for (const py::handle item : h) {
            TpythonValue v;
            if (!fromPython(item, v))
                return false;
            list.push_back(std::move(v));
        }
        out = TpythonValue(std::move(list));
    } else {
        return false;
    }
    return true;
}

} // namespace

Tstring TpythonInterpreter::packageDirectory() {
    Interpreter& it = interpreter();
    it.start();
    return it.directory;
}

std::optional<TpythonValue> TpythonInterpreter::call(const Tstring& module, const Tstring& function,
                                                     const TpythonValue::List& args,
                                                     Tstring* error) {
    Interpreter& it = interpreter();
    it.start();
    if (!it.ok) {
        if (error)
            *error = "Python is not available: " + it.why;
        return std::nullopt;
    }
    py::gil_scoped_acquire gil;
    try {
        py::object f = py::module_::import(module.c_str()).attr(function.c_str());
        py::tuple pyArgs(args.size());
        for (size_t i = 0; i < args.size(); ++i)
            pyArgs[i] = toPython(args[i]);
        py::object result = f(*pyArgs);
        TpythonValue out;
        if (!fromPython(result, out)) {
            if (error)
                *error = module + "." + function + " returned " +
                         py::str(py::type::of(result)).cast<Tstring>() + ", not plain data";
            return std::nullopt;
        }
        return out;
    } catch (const py::error_already_set& e) {
        if (error)
            *error = e.what();
        return std::nullopt;
    } catch (const std::exception& e) {
        if (error)
            *error = e.what();
        return std::nullopt;
    }
}
