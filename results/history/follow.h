// Keeps reading logs as they grow, as `tail -F` does: a log that is replaced by a new one or
// emptied is read from the start again.

#pragma once

#include <chrono>
#include <memory>

#include "results/history/log_reader.h"

class followed_log {
public:
    // The file need not be there yet.
    followed_log(std::string name, log_history &into);

    // Reads what has arrived. `stop` is called after each list; it returns true to read no more.
    // Returns false if it did.
    template <typename Stop>
    bool read(Stop stop) {
        do {
            if (reader != nullptr) {
                reader->resume();
                if (reader->read(false, stop))
                    return false;
            }
        } while (open_next());
        return true;
    }

private:
    // Opens the file if it is a new one, or was emptied. Returns false if there is nothing new.
    bool open_next();

    std::string path;
    log_history &history;
    std::unique_ptr<byte_source> source;
    std::unique_ptr<log_reader> reader;
    uint64_t device = 0;
    uint64_t inode = 0;
    int64_t size = 0;
};
