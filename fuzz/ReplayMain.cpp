// Replays every file of a fuzz target's seed corpus folder as an ordinary test: a crash fails it.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    size_t runs = 0;
    for (const auto& entry : std::filesystem::directory_iterator(argc == 2 ? argv[1] : ".")) {
        std::ifstream in(entry.path(), std::ios::binary);
        const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
        ++runs;
    }
    std::printf("replayed %zu inputs\n", runs);
    return runs > 0 ? 0 : 1;
}
