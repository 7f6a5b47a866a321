#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

// Reading Qsl, the host's command language. A scene file is a Qsl script.
//
// The parser turns text into statements and stops at the first error; it
// knows nothing about commands, nodes or plugs. The interpreter checks the
// statements against the graph before it changes anything, so a script that
// fails leaves the scene as it was.
namespace qsl {

// Where something was written: 1-based line and byte column. Line 0 means
// the file as a whole (it could not be read).
struct SourceLocation {
    std::string file;
    int line = 0;
    int column = 0;
};

enum class ArgKind { Word, String, Number, Flag };

struct Argument {
    ArgKind kind = ArgKind::Word;
    // Word: as written (a plug such as `md1.input[3].x` stays one word).
    // String: the contents with escapes resolved.
    // Flag: the name without its leading '-'.
    // Number: as written, or the sum formatted as in formatNumber() when a
    // call expression added several numbers.
    std::string text;
    double number = 0; // the value of a Number, 0 otherwise
    SourceLocation where;
};

struct Statement {
    std::string command;
    SourceLocation where; // of the command word
    std::vector<Argument> args;
};

// what() reads "FILE:LINE: error: MESSAGE" ("FILE: error: MESSAGE" for line
// 0). MESSAGE names the offending word or character in single quotes.
class ParseError : public std::runtime_error {
public:
    ParseError(SourceLocation where, std::string message, std::string offendingWord);

    const SourceLocation& where() const noexcept { return fWhere; }
    const std::string& message() const noexcept { return fMessage; }
    // As quoted in the message: control characters are shown as \xNN and a
    // very long word is cut short with "...".
    const std::string& offendingWord() const noexcept { return fOffendingWord; }

private:
    SourceLocation fWhere;
    std::string fMessage;
    std::string fOffendingWord;
};

// Splits TEXT into statements. fileName is only used in locations and
// messages. Throws ParseError at the first error.
std::vector<Statement> parse(std::string_view text, const std::string& fileName);

// Reads and parses the file at PATH; a file that cannot be read is a
// ParseError at line 0 ("cannot read file: REASON").
std::vector<Statement> parseFile(const std::string& path);

// --- Writing scripts

// TEXT in double quotes, escaped so that parse() reads back exactly TEXT.
std::string quote(std::string_view text);

// True when TEXT, written bare as an argument of a statement, would not read
// back as one Word with the same text (it is empty, holds a blank or one of
// ; " ( ) \ //, or would read as a number or a flag). Write it with quote().
bool needsQuoting(std::string_view text);

// A number the way Qsl writes it: printf's "%.9g", which is also how a call
// expression turns a number into text.
std::string formatNumber(double value);

} // namespace qsl
