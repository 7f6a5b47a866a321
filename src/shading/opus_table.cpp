#include <mutex>

#include "shading/opus.h"
#include "shading/render_thread.h"

namespace {

struct OpusRecord {
    TdependNode* node = nullptr;
    unsigned option = 0;
    TshadingOpus* opus = nullptr;
    OpusRecord* next = nullptr;
    unsigned references = 0;
};

struct OpusTable {
    std::recursive_mutex lock; // deleteOpus re-enters through releaseOpus
    OpusRecord* buckets[512] = {};
};

OpusTable& opusTable() {
    static OpusTable table;
    return table;
}

unsigned bucketOf(const TdependNode* node, unsigned option) {
    return unsigned(((reinterpret_cast<uintptr_t>(node) >> 3) + option) & 0x1ff);
}

void destroy(OpusRecord* record) {
    if (record->opus) {
        record->opus->releaseOpus();
        delete record->opus;
    }
    delete record;
}

} // namespace

bool TrenderThreadBase::getOpus(TshadingOpus**& slot, TdependNode* node, unsigned option) {
    OpusTable& t = opusTable();
    std::lock_guard guard(t.lock);
    slot = nullptr;
    OpusRecord*& head = t.buckets[bucketOf(node, option)];
    for (OpusRecord* r = head; r; r = r->next)
        if (r->node == node && r->option == option) {
            slot = &r->opus;
            ++r->references;
            return r->opus != nullptr;
        }
    auto* record = new OpusRecord{node, option, nullptr, head, 1};
    head = record;
    slot = &record->opus;
    return false;
}

void TrenderThreadBase::deleteOpus(TdependNode* node, unsigned option, bool force) {
    OpusTable& t = opusTable();
    std::lock_guard guard(t.lock);
    OpusRecord** link = &t.buckets[bucketOf(node, option)];
    while (*link && !((*link)->node == node && (*link)->option == option))
        link = &(*link)->next;
    OpusRecord* record = *link;
    if (!record)
        return;
    if (!force && record->references > 1) {
        --record->references;
        return;
    }
    *link = record->next;
    destroy(record);
}

void TrenderThreadBase::deleteAllOpuses() {
    OpusTable& t = opusTable();
    std::lock_guard guard(t.lock);
    for (OpusRecord*& head : t.buckets)
        while (head) {
            OpusRecord* r = head;
            head = r->next;
            destroy(r);
        }
}

unsigned TrenderThreadBase::opusReferences(const TdependNode* node, unsigned option) {
    OpusTable& t = opusTable();
    std::lock_guard guard(t.lock);
    for (OpusRecord* r = t.buckets[bucketOf(node, option)]; r; r = r->next)
        if (r->node == node && r->option == option)
            return r->references;
    return 0;
}
