// What reads bytes that nobody vouches for, driven by libFuzzer. Each target becomes a program of its own:
// FUZZ_TARGET names the one that this compilation is for.
#include "common/fat.h"
#include "common/file_format.h"
#include "common/host.h"
#include "common/mount_table.h"
#include "common/template_pair.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sys/mman.h>

namespace {

namespace fs = std::filesystem;
using bytes = std::string_view;

// Ends the run like a sanitizer would, so that libFuzzer keeps the input.
void require(bool holds)
{
    if (!holds)
        std::abort();
}

fs::path root; // a directory that stands for the machine's "/"

void write(const std::string &name, bytes content)
{
    require((std::ofstream(root / name, std::ios::binary) << content).good());
}

// A path, a NUL and the volume.
void fat(bytes input)
{
    const std::string path(input.substr(0, input.find('\0')));
    write("dev/sda1", input.substr(std::min(path.size() + 1, input.size())));
    fat_lookups lookups;
    if (const auto found = get_sfn_path("sda1", path))
        require(lookups.find("sda1", path, fat_direction::long_to_short) == found);
    if (const auto found = get_lfn_path("sda1", path)) {
        require(lookups.find("sda1", path, fat_direction::short_to_long) == found);
        require(found->size() <= 255 && ("/" + *found + "/").find("/../") == std::string::npos);
    }
}

// A file of names and, behind it, a check file, as both lists.
void templates(bytes input)
{
    const bytes nam = input.substr(0, input.find("SNCV")), chk = input.substr(nam.size());
    for (const template_layout &layout : {layout_of(list_kind::files), layout_of(list_kind::sectors)}) {
        write(layout.name_file, nam);
        write(layout.check_file, chk);
    }
    recover_templates(root);
    std::size_t records = 0;
    const auto count = [](const char *text, void *user) {
        require(std::strlen(text) <= file_record_size); // all of a record without a NUL
        ++*static_cast<std::size_t *>(user);
        return 0;
    };
    const int result = read_file_list(root, nullptr, count, &records);
    require(records <= (result == 0 ? nam.size() / file_record_size : 0));
    std::uint32_t sectors = 0;
    if (const auto list = read_sector_list(root, sectors))
        require(sectors <= nam.size() / sizeof(sector_record) &&
                (!sectors || sector_of(list[sectors - 1]) + 1ULL));
}

void mounts(bytes input)
{
    for (const mount_table &table : {parse_mounts(input), parse_mountinfo(input)}) {
        for (const mount_data &mount : table.lines)
            require(std::ranges::binary_search(table.directories, mount.directory) &&
                    (mount.type != "" || !mount.complete));
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    char name[] = "/tmp/gtk-tarnel-fuzz-XXXXXX";
    require(mkdtemp(name));
    root = name;
    std::atexit([] { fs::remove_all(root); });
    fs::create_directory(root / "dev");
    // In memory, since writing it is most of the work.
    fs::create_symlink("/proc/self/fd/" + std::to_string(memfd_create("disk", 0)), root / "dev/sda1");
    set_host_root(root);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    [[maybe_unused]] constexpr void (*all[])(bytes) = {fat, templates, mounts};
    const std::string copy(data, data + size); // of its exact length: what reads beyond it is found
    FUZZ_TARGET(copy);
    return 0;
}
