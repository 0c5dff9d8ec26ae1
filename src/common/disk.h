// Discovery: the fixed disks of the machine in the order in which the board's firmware numbers them, each
// with the partitions that the firmware can see. Built once at start-up.
#pragma once

#include <cstdint>
#include <list>
#include <optional>
#include <string>
#include <vector>

// One partition. Sector numbers and lengths are in logical sectors of the disk.
struct part {
    std::int8_t boot = 0;          // the "active" flag
    std::int32_t type = 0;         // libparted's: 0 normal, 1 logical, 2 extended
    std::uint64_t sect_before = 0; // first sector (LBA) on the disk; a template holds 32 bits of it
    std::uint64_t sect_total = 0;
    std::int32_t index = 0; // 1-4 primary, 5 and up logical, GPT entry position + 1
    std::int32_t extended = 0;
    std::int32_t logical = 0;
    std::int32_t lvm = 0;
    std::int32_t swap = 0;
    char letter = 0;                    // firmware's drive letter, 'C' upward; 0 for none
    std::optional<std::string> fs_name; // libparted's name ("ext4", "fat32", ...), as shown to the user
    std::optional<std::string> fs_type; // the same name, as tested and given to mount
    std::optional<std::string> mount_point;
    std::string device;    // base name of the disk, e.g. "sda"
    std::uint64_t dev = 0; // st_rdev of the device node; 0 when it could not be examined
};

struct disk {
    std::string name; // base name, e.g. "sda" or "md0"
    std::int32_t removable = 0;
    std::uint32_t drive_number = 0; // BIOS drive number, 0x80 for the first disk
    std::int32_t is_gpt = 0;
    // All 0 when the disk could not be read.
    std::int32_t cylinders = 0, heads = 0, sectors = 0; // BIOS geometry
    std::int64_t sector_size = 0;                       // logical, in bytes
    std::uint64_t length = 0;                           // whole disk, in logical sectors
    std::list<part> parts;                              // ascending partition number
};

// Why a disk of the machine is not in the list, or is there without its partitions.
enum class disk_note_reason {
    nvme,        // of a kind that the firmware does not number
    mmc,         //
    behind_sdz,  //
    other_kind,  //
    removable,   // neither are these numbered
    cannot_open, // would have a number
    unreadable,  // listed and numbered; it seems to have a partition table, but that could not be read
};

struct disk_note {
    std::string name; // base name, e.g. "nvme0n1"
    disk_note_reason reason;
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

// "p" for md arrays, whose partitions are named md0p1; nothing for sda1.
const char *partition_separator(const std::string &disk_name);

// Base name of a partition's device node: "sda1", "md0p1".
std::string partition_name(const part &p);

// 1 for ext2, ext3 and ext4; 0 otherwise, also without a file system.
int is_ext_fs(const part &p);

bool is_fat_fs(const part &p);

// 1 for the file systems that can be mounted and browsed: ext2, ext3, ext4, fat16, fat32, ntfs.
int is_supported_fs(const part &p);
