// Keeps reading logs as they grow, as `tail -F` does: a log that is replaced by a new one or
// emptied is read from the start again. A system log writes on into the old file until it is told
// of the rotation: the old file is read until the new one holds something.

#pragma once

#include <chrono>
#include <memory>

#include "results/history/log_reader.h"

class followed_log {
public:
    // The file need not be there yet: see has_begun.
    followed_log(std::string name, log_history &into);

    // Reads what has arrived. `stop` is called after each list; it returns true to read no more.
    // Returns false if it did.
    template <typename Stop>
    bool read(Stop stop) {
        for (;;) {
            const bool is_new = has_new_file(); // then nothing comes any more into the old one
            if (reader != nullptr) {
                reader->resume();
                if (reader->read(false, stop))
                    return false;
            }
            if (!is_new)
                return true;
            open_file();
        }
    }

    // Returns true if the log has been there.
    bool has_begun() const {
        return reader != nullptr;
    }
    const std::string &name() const {
        return path;
    }

private:
    // Returns true if the name stands for another file that is in use, or the file was emptied.
    bool has_new_file();
    void open_file();

    std::string path;
    log_history &history;
    std::unique_ptr<byte_source> source;
    std::unique_ptr<log_reader> reader;
    uint64_t device = 0;
    uint64_t inode = 0;
    int64_t size = 0;
};
