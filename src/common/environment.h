// What everything below the windows works on: the machine's disks, where their partitions are mounted, and
// the template directory. The application record contains it. It owns its strings, disks and mount entries.
#pragma once

#include "common/disk.h"
#include "common/mount.h"

#include <cstdint>
#include <list>
#include <string>
#include <vector>

struct environment {
    std::list<disk> disks;              // in the firmware's disk order
    std::vector<disk_note> disk_notes;  // on those that are left out, or not read
    std::list<mount_entry> mounts;      // in the order they were made
    std::string tmpdir;                 // temporary mount directory of this run, "/tmp/tarnel%d"
    std::string pelva_db_path;          // template directory as a Linux path
    std::uint64_t pelva_db_dev = 0;     // st_dev of the template directory
    mount_entry *pelva_db_mt = nullptr; // the entry in `mounts` that holds the template directory
    std::string pelva_db_mountpoint;    // mount directory under which the template directory lies
    // The path of the real template directory, links resolved, from the root of its partition: "/pelva";
    // empty when it is that root.
    std::string short_path;
    char separator = 0; // of the firmware's paths on that partition: '/' or '\'
    // What ENABLE_REMOVABLE asks for, and the trace tells. The firmware numbers fixed disks only, so the disk
    // list has no other.
    std::int32_t use_removable = 0;
};
