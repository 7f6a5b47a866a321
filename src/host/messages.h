#pragma once

// Messages to the user and the string catalogue behind message ids.

#include <functional>
#include <string>
#include <string_view>

#include <fmt/format.h>

#include "host/types.h"

class TcommandEngine {
public:
    // Console texts go out exactly as given, with their own line ends (the
    // texture cache's reports, whose wording is fixed).
    enum class Severity { Info, Warning, Error, Console };
    using Sink = std::function<void(Severity, const std::string&)>;

    // By default warnings and errors go to standard error as "Warning: ..."
    // and "Error: ...". A sink replaces that (tests capture with one).
    static void displayWarning(const Tstring& text);
    static void displayError(const Tstring& text);
    static void displayInfo(const Tstring& text);
    static void displayConsole(const Tstring& text);
    // Installs a sink and returns the one it replaces; an empty sink restores
    // standard error.
    static Sink setSink(Sink sink);
    // What happens with no sink: standard error, with the severity's head.
    static void printDefault(Severity severity, const Tstring& text);
};

// A message id of the form s_<Catalogue>.<id>, looked up in the string
// catalogue (share/orvo/strings.txt, or the file ORVO_STRINGS names). Texts
// take fmt-style arguments; an id with no text stands for itself.
class TstringId {
public:
    explicit TstringId(std::string_view id) : fId(id) {}
    const Tstring& id() const { return fId; }
    // The catalogue text, or the id itself when the catalogue has none.
    Tstring text() const;

    template <class... Args>
    Tstring format(Args&&... args) const {
        const Tstring pattern = text();
        try {
            return fmt::vformat(pattern, fmt::make_format_args(args...));
        } catch (const fmt::format_error&) {
            return pattern;
        }
    }

private:
    Tstring fId;
};

// Loads a catalogue file of lines "id = text" (blank lines and lines starting
// with # skipped). Returns false when the file cannot be read. Entries from
// later loads replace earlier ones.
bool OrvoLoadStringCatalogue(const std::string& path);
