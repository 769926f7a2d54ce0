// Runs a fuzz target without libFuzzer: every file named on the command line, or
// found in a directory named there, is fed to LLVMFuzzerTestOneInput once. Each
// input is copied to a buffer of its exact size so that a read past its end is
// caught by the address sanitizer.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize);

static void RunOneInput(const std::filesystem::path& path)
{
    std::ifstream stream(path, std::ios::binary);
    std::vector<char> contents((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    auto exact = std::make_unique<std::uint8_t[]>(contents.size());
    std::copy(contents.begin(), contents.end(), exact.get());
    LLVMFuzzerTestOneInput(exact.get(), contents.size());
}

int main(int argc, char** argv)
{
    std::size_t nInputs = 0;
    for (int i = 1; i < argc; ++i) {
        std::filesystem::path path(argv[i]);
        if (std::filesystem::is_directory(path)) {
            for (const auto& entry : std::filesystem::recursive_directory_iterator(path)) {
                if (entry.is_regular_file()) {
                    RunOneInput(entry.path());
                    ++nInputs;
                }
            }
        } else {
            RunOneInput(path);
            ++nInputs;
        }
    }
    std::printf("%zu inputs ran\n", nInputs);
    return 0;
}
