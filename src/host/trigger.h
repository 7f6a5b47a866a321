#pragma once

// A trigger: something that happens, which others want to hear of. Firing
// it counts and calls every callback in the order they were added; those
// who only poll compare the count with the one they saw last.

#include <algorithm>
#include <cstdint>
#include <vector>

class Ttrigger {
public:
    using Callback = void (*)(void* client);

    // Adds a callback for `client`; the same pair twice is kept once.
    void addCallback(Callback callback, void* client = nullptr) {
        for (const Entry& e : fEntries)
            if (e.callback == callback && e.client == client)
                return;
        fEntries.push_back({callback, client});
    }
    void removeCallback(Callback callback, void* client = nullptr) {
        fEntries.erase(std::remove_if(fEntries.begin(), fEntries.end(),
                                      [&](const Entry& e) {
                                          return e.callback == callback && e.client == client;
                                      }),
                       fEntries.end());
    }
    size_t callbackCount() const { return fEntries.size(); }

    void fire() {
        ++fFireCount;
        // A copy: a callback may remove itself.
        const std::vector<Entry> entries = fEntries;
        for (const Entry& e : entries)
            e.callback(e.client);
    }
    uint64_t fireCount() const { return fFireCount; }

private:
    struct Entry {
        Callback callback;
        void* client;
    };
    std::vector<Entry> fEntries;
    uint64_t fFireCount = 0;
};
