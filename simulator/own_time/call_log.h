// The file of --calls: the stopped calls as the board sees and answers them, one a line.
//
//   TIME PROCESS NAME(ARGUMENTS) = RESULT <DURATION>
//
// TIME is when the call was made and DURATION how long it was held, both in seconds of the board's
// time; a duration of 0 is left out. RESULT is a number, an error by its name, "kernel" for a call
// that the kernel carried out, or "?" for one that was held when the run ended. Two runs of the
// same command differ first where their files do.
#pragma once

#include "simulator/requests/notification.h"
#include "simulator/requests/request.h"

#include <cstdio>
#include <memory>
#include <string>

namespace simulator {

class call_log {
public:
    // Creates the file, or empties it. False after a message.
    bool open(const std::string &wanted);
    bool is_open() const {
        return out != nullptr;
    }
    // Notes a call whose caller is about to go on.
    void note(const request &asked, int64_t asked_at_us, const response &given);
    // Notes a call that has no answer at the end of the run.
    void note_held(const request &asked, int64_t asked_at_us);
    // Reports at the end of the run if the file lacks lines, because the disk is full for instance.
    void finish();

private:
    void write_line(const request &asked, int64_t asked_at_us, const std::string &result);
    struct closer {
        void operator()(FILE *file) const {
            (void)fclose(file);
        }
    };
    std::unique_ptr<FILE, closer> out;
    std::string path;
};

} // namespace simulator
