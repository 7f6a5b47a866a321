#include "host/qsl/interpreter.h"

#include <filesystem>
#include <iostream>
#include <sstream>

#include <fmt/format.h>

#include "host/graph.h"

namespace qsl {

namespace {

std::string argWord(const Argument& a) {
    return a.kind == ArgKind::Flag ? "-" + a.text : a.text;
}

// Plugs and node names are words; a string is accepted too.
const Argument& expectName(const Statement& s, size_t i, const char* what) {
    if (i >= s.args.size())
        Interpreter::fail(s, -1, fmt::format("'{}' needs {}", s.command, what));
    const Argument& a = s.args[i];
    if (a.kind == ArgKind::Flag || a.kind == ArgKind::Number)
        Interpreter::fail(s, int(i), fmt::format("expected {}, found '{}'", what, argWord(a)));
    return a;
}

void expectCount(const Statement& s, size_t lo, size_t hi, const char* usage) {
    if (s.args.size() < lo)
        Interpreter::fail(s, -1,
                          fmt::format("'{}' needs more arguments (usage: {})", s.command, usage));
    if (s.args.size() > hi)
        Interpreter::fail(s, int(hi),
                          fmt::format("unexpected '{}' (usage: {})", argWord(s.args[hi]), usage));
}

Tplug plugAt(Interpreter::Context& c, size_t i) {
    const Argument& a = expectName(c.statement, i, "a plug");
    try {
        return c.graph.findPlug(a.text);
    } catch (const TgraphError& e) {
        Interpreter::fail(c.statement, int(i), e.what());
    }
}

void commandNode(Interpreter::Context& c) {
    const Statement& s = c.statement;
    const Argument& type = expectName(s, 0, "a node type");
    std::string name;
    std::string parent;
    for (size_t i = 1; i < s.args.size(); ++i) {
        const Argument& a = s.args[i];
        if (a.kind == ArgKind::Flag) {
            if (a.text != "parent")
                Interpreter::fail(s, int(i), fmt::format("unknown option '-{}' of 'node'", a.text));
            parent = expectName(s, i + 1, "a parent after -parent").text;
            ++i;
            continue;
        }
        if (!name.empty())
            Interpreter::fail(s, int(i),
                              fmt::format("unexpected '{}' (usage: node TYPE NAME "
                                          "[-parent DAGNODE])",
                                          argWord(a)));
        if (a.kind == ArgKind::Number)
            Interpreter::fail(s, int(i), fmt::format("'{}' is not a valid node name", a.text));
        name = a.text;
    }
    if (!parent.empty())
        Interpreter::fail(s, -1,
                          "'-parent' places a node in the DAG, which this host does not "
                          "model yet");
    try {
        c.command.newNodeToAdd(type.text, name);
    } catch (const TgraphError& e) {
        Interpreter::fail(s, e.what() == fmt::format("unknown node type '{}'", type.text) ? 0 : 1,
                          e.what());
    }
}

void commandSet(Interpreter::Context& c) {
    const Statement& s = c.statement;
    expectCount(s, 1, ~size_t(0), "set PLUG VALUE...");
    const Tplug plug = plugAt(c, 0);
    std::vector<std::string> words;
    for (size_t i = 1; i < s.args.size(); ++i) {
        if (s.args[i].kind == ArgKind::Flag)
            Interpreter::fail(s, int(i),
                              fmt::format("unexpected option '-{}' in a value", s.args[i].text));
        words.push_back(s.args[i].text);
    }
    try {
        c.command.newPlugValue(plug, words);
    } catch (const TgraphError& e) {
        Interpreter::fail(s, words.empty() ? 0 : 1, e.what());
    }
}

void commandConnect(Interpreter::Context& c, bool make) {
    const Statement& s = c.statement;
    expectCount(s, 2, 2, make ? "connect SOURCE DESTINATION" : "disconnect SOURCE DESTINATION");
    const Tplug source = plugAt(c, 0);
    const Tplug destination = plugAt(c, 1);
    try {
        if (make)
            c.command.newConnectionToMake(source, destination);
        else
            c.command.newConnectionToBreak(source, destination);
    } catch (const TgraphError& e) {
        Interpreter::fail(s, 1, e.what());
    }
}

void commandPrint(Interpreter::Context& c) {
    std::string line;
    for (const Argument& a : c.statement.args) {
        if (!line.empty())
            line.push_back(' ');
        line += argWord(a);
    }
    c.out << line << '\n';
}

void commandNeedsSceneModel(Interpreter::Context& c) {
    Interpreter::fail(c.statement, -1,
                      fmt::format("'{}' works on DAG objects and sets, which this host does not "
                                  "model yet",
                                  c.statement.command));
}

} // namespace

Interpreter::Interpreter(TdependGraph& graph) : Interpreter(graph, std::cout) {}

Interpreter::Interpreter(TdependGraph& graph, std::ostream& out) : fGraph(graph), fOut(out) {
    fCommands["node"] = commandNode;
    fCommands["set"] = commandSet;
    fCommands["connect"] = [](Context& c) {
        commandConnect(c, true);
    };
    fCommands["disconnect"] = [](Context& c) {
        commandConnect(c, false);
    };
    fCommands["print"] = commandPrint;
    fCommands["source"] = [this](Context& c) {
        sourceFile(c);
    };
    fCommands["member"] = commandNeedsSceneModel;
    fCommands["parent"] = commandNeedsSceneModel;
}

void Interpreter::addCommand(const std::string& name, Command command) {
    fCommands[name] = std::move(command);
}

void Interpreter::fail(const Statement& statement, int arg, const std::string& message) {
    if (arg >= 0 && size_t(arg) < statement.args.size()) {
        const Argument& a = statement.args[size_t(arg)];
        throw ScriptError(a.where, message, argWord(a));
    }
    throw ScriptError(statement.where, message, statement.command);
}

void Interpreter::runStatements(const std::vector<Statement>& statements, TDGcommand& command) {
    for (const Statement& s : statements) {
        const auto it = fCommands.find(s.command);
        if (it == fCommands.end())
            fail(s, -1, fmt::format("unknown command '{}'", s.command));
        Context context{*this, fGraph, command, s, fOut};
        it->second(context);
    }
}

void Interpreter::sourceFile(Context& c) {
    const Statement& s = c.statement;
    expectCount(s, 1, 1, "source \"FILE\"");
    const Argument& a = expectName(s, 0, "a file name");
    std::filesystem::path path(a.text);
    if (path.is_relative() && !fSourcing.empty())
        path = std::filesystem::path(fSourcing.back()).parent_path() / path;
    const std::string file = path.lexically_normal().string();
    for (const std::string& open : fSourcing)
        if (open == file)
            fail(s, 0,
                 fmt::format("'{}' is already being run: sourcing it again would loop", a.text));
    std::error_code ec;
    if (!std::filesystem::is_regular_file(path, ec))
        fail(s, 0, fmt::format("cannot source '{}': no such file", a.text));
    const std::vector<Statement> statements = parseFile(file);
    fSourcing.push_back(file);
    try {
        runStatements(statements, c.command);
    } catch (...) {
        fSourcing.pop_back();
        throw;
    }
    fSourcing.pop_back();
}

void Interpreter::runFile(const std::string& path) {
    const std::vector<Statement> statements = parseFile(path);
    TDGcommand command(fGraph);
    fSourcing.assign(1, std::filesystem::path(path).lexically_normal().string());
    try {
        runStatements(statements, command);
    } catch (...) {
        fSourcing.clear();
        command.undoDG();
        throw;
    }
    fSourcing.clear();
}

void Interpreter::runText(std::string_view text, const std::string& fileName) {
    const std::vector<Statement> statements = parse(text, fileName);
    TDGcommand command(fGraph);
    fSourcing.assign(1, fileName);
    try {
        runStatements(statements, command);
    } catch (...) {
        fSourcing.clear();
        command.undoDG();
        throw;
    }
    fSourcing.clear();
}

// ---------------------------------------------------------------- writing

namespace {

std::string joinWords(const std::vector<std::string>& words) {
    std::string out;
    for (const std::string& w : words) {
        out.push_back(' ');
        out += w;
    }
    return out;
}

bool isDefaultValue(const Tattribute& a, const void* value) {
    std::vector<std::max_align_t> scratch(a.dataSize() / sizeof(std::max_align_t) + 2);
    a.constructValue(scratch.data());
    const bool same = a.equalValues(scratch.data(), value);
    a.destroyValue(scratch.data());
    return same;
}

// True when the attribute or anything in its value tree takes a connection,
// or it has no value a scene can write.
bool skipValue(const TdependGraph& graph, TdependNode* node, const Tattribute& a) {
    if (!a.isStorable() || a.isComputed() || a.wordCount() <= 0)
        return true;
    return !graph.sourceOf(Tplug(node, &a)).isNull();
}

} // namespace

std::string writeScene(const TdependGraph& graph) {
    std::ostringstream out;
    out << "// orvo scene\n";
    for (TdependNode* node : graph.nodes())
        out << "node " << node->typeName() << ' ' << node->name() << '\n';
    for (TdependNode* node : graph.nodes()) {
        TordinaryDataBlock* block = node->getDatablock();
        if (!block)
            continue;
        for (const Tattribute* root : node->vsData()->roots()) {
            if (root->isArray()) {
                if (!root->isStorable() || root->isComputed())
                    continue;
                TmultiHandle mh(
                    TdataHandle(block, root, block->valueAddress(*root, 0), TdataHandle::kIsArray));
                for (unsigned i = 0; mh.jumpToArrayElement(i); ++i) {
                    Tplug plug(node, root);
                    plug.setMultiIndex(root, mh.elementIndex());
                    if (!graph.sourceOf(plug).isNull() || root->wordCount() <= 0)
                        continue;
                    std::vector<std::string> words;
                    root->formatValue(mh.reference().address(), words);
                    out << "set " << plug.name() << joinWords(words) << '\n';
                }
                continue;
            }
            if (skipValue(graph, node, *root))
                continue;
            const void* value = block->valueAddress(*root, 0);
            if (isDefaultValue(*root, value))
                continue;
            std::vector<std::string> words;
            root->formatValue(value, words);
            out << "set " << node->name() << '.' << root->longName() << joinWords(words) << '\n';
        }
    }
    for (const auto& [source, destination] : graph.connections())
        out << "connect " << source.name() << ' ' << destination.name() << '\n';
    return out.str();
}

} // namespace qsl
