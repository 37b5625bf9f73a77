// Replays a fuzz target's seed corpus (every file of the given folders, or the
// given files) as an ordinary test: a crash or sanitizer report fails it.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    size_t runs = 0;
    for (int i = 1; i < argc; ++i) {
        std::vector<std::filesystem::path> files{argv[i]};
        if (std::filesystem::is_directory(argv[i])) {
            files.clear();
            for (const auto& entry : std::filesystem::directory_iterator(argv[i])) files.push_back(entry.path());
        }
        for (const auto& file : files) {
            std::ifstream in(file, std::ios::binary);
            std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
            ++runs;
        }
    }
    std::printf("replayed %zu inputs\n", runs);
    return runs > 0 ? 0 : 1;
}
