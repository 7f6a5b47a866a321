// Block ordered texture (BOT) files: reading the head of one, opening a
// pyramid on one, and writing a memory pyramid out as one.
//
// The layout: a 14-byte header (botHeader), then N + 1 unsigned 32-bit file
// offsets, entry i where block i begins and entry N where the last one ends,
// then the coded blocks (TbotBlockCoder): level 0, level 1, ... through
// maxLevel - 1, then the top level, each level by rows of blocks from the
// image's top row down and by columns within a row. All integers are in the
// writing machine's byte order.

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <thread>
#include <vector>

#include "cache/tmp_files.h"
#include "host/env.h"
#include "host/messages.h"
#include "textures/bot_coding.h"
#include "textures/file_texture_cache.h"
#include "textures/pyramid.h"

namespace {

constexpr uint64_t kMB = 1024 * 1024;

// The size estimates of every BOT file this process has opened for
// writing; the total that a non-negative limitMB caps. It only grows.
std::atomic<uint64_t> gBotBytesOpened{0};

std::string errorText() {
    return errno ? std::strerror(errno) : "unknown error";
}

std::string folderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

bool readAll(int fd, void* data, size_t size, off_t at) {
    auto* bytes = static_cast<uint8_t*>(data);
    while (size > 0) {
        const ssize_t got = ::pread(fd, bytes, size, at);
        if (got <= 0)
            return false;
        bytes += got;
        size -= size_t(got);
        at += got;
    }
    return true;
}

bool writeAll(int fd, const void* data, size_t size) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    while (size > 0) {
        const ssize_t put = ::write(fd, bytes, size);
        if (put < 0 && errno == EINTR)
            continue;
        if (put <= 0)
            return false;
        bytes += put;
        size -= size_t(put);
    }
    return true;
}

// Opens the BOT file to write, within the disk limit of the calling thread's
// block cache. -1, with a warning, when the limit says no or the file
// cannot be made.
int openCpFile(const std::string& name, uint64_t estimate, bool overwrite,
               const std::string& texture) {
    const int limitMB = TfileTextureCache::forThisThread().limitMB();
    bool fits = true;
    if (limitMB < 0) {
        // A reserve that must stay free on the disk the file goes to.
        struct statvfs disk {};
        if (::statvfs(folderOf(name).c_str(), &disk) == 0) {
            const uint64_t freeBytes = uint64_t(disk.f_bavail) * disk.f_frsize;
            fits = (freeBytes >> 32) != 0 || freeBytes >= estimate + uint64_t(-limitMB) * kMB;
        }
    } else {
        fits = gBotBytesOpened.load() + estimate <= uint64_t(limitMB) * kMB;
    }
    if (!fits) {
        TcommandEngine::displayConsole(fmt::format(
            "Warning: Not enough disk space or limit exceeded for caching texture {}\n", texture));
        return -1;
    }
    const int fd =
        ::open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | (overwrite ? O_TRUNC : O_EXCL), 0600);
    if (fd < 0) {
        TcommandEngine::displayConsole(fmt::format(
            "Warning: Can't open cache file for texture {}: {}\n", texture, errorText()));
        return -1;
    }
    gBotBytesOpened += estimate;
    return fd;
}

struct BlockRef {
    uint8_t level;
    uint16_t row;    // of blocks, from the image's top
    uint16_t column; //
};

} // namespace

bool Tpyramid::IsItABOTFile(const Tstring& name, int* fd, botHeader* header) {
    const int file = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return false;
    botHeader head{};
    const bool whole = readAll(file, &head, sizeof head, 0);
    const bool marked =
        whole &&
        ((head.marker1 == kBotMarker && head.marker2 == kBotMarker && head.marker3 == kBotMarker) ||
         (head.marker1 == kBotMarkerAlt && head.marker2 == kBotMarkerAlt &&
          head.marker3 == kBotMarkerAlt));
    if (!marked) {
        ::close(file);
        return false;
    }
    if (header)
        *header = head;
    if (fd)
        *fd = file;
    else
        ::close(file);
    return true;
}

bool Tpyramid::checkBOTHeader(const botHeader& head, uint64_t& blocks, Tstring& why) {
    // The header is the file's own word on its shape; a reader still makes
    // sure that the shape is one it can walk without going astray.
    const unsigned shortSide = std::min(head.width, head.height);
    if (head.pixelSize != 1 && head.pixelSize != 3 && head.pixelSize != 4) {
        why = fmt::format("a block ordered texture of {} channels", head.pixelSize);
        return false;
    }
    if (shortSide == 0 || shortSide > kMaxShortSide || head.maxLevel != maxLevelFor(shortSide)) {
        why = fmt::format("the header's size {} x {} and top level {} do not agree", head.width,
                          head.height, head.maxLevel);
        return false;
    }
    // A file of the top level alone has only the top's entries.
    const bool allLevels = head.allLevels != 0 && head.maxLevel > 0;
    blocks = (allLevels ? fsNumBlocks[head.maxLevel] : 0) +
             uint64_t((head.width + kBlockSide - 1) >> kBlockShift) *
                 ((head.height + kBlockSide - 1) >> kBlockShift);
    return true;
}

Tpyramid* Tpyramid::openBOT(const Tstring& name, bool swatch, const Tstring& identifier,
                            Tstring* why) {
    auto fail = [&](int fd, const std::string& reason) -> Tpyramid* {
        if (fd >= 0)
            ::close(fd);
        if (why)
            *why = reason;
        return nullptr;
    };
    int fd = -1;
    botHeader head{};
    errno = 0;
    if (!IsItABOTFile(name, &fd, &head)) {
        struct stat st {};
        if (::stat(name.c_str(), &st) != 0)
            return fail(-1, errorText());
        return fail(-1, "not a block ordered texture file");
    }
    uint64_t blocks = 0;
    Tstring reason;
    if (!checkBOTHeader(head, blocks, reason))
        return fail(fd, reason);
    const bool allLevels = head.allLevels != 0 && head.maxLevel > 0;
    const uint64_t tableEnd = kBotHeaderSize + 4 * (blocks + 1);
    struct stat st {};
    if (::fstat(fd, &st) != 0 || uint64_t(st.st_size) < tableEnd)
        return fail(fd, "the file ends inside its offset table");
    uint32_t first = 0, last = 0;
    if (!readAll(fd, &first, 4, off_t(kBotHeaderSize)) ||
        !readAll(fd, &last, 4, off_t(tableEnd - 4)))
        return fail(fd, errorText());
    if (first != tableEnd || last < first)
        return fail(fd, "the offset table is damaged");
    if (last > uint64_t(st.st_size))
        return fail(fd, fmt::format("the file is cut short: {} bytes of {}", st.st_size, last));

    Tpyramid* pyramid = swatch ? static_cast<Tpyramid*>(new TpyramidSwatch)
                               : static_cast<Tpyramid*>(new TpyramidNonSwatch);
    pyramid->setSize(head.width, head.height, head.pixelSize, kPixelType8Bit);
    pyramid->fIdentifier = identifier;
    pyramid->fFileName = name;
    pyramid->setUpBOTAccess(name, fd, allLevels);
    return pyramid;
}

bool Tpyramid::writeBOT(const Tstring& path, bool overwrite) const {
    if (fPixelType != kPixelType8Bit || !fStore)
        return false;
    const unsigned maxLevel = fMaxLevel;
    const unsigned topAcross = fBlocksPerRow[maxLevel];
    const unsigned topDown = blocksPerColumn(maxLevel);
    const uint64_t paddedTop = uint64_t(topAcross) * kBlockSide * uint64_t(topDown) * kBlockSide;
    const uint64_t estimate =
        fPixelSize * ((maxLevel ? fsSpaceRequired[maxLevel - 1] : 0) + paddedTop);
    const std::string& texture = fFileName.empty() ? path : fFileName;
    const int fd = openCpFile(path, estimate, overwrite, texture);
    if (fd < 0)
        return false;
    auto fail = [&](const char* what) {
        const std::string reason = errorText();
        ::close(fd);
        ::unlink(path.c_str());
        TcommandEngine::displayConsole(fmt::format(fmt::runtime(what), path, reason));
        return false;
    };

    botHeader head{};
    head.marker1 = head.marker2 = head.marker3 = kBotMarker;
    head.width = fWidth;
    head.height = fHeight;
    head.maxLevel = fMaxLevel;
    head.pixelSize = fPixelSize;
    head.allLevels = 1;
    if (!writeAll(fd, &head, sizeof head))
        return fail("Error: Can't use block ordered texture - write error for file {}: {}\n");

    // Every block in file order.
    std::vector<BlockRef> order;
    order.reserve(fsNumBlocks[maxLevel] + size_t(topAcross) * topDown);
    for (unsigned l = 0; l <= maxLevel; ++l)
        for (unsigned r = 0; r < blocksPerColumn(l); ++r)
            for (unsigned c = 0; c < fBlocksPerRow[l]; ++c)
                order.push_back({uint8_t(l), uint16_t(r), uint16_t(c)});
    const size_t count = order.size();
    std::vector<uint32_t> offsets(count + 1);
    const uint64_t tableEnd = kBotHeaderSize + 4 * uint64_t(count + 1);
    if (::lseek(fd, off_t(tableEnd), SEEK_SET) != off_t(tableEnd))
        return fail("Error: Can't use block ordered texture - seek error in file {}: {}\n");

    // Blocks are coded a batch at a time, by as many threads as the machine
    // has, each into its own 8,192-byte scratch; then the batch is written
    // in order.
    constexpr size_t kBatch = 1024;
    const size_t scratch = kCodedBlockScratch;
    std::vector<uint8_t> coded(std::min(count, kBatch) * scratch);
    std::vector<uint32_t> lengths(std::min(count, kBatch));
    std::vector<uint8_t> outBuffer;
    const unsigned pixelSize = fPixelSize;
    const unsigned threads =
        count < 64 ? 1u : std::clamp(std::thread::hardware_concurrency(), 1u, 8u);
    uint64_t position = tableEnd;
    std::atomic<bool> overflow{false};
    for (size_t start = 0; start < count; start += kBatch) {
        const size_t end = std::min(count, start + kBatch);
        std::atomic<size_t> next{start};
        auto work = [&] {
            uint8_t block[kBlockBytes];
            for (size_t i = next++; i < end; i = next++) {
                const BlockRef ref = order[i];
                const unsigned lw = levelWidth(ref.level), lh = levelHeight(ref.level);
                const unsigned x0 = ref.column * kBlockSide, top = ref.row * kBlockSide;
                const unsigned w = std::min(kBlockSide, lw - x0);
                const unsigned h = std::min(kBlockSide, lh - top);
                const uint8_t* level = levelPointer(ref.level);
                // File row `top + r` is memory row lh - 1 - (top + r).
                for (unsigned r = 0; r < h; ++r)
                    std::memcpy(block + size_t(r) * w * pixelSize,
                                level + (size_t(lh - 1 - (top + r)) * lw + x0) * pixelSize,
                                size_t(w) * pixelSize);
                const size_t length = TbotBlockCoder::codeBlock(
                    block, w, h, pixelSize, coded.data() + (i - start) * scratch, scratch);
                if (length == 0)
                    overflow = true;
                lengths[i - start] = uint32_t(length);
            }
        };
        std::vector<std::thread> helpers;
        for (unsigned t = 1; t < threads; ++t)
            helpers.emplace_back(work);
        work();
        for (std::thread& helper : helpers)
            helper.join();
        if (overflow) {
            errno = EOVERFLOW;
            return fail("Error: Can't use block ordered texture - write error in file {}: {}\n");
        }
        outBuffer.clear();
        for (size_t i = start; i < end; ++i) {
            offsets[i] = uint32_t(position);
            const uint8_t* from = coded.data() + (i - start) * scratch;
            outBuffer.insert(outBuffer.end(), from, from + lengths[i - start]);
            position += lengths[i - start];
        }
        if (position > 0xFFFFFFFFu) {
            errno = EFBIG;
            return fail("Error: Can't use block ordered texture - write error in file {}: {}\n");
        }
        if (!writeAll(fd, outBuffer.data(), outBuffer.size()))
            return fail("Error: Can't use block ordered texture - write error in file {}: {}\n");
    }
    offsets[count] = uint32_t(position);
    if (::lseek(fd, off_t(kBotHeaderSize), SEEK_SET) != off_t(kBotHeaderSize))
        return fail("Error: Can't use block ordered texture - seek error in file {}: {}\n");
    if (!writeAll(fd, offsets.data(), offsets.size() * sizeof(uint32_t)))
        return fail("Error: Can't use block ordered texture - write error in file {}: {}\n");
    if (::close(fd) != 0) {
        const std::string reason = errorText();
        ::unlink(path.c_str());
        TcommandEngine::displayConsole(fmt::format(
            "Error: Can't use block ordered texture - write error in file {}: {}\n", path, reason));
        return false;
    }
    return true;
}

Tstring TpyramidNonSwatch::getCachePyrFileName() const {
    std::string folder = OrvoGetEnv("TMPDIR").value_or("/tmp");
    if (folder.empty())
        folder = "/tmp";
    if (folder.back() != '/')
        folder += '/';
    std::string name = fileName().empty() ? identifier() : fileName();
    for (char& c : name)
        if (c == '.' || c == '/' || c == ':' || c == '\\')
            c = '_';
    return folder + fmt::format("{}_{}_{}", name, long(::getpid()), fmt::ptr(this));
}

bool TpyramidNonSwatch::remapPyramidToBlocks(const Tstring* path, bool overwrite) {
    if (pixelType() != kPixelType8Bit || isBOT() || !isBuilt())
        return false;
    const Tstring name = path ? *path : getCachePyrFileName();
    if (!path)
        TcommandEngine::displayConsole(fmt::format("producing BOT file for {}\n", fileName()));
    if (!writeBOT(name, overwrite))
        return false;
    const int fd = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        TcommandEngine::displayConsole(
            fmt::format("Error: Can't reopen converted texture file {}\n", name));
        if (!path)
            ::unlink(name.c_str());
        return false;
    }
    if (!path) {
        registerTmpFileCache(this, name);
        fTemporaryBOT = true;
    }
    freePyramid();
    setUpBOTAccess(name, fd, true);
    return true;
}
