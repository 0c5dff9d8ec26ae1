// Discovery: the fixed disks of the machine in the order in which the board's firmware numbers them, each
// with the partitions that the firmware can see. Built once at start-up.
#pragma once

#include "common/part.h"

#include <cstdint>
#include <list>
#include <optional>
#include <string>
#include <vector>

struct disk {
    std::string name;               // base name, e.g. "sda" or "md0"
    std::uint32_t drive_number = 0; // BIOS drive number, 0x80 for the first disk
    std::int32_t is_gpt = 0;
    // All 0 when the disk could not be read.
    std::int32_t cylinders = 0, heads = 0, sectors = 0; // BIOS geometry
    std::int64_t sector_size = 0;                       // logical, in bytes
    std::uint64_t length = 0;                           // whole disk, in logical sectors
    std::list<part> parts;                              // ascending partition number
};

// What is to be noted of a disk or partition: why it is not in the list, or what is not sure about it.
enum class disk_note_reason {
    nvme,       // of a kind that the firmware does not number
    mmc,        //
    behind_sdz, //
    other_kind, //
    removable,  // neither are these numbered
    other_type, // a partition of a type that the firmware does not know
    // From here on what calls for a warning: most may change the numbers or letters of others.
    cannot_open, // would have a number
    unreadable,  // listed and numbered; it seems to have a partition table, but that could not be read
    unknown_gpt, // listed; the firmware cannot read its partition table
    damaged,     // listed; libparted complains of the partition table
    any_first,   // one of those of which the system may have been started, and of which nothing tells
    not_mounted, // a partition that would have been shown
};

struct disk_note {
    std::string name; // base name, e.g. "nvme0n1", "sda2"
    disk_note_reason reason;
    std::string detail = {}; // libparted's complaint, in English; file system of what is not mounted
};

// Builds the disk list, with the drive letters. Returns 0, or -1 when the kernel lists no disk that the
// firmware numbers. A disk whose table cannot be read stays in the list without partitions: the firmware
// numbers it too. `notes` receives what the user must know of disks.
[[nodiscard]] int get_disk_list(std::list<disk> &disks, std::vector<disk_note> &notes);

// The whole disks and md arrays that the kernel lists, without members of arrays, as ascending device paths
// (/dev/md0, /dev/sda). Empty when there is none or /proc/partitions cannot be read.
[[nodiscard]] std::vector<std::string> get_device_from_proc();

// The kernel's "removable" flag of a device such as /dev/sda; -1 when it cannot be read.
[[nodiscard]] int is_removable(const std::string &device);

// The active md array (such as md0) that has the whole disk (such as sdb) as a member.
[[nodiscard]] std::optional<std::string> find_raid_mapping_for_device(const std::string &name);
