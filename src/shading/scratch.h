#pragma once

// Scratch memory of the shading path. A batch's scratch is small pieces on
// the caller's stack and, past a limit, pieces of a per-thread arena that
// keeps its memory for the next batch: shading allocates nothing once the
// arena has grown to what the network needs, and a frame nested through
// traced rays (a refraction inside a refraction, eight deep) stays within
// a render thread's stack however many lights or samples it has.
//
//     TshadeScratch scratch;                       // a frame of scratch
//     const size_t n = TshadeScratch::bytes(count, sizeof(T));
//     T* items = static_cast<T*>(ORVO_SCRATCH(scratch, n));
//
// Everything taken goes back when the TshadeScratch goes out of scope, in
// reverse order of opening, as a stack does.

#include <alloca.h>

#include <cstddef>
#include <stdexcept>

class TshadeScratch {
public:
    // Bytes one frame may take from the stack, all its pieces together.
    static constexpr size_t kStackBytes = 4 * 1024;
    // A single piece larger than this is a size nothing could need: an
    // error rather than an attempt.
    static constexpr size_t kLargestPiece = size_t(1) << 32;

    TshadeScratch();
    ~TshadeScratch();
    TshadeScratch(const TshadeScratch&) = delete;
    TshadeScratch& operator=(const TshadeScratch&) = delete;

    // `count` items of `each` bytes, rounded up to 16. A size that
    // overflows or is larger than kLargestPiece throws
    // TshadeScratchError.
    // Inline: every batch sizes a dozen pieces, and the size is usually
    // a constant times the batch's count.
    static size_t bytes(size_t count, size_t each) {
        size_t bytes = 0;
        if (__builtin_mul_overflow(count, each, &bytes) || bytes > kLargestPiece)
            tooLarge(count, each);
        return (bytes + 15) & ~size_t(15);
    }

    // True, and counted, when `size` more bytes still fit this frame's
    // share of the stack; ORVO_SCRATCH then takes them with alloca.
    bool fitsOnStack(size_t size) {
        if (size > kStackBytes - fStackUsed)
            return false;
        fStackUsed += size;
        return true;
    }
    // `size` bytes aligned to 16 from this thread's arena.
    void* take(size_t size);

    // Bytes this thread's arena holds from the heap (for tests and
    // diagnosis).
    static size_t threadFootprint();

private:
    [[noreturn]] static void tooLarge(size_t count, size_t each);

    size_t fChunk;
    size_t fUsed;
    size_t fStackUsed = 0;
};

class TshadeScratchError : public std::length_error {
public:
    using std::length_error::length_error;
};

// A piece of `size` bytes (aligned to 16, as alloca's are) in the calling
// function's frame when it fits the frame's share of the stack, else from
// the thread's arena. A macro because alloca must run in the caller's own
// frame; `size` is evaluated twice.
#define ORVO_SCRATCH(scratch, size)                                                                \
    ((scratch).fitsOnStack(size) ? alloca(size) : (scratch).take(size))

// `count` items of type T, the same way.
#define ORVO_SCRATCH_ARRAY(scratch, T, count)                                                      \
    static_cast<T*>(ORVO_SCRATCH(scratch, TshadeScratch::bytes((count), sizeof(T))))
