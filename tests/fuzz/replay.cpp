// Gives the named files, and those in the named directories, to a fuzz target: any compiler will do.
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

int main(int count, char **names)
{
    std::size_t replayed = 0;
    for (const std::filesystem::path name : std::vector<std::string>(names + 1, names + count)) {
        std::vector<std::filesystem::path> files = {name};
        if (is_directory(name))
            files.assign(std::filesystem::directory_iterator(name), {});
        for (const auto &file : files) {
            std::ifstream stream(file, std::ios::binary);
            const std::vector<char> bytes{std::istreambuf_iterator<char>(stream), {}};
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(bytes.data()), bytes.size());
            ++replayed;
        }
    }
    std::cout << replayed << " inputs replayed\n";
    return replayed == 0;
}
