#include "tests/fuzz/replay.h"

#include <dirent.h>
#include <fstream>
#include <iterator>
#include <vector>

int replay(const std::string &folder, void (*target)(std::span<const uint8_t>)) {
    const std::string path = HK_CORPUS_PATH "/" + folder;
    DIR *inputs = opendir(path.c_str());
    if (inputs == nullptr)
        return 0;
    int replayed = 0;
    while (const dirent *entry = readdir(inputs)) {
        if (entry->d_name[0] == '.')
            continue;
        std::ifstream file(path + "/" + entry->d_name, std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
        target({reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size()});
        ++replayed;
    }
    closedir(inputs);
    return replayed;
}
