#include "host/node_mutex.h"

#include <map>
#include <memory>

namespace {
struct Entry {
    std::unique_ptr<std::recursive_mutex> mutex = std::make_unique<std::recursive_mutex>();
    unsigned users = 0;
};
struct Table {
    std::mutex lock;
    std::map<const TdependNode*, Entry> entries;
};
Table& table() {
    static Table t;
    return t;
}
} // namespace

std::recursive_mutex* TdepNodeMutexMgr::obtainNodeMutex(const TdependNode* node) {
    Table& t = table();
    std::lock_guard guard(t.lock);
    Entry& e = t.entries[node];
    ++e.users;
    return e.mutex.get();
}

void TdepNodeMutexMgr::returnMutex(const TdependNode* node) {
    Table& t = table();
    std::lock_guard guard(t.lock);
    const auto it = t.entries.find(node);
    if (it != t.entries.end() && --it->second.users == 0)
        t.entries.erase(it);
}
