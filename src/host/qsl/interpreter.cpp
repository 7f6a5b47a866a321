#include "host/qsl/interpreter.h"
#include "host/scene_folder.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <sstream>

#include <fmt/format.h>

#include "host/callbacks.h"
#include "host/graph.h"
#include "host/scene/dag.h"
#include "host/scene/object_set.h"
#include "host/scene/render_layer.h"
#include "host/scene/shape.h"

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

// The DAG node an argument names, by name or by path.
TdagObject* dagNodeAt(Interpreter::Context& c, size_t i) {
    const Argument& a = expectName(c.statement, i, "a DAG node");
    if (a.text.find('|') != std::string::npos) {
        const std::vector<TdagPath> paths = TdagPath::pathsNamed(c.graph, a.text);
        if (paths.empty())
            Interpreter::fail(c.statement, int(i), fmt::format("no DAG path '{}'", a.text));
        return paths.front().node();
    }
    TdependNode* node = c.graph.findNode(a.text);
    if (!node)
        Interpreter::fail(c.statement, int(i), fmt::format("no node named '{}'", a.text));
    TdagObject* dag = TdagObject::fromNode(node);
    if (!dag)
        Interpreter::fail(c.statement, int(i),
                          fmt::format("'{}' ({}) is not a DAG node", a.text, node->typeName()));
    return dag;
}

// Shapes read files relative to the folder of the script that made or set them.
void rememberSceneFolder(Interpreter::Context& c, TdependNode* node) {
    const std::string folder =
        std::filesystem::path(c.interpreter.currentFile()).parent_path().string();
    if (Tshape* shape = Tshape::fromNode(node))
        shape->setSceneFolder(folder);
    else if (node)
        OrvoSetNodeSceneFolder(node, folder);
}

void commandNode(Interpreter::Context& c) {
    const Statement& s = c.statement;
    const Argument& type = expectName(s, 0, "a node type");
    std::string name;
    int parentArg = -1;
    for (size_t i = 1; i < s.args.size(); ++i) {
        const Argument& a = s.args[i];
        if (a.kind == ArgKind::Flag) {
            if (a.text != "parent")
                Interpreter::fail(s, int(i), fmt::format("unknown option '-{}' of 'node'", a.text));
            expectName(s, i + 1, "a parent after -parent");
            parentArg = int(++i);
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
    TdependNode* node = nullptr;
    try {
        node = c.command.newNodeToAdd(type.text, name);
    } catch (const TgraphError& e) {
        Interpreter::fail(s, e.what() == fmt::format("unknown node type '{}'", type.text) ? 0 : 1,
                          e.what());
    }
    c.interpreter.touched(s, node->name(), true);
    rememberSceneFolder(c, node);
    if (parentArg >= 0) {
        TdagObject* child = TdagObject::fromNode(node);
        if (!child)
            Interpreter::fail(s, parentArg - 1,
                              fmt::format("'-parent' places DAG nodes, and '{}' is not a DAG node "
                                          "type",
                                          type.text));
        TdagObject* above = dagNodeAt(c, size_t(parentArg));
        try {
            TdagEdit::addParent(c.command, *child, *above);
        } catch (const TgraphError& e) {
            Interpreter::fail(s, parentArg, e.what());
        }
    }
    // The scene takes the node in (a light joins the light list, say), once
    // it stands where the statement puts it.
    try {
        c.graph.nodeAdded(*node, c.command);
    } catch (const TgraphError& e) {
        Interpreter::fail(s, 1,
                          fmt::format("'{}' ({}) cannot join the scene: {}", node->name(),
                                      node->typeName(), e.what()));
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
    c.interpreter.touched(s, plug.node()->name());
    rememberSceneFolder(c, plug.node());
}

void commandConnect(Interpreter::Context& c, bool make) {
    const Statement& s = c.statement;
    expectCount(s, 2, 2, make ? "connect SOURCE DESTINATION" : "disconnect SOURCE DESTINATION");
    const Tplug source = plugAt(c, 0);
    const Tplug destination = plugAt(c, 1);
    try {
        if (make) {
            // What the scene connected by itself (a new shading group's
            // default shader) gives way to the script's own connection.
            const Tplug existing = c.graph.sourceOf(destination);
            if (!existing.isNull() && c.graph.isImplicitConnection(destination))
                c.command.newConnectionToBreak(existing, destination);
            c.command.newConnectionToMake(source, destination);
        } else
            c.command.newConnectionToBreak(source, destination);
    } catch (const TgraphError& e) {
        Interpreter::fail(s, 1, e.what());
    }
    c.interpreter.touched(s, source.node()->name());
    c.interpreter.touched(s, destination.node()->name());
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

// The leading -flags of a statement, checked against the allowed ones.
size_t leadingFlags(const Statement& s, std::initializer_list<const char*> allowed,
                    std::vector<std::string>& found, const char* usage) {
    size_t i = 0;
    for (; i < s.args.size() && s.args[i].kind == ArgKind::Flag; ++i) {
        const std::string& flag = s.args[i].text;
        if (std::none_of(allowed.begin(), allowed.end(), [&](const char* a) { return flag == a; }))
            Interpreter::fail(
                s, int(i),
                fmt::format("unknown option '-{}' of '{}' (usage: {})", flag, s.command, usage));
        found.push_back(flag);
    }
    return i;
}

bool hasFlag(const std::vector<std::string>& flags, const char* name) {
    return std::find(flags.begin(), flags.end(), name) != flags.end();
}

// parent CHILD PARENT: CHILD goes under PARENT alone; given as a path, only
// that instance's parent is replaced. parent -add CHILD PARENT: one more
// instance. parent -world CHILD: CHILD becomes a root.
void commandParent(Interpreter::Context& c) {
    const Statement& s = c.statement;
    constexpr const char* kUsage = "parent [-add] CHILD PARENT, or parent -world CHILD";
    std::vector<std::string> flags;
    const size_t first = leadingFlags(s, {"add", "world"}, flags, kUsage);
    const bool world = hasFlag(flags, "world");
    if (world && hasFlag(flags, "add"))
        Interpreter::fail(s, 0, "'-add' and '-world' cannot go together");
    expectCount(s, first + (world ? 1 : 2), first + (world ? 1 : 2), kUsage);
    TdagObject* child = dagNodeAt(c, first);
    TdagObject* parent = world ? nullptr : dagNodeAt(c, first + 1);
    const std::string& childWord = s.args[first].text;
    try {
        if (hasFlag(flags, "add")) {
            TdagEdit::addParent(c.command, *child, *parent);
        } else if (childWord.find('|') != std::string::npos && !world) {
            // One instance moves: its own parent link is replaced.
            const TdagPath path = TdagPath::pathsNamed(c.graph, childWord).front();
            if (path.length() < 2) {
                TdagEdit::setParent(c.command, *child, parent);
            } else {
                auto* old = static_cast<TdagObject*>(path.nodes()[path.length() - 2]);
                if (old != parent) {
                    TdagEdit::addParent(c.command, *child, *parent);
                    TdagEdit::removeParent(c.command, *child, *old);
                }
            }
        } else {
            TdagEdit::setParent(c.command, *child, parent);
        }
    } catch (const TgraphError& e) {
        Interpreter::fail(s, int(first) + (world ? 0 : 1), e.what());
    }
    c.interpreter.touched(s, child->name());
}

// member [-remove] SET OBJECT...: OBJECT is a node name (a DAG node with all
// its instances) or a DAG path (that instance). SET is an object set (a
// shading group is one) or a render layer.
void commandMember(Interpreter::Context& c) {
    const Statement& s = c.statement;
    constexpr const char* kUsage = "member [-remove] SET OBJECT...";
    std::vector<std::string> flags;
    const size_t first = leadingFlags(s, {"remove"}, flags, kUsage);
    const bool remove = hasFlag(flags, "remove");
    expectCount(s, first + 2, ~size_t(0), kUsage);
    const Argument& setWord = expectName(s, first, "a set");
    TdependNode* target = c.graph.findNode(setWord.text);
    if (!target)
        Interpreter::fail(s, int(first), fmt::format("no node named '{}'", setWord.text));
    auto* set = static_cast<TobjectSet*>(target->cast(TobjectSet::sTypeof()));
    auto* layer = dynamic_cast<TdnRenderLayer*>(target);
    if (!set && !layer)
        Interpreter::fail(s, int(first),
                          fmt::format("'{}' ({}) is neither an object set nor a render layer",
                                      setWord.text, target->typeName()));
    for (size_t i = first + 1; i < s.args.size(); ++i) {
        const Argument& word = expectName(s, i, "an object");
        TselectionList items;
        if (word.text.find('|') != std::string::npos) {
            for (const TdagPath& path : TdagPath::pathsNamed(c.graph, word.text))
                items.add(path);
            if (items.isEmpty())
                Interpreter::fail(s, int(i), fmt::format("no DAG path '{}'", word.text));
        } else {
            TdependNode* node = c.graph.findNode(word.text);
            if (!node)
                Interpreter::fail(s, int(i), fmt::format("no node named '{}'", word.text));
            items.add(node);
        }
        try {
            if (set && remove)
                set->removeMembers(items, c.command);
            else if (set)
                set->addMembers(items, c.command);
            else if (remove)
                layer->removeMembers({items[0].node()}, c.graph, c.command);
            else
                layer->addMembers({items[0].node()}, c.command);
        } catch (const TgraphError& e) {
            Interpreter::fail(s, int(i), e.what());
        }
    }
    c.interpreter.touched(s, target->name());
}

} // namespace

// callbacks -addCallback COMMAND -hook NAME, -removeCallback COMMAND -hook
// NAME, -clearCallbacks -hook NAME, -listCallbacks -hook NAME (prints them),
// -executeCallbacks -hook NAME [ARG...]: the hook's commands run as part of
// this script, so that they stand or fall with it.
void Interpreter::commandCallbacks(Context& c) {
    const Statement& s = c.statement;
    constexpr const char* kUsage =
        "callbacks -addCallback|-removeCallback COMMAND -hook NAME, or "
        "callbacks -clearCallbacks|-listCallbacks|-executeCallbacks -hook NAME [ARG...]";
    std::string action, command, hook;
    std::vector<std::string> args;
    for (size_t i = 0; i < s.args.size(); ++i) {
        const Argument& a = s.args[i];
        if (a.kind != ArgKind::Flag) {
            if (action != "executeCallbacks" || hook.empty())
                Interpreter::fail(s, int(i),
                                  fmt::format("unexpected '{}' (usage: {})", argWord(a), kUsage));
            args.push_back(a.text);
            continue;
        }
        if (a.text == "hook") {
            hook = expectName(s, i + 1, "a hook name after -hook").text;
            ++i;
        } else if (a.text == "addCallback" || a.text == "removeCallback" ||
                   a.text == "clearCallbacks" || a.text == "listCallbacks" ||
                   a.text == "executeCallbacks") {
            if (!action.empty())
                Interpreter::fail(s, int(i),
                                  fmt::format("one action at a time (usage: {})", kUsage));
            action = a.text;
            if (action == "addCallback" || action == "removeCallback") {
                command = expectName(s, i + 1, ("a command after -" + action).c_str()).text;
                ++i;
            }
        } else {
            Interpreter::fail(
                s, int(i),
                fmt::format("unknown option '-{}' of 'callbacks' (usage: {})", a.text, kUsage));
        }
    }
    if (action.empty() || hook.empty())
        Interpreter::fail(s, -1,
                          fmt::format("'callbacks' needs an action and -hook (usage: {})", kUsage));
    if (action == "addCallback")
        TcallbackHooks::add(hook, command);
    else if (action == "removeCallback")
        TcallbackHooks::remove(hook, command);
    else if (action == "clearCallbacks")
        TcallbackHooks::clear(hook);
    else if (action == "listCallbacks")
        for (const std::string& line : TcallbackHooks::callbacks(hook))
            c.out << line << '\n';
    else {
        const TcallbackHooks::Nesting nesting;
        if (!nesting.ok())
            Interpreter::fail(s, -1,
                              fmt::format("hook '{}' not run: callbacks run hooks {} deep (does "
                                          "a callback run its own hook?)",
                                          hook, TcallbackHooks::Nesting::kMostNested));
        for (const std::string& line : TcallbackHooks::commandLines(hook, args))
            runStatements(parse(line, fmt::format("callback of hook '{}'", hook)), c.command);
    }
}

Interpreter::Interpreter(TdependGraph& graph) : Interpreter(graph, std::cout) {}

Interpreter::Interpreter(TdependGraph& graph, std::ostream& out) : fGraph(graph), fOut(out) {
    // Scripts run on scenes: the graph gets what every scene starts with.
    graph.initializeScene();
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
    fCommands["member"] = commandMember;
    fCommands["parent"] = commandParent;
    fCommands["callbacks"] = [this](Context& c) {
        commandCallbacks(c);
    };
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
        TdependGraph::TfileReadScope reading(fGraph);
        runStatements(statements, c.command);
    } catch (...) {
        fSourcing.pop_back();
        throw;
    }
    fSourcing.pop_back();
}

void Interpreter::runFile(const std::string& path) {
    const std::vector<Statement> statements = parseFile(path);
    TdependGraph::TfileReadScope reading(fGraph);
    runTopLevel(statements, std::filesystem::path(path).lexically_normal().string());
}

void Interpreter::runText(std::string_view text, const std::string& fileName) {
    runTopLevel(parse(text, fileName), fileName);
}

void Interpreter::runTopLevel(const std::vector<Statement>& statements, const std::string& file) {
    TDGcommand command(fGraph);
    fSourcing.assign(1, file);
    fTouched.clear();
    try {
        runStatements(statements, command);
        checkScene();
    } catch (...) {
        fSourcing.clear();
        fTouched.clear();
        command.undoDG();
        throw;
    }
    fSourcing.clear();
    fTouched.clear();
}

const std::string& Interpreter::currentFile() const {
    static const std::string kNone;
    return fSourcing.empty() ? kNone : fSourcing.back();
}

void Interpreter::touched(const Statement& statement, const std::string& node, bool created) {
    Touch& t = fTouched[node];
    t.lastChange = statement.where;
    t.word = node;
    if (created)
        t.creation = statement.where;
}

void Interpreter::checkScene() {
    for (const auto& [name, touch] : fTouched) {
        TdependNode* node = fGraph.findNode(name);
        if (!node)
            continue;
        if (Tshape* shape = Tshape::fromNode(node)) {
            if (shape->parents().empty())
                throw ScriptError(touch.creation.line ? touch.creation : touch.lastChange,
                                  fmt::format("shape '{}' ({}) has no transform parent: make it "
                                              "with 'node {} {} -parent TRANSFORM' or use "
                                              "'parent {} TRANSFORM'",
                                              name, node->typeName(), node->typeName(), name, name),
                                  touch.word);
            try {
                shape->checkInputs();
            } catch (const TgraphError& e) {
                throw ScriptError(touch.lastChange, e.what(), touch.word);
            }
        }
        if (const auto* layer = dynamic_cast<const TdnRenderLayer*>(node))
            if (const std::string error = layer->checkAdjustments(); !error.empty())
                throw ScriptError(touch.lastChange, error, touch.word);
    }
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
    if (!a.isStorable() || a.isComputed() || a.wordCount() == 0)
        return true;
    return !graph.sourceOf(Tplug(node, &a)).isNull();
}

} // namespace

namespace {

// A set membership as the item a `member` statement names: the instance's
// full path, or the node's name. Empty when the connection is not one that
// `member` makes again exactly (a DAG node joined by its message, an item
// the set would refuse).
std::string memberItem(const Tplug& source, const Tplug& destination) {
    auto* set = static_cast<TobjectSet*>(destination.node()->cast(TobjectSet::sTypeof()));
    if (!set)
        return {};
    TdagSelectionItem item;
    if (destination.attribute() == &TobjectSet::aDagSetMembers) {
        TdagObject* dag = TdagObject::fromNode(source.node());
        if (!dag || source.attribute() != &TdagObject::aInstObjGroups)
            return {};
        const TdagPathArray paths = dag->getAllPaths();
        if (source.logicalIndex() >= paths.size())
            return {};
        item = TdagSelectionItem(paths[source.logicalIndex()]);
    } else if (destination.attribute() == &TobjectSet::aDNSetMembers) {
        if (TdagObject::fromNode(source.node()) || source.attribute() != &TdependNode::aMessage)
            return {};
        item = TdagSelectionItem(source.node());
    } else {
        return {};
    }
    const TselectionList joins = set->membersFor(item);
    if (!set->whyNotMember(item).empty() || joins.length() != 1 || !(joins[0] == item))
        return {};
    return item.name();
}

} // namespace

std::string writeScene(const TdependGraph& graph) {
    std::ostringstream out;
    out << "// orvo scene\n";
    // Default nodes are the scene's own: loading makes them.
    for (TdependNode* node : graph.nodes())
        if (!node->isDefaultNode())
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
                    if (!graph.sourceOf(plug).isNull() || root->wordCount() == 0)
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

    // Connections the scene made itself (see TdependGraph::TimplicitScope)
    // are made again on loading; those a user broke are broken again.
    // Set memberships are written as `member`, which does not depend on
    // element numbers: the scene's own memberships may number differently
    // when loaded. They come last, once the DAG paths they name stand.
    std::string removals;
    for (const auto& [source, destination] : graph.brokenImplicitConnections()) {
        if (const std::string item = memberItem(source, destination); !item.empty())
            removals += "member -remove " + destination.node()->name() + ' ' + item + '\n';
        else if (graph.sourceOf(destination).isNull() || graph.isImplicitConnection(destination))
            out << "disconnect " << source.name() << ' ' << destination.name() << '\n';
        // else: the connection written below replaces the scene's own.
    }
    std::vector<std::pair<std::string, std::string>> members; // set -> items
    for (const auto& [source, destination] : graph.connections()) {
        if (graph.isImplicitConnection(destination))
            continue;
        if (const std::string item = memberItem(source, destination); !item.empty()) {
            const std::string& set = destination.node()->name();
            const auto it = std::find_if(members.begin(), members.end(),
                                         [&](const auto& m) { return m.first == set; });
            if (it == members.end())
                members.emplace_back(set, ' ' + item);
            else
                it->second += ' ' + item;
            continue;
        }
        out << "connect " << source.name() << ' ' << destination.name() << '\n';
    }
    out << removals;
    for (const auto& [set, items] : members)
        out << "member " << set << items << '\n';
    return out.str();
}

} // namespace qsl
