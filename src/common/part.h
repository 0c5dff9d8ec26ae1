// A partition: what discovery found of it, its names, and what the tool knows of its file system.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

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
    char letter = 0; // firmware's drive letter, 'C' upward; 0 for none
    // libparted's name of the file system, also of one that the tool does not know: "ext4", "linux-swap(v1)".
    std::optional<std::string> fs_type;
    std::optional<std::string> mount_point;
    std::string device;    // base name of the disk, e.g. "sda"
    std::uint64_t dev = 0; // st_rdev of the device node; 0 when it could not be examined
};

// The name of a device without its directory: "sda" of "/dev/sda".
inline std::string base_name(const std::string &device)
{
    return device.substr(device.rfind('/') + 1);
}

// "p" for md arrays, whose partitions are named md0p1; nothing for sda1.
const char *partition_separator(const std::string &disk_name);

// Base name of a partition's device node: "sda1", "md0p1".
std::string partition_name(const part &p);

// What the tool knows of the partition's file system.
[[nodiscard]] const struct file_system &file_system_of(const part &p);

// True for ext2, ext3 and ext4; false also without a file system.
bool is_ext_fs(const part &p);

// True for fat16 and fat32.
bool is_fat_fs(const part &p);

// True for the file systems that the firmware reads, so that they are mounted and browsed.
bool is_supported_fs(const part &p);

// A name that may stand in a path or on a command line, as the kernel's names of disks do: letters, digits,
// and behind the first of them also "_", "-" and ".".
[[nodiscard]] bool is_device_name(std::string_view name);
