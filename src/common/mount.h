// Mounting: the kernel's mount table, the partitions that the program mounts for itself under a private
// temporary directory, and their undoing.
#pragma once

#include "common/disk.h"

#include <cstdint>
#include <string>

// One usable partition, with the directory under which its files are seen.
struct mount_entry {
    struct disk *disk = nullptr;      // not owned
    struct part *partition = nullptr; // not owned
    std::uint64_t dev = 0;            // st_dev of the mounted file system; 0 when it could not be read
    std::string mountpoint;
    char letter = 0;          // copy of the partition's drive letter
    std::int32_t mounted = 0; // 1 when this program mounted it and must unmount it at exit
};
