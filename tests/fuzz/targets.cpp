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

// A digit that chooses the list and under which names its two files lie, and the files; then what a start
// does with them.
void templates(bytes input)
{
    const int names = input.empty() ? 0 : input.front();
    const bytes nam = input.substr(0, input.find("SNCV")), chk = input.substr(nam.size());
    const template_layout layout = layout_of(names & 1 ? list_kind::files : list_kind::sectors);
    const fs::path directory = root / "templates";
    const auto name = [](const std::string &file, const std::string &suffix) {
        return "templates/" + (suffix.empty() ? file : ".gtk-tarnel-" + file + suffix);
    };
    write(name(layout.name_file, names & 2 ? ".new" : ""), nam.substr(!nam.empty()));
    write(name(layout.check_file, names & 4 ? ".new" : names & 8 ? ".old" : ""), chk);
    recover_templates(directory);
    for (const auto &file : fs::directory_iterator(directory))
        require(file.path().extension() == ".nam" || file.path().extension() == ".chk");

    std::size_t records = 0;
    const auto count = [](const char *text, void *user) {
        require(std::strlen(text) <= file_record_size); // all of a record without a NUL
        ++*static_cast<std::size_t *>(user);
        return 0;
    };
    const int result = read_file_list(directory, nullptr, count, &records);
    require(result == 0 || records == 0);
    require(records <= nam.size() / file_record_size);
    std::uint32_t sectors = 0;
    if (const auto list = read_sector_list(directory, sectors))
        require(sectors <= nam.size() / sizeof(sector_record) &&
                (!sectors || sector_of(list[sectors - 1]) + 1ULL));
    for (const auto &file : fs::directory_iterator(directory))
        fs::remove(file);
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
    fs::create_directory(root / "templates");
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
