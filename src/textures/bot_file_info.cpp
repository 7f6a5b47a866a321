#include "textures/bot_file_info.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <vector>

#include "textures/bot_coding.h"

bool TbotFileInfo::read(const uint8_t* data, size_t size, Tstring& why) {
    *this = TbotFileInfo{};
    fileBytes = size;
    if (size < Tpyramid::kBotHeaderSize) {
        why = "too short for the header of a block ordered texture file";
        return false;
    }
    std::memcpy(&header, data, sizeof header);
    const auto allAre = [&](uint16_t marker) {
        return header.marker1 == marker && header.marker2 == marker && header.marker3 == marker;
    };
    if (!allAre(Tpyramid::kBotMarker) && !allAre(Tpyramid::kBotMarkerAlt)) {
        why = "not a block ordered texture file";
        return false;
    }
    uint64_t blocks = 0;
    if (!Tpyramid::checkBOTHeader(header, blocks, why))
        return false;
    allLevels = header.allLevels != 0 && header.maxLevel > 0;
    blockCount = uint32_t(blocks);
    tableBytes = 4 * (blocks + 1);
    const uint64_t tableEnd = Tpyramid::kBotHeaderSize + tableBytes;
    if (size < tableEnd) {
        why = fmt::format("the file ends inside its offset table ({} bytes of {})", size, tableEnd);
        return false;
    }
    auto entry = [&](uint64_t i) {
        uint32_t value;
        std::memcpy(&value, data + Tpyramid::kBotHeaderSize + 4 * i, 4);
        return value;
    };

    const unsigned maxLevel = header.maxLevel;
    levels.assign(maxLevel + 1, Level{});
    uint64_t index = 0;
    uint8_t pixels[Tpyramid::kBlockBytes];
    for (unsigned l = allLevels ? 0 : maxLevel; l <= maxLevel; ++l) {
        Level& level = levels[l];
        level.width = l == maxLevel ? header.width : Tpyramid::fsNumRows[l];
        level.height = l == maxLevel ? header.height : Tpyramid::fsNumRows[l];
        const unsigned across = (level.width + Tpyramid::kBlockSide - 1) >> Tpyramid::kBlockShift;
        const unsigned down = (level.height + Tpyramid::kBlockSide - 1) >> Tpyramid::kBlockShift;
        level.blocks = across * down;
        for (unsigned r = 0; r < down; ++r)
            for (unsigned c = 0; c < across; ++c, ++index) {
                const uint32_t start = entry(index), end = entry(index + 1);
                const unsigned block = r * across + c; // within the level
                if (index == 0 && start != tableEnd) {
                    why = "the offset table is damaged: the first block is not where it should be";
                    return false;
                }
                if (end < start || end > size) {
                    why = fmt::format("block {} of level {} lies outside the file ({} to {} of {} "
                                      "bytes): the file is damaged or cut short",
                                      block, l, start, end, size);
                    return false;
                }
                if (end - start + 4 >= 8193) {
                    why = fmt::format("block {} of level {} is {} bytes long: corrupted data",
                                      block, l, end - start);
                    return false;
                }
                const unsigned w = std::min(Tpyramid::kBlockSide, level.width - c * 32);
                const unsigned h = std::min(Tpyramid::kBlockSide, level.height - r * 32);
                if (TbotBlockCoder::decodeBlock(data + start, end - start, w, h, header.pixelSize,
                                                pixels) < 0) {
                    why = fmt::format("block {} of level {} does not decode", block, l);
                    return false;
                }
                level.codedBytes += end - start;
            }
    }
    return true;
}

bool TbotFileInfo::readFile(const Tstring& name, Tstring& why) {
    errno = 0;
    std::ifstream in(name, std::ios::binary | std::ios::ate);
    if (!in) {
        why = errno ? std::strerror(errno) : "cannot open the file";
        return false;
    }
    const std::streamoff size = in.tellg();
    std::vector<uint8_t> bytes(size > 0 ? size_t(size) : 0);
    in.seekg(0);
    if (size < 0 ||
        !in.read(reinterpret_cast<char*>(bytes.data()), std::streamsize(bytes.size()))) {
        why = "cannot read the file";
        return false;
    }
    return read(bytes.data(), bytes.size(), why);
}
