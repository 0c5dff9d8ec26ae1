// Work whose system calls fail as planned, or end it. The work runs in a child process that is traced, so no
// system call escapes, whatever library makes it.
#pragma once

#include <functional>
#include <set>
#include <sys/types.h>
#include <vector>

enum class fault {
    fail,           // with `error`
    fail_from_here, // this call and all behind it
    cut_short,      // a read or write moves only half of what it was asked for
    die,            // the process is killed before the call
};

struct planned_fault {
    int call; // counts from 1
    fault what;
    int error;
};

struct faulty_run {
    bool survived = false;  // ended by itself
    bool crashed = false;   // ended by a signal that was not planned
    int result = -1;        // what the work returned, 0 to 255
    int calls = 0;          // system calls on files and processes
    std::set<ino_t> synced; // files whose fsync succeeded
};

// `without_links`: the file system knows no hard links.
faulty_run run_with_faults(const std::function<int()> &work, const std::vector<planned_fault> &plan,
                           bool without_links = false);
