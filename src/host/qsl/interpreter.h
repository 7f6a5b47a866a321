#pragma once

#include <functional>
#include <iosfwd>
#include <map>
#include <string>
#include <vector>

#include "host/qsl/parser.h"

class TdependGraph;
class TDGcommand;

namespace qsl {

// An error while running a script: a statement that the graph refused. It
// reads like a parse error, "FILE:LINE: error: MESSAGE".
class ScriptError : public ParseError {
public:
    using ParseError::ParseError;
};

// Runs Qsl scripts against a graph. A script is parsed whole, then its
// statements are applied as one undoable command: when any statement fails,
// everything the script did is undone and the graph is as it was.
class Interpreter {
public:
    struct Context {
        Interpreter& interpreter;
        TdependGraph& graph;
        TDGcommand& command;
        const Statement& statement;
        std::ostream& out;
    };
    using Command = std::function<void(Context&)>;

    explicit Interpreter(TdependGraph& graph);
    Interpreter(TdependGraph& graph, std::ostream& out);

    // Throws ParseError or ScriptError; the graph is unchanged then. A file
    // (and what it sources) runs as a file being read: see
    // TdependGraph::TfileReadScope.
    void runFile(const std::string& path);
    void runText(std::string_view text, const std::string& fileName);

    // Adds or replaces a command.
    void addCommand(const std::string& name, Command command);

    // For command implementations: an error at an argument (or at the
    // statement when `arg` is -1), naming the offending word.
    [[noreturn]] static void fail(const Statement& statement, int arg, const std::string& message);

    // The script file being run (the innermost one while sourcing).
    const std::string& currentFile() const;
    // For command implementations: the statement made (`created`) or
    // changed a node. Once the whole script has run, what it made and
    // changed is checked as a scene: shapes need a transform parent, shape
    // inputs (mesh files and arrays) must build, layer adjustments must fit
    // their plugs. A failure is reported at the statement that last touched
    // the node, and the script is undone.
    void touched(const Statement& statement, const std::string& node, bool created = false);

private:
    struct Touch {
        SourceLocation lastChange;
        SourceLocation creation; // line 0 when the script did not make the node
        std::string word;
    };
    void runStatements(const std::vector<Statement>& statements, TDGcommand& command);
    void runTopLevel(const std::vector<Statement>& statements, const std::string& file);
    void checkScene();
    void sourceFile(Context& context);
    void commandCallbacks(Context& context);

    TdependGraph& fGraph;
    std::ostream& fOut;
    std::map<std::string, Command> fCommands;
    std::vector<std::string> fSourcing;    // files being run, outermost first
    std::map<std::string, Touch> fTouched; // node name -> where the script touched it
};

// Writes the graph as a Qsl scene: nodes in creation order, the values that
// differ from their defaults, then the connections. Loading the text gives
// the same nodes, values and connections.
std::string writeScene(const TdependGraph& graph);

} // namespace qsl
