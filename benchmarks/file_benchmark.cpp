// The filesystem test's directory pass and the file copy test's turn, each against the same system
// calls with nothing around them. Every run has a fresh directory below the current one.

#include <array>
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "storage/file_copy_turn.h"
#include "storage/numbered_files.h"

namespace {

class work_directory {
public:
    work_directory() {
        if (mkdtemp(name_) == nullptr || chdir(name_) != 0)
            abort();
    }
    ~work_directory() {
        if (chdir("..") != 0 || rmdir(name_) != 0)
            abort();
    }
    work_directory(const work_directory &) = delete;
    work_directory &operator=(const work_directory &) = delete;

private:
    char name_[sizeof "bench.XXXXXX"] = "bench.XXXXXX";
};

void filesystem_pass(benchmark::State &state) {
    const work_directory directory;
    TestRecord record = {};
    (void)lay_test_files(record);
    for (auto _ : state)
        verify_test_files(record);
    if (record.errors != 0 || record.read_count != 16 * state.iterations())
        state.SkipWithError("bad files");
    state.SetItemsProcessed(state.iterations());
    remove_test_files();
}

void filesystem_floor(benchmark::State &state) {
    const work_directory directory;
    TestRecord record = {};
    (void)lay_test_files(record);
    for (auto _ : state) {
        DIR *entries = opendir(".");
        while (const dirent *entry = readdir(entries)) {
            if (entry->d_name[0] == '.')
                continue;
            struct stat status;
            (void)stat(entry->d_name, &status);
            const int file = open(entry->d_name, O_RDWR, 0700);
            std::array<uint8_t, 512> block;
            (void)!read(file, block.data(), block.size());
            (void)close(file);
        }
        (void)closedir(entries);
    }
    state.SetItemsProcessed(state.iterations());
    remove_test_files();
}

class copied_files : work_directory {
public:
    copied_files() {
        files.source = open("source", O_RDWR | O_CREAT, 0700);
        files.destination = open("destination", O_RDWR | O_CREAT, 0700);
    }
    ~copied_files() {
        (void)close(files.source);
        (void)close(files.destination);
        (void)unlink("source");
        (void)unlink("destination");
    }

    copy_files files;
};

void file_copy(benchmark::State &state) {
    const copied_files pair;
    const copy_block block = make_copy_block();
    TestRecord record = {};
    for (auto _ : state)
        file_copy_turn(record, pair.files, block);
    if (record.errors != 0)
        state.SkipWithError("empty transfers");
    state.SetItemsProcessed(state.iterations());
}

void file_copy_floor(benchmark::State &state) {
    const copied_files pair;
    const auto [source, destination] = pair.files;
    copy_block block = make_copy_block();
    for (auto _ : state) {
        (void)lseek(destination, 0, SEEK_SET);
        (void)lseek(source, 0, SEEK_SET);
        (void)!write(source, block.data(), block.size());
        sync();
        (void)!write(destination, block.data(), block.size());
        sync();
        (void)lseek(destination, 0, SEEK_SET);
        (void)lseek(source, 0, SEEK_SET);
        (void)!read(source, block.data(), block.size());
        (void)!read(destination, block.data(), block.size());
    }
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(filesystem_pass)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(filesystem_floor)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(file_copy)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(file_copy_floor)->Unit(benchmark::kMicrosecond)->UseRealTime();

} // namespace
