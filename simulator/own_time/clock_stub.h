// Makes a program read the board's clock.
//
// The C library does not call the kernel for the time: the kernel maps functions into each process
// that read a page of its own (vdso(7)). The board overwrites them in the process's memory at the
// first call after an execve(2); forks inherit the changed functions.
//
// The board's functions read a page of the board's, so that a read costs no stopped call. The page
// is shared by all processes. Only a process itself can map it: the board makes the first call of
// each program return to code that calls mmap(2), for which the board lends a descriptor, and then
// clock_gettime(2), with which it shows the board where the page is. The page changes only while no
// thread of the program runs.
//
// The page also has the number of reads that are left. Each read takes one off, and so does a
// quick call (quick_calls.h); when none is left, a read is the plain system call, which the board
// answers. So the board counts every read, and a spin on the time ends as it would if each read
// were a call.
#pragma once

#include "simulator/base/unique_fd.h"
#include "simulator/requests/request.h"

#include <cstdint>
#include <map>
#include <vector>

namespace simulator {

struct clock_page;

// The memory of a process, to read and write; see proc_pid_mem(5).
unique_fd open_memory(pid_t process);

class program_clock {
public:
    struct replacement {
        uint64_t offset; // from the beginning of the mapped functions
        std::vector<uint8_t> code;
        uint64_t room;          // bytes: as long as the kernel's function
        uint64_t page_word = 0; // the offset of the word with the page's address; 0: it has none
    };

    // `lent` is a descriptor number that no program uses, and calls on which are not stopped.
    explicit program_clock(int lent);
    ~program_clock();
    program_clock(const program_clock &) = delete;
    program_clock &operator=(const program_clock &) = delete;

    // True if the process reads the board's clock already.
    bool has_replaced(pid_t process) const;
    // In the first call of a program. False if the process cannot be changed.
    bool replace_functions(const request &first_call);
    // True if the call is the one that maps the page; it is answered then.
    bool take_mapping(const request &asked) const;
    // A call for the time: if it shows where the page is, the process reads it from now on.
    void take_address(const request &asked);

    // All of the memory that programs map, SHARED_BYTES, as the board sees it. Null: there is none.
    uint8_t *shared_memory() const;
    // Where the process has mapped it; 0 if it has not yet.
    uint64_t address_in(pid_t process) const;

    // Before a thread goes on: it may read the present time so many times.
    void allow_reads(int count);
    // How many reads are left to it.
    int reads_left() const;
    // How many times it has read the time, or made a quick call (quick_calls.h), since.
    int take_reads();

private:
    // The instructions that a jump to the mapping code replaces for a while.
    struct detour {
        uint64_t address;
        std::vector<uint8_t> code;
    };

    void make_map(const request &first_call, const unique_fd &file, uint64_t begin);

    const int lent;
    const std::vector<replacement> replacements;
    const unique_fd memory; // shared; the page is at its beginning
    clock_page *page = nullptr;
    std::map<pid_t, detour> detours; // of programs that have just begun, by thread
    int allowed = 0;
    int64_t shown_us = 0; // the time in the page
};

} // namespace simulator
