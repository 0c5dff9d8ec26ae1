// Mounting: the partitions that the program mounts for itself under a private temporary directory, and their
// undoing. Lookups in the kernel's mount table are in mount_table.h.
#pragma once

#include "common/disk.h"
#include "common/mount_table.h"

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

struct environment;

// Unmounts and removes what an earlier run left behind.
void umount_rm_tmpdir();

// Mounts every supported partition that is not mounted yet, lists the usable ones in `mounts` and recognises
// the one that holds the template directory. Returns 0, or -1 when no temporary directory could be made.
// A partition that cannot be mounted is no failure; it is noted.
[[nodiscard]] int mount_partitions(environment *env);

// Unmounts and removes what mount_partitions mounted, and the temporary directory.
void umount_partitions(environment *env);
