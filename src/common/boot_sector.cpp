#include "common/boot_sector.h"

#include "common/letters.h"
#include "trace_log.h"

#include <algorithm>
#include <cinttypes>

bool has_boot_sector(const part &partition)
{
    if (partition.swap || partition.lvm)
        return false;
    if (partition.fs_type ? !is_supported_fs(partition) : !partition.extended)
        return false;
    if (partition.sect_before <= UINT32_MAX)
        return true;
    trace_log("The template cannot hold sector %" PRIu64 ", the first of %s", partition.sect_before,
              partition_name(partition).c_str());
    return false;
}

disk *disk_of_sector(std::list<disk> &disks, const sector_record &record)
{
    disk *disk = find_disk_by_number(disks, record.drive_number);
    if (!disk)
        return nullptr;
    const std::uint32_t sector = sector_of(record);
    const part *part = find_part_by_sector(disk->parts, sector);
    const std::string name = part ? partition_name(*part) : disk->name;
    const std::uint64_t relative = part ? sector - part->sect_before : sector;
    return check_sector_range(disks, name, static_cast<std::int64_t>(relative)) ? nullptr : disk;
}

bool is_boot_sector(std::list<disk> &disks, const sector_record &record)
{
    const disk *disk = find_disk_by_number(disks, record.drive_number);
    const std::uint32_t sector = sector_of(record);
    return disk && (sector == 0 || std::ranges::any_of(disk->parts, [sector](const part &p) {
                        return has_boot_sector(p) && p.sect_before == sector;
                    }));
}
