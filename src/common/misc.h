// Environment initialisation: everything that must be known before the first window exists.
#pragma once

#include <functional>

struct environment;

// What a program does at its start besides. Each may be empty, and is called at most once.
struct start_steps {
    std::function<void()> early;     // before anything takes long
    std::function<void()> meanwhile; // while disks are read and mounted, in a thread of their own
};

// Removes leftovers, settles the template directory, builds the disk list, mounts the partitions and finds
// how the firmware names the template directory. Returns 0, or 1 when the program cannot go on; nothing done
// so far is undone then. Reports through the trace log and standard error only.
// The steps, which may begin threads, leave the environment alone, and the variables of the process.
[[nodiscard]] int app_init(environment *env, const start_steps &steps = {});
