// Runs a fuzzer's kept inputs once, in builds without the fuzzing engine: replay DIRECTORY.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);
extern "C" [[gnu::weak]] int LLVMFuzzerInitialize(int *count, char ***words);

int main(int count, char **words) {
    if (count != 2 ||
        (LLVMFuzzerInitialize != nullptr && LLVMFuzzerInitialize(&count, &words) != 0))
        return 2;
    std::vector<std::filesystem::path> paths;
    for (const auto &entry : std::filesystem::directory_iterator(words[1]))
        paths.push_back(entry.path());
    std::sort(paths.begin(), paths.end());
    for (const std::filesystem::path &path : paths) {
        std::fprintf(stderr, "%s\n", path.filename().c_str());
        std::ifstream file(path, std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
        (void)LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(bytes.data()),
                                     bytes.size());
    }
    return paths.empty() ? 2 : 0;
}
