// A hash of names that come from disks. Its multiplier is drawn anew for each object, so that no disk can be
// prepared with names that all collide.
#pragma once

#include <cstdint>
#include <glib.h>
#include <string_view>

class name_hash {
public:
    std::size_t operator()(std::string_view name) const
    {
        std::uint64_t hash = factor_;
        for (const char symbol : name)
            hash = (hash ^ static_cast<std::uint8_t>(symbol)) * factor_;
        return static_cast<std::size_t>(hash >> 32); // every byte has reached the upper half
    }

private:
    std::uint64_t factor_ = std::uint64_t{g_random_int()} << 32 | g_random_int() | 1;
};
