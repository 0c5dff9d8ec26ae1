// The firmware's drive letters, and the lookups that lead from a letter, a name, a device number or a sector
// back to a partition. The records stay owned by the disk list; a failed lookup is traced and gives null.
#pragma once

#include "common/disk.h"

#include <cstdint>
#include <list>
#include <string>

// Gives every partition the letter that the firmware will give it: the first partition of every disk, then
// the others disk by disk, logical drives at the place of their extended partition.
void assign_letters(std::list<disk> &disks);

// The extended or supported partition with this letter, from 'C' to the character 0xFF. `owner`, if given,
// receives its disk.
[[nodiscard]] part *find_part_by_label(std::list<disk> &disks, char letter, disk **owner = nullptr);

// The extended or supported partition with this name, such as sda1. `owner`, if given, receives its disk.
[[nodiscard]] part *find_part_by_name(std::list<disk> &disks, const std::string &name,
                                      disk **owner = nullptr);

// The partition whose device number is the st_dev of a file.
[[nodiscard]] part *find_part_for_file(std::list<disk> &disks, std::uint64_t dev);

// The partition of a disk that holds an absolute sector: a logical drive rather than its extended partition.
[[nodiscard]] part *find_part_by_sector(std::list<part> &parts, std::uint32_t sector);

[[nodiscard]] disk *find_disk_by_number(std::list<disk> &disks, std::uint32_t drive_number);

// Whether a sector, counted from the start of the named disk or partition (sda, sda1), lies outside of it. A
// name that the list does not know gives false.
[[nodiscard]] bool check_sector_range(const std::list<disk> &disks, const std::string &name,
                                      std::int64_t sector);
