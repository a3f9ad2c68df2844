#include "storage/file_copy_turn.h"

#include <algorithm>
#include <sys/types.h>
#include <unistd.h>

namespace {

void count_transfer(TestRecord &record, uint32_t &transfers, ssize_t count) {
    if (count != 0)
        ++transfers;
    else
        ++record.errors;
}

void rewind_both(const copy_files &files) {
    (void)lseek(files.destination, 0, SEEK_SET);
    (void)lseek(files.source, 0, SEEK_SET);
}

} // namespace

copy_block make_copy_block() {
    copy_block block = {};
    std::fill_n(block.begin(), 256, uint8_t{0x55});
    return block;
}

void file_copy_turn(TestRecord &record, const copy_files &files, const copy_block &block) {
    rewind_both(files);
    count_transfer(record, record.write_count, write(files.source, block.data(), block.size()));
    sync();
    count_transfer(record, record.write_count,
                   write(files.destination, block.data(), block.size()));
    sync();

    rewind_both(files);
    copy_block back;
    count_transfer(record, record.read_count, read(files.source, back.data(), back.size()));
    count_transfer(record, record.read_count, read(files.destination, back.data(), back.size()));
}
