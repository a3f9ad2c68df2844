#include <fstream>
#include <string>
#include <vector>

#include "tests/fuzz/targets.h"

namespace {

std::vector<uint8_t> bytes_of(const std::string &hex) {
    std::vector<uint8_t> bytes;
    for (size_t at = 0; at + 1 < hex.size(); at += 2)
        bytes.push_back(static_cast<uint8_t>(std::stoul(hex.substr(at, 2), nullptr, 16)));
    return bytes;
}

} // namespace

int replay(const std::string &target, void (*run)(std::span<const uint8_t>)) {
    int replayed = 0;
    std::ifstream list(HK_CORPUS_PATH "/" + target + ".hex");
    for (std::string line; std::getline(list, line);)
        if (!line.empty() && line[0] != '#') {
            run(bytes_of(line));
            ++replayed;
        }
    return replayed;
}
