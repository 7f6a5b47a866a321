#pragma once

// The instruction list of a compiled shading network: 64-byte records with
// an opcode and its operands, and the descriptors of the value copies.

#include <cstddef>
#include <cstdint>

class Tattribute;
class TdependNode;
class TshadingNode;
class Tplug;
struct AttrInfo;
struct MultiInfo;

enum TSEopcode : uint32_t {
    kOpCompute = 0,       // compute a node
    kOpComputeLocked = 1, // compute a node under its mutex
    kOpSetUpBlock = 2,    // set up the block of a node
    kOpCopy = 3,          // copy a value
    kOpCopyFromStack = 4, // copy a value from a field stack
    kOpPushField = 5,     // push a sample field on a field stack
    kOpPopField = 6,      // pop a field stack
    kOpResetStack = 7,    // reset a field stack
    kOpNop8 = 8,
    kOpNop9 = 9,
    kOpLinkOtherDB = 10, // store the producer's value address in the consumer's slot
};

// Where one side of a copy reads or writes.
enum TSEdataMode : uint8_t {
    kDataInBlock = 0,     // a value in a node's block
    kDataSampleField = 1, // a field of each sample
    kDataFrameConstant = 2,
    kDataConstant = 3, // a constant buffer
    // The lights gathered for the sample's illumination slot: an array
    // header over the light data records that the light opuses wrote.
    kDataLightBuilder = 4,
};

// Converts one element; the run loop walks the elements.
using TSEcopyFn = void (*)(const void* source, void* destination, const Tattribute* sourceAttribute,
                           const Tattribute* destinationAttribute);

struct TSEdescriptorHalf {
    const Tattribute* attribute = nullptr; // null for a raw address
    const void* raw = nullptr;             // constant buffer or frame constant
    uint32_t block = 0;                    // block index, or sample field number
    uint32_t attributeIndex = 0;
    uint8_t mode = kDataInBlock;
    uint8_t varying = 0;                  // bit 0 of the attribute's AttrInfo type
    uint8_t strideMultiplier = 0;         // 1 to walk the run, 0 to stay on one value
    uint8_t depth = 0;                    // array levels in the path
    uint32_t arrayOffsets[3] = {0, 0, 0}; // bytes from the array slot to the element value
};

// A copy: the run range (filled in each time the instruction runs, on a
// copy of the descriptor), then source and destination.
struct TSEconnectionDescriptor {
    uint32_t first = 0;
    uint32_t last = 0;
    TSEdescriptorHalf source;
    TSEdescriptorHalf destination;
};

struct TSEinstruction {
    uint32_t opcode = kOpNop8;
    uint32_t reserved = 0;
    union {
        struct {
            TdependNode* node;
            const Tplug* plug;
            uint32_t block;
            uint32_t pad;
            TshadingNode* shadingNode;
            void* mutex;
        } compute;
        struct {
            uint32_t block;
            uint32_t stride;
            TdependNode* node;
            // Shared by every thread that shades: read only.
            const AttrInfo* infos;
            const MultiInfo* multis;
            const std::byte* constantBlock;
            const uint16_t* initList;
        } setUp;
        struct {
            TSEconnectionDescriptor* descriptor;
            TSEcopyFn function;
            uint32_t stack;
            // When the copy is an exact one of this many bytes, the run
            // loop copies them itself; 0 calls the function.
            uint32_t bytes;
        } copy;
        struct {
            uint32_t stack;
            uint32_t capacity;
            uint8_t key[16];
            const void* pointer;
        } stack;
        struct {
            const Tattribute* attribute;
            uint32_t destinationBlock;
            uint32_t sourceBlock;
            const Tattribute* sourceAttribute;
        } link;
        uint8_t operands[56];
    };

    TSEinstruction() : operands{} {}
};
static_assert(sizeof(TSEinstruction) == 64, "instructions are 64 bytes");

// The copy function for a pair of attribute classes: element-wise casts
// between the numeric classes, an exact copy otherwise.
TSEcopyFn OrvoCopyFunction(const Tattribute& source, const Tattribute& destination);
// The bytes that the copy function of the pair copies unchanged, or 0 when
// it converts (or copies a value of another kind).
uint32_t OrvoCopyBytes(const Tattribute& source, const Tattribute& destination);
// The class code of an attribute in the copy table (-1 outside it).
int OrvoCopyClassCode(const Tattribute& attribute);
