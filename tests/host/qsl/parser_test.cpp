#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "host/qsl/parser.h"

namespace {

using qsl::ArgKind;
using qsl::parse;
using qsl::ParseError;

// The what() text of the error that parsing TEXT (as scene.qsl) raises, or
// "no error".
std::string errorOf(std::string_view text) {
    try {
        parse(text, "scene.qsl");
    } catch (const ParseError& e) {
        return e.what();
    }
    return "no error";
}

// The one argument of the one statement in TEXT.
qsl::Argument onlyArgument(std::string_view text) {
    const auto statements = parse(text, "scene.qsl");
    EXPECT_EQ(statements.size(), 1u);
    if (statements.size() != 1 || statements[0].args.size() != 1) {
        ADD_FAILURE() << "expected one argument in: " << text;
        return {};
    }
    return statements[0].args[0];
}

TEST(QslStatements, SplitAtSemicolonsAndNewlinesSkippingBlankOnes) {
    const auto statements = parse("node multiplyDivide md1; set md1.operation 2\n"
                                  "\n"
                                  ";;  ;\n"
                                  "   connect md1.output rev1.input;\n"
                                  "print done",
                                  "a.qsl");
    ASSERT_EQ(statements.size(), 4u);
    EXPECT_EQ(statements[0].command, "node");
    ASSERT_EQ(statements[0].args.size(), 2u);
    EXPECT_EQ(statements[0].args[0].text, "multiplyDivide");
    EXPECT_EQ(statements[0].args[1].text, "md1");
    EXPECT_EQ(statements[1].command, "set");
    EXPECT_EQ(statements[2].command, "connect");
    EXPECT_EQ(statements[3].command, "print");

    // Locations: 1-based line and byte column of each word.
    EXPECT_EQ(statements[0].where.file, "a.qsl");
    EXPECT_EQ(statements[0].where.line, 1);
    EXPECT_EQ(statements[0].where.column, 1);
    EXPECT_EQ(statements[1].where.line, 1);
    EXPECT_EQ(statements[1].where.column, 26);
    EXPECT_EQ(statements[2].where.line, 4);
    EXPECT_EQ(statements[2].where.column, 4);
    EXPECT_EQ(statements[2].args[1].where.line, 4);
    EXPECT_EQ(statements[2].args[1].where.column, 23);
    EXPECT_EQ(statements[3].where.line, 5);
}

TEST(QslStatements, EmptyAndBlankInputGiveNoStatements) {
    EXPECT_TRUE(parse("", "a.qsl").empty());
    EXPECT_TRUE(parse(" \t\n;\r\n// only a comment\n", "a.qsl").empty());
}

TEST(QslStatements, CrlfLineEndsAndByteOrderMarkReadLikePlainText) {
    const auto statements = parse("\xef\xbb\xbfnode transform t1\r\nset t1.v 1\r\n", "a.qsl");
    ASSERT_EQ(statements.size(), 2u);
    EXPECT_EQ(statements[0].command, "node");
    EXPECT_EQ(statements[0].where.column, 1);
    EXPECT_EQ(statements[0].args[1].text, "t1");
    EXPECT_EQ(statements[1].where.line, 2);
    EXPECT_EQ(statements[1].args[1].number, 1.0);
}

TEST(QslStatements, CommentsRunToTheEndOfTheLineOutsideStrings) {
    const auto statements = parse("// heading\n"
                                  "set a.b 1 // trailing; not a new statement\n"
                                  "print \"http://x\"//comment\n"
                                  "print a//b\n",
                                  "a.qsl");
    ASSERT_EQ(statements.size(), 3u);
    ASSERT_EQ(statements[0].args.size(), 2u);
    EXPECT_EQ(statements[0].where.line, 2);
    ASSERT_EQ(statements[1].args.size(), 1u);
    EXPECT_EQ(statements[1].args[0].text, "http://x");
    ASSERT_EQ(statements[2].args.size(), 1u);
    EXPECT_EQ(statements[2].args[0].text, "a");
}

TEST(QslStatements, ContinuationJoinsTheNextLineAsABlank) {
    const auto statements = parse("set m.matrix 1 0 0 0 \\\n"
                                  "  0 1 0 0\\   \n"
                                  "  0 0 1 0 \\\r\n"
                                  "  0 0 0 1\n"
                                  "print end \\",
                                  "a.qsl");
    ASSERT_EQ(statements.size(), 2u);
    ASSERT_EQ(statements[0].args.size(), 17u);
    EXPECT_EQ(statements[0].args[16].number, 1.0);
    EXPECT_EQ(statements[0].args[16].where.line, 4);
    EXPECT_EQ(statements[0].args[8].text, "0"); // "0\" did not glue to the next line's "0"
    EXPECT_EQ(statements[0].args[8].where.line, 2);
    EXPECT_EQ(statements[1].where.line, 5);
    EXPECT_EQ(statements[1].args.size(), 1u);
}

TEST(QslArguments, StringEscapesAreResolved) {
    EXPECT_EQ(onlyArgument(R"(print "a\"b\\c\nd")").text, "a\"b\\c\nd");
    const auto arg = onlyArgument("print \"two words; // not a comment\"");
    EXPECT_EQ(arg.kind, ArgKind::String);
    EXPECT_EQ(arg.text, "two words; // not a comment");
    EXPECT_EQ(onlyArgument("print \"\"").text, "");
    EXPECT_EQ(onlyArgument("print \"\"").kind, ArgKind::String);
}

TEST(QslArguments, NegativeNumbersAreNotFlags) {
    const auto statements = parse("node transform t1 -parent g1 -3 -.5 -1e-3 +2 7. 1E3 -x_2", "a");
    ASSERT_EQ(statements.size(), 1u);
    const auto& args = statements[0].args;
    ASSERT_EQ(args.size(), 11u);
    EXPECT_EQ(args[2].kind, ArgKind::Flag);
    EXPECT_EQ(args[2].text, "parent");
    EXPECT_EQ(args[3].kind, ArgKind::Word);
    const double values[] = {-3.0, -0.5, -0.001, 2.0, 7.0, 1000.0};
    const char* written[] = {"-3", "-.5", "-1e-3", "+2", "7.", "1E3"};
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(args[4 + i].kind, ArgKind::Number) << written[i];
        EXPECT_EQ(args[4 + i].number, values[i]) << written[i];
        EXPECT_EQ(args[4 + i].text, written[i]);
    }
    EXPECT_EQ(args[10].kind, ArgKind::Flag);
    EXPECT_EQ(args[10].text, "x_2");
}

TEST(QslArguments, PlugsAndPathsStayWholeWords) {
    const auto statements =
        parse("connect place1.outUV file1.uvCoord[3].child |group|shape:ns_1 inf nan +x", "a");
    ASSERT_EQ(statements.size(), 1u);
    const auto& args = statements[0].args;
    ASSERT_EQ(args.size(), 6u);
    const char* words[] = {
        "place1.outUV", "file1.uvCoord[3].child", "|group|shape:ns_1", "inf", "nan", "+x"};
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(args[i].kind, ArgKind::Word) << words[i];
        EXPECT_EQ(args[i].text, words[i]);
    }
}

TEST(QslExpressions, NumbersAloneAddUp) {
    auto arg = onlyArgument("print(1 + 2.5 + -0.25)");
    EXPECT_EQ(arg.kind, ArgKind::Number);
    EXPECT_EQ(arg.number, 3.25);
    EXPECT_EQ(arg.text, "3.25");

    arg = onlyArgument("print(1e+3+1)"); // the exponent's sign is not a join
    EXPECT_EQ(arg.number, 1001.0);

    arg = onlyArgument("print(0.5)"); // one number keeps its written form
    EXPECT_EQ(arg.kind, ArgKind::Number);
    EXPECT_EQ(arg.text, "0.5");

    arg = onlyArgument("print(0.1 + 0.2)"); // formatted with 9 significant digits
    EXPECT_EQ(arg.text, "0.3");
    EXPECT_DOUBLE_EQ(arg.number, 0.3);
}

TEST(QslExpressions, AnythingElseConcatenatesAsText) {
    auto arg = onlyArgument("print(\"n = \" + 3)");
    EXPECT_EQ(arg.kind, ArgKind::String);
    EXPECT_EQ(arg.text, "n = 3");
    EXPECT_EQ(arg.where.column, 7);

    arg = onlyArgument("print(md1.output+\" is \"+1.50+2+ 1e10 + a/b)");
    EXPECT_EQ(arg.text, "md1.output is 1.521e+10a/b");

    arg = onlyArgument("print (\"x\" + 0.1234567891)");
    EXPECT_EQ(arg.text, "x0.123456789");

    arg = onlyArgument("print(word)"); // a lone word becomes its text
    EXPECT_EQ(arg.kind, ArgKind::String);
    EXPECT_EQ(arg.text, "word");

    arg = onlyArgument("print(\"a\" + \\\n \"b\")");
    EXPECT_EQ(arg.text, "ab");
}

TEST(QslExpressions, EmptyCallHasNoArgument) {
    const auto statements = parse("print();print ( )", "a");
    ASSERT_EQ(statements.size(), 2u);
    EXPECT_TRUE(statements[0].args.empty());
    EXPECT_TRUE(statements[1].args.empty());
}

TEST(QslErrors, StringsAndEscapes) {
    EXPECT_EQ(errorOf("print ok\nprint \"abc"),
              "scene.qsl:2: error: unterminated string starting at '\"abc'");
    EXPECT_EQ(errorOf("print \"abc\r\nprint x"),
              "scene.qsl:1: error: unterminated string starting at '\"abc'");
    EXPECT_EQ(errorOf("print \"ab\\\ncd\""),
              "scene.qsl:1: error: unterminated string starting at '\"ab\\'");
    EXPECT_EQ(errorOf("print \"a\\tb\""), "scene.qsl:1: error: invalid escape '\\t' in string");
    EXPECT_EQ(errorOf("print \"\\\xc3\xa9\""),
              "scene.qsl:1: error: invalid escape '\\\xc3\xa9' in string");
}

TEST(QslErrors, WordsNumbersAndFlags) {
    EXPECT_EQ(errorOf("set a.b 0,5"), "scene.qsl:1: error: bad number '0,5'");
    EXPECT_EQ(errorOf("set a.b 1..5"), "scene.qsl:1: error: bad number '1..5'");
    EXPECT_EQ(errorOf("set a.b -1abc"), "scene.qsl:1: error: bad number '-1abc'");
    EXPECT_EQ(errorOf("set a.b 1e"), "scene.qsl:1: error: bad number '1e'");
    EXPECT_EQ(errorOf("set a.b 1e999"), "scene.qsl:1: error: number out of range '1e999'");
    EXPECT_EQ(errorOf("node t n -"), "scene.qsl:1: error: bad flag '-'");
    EXPECT_EQ(errorOf("node t n --parent"), "scene.qsl:1: error: bad flag '--parent'");
    EXPECT_EQ(errorOf("node t n -a.b"), "scene.qsl:1: error: bad flag '-a.b'");
}

TEST(QslErrors, CommandWordAndPunctuation) {
    EXPECT_EQ(errorOf("\n\n)"), "scene.qsl:3: error: unexpected ')'");
    EXPECT_EQ(errorOf("print a)"), "scene.qsl:1: error: unexpected ')'");
    EXPECT_EQ(errorOf("set a (1)"), "scene.qsl:1: error: unexpected '('");
    EXPECT_EQ(errorOf("md1.output 3"),
              "scene.qsl:1: error: expected a command name, found 'md1.output'");
    EXPECT_EQ(errorOf("\"print\" x"),
              "scene.qsl:1: error: expected a command name, found '\"print\"'");
    EXPECT_EQ(errorOf("-v"), "scene.qsl:1: error: expected a command name, found '-v'");
    EXPECT_EQ(errorOf("3 x"), "scene.qsl:1: error: expected a command name, found '3'");
    EXPECT_EQ(errorOf("print a \\ b"),
              "scene.qsl:1: error: unexpected '\\' (a line continuation must end its line)");
    EXPECT_EQ(errorOf("print a\x01"), "scene.qsl:1: error: unexpected character '\\x01'");
    EXPECT_EQ(errorOf(std::string_view("print \0", 7)),
              "scene.qsl:1: error: unexpected character '\\x00'");
}

TEST(QslErrors, Expressions) {
    EXPECT_EQ(errorOf("print(\"a\" +)"), "scene.qsl:1: error: missing operand after '+'");
    EXPECT_EQ(errorOf("print(\"a\" + + \"b\")"), "scene.qsl:1: error: missing operand after '+'");
    EXPECT_EQ(errorOf("print(+ 1)"), "scene.qsl:1: error: missing operand before '+'");
    EXPECT_EQ(errorOf("print(\"a\"\nprint b"), "scene.qsl:1: error: unclosed '('");
    EXPECT_EQ(errorOf("print(\"a\" + ; print(b)"), "scene.qsl:1: error: unclosed '('");
    EXPECT_EQ(errorOf("print(\"a\") \"b\""), "scene.qsl:1: error: unexpected '\"b\"' after ')'");
    EXPECT_EQ(errorOf("print(1) + 2"), "scene.qsl:1: error: unexpected '+' after ')'");
    EXPECT_EQ(errorOf("print(1 2)"), "scene.qsl:1: error: expected '+' or ')', found '2'");
    EXPECT_EQ(errorOf("print((1))"), "scene.qsl:1: error: unexpected '('");
    EXPECT_EQ(errorOf("print(\"a\" + -x)"),
              "scene.qsl:1: error: unexpected flag '-x' in expression");
    EXPECT_EQ(errorOf("print(1e308 + 1e308)"), "scene.qsl:1: error: sum out of range at '1e308'");
}

TEST(QslErrors, LocationAndWordAreKeptApart) {
    try {
        parse("print ok\n  set a.b 0,5", "dir/scene.qsl");
        FAIL() << "no error";
    } catch (const ParseError& e) {
        EXPECT_EQ(e.where().file, "dir/scene.qsl");
        EXPECT_EQ(e.where().line, 2);
        EXPECT_EQ(e.where().column, 11);
        EXPECT_EQ(e.message(), "bad number '0,5'");
        EXPECT_EQ(e.offendingWord(), "0,5");
    }
    // A runaway string is shown in part only.
    const std::string longString = "print \"" + std::string(100, 'x');
    EXPECT_EQ(errorOf(longString), "scene.qsl:1: error: unterminated string starting at '\"" +
                                       std::string(59, 'x') + "...'");
}

TEST(QslFiles, ParseFileNamesTheFile) {
    const auto dir = std::filesystem::temp_directory_path() / "orvo_qsl_parser_test";
    std::filesystem::create_directories(dir);
    const auto path = (dir / "scene.qsl").string();
    std::ofstream(path) << "node reverse rev1\nset rev1.input 1 2 \"3\n";
    try {
        qsl::parseFile(path);
        ADD_FAILURE() << "no error";
    } catch (const ParseError& e) {
        EXPECT_EQ(std::string(e.what()), path + ":2: error: unterminated string starting at '\"3'");
    }
    std::ofstream(path) << "node reverse rev1\n";
    EXPECT_EQ(qsl::parseFile(path).at(0).where.file, path);

    const auto missing = (dir / "missing.qsl").string();
    try {
        qsl::parseFile(missing);
        ADD_FAILURE() << "no error";
    } catch (const ParseError& e) {
        EXPECT_EQ(std::string(e.what()),
                  missing + ": error: cannot read file: No such file or directory");
        EXPECT_EQ(e.where().line, 0);
    }
    try {
        qsl::parseFile(dir.string());
        ADD_FAILURE() << "no error";
    } catch (const ParseError& e) {
        EXPECT_EQ(std::string(e.what()),
                  dir.string() + ": error: cannot read file: Is a directory");
    }
    std::filesystem::remove_all(dir);
}

TEST(QslWriting, QuotedTextReadsBackUnchanged) {
    EXPECT_EQ(qsl::quote("a\"b\\c\nd"), R"("a\"b\\c\nd")");
    const std::string samples[] = {"",          "plain", "C:\\textures\\wood.tif",
                                   "a // b; c", "\\n",   std::string("nul\0tab\tcr\r", 11),
                                   "\"\"\\\n"};
    for (const auto& text : samples) {
        const auto arg = onlyArgument("print " + qsl::quote(text));
        EXPECT_EQ(arg.kind, ArgKind::String);
        EXPECT_EQ(arg.text, text);
    }
}

TEST(QslWriting, NeedsQuotingExactlyWhenABareWordWouldNotReadBack) {
    for (const char* word : {"md1.output", "|group|shape", "a[3].b", "inf", "+x", "a/b", "é"})
        EXPECT_FALSE(qsl::needsQuoting(word)) << word;
    for (const char* word : {"", "two words", "-x", "-3", "3d", ".5", "a;b", "a(b", "a\"b", "a\\b",
                             "a//b", "tab\there"})
        EXPECT_TRUE(qsl::needsQuoting(word)) << word;
}

TEST(QslWriting, NumbersUseNineSignificantDigits) {
    EXPECT_EQ(qsl::formatNumber(1.0 / 3.0), "0.333333333");
    EXPECT_EQ(qsl::formatNumber(1234567890.0), "1.23456789e+09");
    EXPECT_EQ(qsl::formatNumber(-0.5), "-0.5");
    EXPECT_EQ(qsl::formatNumber(1e-5), "1e-05");
}

TEST(QslScale, LargeScriptsParseInLinearTime) {
    std::string text;
    for (int i = 0; i < 100000; ++i)
        text += "set md" + std::to_string(i) + ".input1 1 2 3 // c\n";
    const auto start = std::chrono::steady_clock::now();
    const auto statements = parse(text, "big.qsl");
    const auto elapsed = std::chrono::steady_clock::now() - start;
    ASSERT_EQ(statements.size(), 100000u);
    EXPECT_EQ(statements.back().where.line, 100000);
    EXPECT_EQ(statements.back().args[0].text, "md99999.input1");
    // Generous for sanitizer builds on a busy machine; a quadratic parser
    // takes minutes.
    EXPECT_LT(std::chrono::duration<double>(elapsed).count(), 5.0);
}

} // namespace
