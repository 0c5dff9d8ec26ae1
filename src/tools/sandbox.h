// What read-table gives up before it looks at a disk: whatever a damaged or hostile table makes of this
// process, it can read, compute, and write to its parent.
#pragma once

// Lowers the limits on time and memory, becomes nobody who can do no more than read, and leaves itself the
// system calls of that. To be called once, before anything is read; nothing of it can be taken back. False
// when any of it cannot be had.
[[nodiscard]] bool enter_sandbox();
