// The board library, loaded at run time. A missing library or function means that no board is present; so
// does a library that crashes or hangs, as a damaged one does: a short-lived child loads it and asks, and
// this process, which has mounts to undo, goes on.
#pragma once

#include <cstdint>

struct pelva_version {
    std::uint8_t major;
    std::uint8_t minor;
    std::uint16_t build;
};

// 0 when a board is present.
[[nodiscard]] int pvisCard();

// Fills the firmware's version; 0 on success.
[[nodiscard]] int pvGetVersion(pelva_version *version);
