// Runs a fuzz target over the files of the folders that are named, once each, and over nothing at all.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int count, char** arguments) {
    const uint8_t nothing = 0;
    LLVMFuzzerTestOneInput(&nothing, 0);
    int files = 0;
    for (int i = 1; i < count; ++i)
        for (const auto& entry : std::filesystem::directory_iterator(arguments[i])) {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
            std::printf("%s: %zu bytes\n", entry.path().c_str(), bytes.size());
            std::fflush(stdout);
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
            ++files;
        }
    if (files == 0) std::fprintf(stderr, "there is nothing to replay\n");
    return files != 0 ? 0 : 1;
}
