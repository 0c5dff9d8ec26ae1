// One reading of a disk or volume below ROOT/dev, as a process of its own:
//   bench_reader ROOT short|long PARTITION PATH   resolves a FAT path, its components joined by '\'
//   bench_reader ROOT both PARTITION FILES        resolves all files of fat_image.h there and back, as saving
//   and
//                                                 the next start do, and counts those that came back
//   bench_reader ROOT gpt DISK                    counts the partitions that the GPT reader finds
#include "common/fat.h"
#include "common/gpt.h"
#include "common/host.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

int count_files_that_come_back(const std::string &partition, int files)
{
    std::vector<std::string> names, records;
    char name[64];
    for (int i = 1; i <= files; ++i) {
        std::snprintf(name, sizeof name, "DIR\\File of the directory %05d.txt", i);
        names.emplace_back(name);
    }
    fat_lookups save, start;
    for (const std::string &path : names)
        records.push_back(save.find(partition, path, fat_direction::long_to_short).value_or(""));
    int back = 0;
    for (std::size_t i = 0; i < names.size(); ++i) {
        std::ranges::replace(names[i], '\\', '/');
        back += start.find(partition, records[i], fat_direction::short_to_long) == names[i];
    }
    return back;
}

} // namespace

int main(int count, char **arguments)
{
    if (count < 4)
        return 2;
    set_host_root(arguments[1]);
    const std::string job = arguments[2];
    const std::string device = std::string("/dev/") + arguments[3];
    if (job == "gpt") {
        std::printf("%zu\n", readGpt(device).value().size());
    } else if (job == "both" && count == 5) {
        std::printf("%d\n", count_files_that_come_back(arguments[3], std::atoi(arguments[4])));
    } else if (count == 5) {
        const auto direction = job == "short" ? fat_direction::long_to_short : fat_direction::short_to_long;
        const std::optional<std::string> path = get_path_on_fat_part(arguments[3], arguments[4], direction);
        std::puts(path ? path->c_str() : "no such file");
    }
    return 0;
}
