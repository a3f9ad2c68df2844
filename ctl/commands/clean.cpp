// hk_ctl clean: removes what ended runs have left, and nothing of a run that goes on.

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <unistd.h>

#include "ctl/commands/commands.h"
#include "ctl/commands/ending.h"
#include "ctl/commands/leftovers.h"
#include "ctl/selection.h"
#include "ctl/text.h"

namespace {

constexpr char FILE_STORE[] = "/r0"; // the default directory of -Y and -M

void name_tests(const stress_run &run) {
    for (const process &test : run.test_processes)
        printf("would end test %d\n", static_cast<int>(test.pid));
}

bool clean_run(stress_run run, const std::vector<stress_run> &runs, bool dry_run) {
    const leftovers left = leftovers_of(run, runs);
    if (dry_run) {
        name_tests(run);
    } else if (!run.test_processes.empty() && !end_what_is_left(run)) {
        complain("run @%d: not all of it has ended", static_cast<int>(run.supervisor_id()));
        return false;
    }
    const bool removed = remove_leftovers(left, dry_run);
    return remove_table(run, dry_run) && removed;
}

// Removes links and "." from the path, as in the processes' own paths.
std::string whole_path(const std::string &folder) {
    char path[PATH_MAX];
    return realpath(folder.c_str(), path) != nullptr ? path : folder;
}

// False if some processes cannot be seen: a file may belong to one of them.
bool can_tell_files(const run_list &found) {
    const auto is_unseen = [](const stress_run &run) {
        return run.supervisor_is == supervisor_state::UNSEEN;
    };
    const auto is_in_use = [](const segment &each) { return each.attached > 0; };
    return std::none_of(found.runs.begin(), found.runs.end(), is_unseen) &&
           std::none_of(found.denied.begin(), found.denied.end(), is_in_use);
}

bool can_be_searched(const std::string &folder) {
    DIR *directory = opendir(folder.c_str());
    if (directory == nullptr) {
        complain("cannot search %s: %s", printable(folder).c_str(), strerror(errno));
        return false;
    }
    (void)closedir(directory);
    return true;
}

bool clean_folder(const std::string &folder, bool dry_run) {
    if (!can_be_searched(folder))
        return false;
    const run_list found = find_runs();
    if (can_tell_files(found))
        return remove_leftovers(leftovers_in(whole_path(folder), found.runs), dry_run);
    complain("%s: skipped, a run of another user may work there", printable(folder).c_str());
    return false;
}

} // namespace

int clean_up(const command_options &options, command_words words) {
    const run_list found = find_runs();
    report_denied(found);
    bool done = true;
    for (const stress_run &run : found.runs)
        if (run.has_lost_supervisor())
            done = clean_run(run, found.runs, options.dry_run) && done;
    std::vector<std::string> folders(words.begin(), words.end());
    if (folders.empty() && access(FILE_STORE, F_OK) == 0)
        folders.emplace_back(FILE_STORE);
    for (const std::string &folder : folders)
        done = clean_folder(folder, options.dry_run) && done;
    return done ? DONE : SOMETHING_WRONG;
}
