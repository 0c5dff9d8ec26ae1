// The board library, loaded at run time. A missing library or function means that no board is present.
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
