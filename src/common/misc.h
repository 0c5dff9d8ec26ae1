// Environment initialisation: everything that must be known before the first window exists.
#pragma once

#include <functional>

struct environment;

// Removes leftovers, settles the template directory, builds the disk list, mounts the partitions and finds
// how the firmware names the template directory. Returns 0, or 1 when the program cannot go on; nothing done
// so far is undone then. Reports through the trace log and standard error only. `meanwhile`, if any, is
// called once the disks are being read: it may do what has nothing to do with them.
[[nodiscard]] int app_init(environment *env, const std::function<void()> &meanwhile = {});
