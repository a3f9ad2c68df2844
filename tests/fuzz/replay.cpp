#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "tests/fuzz/targets.h"

int replay(const std::string &folder, void (*target)(std::span<const uint8_t>)) {
    int replayed = 0;
    for (const auto &input : std::filesystem::directory_iterator(HK_CORPUS_PATH "/" + folder)) {
        std::ifstream file(input.path(), std::ios::binary);
        const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(file), {}};
        target(bytes);
        ++replayed;
    }
    return replayed;
}
