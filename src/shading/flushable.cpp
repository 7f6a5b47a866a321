#include "shading/flushable.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <mutex>
#include <vector>

#include "host/env.h"
#include "host/mt.h"

namespace {

enum ItemState : int { kWaiting = 0, kFlushing = 1, kFinished = 2 };

struct ActiveItem {
    IFlushable* item; // null once removed during an update
    ItemState state;
};

struct QueuedEvent {
    int event;
    unsigned frames;
};

struct EventEntry {
    bool pending = false;
    unsigned firstFrame = 0;
    unsigned lastFrame = 0;
};

bool readEnabled() {
    return OrvoGetEnvDouble("ORVO_VPR_GPU_FLUSHING_ENABLE", 1.0) >= 1.0;
}

class FlushableManager {
public:
    explicit FlushableManager(size_t capacity) : fEnabled(readEnabled()) {
        fCandidates.reserve(capacity);
        fActive.reserve(capacity);
    }

    void enrol(IFlushable* item) {
        std::lock_guard held(fSection);
        fCandidates.push_back(item);
    }

    void withdraw(IFlushable* item) {
        std::lock_guard held(fSection);
        forget(fCandidates, item);
        for (ActiveItem& entry : fActive)
            if (entry.item == item)
                entry.item = nullptr;
        compactUnlessUpdating();
    }

    void send(int event, unsigned frames) {
        std::lock_guard held(fSection);
        if (fEnabled)
            fQueue.push_back({event, std::max(frames, 1u)});
    }

    bool check(int event) {
        std::lock_guard held(fSection);
        if (std::any_of(fQueue.begin(), fQueue.end(),
                        [&](const QueuedEvent& q) { return q.event == event; }))
            return true;
        const auto found = fTable.find(event);
        return found != fTable.end() && found->second.pending;
    }

    void finished(IFlushable* item) {
        std::lock_guard held(fSection);
        for (ActiveItem& entry : fActive)
            if (entry.item == item && entry.state == kFlushing)
                entry.state = kFinished;
    }

    void reset() {
        std::lock_guard held(fSection);
        for (ActiveItem& entry : fActive)
            entry.item = nullptr;
        fQueue.clear();
        fTable.clear();
        fEnabled = readEnabled();
        compactUnlessUpdating();
    }

    void update(unsigned frame);

private:
    void enterQueuedEvents(unsigned frame);
    void updateCandidates();
    void updateOne(IFlushable* item);
    void advanceActiveItems();
    void retireEvents(unsigned frame);

    bool pending(int event) const {
        const auto found = fTable.find(event);
        return found != fTable.end() && found->second.pending;
    }

    ActiveItem* findActive(const IFlushable* item) {
        for (ActiveItem& entry : fActive)
            if (entry.item == item)
                return &entry;
        return nullptr;
    }

    // Whatever leaves a list is first nulled: an update may be walking it (an
    // object destroyed from inside a virtual call, on the updating thread),
    // and its indices must stay valid. The update compacts at its end.
    void forget(std::vector<IFlushable*>& list, const IFlushable* item) {
        for (IFlushable*& entry : list)
            if (entry == item)
                entry = nullptr;
    }

    void compactUnlessUpdating() {
        if (fUpdating)
            return;
        std::erase(fCandidates, nullptr);
        std::erase_if(fActive, [](const ActiveItem& entry) { return entry.item == nullptr; });
    }

    // Recursive: the virtual operations may call back (notifyFlushingFinished
    // from beginFlushMemory, or make and destroy flushable objects).
    TmtRecursiveCS fSection;
    bool fEnabled;
    bool fUpdating = false;
    std::vector<IFlushable*> fCandidates;
    std::vector<ActiveItem> fActive;
    std::vector<QueuedEvent> fQueue;
    std::map<int, EventEntry> fTable;
};

void FlushableManager::update(unsigned frame) {
    std::lock_guard held(fSection);
    if (!fEnabled || fUpdating)
        return;
    fUpdating = true;
    enterQueuedEvents(frame);
    updateCandidates();
    advanceActiveItems();
    retireEvents(frame);
    fUpdating = false;
    compactUnlessUpdating();
}

// Stage 1. An event already pending keeps its entry (and its time): sending
// it again before it passes asks for nothing new.
void FlushableManager::enterQueuedEvents(unsigned frame) {
    std::vector<QueuedEvent> queued;
    queued.swap(fQueue);
    for (const QueuedEvent& q : queued) {
        EventEntry& entry = fTable[q.event];
        if (entry.pending)
            continue;
        entry.pending = true;
        entry.firstFrame = frame;
        const unsigned long long last = (unsigned long long)frame + q.frames - 1;
        entry.lastFrame = unsigned(std::min<unsigned long long>(last, ~0u));
    }
}

// Stage 2. Indices, not iterators: a virtual call may make a new flushable
// object, which appends to the list.
void FlushableManager::updateCandidates() {
    for (size_t i = 0; i < fCandidates.size(); ++i) {
        IFlushable* item = fCandidates[i];
        if (!item)
            continue;
        if (!item->isFlushable()) {
            fCandidates[i] = nullptr;
            // It cannot flush any more: a wait for a request is pointless.
            if (ActiveItem* entry = findActive(item); entry && entry->state == kWaiting)
                entry->item = nullptr;
            continue;
        }
        if (item->shouldUpdate())
            updateOne(item);
    }
}

// An object that wants flushing joins the active items as waiting (once). One
// that does not leaves them if it is only waiting: a flush under way runs to
// its end. Otherwise, being out of the list, it may want its memory back.
void FlushableManager::updateOne(IFlushable* item) {
    ActiveItem* entry = findActive(item);
    if (item->shouldRegisterItself()) {
        if (!entry)
            fActive.push_back({item, kWaiting});
    } else if (entry) {
        if (entry->state == kWaiting)
            entry->item = nullptr;
    } else if (item->shouldRestore()) {
        item->restoreMemory();
    }
}

// Stage 3.
void FlushableManager::advanceActiveItems() {
    const bool requested = pending(kFlushableEventFlushRequested);
    for (size_t i = 0; i < fActive.size(); ++i) {
        IFlushable* item = fActive[i].item;
        if (!item)
            continue;
        switch (fActive[i].state) {
        case kWaiting:
            if (requested) {
                fActive[i].state = kFlushing;
                item->beginFlushMemory();
                const bool queued =
                    std::any_of(fQueue.begin(), fQueue.end(), [](const QueuedEvent& q) {
                        return q.event == kFlushableEventFlushingStarted;
                    });
                if (!queued)
                    fQueue.push_back({kFlushableEventFlushingStarted, 1});
            }
            break;
        case kFinished:
            item->endFlushMemory();
            fActive[i].item = nullptr;
            break;
        case kFlushing:
            break;
        }
    }
}

// Stage 4.
void FlushableManager::retireEvents(unsigned frame) {
    for (auto& [event, entry] : fTable)
        if (entry.pending && (frame >= entry.lastFrame || frame < entry.firstFrame))
            entry.pending = false;
}

// Made at first use and never destroyed: flushable objects with static
// lifetime may leave it while the process ends.
FlushableManager& theManager() {
    static FlushableManager* const manager = new FlushableManager(100);
    return *manager;
}

} // namespace

IFlushable::IFlushable() {
    theManager().enrol(this);
}

IFlushable::IFlushable(const IFlushable&) : IFlushable() {}

IFlushable::~IFlushable() {
    theManager().withdraw(this);
}

void IFlushable::sendEvent(FlushableEvent event, FlushableEventParam* param) {
    theManager().send(event, param ? param->frames : 1);
}

bool IFlushable::checkEvent(FlushableEvent event) {
    return theManager().check(event);
}

void IFlushable::updateManager(unsigned frame) {
    theManager().update(frame);
}

void IFlushable::reset() {
    theManager().reset();
}

void IFlushable::notifyFlushingFinished() {
    theManager().finished(this);
}
