// Mounting: the kernel's mount table, the partitions that the program mounts for itself under a private
// temporary directory, and their undoing.
#pragma once

#include "common/disk.h"

#include <cstdint>
#include <optional>
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

// One line of /proc/mounts.
struct mount_data {
    std::string device;
    std::string directory;
    std::string type;
    std::string options;
};

struct app;

// The mount whose directory is the longest prefix of the path; nothing when there is none or the mount table
// cannot be read.
[[nodiscard]] std::optional<mount_data> mount_data_find(const std::string &path);

// The first mount directory whose st_dev is the device number.
[[nodiscard]] std::optional<std::string> find_mountpoint_for_device(std::uint64_t dev);

// Unmounts and removes what an earlier run left behind.
void umount_rm_tmpdir();

// Mounts every supported partition that is not mounted yet, lists the usable ones in `mounts` and recognises
// the one that holds the template directory. Returns 0, or -1 when no temporary directory could be made.
// A partition that cannot be mounted is no failure.
[[nodiscard]] int mount_partitions(struct app *app);

// Unmounts and removes what mount_partitions mounted, and the temporary directory.
void umount_partitions(struct app *app);
