// Feeds every file of the given folders (or the given files) to the fuzz
// target once. Used where libFuzzer is not linked: ctest replays each seed
// corpus in the ordinary and sanitizer builds.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

int replayFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "replay: cannot read %s\n", path.c_str());
        return 1;
    }
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                               std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    int failures = 0;
    int replayed = 0;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path arg(argv[i]);
        if (std::filesystem::is_directory(arg)) {
            for (const auto& entry : std::filesystem::recursive_directory_iterator(arg)) {
                if (entry.is_regular_file()) {
                    failures += replayFile(entry.path());
                    ++replayed;
                }
            }
        } else {
            failures += replayFile(arg);
            ++replayed;
        }
    }
    if (replayed == 0) {
        std::fprintf(stderr, "replay: no inputs\n");
        return 1;
    }
    std::printf("replayed %d inputs\n", replayed);
    return failures == 0 ? 0 : 1;
}
