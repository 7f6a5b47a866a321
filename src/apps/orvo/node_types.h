#pragma once

// Describing the registered node types: `orvo nodes` prints it and the
// Python module's node_types() returns the same JSON, parsed.

#include <string>
#include <vector>

class Tattribute;
class TdependNodeClass;

namespace orvo::cli {

struct AttributeRow {
    const Tattribute* attribute;
    std::string className; // "[]" appended for an array
    std::vector<std::string> defaults;
};

// Every attribute of the type, in order, with its default as words.
std::vector<AttributeRow> describe(TdependNodeClass& nodeClass);
std::string baseName(const TdependNodeClass& nodeClass);
std::string tagText(const TdependNodeClass& nodeClass);
std::string join(const std::vector<std::string>& words);

// A JSON array of the types, each with its tag, API type, classification,
// base and attributes (long, short, class, parent, default, flags).
std::string nodeTypesJson(const std::vector<TdependNodeClass*>& types);

} // namespace orvo::cli
