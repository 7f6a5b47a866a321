#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// IFF files as the host writes them: chunks of a four-character id, a
// big-endian 32-bit size and that many data bytes, each chunk padded to a
// multiple of 4 bytes; groups are chunks whose id is FOR4, CAT4, LIS4 or PRO4
// and whose data starts with a four-character type, followed by the
// chunks (and groups) they contain. Swap files and depth maps are IFF files.

// A four-character code, first character in the high byte.
using TiffChunkId = uint32_t;

constexpr TiffChunkId TiffMakeTag(const char (&text)[5]) {
    return (static_cast<TiffChunkId>(static_cast<unsigned char>(text[0])) << 24) |
           (static_cast<TiffChunkId>(static_cast<unsigned char>(text[1])) << 16) |
           (static_cast<TiffChunkId>(static_cast<unsigned char>(text[2])) << 8) |
           static_cast<TiffChunkId>(static_cast<unsigned char>(text[3]));
}

constexpr TiffChunkId kIffFOR4 = TiffMakeTag("FOR4");
constexpr TiffChunkId kIffCAT4 = TiffMakeTag("CAT4");
constexpr TiffChunkId kIffLIS4 = TiffMakeTag("LIS4");
constexpr TiffChunkId kIffPRO4 = TiffMakeTag("PRO4");

constexpr uint32_t kIffAlignment = 4;
constexpr size_t kIffChunkHeaderSize = 8;
constexpr size_t kIffGroupHeaderSize = 12;

constexpr bool TiffIsGroupTag(TiffChunkId tag) {
    return tag == kIffFOR4 || tag == kIffCAT4 || tag == kIffLIS4 || tag == kIffPRO4;
}

// True when all four characters are printable ASCII, as ids and types must be.
bool TiffIsValidTag(TiffChunkId tag);

// The four characters, with anything unprintable shown as \xNN.
std::string TiffChunkIdToString(TiffChunkId tag);

// An IFF file on disk, opened for reading or writing.
//
// Modes:
//   "r"   read an existing file;
//   "w"   write a new file: the bytes go to a temporary file beside it, which
//         close() renames into place only when everything was written, so a
//         failed write never leaves a half-written file under the name;
//   "w+"  a scratch file read and written in place at the name, created or
//         emptied at open (swap files).
//
// Writing is sequential: beginGroup/beginChunk write a header with a size to
// be filled in, the data follows, and endGroup/endChunk fill in the size from
// the end of the file and pad to 4 bytes. A group or chunk still open holds
// everything up to the end of the file; flush() and close() write those sizes
// too, so the file on disk is always a complete IFF after either.
//
// Every operation reports failure by its result (-1, or a short count) and
// leaves the reason in errorText(); the error state stays set until
// clearError().
class TiffFile {
public:
    TiffFile() = default;
    // An open file is closed; one opened with "w" and not closed is discarded.
    ~TiffFile();
    TiffFile(const TiffFile&) = delete;
    TiffFile& operator=(const TiffFile&) = delete;

    int open(const std::string& path, const char* mode);
    // Finishes open groups and chunks and closes. For mode "w", moves the file
    // into place; on any failure removes it instead and returns -1.
    int close();
    // Closes without finishing; a "w" file is removed.
    void abandon();

    bool isOpen() const { return fFd >= 0; }
    const std::string& path() const { return fPath; }

    // Structure (write modes).
    int beginGroup(TiffChunkId group, TiffChunkId type);
    int endGroup();
    int beginChunk(TiffChunkId id);
    int endChunk();
    int writeChunk(TiffChunkId id, const void* data, uint32_t size);
    // Number of groups and chunks begun and not yet ended.
    size_t openScopes() const { return fScopes.size(); }

    // Raw bytes at the file position.
    int64_t seek(uint64_t position);
    int64_t seekEnd();
    int64_t tell();
    size_t read(void* data, size_t size);
    size_t write(const void* data, size_t size);
    // Reads at `offset` without moving the file position.
    size_t readAt(uint64_t offset, void* data, size_t size);
    int truncate(uint64_t size);
    int64_t size();
    // Writes the sizes of open groups and chunks.
    int flush();

    bool hasError() const { return fError; }
    const std::string& errorText() const { return fErrorText; }
    // The errno of the failure when a system call failed, else 0.
    int systemError() const { return fSystemError; }
    void clearError();

private:
    enum class Mode { kRead, kWrite, kScratch };
    struct Scope {
        uint64_t offset;
        bool group;
    };

    int fail(const std::string& text);
    int failErrno(const char* what);
    int requireWritable(const char* operation);
    int writeHeader(TiffChunkId id, const TiffChunkId* type);
    int patchSize(const Scope& scope, uint64_t end);
    int endScope(bool group);
    int finishScopes();

    int fFd = -1;
    Mode fMode = Mode::kRead;
    std::string fPath;     // the name the caller asked for
    std::string fWorkPath; // where the bytes go: the name, or a temporary beside it
    std::vector<Scope> fScopes;
    bool fError = false;
    int fSystemError = 0;
    std::string fErrorText;
};
