#include "host/scene_folder.h"

#include <mutex>
#include <unordered_map>

namespace {
struct Folders {
    std::mutex mutex;
    std::unordered_map<const TdependNode*, std::string> byNode;
};
Folders& folders() {
    // Never destroyed: nodes may go during static destruction.
    static Folders* f = new Folders;
    return *f;
}
} // namespace

void OrvoSetNodeSceneFolder(const TdependNode* node, std::string folder) {
    Folders& f = folders();
    std::lock_guard lock(f.mutex);
    f.byNode[node] = std::move(folder);
}

std::string OrvoNodeSceneFolder(const TdependNode* node) {
    Folders& f = folders();
    std::lock_guard lock(f.mutex);
    const auto it = f.byNode.find(node);
    return it == f.byNode.end() ? std::string() : it->second;
}

void OrvoForgetNodeSceneFolder(const TdependNode* node) {
    Folders& f = folders();
    std::lock_guard lock(f.mutex);
    f.byNode.erase(node);
}
