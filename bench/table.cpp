// bench_table ROOT DISK: reads the partition table of ROOT/dev/DISK, with the reader of ROOT, and counts its
// entries.
// bench_table ROOT: builds the disk list of the machine in ROOT and counts its partitions.
#include "common/disk.h"
#include "common/host.h"
#include "common/partition_table.h"

#include <cstdio>
#include <string>

namespace {

std::size_t count_entries(const std::string &disk_name)
{
    return read_partition_table("/dev/" + disk_name, table_depth::whole_table).entries.size();
}

std::size_t count_parts()
{
    std::list<disk> disks;
    std::vector<disk_note> notes;
    std::size_t count = 0;
    if (get_disk_list(disks, notes) == 0) {
        for (const disk &d : disks)
            count += d.parts.size();
    }
    return count;
}

} // namespace

int main(int count, char **arguments)
{
    if (count < 2)
        return 2;
    set_host_root(arguments[1]);
    std::printf("%zu\n", count == 3 ? count_entries(arguments[2]) : count_parts());
    return 0;
}
