#include "storage/numbered_files.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "runtime/unique_fd.h"

namespace {

constexpr int32_t FILES = 16;
constexpr int32_t FILE_BYTES = 512;
constexpr int32_t FILE_WORDS = FILE_BYTES / 2;
constexpr int32_t BYTES_COMPARED = FILE_BYTES - 2; // the last word of a file is not compared
constexpr mode_t FILE_MODE = 0700;
constexpr char PREFIX[] = "file-";
constexpr size_t PREFIX_LENGTH = sizeof PREFIX - 1;

using file_words = std::array<int16_t, FILE_WORDS>;
static_assert(sizeof(file_words) == FILE_BYTES);

// The only buffer of the process. If a file cannot be read, the words of the previous one are
// compared.
file_words words;

file_words words_of(int16_t value) {
    file_words all;
    all.fill(value);
    return all;
}

struct file_name {
    char text[sizeof "file-0000"];
};

file_name name_of(int32_t number) {
    file_name name;
    (void)snprintf(name.text, sizeof name.text, "file-%04X", static_cast<uint16_t>(number));
    return name;
}

bool has_right_size(const char *name) {
    struct stat status;
    return stat(name, &status) == 0 && status.st_size == FILE_BYTES;
}

bool lay_file(TestRecord &record, int32_t number) {
    const file_name name = name_of(number);
    unique_fd file(open(name.text, O_RDWR | O_CREAT, FILE_MODE));
    if (!file)
        return false;
    if (has_right_size(name.text)) {
        (void)file.release();
        return true;
    }
    words = words_of(static_cast<int16_t>(number));
    (void)!write(file.get(), words.data(), FILE_BYTES); // the verification shows a loss
    ++record.write_count;
    return true;
}

// After a short read it tries again at the start of the buffer, for one byte less each time. So it
// also ends if somebody truncates the file meanwhile.
void read_file(int file) {
    for (int32_t wanted = FILE_BYTES; wanted >= 0; --wanted) {
        const ssize_t count = read(file, words.data(), static_cast<size_t>(wanted));
        if (count < 0 || count >= FILE_BYTES)
            return;
    }
}

void verify_file(TestRecord &record, const char *name) {
    const unique_fd file(has_right_size(name) ? open(name, O_RDWR, FILE_MODE) : -1);
    if (!file) {
        ++record.errors;
        return;
    }
    const auto number = static_cast<int32_t>(strtoll(name + PREFIX_LENGTH, nullptr, 16));
    // Words are signed: a number above 0x7FFF in a name matches no word.
    const auto value = static_cast<int16_t>(number);
    read_file(file.get());
    if (value != number || memcmp(words.data(), words_of(value).data(), BYTES_COMPARED) != 0)
        ++record.errors;
    ++record.read_count;
}

} // namespace

bool lay_test_files(TestRecord &record) {
    for (int32_t number = 0; number < FILES; ++number)
        if (!lay_file(record, number))
            return false;
    return true;
}

void verify_test_files(TestRecord &record) {
    DIR *directory = opendir(".");
    if (directory == nullptr)
        return;
    while (const dirent *entry = readdir(directory))
        if (strncmp(entry->d_name, PREFIX, PREFIX_LENGTH) == 0)
            verify_file(record, entry->d_name);
    (void)closedir(directory);
}

void remove_test_files() {
    for (int32_t number = 0; number < FILES; ++number)
        (void)unlink(name_of(number).text);
}
