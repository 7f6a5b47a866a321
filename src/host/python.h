#pragma once

// The embedded Python interpreter, for the services of the render model that
// are scripts (the file texture's name resolver). The interpreter starts at
// the first call, once per process, and finds the `orvo` package tree: the
// installed one (share/orvo/python beside the library's prefix), else the
// source tree's python/ folder, or the folder ORVO_PYTHON_DIR names.
//
// Calls may come from any thread; each holds the interpreter's lock for its
// duration. Values cross as plain data, so callers need no Python headers.

#include <optional>
#include <variant>
#include <vector>

#include "host/types.h"

// A value passed to or returned from Python: None, a bool, an integer, a
// float, a string or a list (tuples come back as lists).
struct TpythonValue {
    using List = std::vector<TpythonValue>;
    std::variant<std::monostate, bool, long long, double, Tstring, List> value;

    TpythonValue() = default;
    TpythonValue(bool b) : value(b) {}
    TpythonValue(int i) : value(static_cast<long long>(i)) {}
    TpythonValue(long long i) : value(i) {}
    TpythonValue(double d) : value(d) {}
    TpythonValue(const char* s) : value(Tstring(s)) {}
    TpythonValue(Tstring s) : value(std::move(s)) {}
    TpythonValue(List l) : value(std::move(l)) {}

    bool isNone() const { return std::holds_alternative<std::monostate>(value); }
    const Tstring* asString() const { return std::get_if<Tstring>(&value); }
    const List* asList() const { return std::get_if<List>(&value); }
    // An integer or a float as a number; nothing for anything else.
    std::optional<double> asNumber() const;
};

class TpythonInterpreter {
public:
    // `module`.`function`(args...) after importing the module. Nothing, with
    // the Python error (or why there is no interpreter) in `error`, when the
    // import or the call fails or the result is not plain data.
    static std::optional<TpythonValue> call(const Tstring& module, const Tstring& function,
                                            const TpythonValue::List& args, Tstring* error);
    // The folder the `orvo` package is imported from.
    static Tstring packageDirectory();
};
