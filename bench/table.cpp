// bench_table ROOT DISK: reads the partition table of ROOT/dev/DISK, with the reader of ROOT, and counts its
// entries.
#include "common/host.h"
#include "common/partition_table.h"

#include <cstdio>
#include <string>

int main(int count, char **arguments)
{
    if (count != 3)
        return 2;
    set_host_root(arguments[1]);
    const std::string device = std::string("/dev/") + arguments[2];
    std::printf("%zu\n", read_partition_table(device, table_depth::whole_table).entries.size());
    return 0;
}
