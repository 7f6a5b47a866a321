#pragma once

// A whole BOT file read and checked: its header, its offset table and every
// block decoded. What `orvo info` shows, and how a damaged file is told
// from a sound one before a render meets it block by block.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "host/types.h"
#include "textures/pyramid.h"

struct TbotFileInfo {
    struct Level {
        unsigned width = 0;
        unsigned height = 0;
        unsigned blocks = 0;
        uint64_t codedBytes = 0;
    };

    botHeader header{};
    bool allLevels = false; // the levels below the top are in the file
    uint64_t fileBytes = 0;
    uint32_t blockCount = 0;
    uint64_t tableBytes = 0;
    std::vector<Level> levels; // by level; empty entries for levels not in the file

    // Checks the file's bytes. False, with the reason in `why`, at the first
    // thing wrong.
    bool read(const uint8_t* data, size_t size, Tstring& why);
    // The same for the file NAME.
    bool readFile(const Tstring& name, Tstring& why);
};
