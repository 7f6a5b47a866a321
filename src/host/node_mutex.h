#pragma once

// Per-node mutexes handed out on request: the shading engine holds its
// node's mutex while it analyses, and nodes that must not compute in
// parallel compute under theirs.

#include <mutex>

class TdependNode;

class TdepNodeMutexMgr {
public:
    // The recursive mutex of `node`, made on first request. Each obtain is
    // matched by a return; the mutex goes when the last one is returned.
    static std::recursive_mutex* obtainNodeMutex(const TdependNode* node);
    static void returnMutex(const TdependNode* node);
};
