#pragma once

#include <string>
#include <string_view>

#include "host/qsl/parser.h"

// The tokens of Qsl. Words are kept raw here; the parser decides whether a
// word is a number, a flag or a plain word, because that depends on where it
// stands (the command word may not be a number, a call may not hold a flag).
namespace qsl::detail {

enum class TokenKind {
    Word,
    String,
    OpenParen,
    CloseParen,
    Plus,           // only inside a call's parentheses
    EndOfStatement, // ';' or a newline
    EndOfInput,
};

struct Token {
    TokenKind kind = TokenKind::EndOfInput;
    // Word: as written; String: contents with escapes resolved.
    std::string text;
    // The token as it stands in the source, for messages.
    std::string_view written;
    int line = 0;
    int column = 0;
};

// Characters that may stand in a word. Blanks, control characters and the
// characters with a meaning of their own end a word. Bytes from 0x80 up are
// allowed so that UTF-8 passes through.
inline bool isWordChar(char c) {
    const auto u = static_cast<unsigned char>(c);
    if (u <= 0x20 || u == 0x7f)
        return false;
    return c != ';' && c != '"' && c != '(' && c != ')' && c != '\\';
}

// Blanks between words. '\r' is one so that files with CRLF line ends read
// like any other.
inline bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

inline bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

inline bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// A word that begins like a number must be one: "0,5" or "1..5" are typing
// mistakes, not names.
inline bool startsLikeNumber(std::string_view w) {
    std::size_t i = 0;
    if (i < w.size() && (w[i] == '+' || w[i] == '-'))
        ++i;
    if (i < w.size() && isDigit(w[i]))
        return true;
    return i + 1 < w.size() && w[i] == '.' && isDigit(w[i + 1]);
}

// The word as shown between quotes in a message: control characters as \xNN
// and no more than a line's worth of it.
std::string displayWord(std::string_view word);

class Lexer {
public:
    Lexer(std::string_view text, const std::string& fileName);

    Token next();

    // Inside a call's parentheses '+' joins operands instead of being part
    // of a word.
    void setInCall(bool inCall) { fInCall = inCall; }

    [[noreturn]] void fail(int line, int column, std::string_view format,
                           std::string_view word) const;

private:
    char peek(std::size_t ahead = 0) const {
        return fPos + ahead < fText.size() ? fText[fPos + ahead] : '\0';
    }
    bool atEnd(std::size_t ahead = 0) const { return fPos + ahead >= fText.size(); }
    int column() const { return static_cast<int>(fPos - fLineStart) + 1; }
    void newLine(std::size_t next);
    bool skipContinuation();
    Token lexString();
    Token lexWord();
    Token single(TokenKind kind);

    std::string_view fText;
    const std::string& fFile;
    std::size_t fPos = 0;
    std::size_t fLineStart = 0;
    int fLine = 1;
    bool fInCall = false;
};

} // namespace qsl::detail
