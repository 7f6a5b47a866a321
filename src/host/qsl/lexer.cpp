#include "host/qsl/lexer_pvt.h"

#include <fmt/format.h>

namespace qsl::detail {

namespace {

// Long enough to recognise the word, short enough to keep a message on a line.
constexpr std::size_t kMaxShownBytes = 60;

bool isContinuationByte(char c) {
    return (static_cast<unsigned char>(c) & 0xc0) == 0x80;
}

} // namespace

std::string displayWord(std::string_view word) {
    bool cut = false;
    if (word.size() > kMaxShownBytes) {
        std::size_t keep = kMaxShownBytes;
        // Do not split a UTF-8 sequence.
        while (keep > 0 && isContinuationByte(word[keep]))
            --keep;
        word = word.substr(0, keep);
        cut = true;
    }
    std::string shown;
    shown.reserve(word.size() + 3);
    for (const char c : word) {
        const auto u = static_cast<unsigned char>(c);
        if (u < 0x20 || u == 0x7f)
            shown += fmt::format("\\x{:02x}", u);
        else
            shown += c;
    }
    if (cut)
        shown += "...";
    return shown;
}

Lexer::Lexer(std::string_view text, const std::string& fileName) : fText(text), fFile(fileName) {
    // Editors on some systems start UTF-8 files with a byte order mark.
    if (fText.starts_with("\xef\xbb\xbf"))
        fPos = fLineStart = 3;
}

void Lexer::fail(int line, int column, std::string_view format, std::string_view word) const {
    std::string shown = displayWord(word);
    std::string message = fmt::format(fmt::runtime(format), "'" + shown + "'");
    throw ParseError(SourceLocation{fFile, line, column}, std::move(message), std::move(shown));
}

void Lexer::newLine(std::size_t next) {
    fPos = next;
    fLineStart = next;
    ++fLine;
}

// At a backslash outside a string: when only blanks follow it on its line,
// the next line continues this one and the backslash counts as a blank.
bool Lexer::skipContinuation() {
    std::size_t i = fPos + 1;
    while (i < fText.size() && isBlank(fText[i]))
        ++i;
    if (i == fText.size()) {
        fPos = i;
        return true;
    }
    if (fText[i] != '\n')
        return false;
    newLine(i + 1);
    return true;
}

Token Lexer::single(TokenKind kind) {
    Token token{kind, {}, fText.substr(fPos, 1), fLine, column()};
    ++fPos;
    return token;
}

Token Lexer::next() {
    for (;;) {
        while (!atEnd() && isBlank(peek()))
            ++fPos;
        if (atEnd())
            return Token{TokenKind::EndOfInput, {}, {}, fLine, column()};
        const char c = peek();
        switch (c) {
        case '\n': {
            Token token{TokenKind::EndOfStatement, {}, fText.substr(fPos, 1), fLine, column()};
            newLine(fPos + 1);
            return token;
        }
        case ';':
            return single(TokenKind::EndOfStatement);
        case '(':
            return single(TokenKind::OpenParen);
        case ')':
            return single(TokenKind::CloseParen);
        case '"':
            return lexString();
        case '\\':
            if (skipContinuation())
                continue;
            fail(fLine, column(), "unexpected {} (a line continuation must end its line)", "\\");
        case '/':
            if (peek(1) == '/') {
                const std::size_t end = fText.find('\n', fPos);
                fPos = end == std::string_view::npos ? fText.size() : end;
                continue;
            }
            break;
        case '+':
            if (fInCall)
                return single(TokenKind::Plus);
            break;
        default:
            break;
        }
        if (!isWordChar(c))
            fail(fLine, column(), "unexpected character {}", fText.substr(fPos, 1));
        return lexWord();
    }
}

Token Lexer::lexWord() {
    const std::size_t start = fPos;
    Token token{TokenKind::Word, {}, {}, fLine, column()};
    while (!atEnd()) {
        const char c = peek();
        if (!isWordChar(c) || (c == '/' && peek(1) == '/'))
            break;
        if (c == '+' && fInCall) {
            // The sign of an exponent stays in its number: 1e+3.
            const std::string_view sofar = fText.substr(start, fPos - start);
            const bool exponentSign =
                startsLikeNumber(sofar) && (sofar.back() == 'e' || sofar.back() == 'E');
            if (!exponentSign)
                break;
        }
        ++fPos;
    }
    token.written = fText.substr(start, fPos - start);
    token.text = std::string(token.written);
    return token;
}

Token Lexer::lexString() {
    const std::size_t start = fPos;
    Token token{TokenKind::String, {}, {}, fLine, column()};
    const auto unterminated = [&] {
        std::size_t end = fText.find('\n', start);
        if (end == std::string_view::npos)
            end = fText.size();
        std::string_view written = fText.substr(start, end - start);
        if (written.ends_with('\r'))
            written.remove_suffix(1);
        fail(token.line, token.column, "unterminated string starting at {}", written);
    };
    ++fPos;
    for (;;) {
        if (atEnd() || peek() == '\n')
            unterminated();
        const char c = peek();
        if (c == '"') {
            ++fPos;
            break;
        }
        if (c != '\\') {
            // Copy the run up to the next character that needs a look.
            std::size_t end = fPos + 1;
            while (end < fText.size() && fText[end] != '"' && fText[end] != '\\' &&
                   fText[end] != '\n')
                ++end;
            token.text.append(fText.substr(fPos, end - fPos));
            fPos = end;
            continue;
        }
        const char escaped = peek(1);
        if (atEnd(1) || escaped == '\n')
            unterminated();
        switch (escaped) {
        case 'n':
            token.text += '\n';
            break;
        case '"':
            token.text += '"';
            break;
        case '\\':
            token.text += '\\';
            break;
        default: {
            // Show the whole character after the backslash, even a UTF-8 one.
            std::size_t length = 2;
            while (fPos + length < fText.size() && isContinuationByte(fText[fPos + length]))
                ++length;
            fail(fLine, column(), "invalid escape {} in string", fText.substr(fPos, length));
        }
        }
        fPos += 2;
    }
    token.written = fText.substr(start, fPos - start);
    return token;
}

} // namespace qsl::detail
