#include "results/history/follow.h"

#include <sys/stat.h>

followed_log::followed_log(std::string name, log_history &into)
    : path(std::move(name)), history(into) {}

bool followed_log::open_next() {
    struct stat facts = {};
    if (stat(path.c_str(), &facts) != 0)
        return false; // between the two steps of a rotation
    const bool is_same = reader != nullptr && facts.st_ino == inode && facts.st_dev == device;
    const bool is_emptied = is_same && facts.st_size < size;
    size = facts.st_size;
    if (is_same && !is_emptied)
        return false;
    device = facts.st_dev;
    inode = facts.st_ino;
    reader.reset();
    source = open_source(path);
    reader = std::make_unique<log_reader>(*source, year_of(path), history);
    return true;
}
