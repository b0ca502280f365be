// Runs a fuzz target over files, where there is no fuzzer: the corpus is a test everywhere.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int argc, char **argv)
{
    LLVMFuzzerInitialize(&argc, &argv);
    int files = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto &entry : std::filesystem::directory_iterator(argv[i])) {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::vector<char> bytes((std::istreambuf_iterator<char>(file)), {});
            const std::vector<uint8_t> exact(bytes.begin(), bytes.end());
            std::printf("%s\n", entry.path().filename().c_str());
            std::fflush(stdout);
            LLVMFuzzerTestOneInput(exact.data(), exact.size());
            ++files;
        }
    }
    return files > 0 ? 0 : 1;
}
