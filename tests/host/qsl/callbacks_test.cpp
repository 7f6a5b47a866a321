#include <gtest/gtest.h>

#include <sstream>

#include "host/callbacks.h"
#include "host/graph.h"
#include "host/qsl/interpreter.h"
#include "host/qsl/parser.h"
#include "support/message_capture.h"

// The callbacks command: hooks a script hangs commands on, run with the
// hook's arguments appended.

namespace {

struct Scene {
    TdependGraph g;
    std::ostringstream out;
    void run(const std::string& text) { qsl::Interpreter(g, out).runText(text, "hooks.qsl"); }
};

TEST(Callbacks, RunWithTheirArgumentsInOrderAndCanBeRemoved) {
    Scene s;
    s.run("callbacks -addCallback \"node transform\" -hook made\n"
          "callbacks -addCallback \"node transform\" -hook made\n" // kept once
          "callbacks -addCallback \"print saw\" -hook made\n"
          "callbacks -listCallbacks -hook made\n"
          "callbacks -executeCallbacks -hook made first\n");
    EXPECT_NE(s.g.findNode("first"), nullptr);
    EXPECT_EQ(s.out.str(), "node transform\nprint saw\nsaw first\n");
    s.run("callbacks -removeCallback \"node transform\" -hook made\n"
          "callbacks -executeCallbacks -hook made second\n");
    EXPECT_EQ(s.g.findNode("second"), nullptr);
    EXPECT_EQ(TcallbackHooks::callbacks("made").size(), 1u);
    s.run("callbacks -clearCallbacks -hook made\n");
    EXPECT_TRUE(TcallbackHooks::callbacks("made").empty());
}

TEST(Callbacks, AFailingCallbackIsReportedAndTheOthersRun) {
    Scene s;
    orvo_test::MessageCapture messages;
    TcallbackHooks::add("broken", "set nowhere.x");
    TcallbackHooks::add("broken", "node transform");
    TcallbackHooks::execute(&s.g, "broken", {"after"});
    EXPECT_TRUE(messages.contains("callback of hook 'broken' failed"));
    EXPECT_NE(s.g.findNode("after"), nullptr);
    TcallbackHooks::clear("broken");
}

// A callback that runs its own hook stops with an error, not a crash; run
// from a script, the hook's commands are part of the script and a failure
// undoes all of it.
TEST(Callbacks, AHookThatRunsItselfStopsAndAFailureUndoesTheScript) {
    Scene s;
    orvo_test::MessageCapture messages;
    TcallbackHooks::add("loop", "callbacks -executeCallbacks -hook loop");
    TcallbackHooks::execute(&s.g, "loop", {});
    EXPECT_TRUE(messages.contains("hook 'loop' not run")) << messages.text();
    EXPECT_THROW(s.run("callbacks -executeCallbacks -hook loop\n"), qsl::ScriptError);
    TcallbackHooks::clear("loop");
    TcallbackHooks::add("made", "node transform");
    EXPECT_THROW(s.run("callbacks -executeCallbacks -hook made kept\nnode noSuchType x\n"),
                 qsl::ScriptError);
    EXPECT_EQ(s.g.findNode("kept"), nullptr) << "the callback's node went with the script";
    TcallbackHooks::clear("made");
}

TEST(Callbacks, MisuseIsAnErrorNamingTheCommand) {
    Scene s;
    EXPECT_THROW(s.run("callbacks -hook h\n"), qsl::ScriptError);
    EXPECT_THROW(s.run("callbacks -addCallback -hook h\n"), qsl::ScriptError);
    EXPECT_THROW(s.run("callbacks -nonsense -hook h\n"), qsl::ScriptError);
}

} // namespace
