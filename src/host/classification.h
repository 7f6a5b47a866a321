#pragma once

// Classification of node types ("utility/general", "texture/2d"...) and the
// table of API type numbers.

#include <string>
#include <string_view>
#include <vector>

#include "host/types.h"

class TclassificationMgr {
public:
    // Enters `typeName` under each ':'-separated path of `classification`.
    static void registerClassification(const Tstring& typeName, const Tstring& classification);
    // True when the type lies under `path` (a path or one of its prefixes,
    // matched at '/' boundaries).
    static bool isClassified(const Tstring& typeName, std::string_view path);
    // The classification string a type was registered with.
    static Tstring classification(const Tstring& typeName);
};

class TapiTypeTable {
public:
    struct Entry {
        int apiType;
        Tstring name;
    };
    // Enters an API type number and its k... name; `width` is the host's
    // field width and only recorded.
    static void add(int apiType, const Tstring& name, int width);
    static Tstring name(int apiType);
    static int find(std::string_view name); // -1 when unknown
};
