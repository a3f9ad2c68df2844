// Makes a program read the board's clock.
//
// The C library does not call the kernel for the time: the kernel maps functions into each process
// that read a page of its own (vdso(7)). The board overwrites them in the process's memory at the
// first call after an execve(2); forks inherit the changed functions.
//
// The board's functions read a page of the board's, so that a read costs no stopped call. The page
// is shared by all processes. Only a process itself can map it: its first read calls mmap(2), for
// which the board lends it a descriptor, and then makes the plain system call, with which it shows
// the board where the page is. The page changes only while no thread of the program runs.
//
// The page also has the number of reads that are left. Each read takes one off; when none is left,
// a read is the plain system call, which the board answers. So the board counts every read, and a
// spin on the time ends as it would if each read were a call.
#pragma once

#include "simulator/base/unique_fd.h"
#include "simulator/requests/request.h"

#include <cstdint>
#include <vector>

namespace simulator {

struct clock_page;

class program_clock {
public:
    struct replacement {
        uint64_t offset; // from the beginning of the mapped functions
        std::vector<uint8_t> code;
        uint64_t page_word = 0; // the offset of the word with the page's address; 0: it has none
    };

    // `lent` is a descriptor number that no program uses, and calls on which are not stopped.
    explicit program_clock(int lent);
    ~program_clock();
    program_clock(const program_clock &) = delete;
    program_clock &operator=(const program_clock &) = delete;

    // True if the process reads the board's clock already.
    bool has_replaced(pid_t process) const;
    // False if the process cannot be changed.
    bool replace_functions(pid_t process) const;
    // True if the call is the one that maps the page; it is answered then.
    bool take_mapping(const request &asked) const;
    // A call for the time: if it shows where the page is, the process reads it from now on.
    void take_address(const request &asked) const;

    // Before a thread goes on: it may read the present time so many times.
    void allow_reads(int count);
    // How many times the time has been read since.
    int take_reads();

private:
    const int lent;
    const std::vector<replacement> replacements;
    const unique_fd memory; // of the page
    clock_page *page = nullptr;
    int allowed = 0;
    int64_t shown_us = 0; // the time in the page
};

} // namespace simulator
