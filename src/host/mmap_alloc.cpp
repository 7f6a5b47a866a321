#include "host/mmap_alloc.h"

#include <sys/mman.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include <fmt/format.h>

#include "host/messages.h"

namespace {

// The mapping starts with this header; the block follows it, so it keeps
// the header's alignment.
struct alignas(64) Header {
    size_t mapped; // bytes of the whole mapping
    size_t asked;  // bytes the caller asked for
};

const Header* headerOf(const void* block) {
    return reinterpret_cast<const Header*>(static_cast<const std::byte*>(block) - sizeof(Header));
}

} // namespace

void* mmapAlloc(size_t bytes, const char* name) {
    if (bytes == 0 || bytes > SIZE_MAX - sizeof(Header))
        return nullptr;
    const size_t mapped = bytes + sizeof(Header);
    void* memory =
        ::mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        TcommandEngine::displayWarning(fmt::format("cannot map {} bytes for the {}: {}", bytes,
                                                   name ? name : "buffer", std::strerror(errno)));
        return nullptr;
    }
    auto* header = static_cast<Header*>(memory);
    header->mapped = mapped;
    header->asked = bytes;
    return header + 1;
}

void mmapFree(void* block) {
    if (!block)
        return;
    auto* header = const_cast<Header*>(headerOf(block));
    ::munmap(header, header->mapped);
}

size_t mmapSize(const void* block) {
    return block ? headerOf(block)->asked : 0;
}
