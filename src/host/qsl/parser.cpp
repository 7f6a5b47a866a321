#include "host/qsl/parser.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <memory>
#include <system_error>

#include <fmt/format.h>

#include "host/qsl/lexer_pvt.h"

namespace qsl {

using detail::Lexer;
using detail::Token;
using detail::TokenKind;

ParseError::ParseError(SourceLocation where, std::string message, std::string offendingWord)
    : std::runtime_error(where.line > 0
                             ? fmt::format("{}:{}: error: {}", where.file, where.line, message)
                             : fmt::format("{}: error: {}", where.file, message)),
      fWhere(std::move(where)), fMessage(std::move(message)),
      fOffendingWord(std::move(offendingWord)) {}

namespace {

bool isCommandName(std::string_view word) {
    if (word.empty() || detail::isDigit(word.front()))
        return false;
    for (const char c : word) {
        if (!detail::isLetter(c) && !detail::isDigit(c) && c != '_')
            return false;
    }
    return true;
}

bool isFlagName(std::string_view name) {
    if (name.empty() || !detail::isLetter(name.front()))
        return false;
    for (const char c : name) {
        if (!detail::isLetter(c) && !detail::isDigit(c) && c != '_')
            return false;
    }
    return true;
}

// Decimal numbers only: [sign] digits [. digits] [e [sign] digits], with a
// digit on at least one side of the point. from_chars alone would also take
// "inf" and "nan", which are names here.
bool isNumberSyntax(std::string_view w) {
    std::size_t i = 0;
    const auto digits = [&] {
        const std::size_t from = i;
        while (i < w.size() && detail::isDigit(w[i]))
            ++i;
        return i - from;
    };
    if (i < w.size() && (w[i] == '+' || w[i] == '-'))
        ++i;
    std::size_t mantissa = digits();
    if (i < w.size() && w[i] == '.') {
        ++i;
        mantissa += digits();
    }
    if (mantissa == 0)
        return false;
    if (i < w.size() && (w[i] == 'e' || w[i] == 'E')) {
        ++i;
        if (i < w.size() && (w[i] == '+' || w[i] == '-'))
            ++i;
        if (digits() == 0)
            return false;
    }
    return i == w.size();
}

class Parser {
public:
    Parser(std::string_view text, const std::string& fileName)
        : fLexer(text, fileName), fFile(fileName) {}

    std::vector<Statement> run();

private:
    SourceLocation at(const Token& token) const {
        return SourceLocation{fFile, token.line, token.column};
    }
    [[noreturn]] void fail(const Token& token, std::string_view format) const {
        fLexer.fail(token.line, token.column, format, token.written);
    }
    Argument classify(const Token& word) const;
    void parseWords(Statement& statement);
    void parseCall(Statement& statement, const Token& open);

    Lexer fLexer;
    const std::string& fFile;
};

std::vector<Statement> Parser::run() {
    std::vector<Statement> statements;
    for (;;) {
        const Token first = fLexer.next();
        if (first.kind == TokenKind::EndOfInput)
            break;
        if (first.kind == TokenKind::EndOfStatement)
            continue; // blank statement
        if (first.kind == TokenKind::OpenParen || first.kind == TokenKind::CloseParen)
            fail(first, "unexpected {}");
        if (first.kind != TokenKind::Word || !isCommandName(first.text))
            fail(first, "expected a command name, found {}");
        Statement& statement = statements.emplace_back();
        statement.command = first.text;
        statement.where = at(first);
        parseWords(statement);
    }
    return statements;
}

Argument Parser::classify(const Token& word) const {
    const std::string_view w = word.text;
    Argument arg{ArgKind::Word, word.text, 0.0, at(word)};
    if (detail::startsLikeNumber(w)) {
        if (!isNumberSyntax(w))
            fail(word, "bad number {}");
        // from_chars takes a leading '-' but not a '+'.
        const std::string_view digits = w.front() == '+' ? w.substr(1) : w;
        const auto [end, error] =
            std::from_chars(digits.data(), digits.data() + digits.size(), arg.number);
        if (error != std::errc() || end != digits.data() + digits.size())
            fail(word, "number out of range {}");
        arg.kind = ArgKind::Number;
    } else if (w.front() == '-') {
        if (!isFlagName(w.substr(1)))
            fail(word, "bad flag {}");
        arg.kind = ArgKind::Flag;
        arg.text.erase(0, 1);
    }
    return arg;
}

// The arguments after the command, up to the end of the statement.
void Parser::parseWords(Statement& statement) {
    bool firstArgument = true;
    for (;;) {
        const Token token = fLexer.next();
        switch (token.kind) {
        case TokenKind::EndOfStatement:
        case TokenKind::EndOfInput:
            return;
        case TokenKind::Word:
            statement.args.push_back(classify(token));
            break;
        case TokenKind::String:
            statement.args.push_back(Argument{ArgKind::String, token.text, 0.0, at(token)});
            break;
        case TokenKind::OpenParen:
            if (!firstArgument)
                fail(token, "unexpected {}");
            parseCall(statement, token);
            return;
        case TokenKind::CloseParen:
        case TokenKind::Plus:
            fail(token, "unexpected {}");
        }
        firstArgument = false;
    }
}

// name(expr): operands joined by '+', folded here into at most one argument.
// Numbers alone add up; anything else concatenates into a string.
void Parser::parseCall(Statement& statement, const Token& open) {
    std::vector<Argument> operands;
    std::vector<Token> pluses; // for messages about a missing operand
    fLexer.setInCall(true);
    for (bool expectOperand = true;;) {
        Token token = fLexer.next();
        switch (token.kind) {
        case TokenKind::EndOfStatement:
        case TokenKind::EndOfInput:
            fail(open, "unclosed {}");
        case TokenKind::OpenParen:
            fail(token, "unexpected {}");
        case TokenKind::CloseParen:
            if (expectOperand && !pluses.empty())
                fail(pluses.back(), "missing operand after {}");
            break;
        case TokenKind::Plus:
            if (expectOperand) {
                if (pluses.empty())
                    fail(token, "missing operand before {}");
                fail(pluses.back(), "missing operand after {}");
            }
            pluses.push_back(std::move(token));
            expectOperand = true;
            continue;
        case TokenKind::Word:
        case TokenKind::String:
            if (!expectOperand)
                fail(token, "expected '+' or ')', found {}");
            if (token.kind == TokenKind::String) {
                operands.push_back(Argument{ArgKind::String, token.text, 0.0, at(token)});
            } else {
                Argument arg = classify(token);
                if (arg.kind == ArgKind::Flag)
                    fail(token, "unexpected flag {} in expression");
                operands.push_back(std::move(arg));
            }
            expectOperand = false;
            continue;
        }
        break; // at ')'
    }
    fLexer.setInCall(false);

    const Token after = fLexer.next();
    if (after.kind != TokenKind::EndOfStatement && after.kind != TokenKind::EndOfInput)
        fail(after, "unexpected {} after ')'");

    if (operands.empty())
        return;
    if (operands.size() == 1 && operands.front().kind != ArgKind::Word) {
        statement.args.push_back(std::move(operands.front()));
        return;
    }
    bool allNumbers = true;
    for (const Argument& operand : operands)
        allNumbers = allNumbers && operand.kind == ArgKind::Number;
    Argument folded{
        allNumbers ? ArgKind::Number : ArgKind::String, {}, 0.0, operands.front().where};
    if (allNumbers) {
        for (std::size_t i = 0; i < operands.size(); ++i) {
            folded.number += operands[i].number;
            if (!std::isfinite(folded.number)) {
                const SourceLocation& where = operands[i].where;
                fLexer.fail(where.line, where.column, "sum out of range at {}", operands[i].text);
            }
        }
        folded.text = formatNumber(folded.number);
    } else {
        for (const Argument& operand : operands)
            folded.text +=
                operand.kind == ArgKind::Number ? formatNumber(operand.number) : operand.text;
    }
    statement.args.push_back(std::move(folded));
}

} // namespace

std::vector<Statement> parse(std::string_view text, const std::string& fileName) {
    return Parser(text, fileName).run();
}

std::vector<Statement> parseFile(const std::string& path) {
    const auto cannotRead = [&](int error) -> ParseError {
        return ParseError(SourceLocation{path, 0, 0},
                          "cannot read file: " + std::generic_category().message(error), path);
    };
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"),
                                                               &std::fclose);
    if (!file)
        throw cannotRead(errno);
    std::string text;
    char buffer[1 << 16];
    for (;;) {
        const std::size_t got = std::fread(buffer, 1, sizeof buffer, file.get());
        text.append(buffer, got);
        if (got < sizeof buffer)
            break;
    }
    if (std::ferror(file.get()))
        throw cannotRead(errno);
    return parse(text, path);
}

std::string quote(std::string_view text) {
    std::string quoted;
    quoted.reserve(text.size() + 2);
    quoted += '"';
    for (const char c : text) {
        switch (c) {
        case '"':
            quoted += "\\\"";
            break;
        case '\\':
            quoted += "\\\\";
            break;
        case '\n':
            quoted += "\\n";
            break;
        default:
            quoted += c;
        }
    }
    quoted += '"';
    return quoted;
}

bool needsQuoting(std::string_view text) {
    if (text.empty() || text.front() == '-' || detail::startsLikeNumber(text))
        return true;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (!detail::isWordChar(text[i]) ||
            (text[i] == '/' && i + 1 < text.size() && text[i + 1] == '/'))
            return true;
    }
    return false;
}

std::string formatNumber(double value) {
    return fmt::format("{:.9g}", value);
}

} // namespace qsl
