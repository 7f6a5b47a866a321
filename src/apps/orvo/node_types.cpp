#include "apps/orvo/node_types.h"

#include <fmt/format.h>

#include <cstddef>

#include "apps/orvo/scene.h"
#include "host/graph.h"

namespace orvo::cli {

std::vector<AttributeRow> describe(TdependNodeClass& nodeClass) {
    TdependNodeVS* vs = nodeClass.vsData();
    vs->initializeClass();
    std::vector<AttributeRow> rows;
    for (const Tattribute* a : vs->attributes()) {
        AttributeRow row{a, a->className(), {}};
        if (a->isArray())
            row.className += "[]";
        if (a->wordCount() != 0) {
            std::vector<std::max_align_t> scratch(a->dataSize() / sizeof(std::max_align_t) + 2);
            a->constructValue(scratch.data());
            a->formatValue(scratch.data(), row.defaults);
            a->destroyValue(scratch.data());
        }
        rows.push_back(std::move(row));
    }
    return rows;
}

std::string baseName(const TdependNodeClass& nodeClass) {
    const Tmetaclass* meta = nodeClass.metaclass();
    return meta && meta->parent(0) ? meta->parent(0)->typeName() : "";
}

std::string tagText(const TdependNodeClass& nodeClass) {
    const TiffTag* tag = nodeClass.iffTag();
    return tag ? tag->text() : "";
}

std::string join(const std::vector<std::string>& words) {
    std::string out;
    for (const std::string& w : words)
        out += (out.empty() ? "" : " ") + w;
    return out;
}

namespace {

std::string jsonType(TdependNodeClass& nodeClass) {
    std::string out =
        fmt::format("{{\"type\": {}, \"iffTag\": {}, \"apiType\": {}, \"apiTypeString\": {}, "
                    "\"classification\": {}, \"base\": {}, \"attributes\": [",
                    jsonString(nodeClass.typeName()), jsonString(tagText(nodeClass)),
                    nodeClass.apiType, jsonString(nodeClass.apiTypeString),
                    jsonString(nodeClass.classification), jsonString(baseName(nodeClass)));
    bool first = true;
    for (const AttributeRow& row : describe(nodeClass)) {
        const Tattribute& a = *row.attribute;
        std::string defaults = "[";
        for (size_t i = 0; i < row.defaults.size(); ++i)
            defaults += (i ? ", " : "") + jsonValue(row.defaults[i]);
        defaults += "]";
        out += fmt::format("{}{{\"long\": {}, \"short\": {}, \"class\": {}, \"parent\": {}, "
                           "\"default\": {}, \"flags\": \"0x{:x}\"}}",
                           first ? "" : ", ", jsonString(a.longName()), jsonString(a.shortName()),
                           jsonString(row.className),
                           a.parent() ? jsonString(a.parent()->longName()) : "null", defaults,
                           a.flags());
        first = false;
    }
    out += "]}";
    return out;
}

} // namespace

std::string nodeTypesJson(const std::vector<TdependNodeClass*>& types) {
    std::string out = "[";
    for (size_t i = 0; i < types.size(); ++i)
        out += (i ? ",\n " : "") + jsonType(*types[i]);
    out += "]";
    return out;
}

} // namespace orvo::cli
