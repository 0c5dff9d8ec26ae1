// Resolves one path on a FAT image: fat_resolve ROOT PARTITION short|long PATH, where ROOT/dev/PARTITION is
// the image and PATH is joined by '\'. "short" asks for the short names, "long" for the long ones.
#include "common/fat.h"
#include "common/host.h"
#include "trace_log.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

int main(int argc, char **argv)
{
    if (argc != 5) {
        std::fputs("usage: fat_resolve ROOT PARTITION short|long PATH\n", stderr);
        return 2;
    }
    const char *trace = std::getenv("TRACE_PELVA");
    trace_enabled = trace && std::string_view(trace) == "1";
    set_host_root(argv[1]);
    const std::optional<std::string> result = get_path_on_fat_part(
        argv[2], argv[4],
        std::string_view(argv[3]) == "short" ? fat_direction::long_to_short : fat_direction::short_to_long);
    if (!result)
        return 1;
    std::puts(result->c_str());
    return 0;
}
