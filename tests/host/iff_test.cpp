#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "host/iff/iff_file.h"
#include "host/iff/iff_reader.h"

namespace fs = std::filesystem;

namespace {

class IffFiles : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "orvo-iff-XXXXXX").string();
        ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
        fDir = pattern;
    }
    void TearDown() override { fs::remove_all(fDir); }

    std::string path(const char* name) const { return (fDir / name).string(); }

    static std::vector<unsigned char> bytesOf(const std::string& file) {
        std::ifstream in(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }

    size_t filesInDir() const {
        return static_cast<size_t>(std::distance(fs::directory_iterator(fDir), {}));
    }

    fs::path fDir;
};

std::vector<unsigned char> bytes(std::string_view text) {
    return {text.begin(), text.end()};
}

TEST(IffTags, CharactersGoHighByteFirst) {
    EXPECT_EQ(kIffFOR4, 0x464F5234u);
    EXPECT_EQ(TiffMakeTag("Swap"), (83u << 24) | (119u << 16) | (97u << 8) | 112u);
    EXPECT_EQ(TiffChunkIdToString(TiffMakeTag("HEAD")), "HEAD");
    EXPECT_EQ(TiffChunkIdToString(0x41420043u), "AB\\x00C");
    EXPECT_TRUE(TiffIsValidTag(TiffMakeTag("AB C")));
    EXPECT_FALSE(TiffIsValidTag(0x41420043u));
    EXPECT_TRUE(TiffIsGroupTag(kIffCAT4));
    EXPECT_FALSE(TiffIsGroupTag(TiffMakeTag("FORM")));
}

// FOR4 <size 20> TEST | HEAD <size 5> hello <3 bytes of padding>
TEST_F(IffFiles, AGroupWithOneChunkHasTheseBytes) {
    TiffFile file;
    ASSERT_EQ(file.open(path("one.iff"), "w"), 0) << file.errorText();
    ASSERT_EQ(file.beginGroup(kIffFOR4, TiffMakeTag("TEST")), 0);
    ASSERT_EQ(file.writeChunk(TiffMakeTag("HEAD"), "hello", 5), 0);
    ASSERT_EQ(file.endGroup(), 0);
    ASSERT_EQ(file.close(), 0) << file.errorText();

    std::vector<unsigned char> expected = bytes("FOR4");
    for (unsigned char c : {0, 0, 0, 20})
        expected.push_back(c);
    for (unsigned char c : bytes("TESTHEAD"))
        expected.push_back(c);
    for (unsigned char c : {0, 0, 0, 5})
        expected.push_back(c);
    for (unsigned char c : bytes("hello"))
        expected.push_back(c);
    for (int i = 0; i < 3; ++i)
        expected.push_back(0);
    EXPECT_EQ(bytesOf(path("one.iff")), expected);
}

TEST_F(IffFiles, NestedGroupsReadBackWithTheirOffsets) {
    TiffFile file;
    ASSERT_EQ(file.open(path("nested.iff"), "w"), 0);
    file.beginGroup(kIffFOR4, TiffMakeTag("OUTR"));
    file.writeChunk(TiffMakeTag("AAAA"), "123456", 6); // at 12, next at 12 + 8 + 8
    file.beginGroup(kIffLIS4, TiffMakeTag("INNR"));    // at 28
    file.beginChunk(TiffMakeTag("BBBB"));              // at 40
    file.write("xy", 2);
    file.write("z", 1);
    file.endChunk(); // data 3, padding 1: ends at 52
    file.endGroup();
    file.writeChunk(TiffMakeTag("CCCC"), "", 0); // at 52, ends at 60
    file.endGroup();
    ASSERT_EQ(file.close(), 0) << file.errorText();

    TiffFile in;
    ASSERT_EQ(in.open(path("nested.iff"), "r"), 0);
    TiffReader reader(in);
    TiffItem item;
    ASSERT_TRUE(reader.next(item));
    EXPECT_EQ(item.id, kIffFOR4);
    EXPECT_EQ(item.type, TiffMakeTag("OUTR"));
    EXPECT_EQ(item.size, 52u);
    EXPECT_EQ(item.dataOffset, 12u);
    ASSERT_TRUE(reader.enter());

    ASSERT_TRUE(reader.next(item));
    EXPECT_EQ(item.id, TiffMakeTag("AAAA"));
    EXPECT_EQ(item.offset, 12u);
    EXPECT_EQ(item.size, 6u);
    char data[7] = {};
    ASSERT_TRUE(reader.readData(item, data, 0, 6));
    EXPECT_STREQ(data, "123456");

    ASSERT_TRUE(reader.next(item));
    EXPECT_EQ(item.id, kIffLIS4);
    EXPECT_EQ(item.offset, 28u);
    EXPECT_EQ(item.size, 4u + 8u + 4u);
    ASSERT_TRUE(reader.enter());
    EXPECT_EQ(reader.depth(), 2);
    ASSERT_TRUE(reader.next(item));
    EXPECT_EQ(item.id, TiffMakeTag("BBBB"));
    EXPECT_EQ(item.offset, 40u);
    EXPECT_EQ(item.size, 3u);
    ASSERT_TRUE(reader.readData(item, data, 1, 2));
    EXPECT_EQ(std::string(data, 2), "yz");
    EXPECT_FALSE(reader.next(item)); // the end of INNR
    ASSERT_TRUE(reader.leave());

    ASSERT_TRUE(reader.next(item));
    EXPECT_EQ(item.id, TiffMakeTag("CCCC"));
    EXPECT_EQ(item.offset, 52u);
    EXPECT_EQ(item.size, 0u);
    EXPECT_FALSE(reader.next(item));
    ASSERT_TRUE(reader.leave());
    EXPECT_FALSE(reader.next(item));
    EXPECT_FALSE(reader.hasError()) << reader.error();
}

TEST_F(IffFiles, AWriteOnlyAppearsUnderItsNameWhenClosed) {
    const std::string name = path("late.iff");
    {
        TiffFile file;
        ASSERT_EQ(file.open(name, "w"), 0);
        file.beginGroup(kIffFOR4, TiffMakeTag("LATE"));
        EXPECT_FALSE(fs::exists(name));
        // Destroyed without close: the write did not finish.
    }
    EXPECT_FALSE(fs::exists(name));
    EXPECT_EQ(filesInDir(), 0u);

    TiffFile file;
    ASSERT_EQ(file.open(name, "w"), 0);
    file.beginGroup(kIffFOR4, TiffMakeTag("LATE"));
    file.abandon();
    EXPECT_EQ(filesInDir(), 0u);

    ASSERT_EQ(file.open(name, "w"), 0);
    file.beginGroup(kIffFOR4, TiffMakeTag("LATE"));
    ASSERT_EQ(file.close(), 0);
    EXPECT_TRUE(fs::exists(name));
    EXPECT_EQ(filesInDir(), 1u);
    EXPECT_EQ(fs::file_size(name), 12u);
}

TEST_F(IffFiles, AnOpenGroupHoldsWhatFollowsOnceFlushed) {
    TiffFile file;
    ASSERT_EQ(file.open(path("scratch.iff"), "w+"), 0);
    ASSERT_EQ(file.beginGroup(kIffFOR4, TiffMakeTag("Swap")), 0);
    // Before anything is flushed the group already reads as an empty one.
    std::vector<unsigned char> header = bytesOf(path("scratch.iff"));
    ASSERT_EQ(header.size(), 12u);
    EXPECT_EQ(header[7], 4);

    ASSERT_EQ(file.write("0123456789", 10), 10u);
    ASSERT_EQ(file.flush(), 0);
    TiffReader reader(file);
    TiffItem item;
    ASSERT_TRUE(reader.next(item));
    EXPECT_EQ(item.size, 14u);
    EXPECT_EQ(item.dataSize, 10u);
    EXPECT_EQ(file.openScopes(), 1u);
}

TEST_F(IffFiles, MisuseIsReportedNotWritten) {
    TiffFile file;
    EXPECT_EQ(file.beginGroup(kIffFOR4, TiffMakeTag("NONE")), -1);
    EXPECT_NE(file.errorText().find("no file is open"), std::string::npos);

    EXPECT_EQ(file.open(path("missing/dir.iff"), "w+"), -1);
    EXPECT_NE(file.errorText().find("No such file or directory"), std::string::npos);
    EXPECT_EQ(file.systemError(), ENOENT);

    EXPECT_EQ(file.open(path("bad.iff"), "a"), -1);
    EXPECT_NE(file.errorText().find("unknown mode"), std::string::npos);

    ASSERT_EQ(file.open(path("misuse.iff"), "w"), 0);
    EXPECT_EQ(file.beginGroup(TiffMakeTag("HEAD"), TiffMakeTag("TYPE")), -1);
    EXPECT_EQ(file.beginChunk(kIffFOR4), -1);
    ASSERT_EQ(file.beginGroup(kIffCAT4, TiffMakeTag("LIST")), 0);
    EXPECT_EQ(file.endChunk(), -1);
    EXPECT_NE(file.errorText().find("innermost open one is a group"), std::string::npos);
    file.clearError();
    EXPECT_EQ(file.endGroup(), 0);
    EXPECT_EQ(file.close(), 0);

    TiffFile reading;
    ASSERT_EQ(reading.open(path("misuse.iff"), "r"), 0);
    EXPECT_EQ(reading.write("x", 1), 0u);
    EXPECT_NE(reading.errorText().find("open for reading"), std::string::npos);
}

// Hand-made inputs, each wrong in one way.
struct BadInput {
    const char* what;
    std::vector<unsigned char> data;
    const char* message;
};

std::vector<unsigned char> header(const char* id, uint32_t size) {
    std::vector<unsigned char> out(id, id + 4);
    for (int shift = 24; shift >= 0; shift -= 8)
        out.push_back(static_cast<unsigned char>(size >> shift));
    return out;
}

std::vector<unsigned char> join(std::initializer_list<std::vector<unsigned char>> parts) {
    std::vector<unsigned char> out;
    for (const auto& part : parts)
        out.insert(out.end(), part.begin(), part.end());
    return out;
}

TEST(IffReader, BadInputIsAnErrorThatSaysWhere) {
    const std::vector<BadInput> cases = {
        {"short header", {'F', 'O', 'R'}, "truncated chunk header at offset 0"},
        {"size past the end", header("HEAD", 100), "runs past the end of the file"},
        {"unprintable id", join({{'H', 'E', 0x01, 'D'}, {0, 0, 0, 0}}), "is not a chunk id"},
        {"group without a type", header("FOR4", 2), "runs past the end"},
        {"group size below 4", join({header("FOR4", 2), {0, 0, 0, 0}}),
         "leaves no room for the group type"},
        {"bad group type", join({header("FOR4", 4), {'a', 'b', '\n', 'd'}}), "is not a group type"},
        {"chunk past its group",
         join({header("FOR4", 12), bytes("TYPE"), header("HEAD", 8), bytes("12345678")}),
         "runs past the end of its group"},
    };
    for (const BadInput& bad : cases) {
        TiffReader reader(bad.data.data(), bad.data.size());
        TiffItem item;
        bool sawError = false;
        // Walk as deep as the input goes.
        for (int guard = 0; guard < 10 && !sawError; ++guard) {
            if (reader.next(item)) {
                if (item.isGroup())
                    reader.enter();
            } else {
                sawError = reader.hasError();
                if (!sawError && !reader.leave())
                    break;
            }
        }
        ASSERT_TRUE(reader.hasError()) << bad.what;
        EXPECT_NE(reader.error().find(bad.message), std::string::npos)
            << bad.what << ": " << reader.error();
        EXPECT_FALSE(reader.next(item)) << "an error stops the walk: " << bad.what;
    }
}

TEST(IffReader, MissingPaddingAtTheEndIsAccepted) {
    const auto data = join({header("HEAD", 5), bytes("hello")});
    TiffReader reader(data.data(), data.size());
    TiffItem item;
    ASSERT_TRUE(reader.next(item));
    EXPECT_EQ(item.dataSize, 5u);
    EXPECT_FALSE(reader.next(item));
    EXPECT_FALSE(reader.hasError());
}

TEST(IffReader, NestingIsBoundedAndMisuseIsAnError) {
    // 70 groups, each holding the next.
    std::vector<unsigned char> data;
    const int depth = 70;
    for (int level = 0; level < depth; ++level) {
        const auto h = header("FOR4", static_cast<uint32_t>(4 + 12 * (depth - 1 - level)));
        data.insert(data.end(), h.begin(), h.end());
        const auto type = bytes("NEST");
        data.insert(data.end(), type.begin(), type.end());
    }
    TiffReader reader(data.data(), data.size());
    TiffItem item;
    int entered = 0;
    while (reader.next(item) && reader.enter())
        ++entered;
    EXPECT_EQ(entered, TiffReader::kMaximumDepth);
    EXPECT_NE(reader.error().find("nested more than 64 deep"), std::string::npos);

    const auto chunk = join({header("HEAD", 4), bytes("abcd")});
    TiffReader misuse(chunk.data(), chunk.size());
    ASSERT_TRUE(misuse.next(item));
    char buffer[8];
    EXPECT_FALSE(misuse.readData(item, buffer, 2, 3));
    EXPECT_NE(misuse.error().find("outside its 4 bytes"), std::string::npos);

    TiffReader notAGroup(chunk.data(), chunk.size());
    ASSERT_TRUE(notAGroup.next(item));
    EXPECT_FALSE(notAGroup.enter());
    TiffReader atTop(chunk.data(), chunk.size());
    EXPECT_FALSE(atTop.leave());
}

} // namespace
