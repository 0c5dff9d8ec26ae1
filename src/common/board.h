// The board library, loaded at run time. A missing library or function means that no board is present; so
// does a library that crashes or hangs, as a damaged one does: short-lived children load it and ask, and
// this process, which has mounts to undo, goes on.
#pragma once

#include "common/owned.h"

#include <cstdint>
#include <sys/types.h>

struct pelva_version {
    std::uint8_t major;
    std::uint8_t minor;
    std::uint16_t build;
};

struct board_answer {
    bool present = false;
    bool has_version = false; // a present board may not tell
    pelva_version version{};  // of the firmware
};

// A child that asks the library, while this process does something else. It ends with this process.
struct board_question {
    owned_fd from_child;
    pid_t child = -1; // none: no board is present
};
[[nodiscard]] board_question ask_board();

// Waits for the answer.
[[nodiscard]] board_answer hear_board(board_question asked);
