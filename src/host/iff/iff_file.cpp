#include "host/iff/iff_file.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include "host/file_replace.h"

namespace {

void putBigEndian32(unsigned char* out, uint32_t value) {
    out[0] = static_cast<unsigned char>(value >> 24);
    out[1] = static_cast<unsigned char>(value >> 16);
    out[2] = static_cast<unsigned char>(value >> 8);
    out[3] = static_cast<unsigned char>(value);
}

// Opens a new temporary file beside `path`. It is created with the mode a
// finished file gets (rw-rw-rw- less the umask), since it is renamed into
// place as it is.
int openTemporaryBeside(const std::string& path, std::string& temporary) {
    for (int attempt = 0; attempt < 100; ++attempt) {
        temporary = OrvoTemporaryPathBeside(path);
        const int fd = ::open(temporary.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd >= 0 || errno != EEXIST)
            return fd;
    }
    return -1;
}

} // namespace

bool TiffIsValidTag(TiffChunkId tag) {
    for (int shift = 24; shift >= 0; shift -= 8) {
        const unsigned c = (tag >> shift) & 0xFF;
        if (c < 0x20 || c > 0x7E)
            return false;
    }
    return true;
}

std::string TiffChunkIdToString(TiffChunkId tag) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        const unsigned c = (tag >> shift) & 0xFF;
        if (c >= 0x20 && c <= 0x7E)
            text += static_cast<char>(c);
        else
            text += fmt::format("\\x{:02X}", c);
    }
    return text;
}

TiffFile::~TiffFile() {
    if (!isOpen())
        return;
    if (fMode == Mode::kWrite)
        abandon();
    else
        close();
}

int TiffFile::fail(const std::string& text) {
    fError = true;
    fSystemError = 0;
    fErrorText = text;
    return -1;
}

int TiffFile::failErrno(const char* what) {
    const int code = errno;
    fail(fmt::format("{} {}: {}", what, fPath, std::strerror(code)));
    fSystemError = code;
    return -1;
}

void TiffFile::clearError() {
    fError = false;
    fSystemError = 0;
    fErrorText.clear();
}

int TiffFile::open(const std::string& path, const char* mode) {
    if (isOpen())
        return fail(fmt::format("cannot open {}: {} is still open", path, fPath));
    clearError();
    fScopes.clear();
    fPath = path;
    const std::string how = mode ? mode : "";
    if (how == "r") {
        fMode = Mode::kRead;
        fWorkPath = path;
        fFd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    } else if (how == "w+") {
        fMode = Mode::kScratch;
        fWorkPath = path;
        // A scratch file holds data of this process only: nobody else reads it.
        fFd = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    } else if (how == "w") {
        fMode = Mode::kWrite;
        fFd = openTemporaryBeside(path, fWorkPath);
    } else {
        return fail(fmt::format("cannot open {}: unknown mode \"{}\" (use r, w or w+)", path, how));
    }
    if (fFd < 0)
        return failErrno("cannot open");
    return 0;
}

int TiffFile::finishScopes() {
    int status = 0;
    while (!fScopes.empty()) {
        if (endScope(fScopes.back().group) != 0) {
            status = -1;
            fScopes.pop_back();
        }
    }
    return status;
}

int TiffFile::close() {
    if (!isOpen())
        return fail(fmt::format("cannot close {}: it is not open", fPath));
    int status = 0;
    if (fMode != Mode::kRead) {
        status = finishScopes();
        if (status == 0 && fError)
            status = -1;
        if (status == 0 && fMode == Mode::kWrite && ::fsync(fFd) != 0)
            status = failErrno("cannot write");
    }
    if (::close(fFd) != 0 && status == 0)
        status = failErrno("cannot close");
    fFd = -1;
    if (fMode == Mode::kWrite) {
        if (status == 0 && std::rename(fWorkPath.c_str(), fPath.c_str()) != 0)
            status = failErrno("cannot move the finished file into place as");
        if (status != 0)
            ::unlink(fWorkPath.c_str());
    }
    fScopes.clear();
    return status;
}

void TiffFile::abandon() {
    if (!isOpen())
        return;
    ::close(fFd);
    fFd = -1;
    if (fMode == Mode::kWrite)
        ::unlink(fWorkPath.c_str());
    fScopes.clear();
}

int TiffFile::requireWritable(const char* operation) {
    if (!isOpen())
        return fail(fmt::format("cannot {}: no file is open", operation));
    if (fMode == Mode::kRead)
        return fail(fmt::format("cannot {} in {}: it is open for reading", operation, fPath));
    return 0;
}

int TiffFile::writeHeader(TiffChunkId id, const TiffChunkId* type) {
    if (seekEnd() < 0)
        return -1;
    const int64_t at = tell();
    if (at < 0)
        return -1;
    if (at % kIffAlignment != 0)
        return fail(fmt::format("cannot begin {} in {}: the file ends at {}, which is not a "
                                "multiple of 4",
                                TiffChunkIdToString(id), fPath, at));
    unsigned char header[kIffGroupHeaderSize] = {};
    putBigEndian32(header, id);
    size_t length = kIffChunkHeaderSize;
    if (type) {
        // Until the group is finished its size tells only the type, so that
        // a file read before then is still a well-formed (empty) group.
        putBigEndian32(header + 4, 4);
        putBigEndian32(header + 8, *type);
        length = kIffGroupHeaderSize;
    }
    if (write(header, length) != length)
        return -1;
    fScopes.push_back({static_cast<uint64_t>(at), type != nullptr});
    return 0;
}

int TiffFile::beginGroup(TiffChunkId group, TiffChunkId type) {
    if (requireWritable("begin a group") != 0)
        return -1;
    if (!TiffIsGroupTag(group))
        return fail(fmt::format("cannot begin a group {} in {}: a group is FOR4, CAT4, LIS4 or "
                                "PRO4",
                                TiffChunkIdToString(group), fPath));
    if (!TiffIsValidTag(type))
        return fail(fmt::format("cannot begin a group of type {} in {}: not a valid type",
                                TiffChunkIdToString(type), fPath));
    return writeHeader(group, &type);
}

int TiffFile::beginChunk(TiffChunkId id) {
    if (requireWritable("begin a chunk") != 0)
        return -1;
    if (TiffIsGroupTag(id) || !TiffIsValidTag(id))
        return fail(fmt::format("cannot begin a chunk {} in {}: not a chunk id",
                                TiffChunkIdToString(id), fPath));
    return writeHeader(id, nullptr);
}

int TiffFile::patchSize(const Scope& scope, uint64_t end) {
    const uint64_t size = end - (scope.offset + kIffChunkHeaderSize);
    if (size > 0xFFFFFFFFu)
        return fail(fmt::format("{} holds {} bytes from offset {}, more than an IFF size can tell",
                                fPath, size, scope.offset));
    unsigned char bytes[4];
    putBigEndian32(bytes, static_cast<uint32_t>(size));
    if (::pwrite(fFd, bytes, 4, static_cast<off_t>(scope.offset + 4)) != 4)
        return failErrno("cannot write");
    return 0;
}

int TiffFile::endScope(bool group) {
    if (requireWritable(group ? "end a group" : "end a chunk") != 0)
        return -1;
    if (fScopes.empty() || fScopes.back().group != group)
        return fail(fmt::format("cannot end a {} in {}: the innermost open one is {}",
                                group ? "group" : "chunk", fPath,
                                fScopes.empty()        ? "none"
                                : fScopes.back().group ? "a group"
                                                       : "a chunk"));
    const int64_t end = seekEnd();
    if (end < 0)
        return -1;
    if (patchSize(fScopes.back(), static_cast<uint64_t>(end)) != 0)
        return -1;
    const size_t padding =
        (kIffAlignment - static_cast<uint64_t>(end) % kIffAlignment) % kIffAlignment;
    const unsigned char zeros[kIffAlignment] = {};
    if (padding && write(zeros, padding) != padding)
        return -1;
    fScopes.pop_back();
    return 0;
}

int TiffFile::endGroup() {
    return endScope(true);
}

int TiffFile::endChunk() {
    return endScope(false);
}

int TiffFile::writeChunk(TiffChunkId id, const void* data, uint32_t size) {
    if (beginChunk(id) != 0)
        return -1;
    if (write(data, size) != size)
        return -1;
    return endChunk();
}

int64_t TiffFile::seek(uint64_t position) {
    if (!isOpen())
        return fail("cannot seek: no file is open");
    if (position > static_cast<uint64_t>(INT64_MAX))
        return fail(fmt::format("cannot seek in {} to {}", fPath, position));
    const off_t at = ::lseek(fFd, static_cast<off_t>(position), SEEK_SET);
    if (at < 0)
        return failErrno("cannot seek in");
    return at;
}

int64_t TiffFile::seekEnd() {
    if (!isOpen())
        return fail("cannot seek: no file is open");
    const off_t at = ::lseek(fFd, 0, SEEK_END);
    if (at < 0)
        return failErrno("cannot seek in");
    return at;
}

int64_t TiffFile::tell() {
    if (!isOpen())
        return fail("cannot tell the position: no file is open");
    const off_t at = ::lseek(fFd, 0, SEEK_CUR);
    if (at < 0)
        return failErrno("cannot tell the position in");
    return at;
}

int64_t TiffFile::size() {
    if (!isOpen())
        return fail("cannot tell the size: no file is open");
    struct stat info {};
    if (::fstat(fFd, &info) != 0)
        return failErrno("cannot tell the size of");
    return info.st_size;
}

size_t TiffFile::read(void* data, size_t size) {
    if (!isOpen()) {
        fail("cannot read: no file is open");
        return 0;
    }
    auto* out = static_cast<char*>(data);
    size_t done = 0;
    while (done < size) {
        const ssize_t got = ::read(fFd, out + done, size - done);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0) {
            failErrno("cannot read");
            break;
        }
        if (got == 0)
            break; // end of file: a short count, not an error of the stream
        done += static_cast<size_t>(got);
    }
    return done;
}

size_t TiffFile::readAt(uint64_t offset, void* data, size_t size) {
    if (!isOpen()) {
        fail("cannot read: no file is open");
        return 0;
    }
    auto* out = static_cast<char*>(data);
    size_t done = 0;
    while (done < size) {
        const ssize_t got =
            ::pread(fFd, out + done, size - done, static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0) {
            failErrno("cannot read");
            break;
        }
        if (got == 0)
            break;
        done += static_cast<size_t>(got);
    }
    return done;
}

size_t TiffFile::write(const void* data, size_t size) {
    if (requireWritable("write") != 0)
        return 0;
    const auto* in = static_cast<const char*>(data);
    size_t done = 0;
    while (done < size) {
        const ssize_t put = ::write(fFd, in + done, size - done);
        if (put < 0 && errno == EINTR)
            continue;
        if (put <= 0) {
            if (put == 0)
                errno = ENOSPC;
            failErrno("cannot write");
            break;
        }
        done += static_cast<size_t>(put);
    }
    return done;
}

int TiffFile::truncate(uint64_t size) {
    if (requireWritable("truncate") != 0)
        return -1;
    if (::ftruncate(fFd, static_cast<off_t>(size)) != 0)
        return failErrno("cannot truncate");
    return 0;
}

int TiffFile::flush() {
    if (requireWritable("flush") != 0)
        return -1;
    const int64_t end = size();
    if (end < 0)
        return -1;
    for (const Scope& scope : fScopes) {
        if (patchSize(scope, static_cast<uint64_t>(end)) != 0)
            return -1;
    }
    return 0;
}
