// Replays the inputs that the fuzzers have found worth keeping, with every compiler.
#include <dirent.h>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <vector>

#include "tests/fuzz/targets.h"

namespace {

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

TEST(Corpus, every_reply_from_the_sync_port_is_taken_or_refused) {
    EXPECT_GT(replay("fio_reply", fuzz_fio_reply), 0);
}

TEST(Corpus, every_reply_from_spi_is_taken_or_refused) {
    EXPECT_GT(replay("spi_reply", fuzz_spi_reply), 0);
}

} // namespace
