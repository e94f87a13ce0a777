// Runs each file of the folders and files given through a fuzz target, for compilers without libFuzzer.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t uSize);

static std::vector<std::filesystem::path> filesOf(const std::filesystem::path& cPath) {
    std::vector<std::filesystem::path> cFiles;
    if (!std::filesystem::is_directory(cPath))
        return {cPath};
    for (const auto& cEntry : std::filesystem::directory_iterator(cPath))
        if (cEntry.is_regular_file())
            cFiles.push_back(cEntry.path());
    std::sort(cFiles.begin(), cFiles.end());
    return cFiles;
}

int main(int iArguments, char** pArguments) {
    size_t uFiles = 0;
    for (int i = 1; i < iArguments; ++i)
        for (const auto& cPath : filesOf(pArguments[i])) {
            std::ifstream cFile(cPath, std::ios::binary);
            const std::vector<char> cBytes{std::istreambuf_iterator<char>(cFile), {}};
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(cBytes.data()), cBytes.size());
            ++uFiles;
        }
    std::printf("%zu inputs\n", uFiles);
    return uFiles == 0;
}
