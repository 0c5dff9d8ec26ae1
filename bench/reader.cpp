// One reading of a disk or volume below ROOT/dev, as a process of its own:
//   bench_reader ROOT short|long PARTITION PATH   resolves a FAT path, its components joined by '\'
//   bench_reader ROOT gpt DISK                    counts the partitions that the GPT reader finds
#include "common/fat.h"
#include "common/gpt.h"
#include "common/host.h"

#include <cstdio>
#include <string>

int main(int count, char **arguments)
{
    if (count < 4)
        return 2;
    set_host_root(arguments[1]);
    const std::string job = arguments[2];
    const std::string device = std::string("/dev/") + arguments[3];
    if (job == "gpt") {
        std::printf("%zu\n", readGpt(device).size());
    } else if (count == 5) {
        const auto direction = job == "short" ? fat_direction::long_to_short : fat_direction::short_to_long;
        const std::optional<std::string> path = get_path_on_fat_part(arguments[3], arguments[4], direction);
        std::puts(path ? path->c_str() : "no such file");
    }
    return 0;
}
