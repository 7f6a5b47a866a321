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

    // The hook's command lines in the order they were added, each with
    // `args` appended (quoted).
    static std::vector<std::string> commandLines(const std::string& hook,
                                                 const std::vector<std::string>& args);

    // Runs the hook's commands on `graph`, each as a script of its own. A
    // failing command is reported as an error naming the hook and the
    // others still run. Without a graph nothing runs. (A script's
    // `callbacks -executeCallbacks` runs them as part of the script
    // instead: they stand or fall with it.)
    static void execute(TdependGraph* graph, const std::string& hook,
                        const std::vector<std::string>& args);

    // Held while a hook runs: a callback may run hooks in turn, and one
    // that runs its own hook would never end. Past a depth of 16, ok() is
    // false and nothing more should run.
    class Nesting {
    public:
        Nesting();
        ~Nesting();
        Nesting(const Nesting&) = delete;
        Nesting& operator=(const Nesting&) = delete;
        bool ok() const { return fOk; }
        static constexpr int kMostNested = 16;

    private:
        bool fOk;
    };
};
