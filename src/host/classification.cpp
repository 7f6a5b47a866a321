#include "host/classification.h"

#include <map>
#include <mutex>
#include <unordered_map>

namespace {
struct Tables {
    std::mutex mutex;
    std::unordered_map<std::string, std::string> classifications;
    std::map<int, std::string> apiTypes;
};

Tables& tables() {
    static Tables t;
    return t;
}
} // namespace

void TclassificationMgr::registerClassification(const Tstring& typeName,
                                                const Tstring& classification) {
    Tables& t = tables();
    std::lock_guard lock(t.mutex);
    t.classifications[typeName] = classification;
}

bool TclassificationMgr::isClassified(const Tstring& typeName, std::string_view path) {
    const Tstring all = classification(typeName);
    size_t start = 0;
    while (start <= all.size()) {
        size_t end = all.find(':', start);
        if (end == Tstring::npos)
            end = all.size();
        const std::string_view entry(all.data() + start, end - start);
        if (entry.substr(0, path.size()) == path &&
            (entry.size() == path.size() || entry[path.size()] == '/'))
            return true;
        start = end + 1;
    }
    return false;
}

Tstring TclassificationMgr::classification(const Tstring& typeName) {
    Tables& t = tables();
    std::lock_guard lock(t.mutex);
    const auto it = t.classifications.find(typeName);
    return it == t.classifications.end() ? Tstring() : it->second;
}

void TapiTypeTable::add(int apiType, const Tstring& name, int) {
    Tables& t = tables();
    std::lock_guard lock(t.mutex);
    t.apiTypes[apiType] = name;
}

Tstring TapiTypeTable::name(int apiType) {
    Tables& t = tables();
    std::lock_guard lock(t.mutex);
    const auto it = t.apiTypes.find(apiType);
    return it == t.apiTypes.end() ? Tstring() : it->second;
}

int TapiTypeTable::find(std::string_view name) {
    Tables& t = tables();
    std::lock_guard lock(t.mutex);
    for (const auto& [number, text] : t.apiTypes)
        if (text == name)
            return number;
    return -1;
}
