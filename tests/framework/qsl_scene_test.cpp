#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "framework/nodes/utility/reverse.h"
#include "host/graph.h"
#include "host/qsl/interpreter.h"

namespace {

namespace fs = std::filesystem;
using Words = std::vector<std::string>;

class QslScene : public ::testing::Test {
protected:
    void SetUp() override {
        dir = fs::temp_directory_path() /
              ("orvo-qsl-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
               "-" + ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::create_directories(dir);
    }
    void TearDown() override { fs::remove_all(dir); }

    std::string write(const std::string& name, const std::string& text) {
        const fs::path path = dir / name;
        std::ofstream(path) << text;
        return path.string();
    }
    // The state a test compares before and after a failed script.
    static std::string snapshot(TdependGraph& graph) { return qsl::writeScene(graph); }

    fs::path dir;
    TdependGraph graph;
    std::ostringstream out;
};

TEST_F(QslScene, BuildsConnectsAndPrints) {
    qsl::Interpreter run(graph, out);
    run.runText("node reverse a; node reverse b\n"
                "set a.input 0.25 0.5 2\n"
                "connect a.output b.input\n"
                "print(\"n = \" + 3)\n"
                "print two words\n",
                "scene.qsl");
    EXPECT_EQ(graph.evaluateToWords(graph.findPlug("b.output")), (Words{"0.25", "0.5", "2"}));
    EXPECT_EQ(out.str(), "n = 3\ntwo words\n");
}

TEST_F(QslScene, AFailingScriptLeavesTheGraphAsItWas) {
    qsl::Interpreter run(graph, out);
    run.runText("node reverse keep\nset keep.input 1 2 3\n", "first.qsl");
    const std::string before = snapshot(graph);

    const std::vector<std::pair<std::string, std::string>> cases = {
        {"node reverse x\nset keep.input 4 5 6\nnode lambart y\n",
         "bad.qsl:3: error: unknown node type 'lambart'"},
        {"node reverse x\nset x.inptu 1 2 3\n",
         "bad.qsl:2: error: node 'x' (reverse) has no attribute 'inptu'"},
        {"node reverse x\nset x.input 1 2\n",
         "bad.qsl:2: error: 'x.input' (Tattribute3Float): expects 3 values, got 2"},
        {"node reverse x\nconnect keep.output x.inputX\n",
         "bad.qsl:2: error: cannot connect 'keep.output' (Tattribute3Float) to 'x.inputX' "
         "(TattributeFloat): the values do not match"},
        {"node reverse x\nconnect keep.output x.input\ndisconnect keep.output x.input\ndisconnect "
         "keep.output x.input\n",
         "bad.qsl:4: error: 'keep.output' is not connected to 'x.input'"},
        {"node reverse x\nsource \"missing.qsl\"\n",
         "bad.qsl:2: error: cannot source 'missing.qsl': no such file"},
        {"node reverse x\nfrobnicate x\n", "bad.qsl:2: error: unknown command 'frobnicate'"},
        {"node reverse keep\n", "bad.qsl:1: error: a node named 'keep' already exists"},
        {"node reverse x\nset x.input 1 2 \"three\"\n",
         "bad.qsl:2: error: 'x.input' (Tattribute3Float): 'three' is not a number"},
    };
    for (const auto& [script, message] : cases) {
        try {
            run.runText(script, "bad.qsl");
            ADD_FAILURE() << "no error for:\n" << script;
        } catch (const qsl::ParseError& e) {
            EXPECT_EQ(std::string(e.what()), message);
        }
        EXPECT_EQ(snapshot(graph), before) << script;
    }
}

TEST_F(QslScene, SourceIsRelativeToTheFileAndRefusesLoops) {
    write("parts/b.qsl", "node reverse fromB\n");
    fs::create_directories(dir / "parts");
    write("parts/b.qsl", "node reverse fromB\nset fromB.inputX 0.5\n");
    const std::string main = write("main.qsl", "source \"parts/b.qsl\"\nnode reverse fromMain\n");
    qsl::Interpreter run(graph, out);
    run.runFile(main);
    EXPECT_NE(graph.findNode("fromB"), nullptr);
    EXPECT_NE(graph.findNode("fromMain"), nullptr);

    TdependGraph other;
    write("loop1.qsl", "node reverse l1\nsource \"loop2.qsl\"\n");
    const std::string loop2 = write("loop2.qsl", "source \"loop1.qsl\"\n");
    qsl::Interpreter second(other, out);
    try {
        second.runFile((dir / "loop1.qsl").string());
        ADD_FAILURE() << "a loop of sourced files ran";
    } catch (const qsl::ScriptError& e) {
        EXPECT_NE(std::string(e.what()).find("loop2.qsl:1: error:"), std::string::npos) << e.what();
        EXPECT_NE(std::string(e.what()).find("would loop"), std::string::npos);
    }
    // Nothing of the script stays; the scene keeps what it started with.
    EXPECT_EQ(other.findNode("l1"), nullptr);
    for (const TdependNode* node : other.nodes())
        EXPECT_TRUE(node->isDefaultNode()) << node->name();
}

TEST_F(QslScene, AFileAndWhatItSourcesRunAsAFileBeingRead) {
    qsl::Interpreter run(graph, out);
    run.addCommand("reading", [](qsl::Interpreter::Context& c) {
        c.out << (c.graph.isReadingFile() ? "file" : "text") << '\n';
    });
    write("part.qsl", "reading\n");
    const std::string main = write("main.qsl", "reading\nsource \"part.qsl\"\n");
    run.runFile(main);
    run.runText("reading\nsource \"" + (dir / "part.qsl").string() + "\"\nreading\n", "cmd");
    EXPECT_EQ(out.str(), "file\nfile\ntext\nfile\ntext\n");
    EXPECT_FALSE(graph.isReadingFile());
}

TEST_F(QslScene, SavingAndLoadingGivesTheSameScene) {
    qsl::Interpreter run(graph, out);
    run.runText("node reverse a\nnode reverse b\nnode reverse c\n"
                "set a.input 0.125 -3 1e-07\n"
                "set c.inputY 0.5\n"
                "connect a.output b.input\n"
                "connect c.outputY b.inputY\n",
                "scene.qsl");
    const std::string saved = qsl::writeScene(graph);
    EXPECT_EQ(saved, "// orvo scene\n"
                     "node reverse a\nnode reverse b\nnode reverse c\n"
                     "set a.input 0.125 -3 1.00000001e-07\n"
                     "set c.input 0 0.5 0\n"
                     "connect a.output b.input\n"
                     "connect c.outputY b.inputY\n");
    TdependGraph again;
    qsl::Interpreter(again, out).runText(saved, "saved.qsl");
    EXPECT_EQ(qsl::writeScene(again), saved);
    EXPECT_EQ(again.evaluateToWords(again.findPlug("b.output")),
              graph.evaluateToWords(graph.findPlug("b.output")));
}

} // namespace
