#include "cache/render_swap.h"

#include <cstdio>
#include <cstring>
#include <new>
#include <sys/statvfs.h>
#include <unistd.h>

#include <fmt/format.h>

#include "cache/tmp_files.h"
#include "host/env.h"
#include "host/messages.h"
#include "host/trace.h"

namespace {

TrenderSwap::Settings settingsFromEnvironment() {
    TrenderSwap::Settings settings;
    settings.limit = OrvoGetEnvInt("ORVO_SWAP_LIMIT", -1);
    settings.trace = OrvoGetEnvInt("ORVO_TRACE_SWAP", 0) != 0;
    return settings;
}

TrenderSwap::Settings gSettings = settingsFromEnvironment();
TdbTrace gSwapTrace("ORVO_TRACE_SWAP", gSettings.trace);

void warn(const char* id, const std::string& fileName, const std::string& reason = {}) {
    TcommandEngine::displayWarning(TstringId(id).format(fileName, reason));
}

// The folder that holds `path`: everything before its last '/', "." when it
// has none, "/" for a file at the root.
std::string folderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    if (slash == 0)
        return "/";
    return path.substr(0, slash);
}

} // namespace

const TrenderSwap::Settings& TrenderSwap::settings() {
    return gSettings;
}

void TrenderSwap::readSettings() {
    gSettings = settingsFromEnvironment();
    gSwapTrace.setOn(gSettings.trace);
}

uint32_t TrenderSwap::limitFromFreeBytes(uint64_t freeBytes) {
    const uint64_t free = freeBytes > kNoLimit ? kNoLimit : freeBytes;
    return static_cast<uint32_t>(free - free / 20);
}

TrenderSwap::TrenderSwap(const char* name) : fFileName(name ? name : "") {
    gSwapTrace.printf("TrenderSwap:: opening swap {}", fFileName);
    // Never reuse what an earlier run left behind.
    ::unlink(fFileName.c_str());
    gSwapTrace.print("TrenderSwap: using IFF file");

    fFile.reset(new (std::nothrow) TiffFile);
    if (!fFile) {
        gSwapTrace.print("TrenderSwap: cannot allocate TiffFile");
    } else if (fFile->open(fFileName, "w+") != 0 || fFile->beginGroup(kIffFOR4, kFormType) != 0) {
        warn("s_TrenderSwapStrings.rSwapOpenErrorStr", fFileName, streamErrorText());
        fFile->abandon();
        fFile.reset();
    }

    // ORVO_SWAP_LIMIT, or 95 percent of the free space where the file lives.
    // The setting is a 32-bit word: a negative value counts as unsigned
    // (-3 is 0xFFFFFFFD bytes), and only -1 and -2, the two words above
    // the largest position, ask the disk; so does a value no 32-bit word
    // holds.
    uint32_t limit = kNoLimit;
    const long long wanted = gSettings.limit;
    const bool fits = wanted >= -0x80000000LL && wanted <= 0xFFFFFFFFLL;
    const uint32_t word = fits ? static_cast<uint32_t>(wanted) : kNoLimit;
    if (word < 0xFFFFFFFEu) {
        limit = word;
    } else {
        struct statvfs disk {};
        if (::statvfs(folderOf(fFileName).c_str(), &disk) != 0)
            std::perror("GetDiskSpaceFreeEx render swap fs");
        else
            limit = limitFromFreeBytes(static_cast<uint64_t>(disk.f_bavail) * disk.f_frsize);
    }
    setWriteLimit(limit);
    setWritePosition(0);

    registerTmpFileCache(this, fFileName);
}

TrenderSwap::~TrenderSwap() {
    gSwapTrace.print("TrenderSwap: closing swap file");
    if (fFile) {
        fFile->close();
        fFile.reset();
    }
    ::unlink(fFileName.c_str());
    registerTmpFileCache(this, "");
}

std::string TrenderSwap::streamErrorText() const {
    if (!fFile)
        return "no stream";
    if (fFile->systemError() != 0)
        return std::strerror(fFile->systemError());
    return fFile->errorText();
}

int TrenderSwap::append(const void* data, unsigned size) {
    if (!fFile) {
        gSwapTrace.print("TrenderSwap::append: no stream");
        return -1;
    }
    fFile->clearError();
    const int64_t end = fFile->seekEnd();
    if (end >= 0 && static_cast<uint64_t>(end) + size >= fWriteLimit) {
        if (!fLimitWarned) {
            warn("s_TrenderSwapStrings.rSwapLimitErrorStr", fFileName);
            fLimitWarned = true;
        }
        return -1;
    }

    int status = -1;
    if (end >= 0)
        status = fFile->write(data, size) == size ? 0 : -1;
    verifyWriteStatus(status);
    if (status != 0) {
        // A partial write is of no use to anyone: cut it off so that the next
        // append starts where this one should have.
        if (end >= 0 && fFile->truncate(static_cast<uint64_t>(end)) == 0)
            fFile->seekEnd();
        gSwapTrace.printf("TrenderSwap: failed append {} bytes", size);
    }
    return status;
}

int TrenderSwap::read(void* data, unsigned size, unsigned position) {
    if (!fFile) {
        gSwapTrace.print("TrenderSwap::read: no stream");
        return -1;
    }
    if (setReadPosition(position) != 0)
        return -1;
    if (fFile->read(data, size) != size) {
        gSwapTrace.printf("TrenderSwap: failed read {} bytes", size);
        return -1;
    }
    return 0;
}

unsigned TrenderSwap::gotoEnd() {
    if (!fFile)
        return 0;
    const int64_t end = fFile->seekEnd();
    return end < 0 ? 0 : static_cast<unsigned>(end);
}

int TrenderSwap::getReadPosition(unsigned& position) {
    if (!fFile) {
        gSwapTrace.print("TrenderSwap::getReadPosition: no stream");
        return -1;
    }
    const int64_t at = fFile->tell();
    if (at < 0)
        return -1;
    position = static_cast<unsigned>(at);
    return 0;
}

int TrenderSwap::getWritePosition(unsigned& position) {
    if (!fFile) {
        gSwapTrace.print("TrenderSwap::getWritePosition: no stream");
        return -1;
    }
    const int64_t at = fFile->tell();
    if (at < 0)
        return -1;
    position = static_cast<unsigned>(at);
    return 0;
}

int TrenderSwap::setReadPosition(unsigned position) {
    if (!fFile) {
        gSwapTrace.print("TrenderSwap::setReadPosition: no stream");
        return -1;
    }
    gSwapTrace.printf("TrenderSwap:setReadPosition {}", position);
    if (fFile->seek(position) < 0) {
        gSwapTrace.printf("TrenderSwap: failed setReadPosition {}", position);
        return -1;
    }
    return 0;
}

int TrenderSwap::setWritePosition(unsigned position) {
    if (!fFile) {
        gSwapTrace.print("TrenderSwap::setWritePosition: no stream");
        return -1;
    }
    gSwapTrace.printf("TrenderSwap:setWritePosition {}", position);
    if (position >= fWriteLimit || fFile->seek(position) < 0) {
        gSwapTrace.printf("TrenderSwap: failed setWritePosition {}", position);
        return -1;
    }
    return 0;
}

int TrenderSwap::flushOutput() {
    if (!fFile) {
        gSwapTrace.print("TrenderSwap: no stream to flush");
        return -1;
    }
    if (fFile->flush() != 0) {
        gSwapTrace.print("TrenderSwap: failed flushOutput");
        return -1;
    }
    return 0;
}

void TrenderSwap::setWriteLimit(unsigned limit) {
    fWriteLimit = limit;
    gSwapTrace.printf("TrenderSwap: setting write limit to {}", limit);
}

void TrenderSwap::verifyWriteStatus(int& status) {
    if (status == 0 && fFile && fFile->hasError())
        status = -1;
    if (status != 0 && !fWriteWarned) {
        warn("s_TrenderSwapStrings.rSwapWriteErrorStr", fFileName, streamErrorText());
        fWriteWarned = true;
    }
}

bool TrenderSwap::beginMutex() {
    fMutex.enter();
    return true;
}

void TrenderSwap::endMutex(bool locked) {
    if (locked)
        fMutex.leave();
}
