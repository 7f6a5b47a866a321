#pragma once

// Hooks by name that scripts hang commands on: when something happens (a
// renderer registers, the current renderer changes) the host runs every
// command hung on its hook, each with the hook's arguments appended as
// words. A callback is a command line of the scene language, e.g.
//   callbacks -addCallback "print renderer is now" -hook currentRendererChanged
// The store is the process's: hooks outlive the scene that set them.

#include <string>
#include <vector>

class TdependGraph;

class TcallbackHooks {
public:
    // Adds `command` to `hook`; the same command twice is kept once.
    static void add(const std::string& hook, const std::string& command);
    // False when it was not there.
    static bool remove(const std::string& hook, const std::string& command);
    static void clear(const std::string& hook);
    static std::vector<std::string> callbacks(const std::string& hook);

    // Runs the hook's commands on `graph`, in the order they were added,
    // with `args` appended (quoted). A failing command is reported as an
    // error naming the hook and the others still run. Without a graph
    // nothing runs.
    static void execute(TdependGraph* graph, const std::string& hook,
                        const std::vector<std::string>& args);
};
