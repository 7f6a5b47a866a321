#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "host/iff/iff_file.h"
#include "host/mt.h"

// One spill file for a render. Data that does not fit in memory is appended
// to it and read back by position; the caller owns the layout of what it
// appends and remembers the positions. The file exists only while the object
// does: a stale file of the same name is deleted first, and the file is
// deleted when the object goes or, failing that, when the process exits.
//
// On disk it is an IFF group FOR4 of type Swap; what is appended follows the
// group header as raw bytes in the machine's order. Positions and sizes are
// 32-bit, so the file stays below 4 GiB, and appends stop below a write limit
// taken from ORVO_SWAP_LIMIT or from the free disk space.
//
// Operations return 0 or -1. A failure of the file is warned about once per
// swap; the render goes on without the data. The stream has one position: a
// caller that interleaves reads and writes from several threads holds
// beginMutex()/endMutex() across each seek and transfer. append and read take
// no lock themselves.
class TrenderSwap {
public:
    static constexpr TiffChunkId kFormType = TiffMakeTag("Swap");
    static constexpr uint32_t kNoLimit = 0xFFFFFFFFu;

    // Environment settings, read when the library loads.
    struct Settings {
        long long limit = -1; // ORVO_SWAP_LIMIT: bytes as a 32-bit word; -1, -2: from the disk
        bool trace = false;   // ORVO_TRACE_SWAP
    };
    static const Settings& settings();
    // Reads the settings again; for tests.
    static void readSettings();

    // The write limit for `freeBytes` free on the disk: 5 percent of it stays
    // free, and more than 4 GiB counts as 4 GiB less one byte.
    static uint32_t limitFromFreeBytes(uint64_t freeBytes);

    explicit TrenderSwap(const char* name);
    ~TrenderSwap();
    TrenderSwap(const TrenderSwap&) = delete;
    TrenderSwap& operator=(const TrenderSwap&) = delete;

    // Writes at the end of the file. Fails, writing nothing, when the end
    // would reach the write limit.
    int append(const void* data, unsigned size);
    // Reads `size` bytes at `position`.
    int read(void* data, unsigned size, unsigned position);
    // The end position; 0 when there is no stream.
    unsigned gotoEnd();

    int getReadPosition(unsigned& position);
    int getWritePosition(unsigned& position);
    int setReadPosition(unsigned position);
    // Fails for a position at or beyond the write limit.
    int setWritePosition(unsigned position);
    int flushOutput();

    void setWriteLimit(unsigned limit);
    unsigned writeLimit() const { return fWriteLimit; }

    // Turns a 0 status into -1 when the stream reports an error, and warns
    // the first time a status is not 0.
    void verifyWriteStatus(int& status);

    // Takes the swap's recursive lock; pass the result to endMutex.
    bool beginMutex();
    void endMutex(bool locked);

    TiffFile* file() const { return fFile.get(); }
    const std::string& fileName() const { return fFileName; }
    bool limitWarned() const { return fLimitWarned; }
    bool writeWarned() const { return fWriteWarned; }

private:
    std::string streamErrorText() const;

    bool fLimitWarned = false;
    bool fWriteWarned = false;
    std::string fFileName;
    std::unique_ptr<TiffFile> fFile;
    uint32_t fWriteLimit = kNoLimit;
    TmtRecursiveCS fMutex;
};
