// The sectors that the board can check: the master boot record of a disk, and the first sector of each
// partition whose kind it knows.
#pragma once

#include "common/disk.h"
#include "common/file_format.h"

#include <list>

// Whether the board can check the first sector of this partition.
[[nodiscard]] bool has_boot_sector(const part &partition);

// The disk on which a record's sector lies, whatever it is there; null when it lies outside of all.
[[nodiscard]] disk *disk_of_sector(std::list<disk> &disks, const sector_record &record);

// Whether a record means one of these sectors.
[[nodiscard]] bool is_boot_sector(std::list<disk> &disks, const sector_record &record);
