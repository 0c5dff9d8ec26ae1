// What reads bytes that nobody vouches for, driven by libFuzzer: no input may crash or stop it. Each target
// becomes a program of its own: FUZZ_TARGET names the one that this compilation is for.
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

namespace fs = std::filesystem;
using bytes = std::string_view;

static fs::path root; // a directory that stands for the machine's "/"

// Ends the run like a sanitizer would, so that libFuzzer keeps the input.
static void require(bool holds)
{
    if (!holds)
        std::abort();
}

// A path, a NUL and the volume.
void fat(bytes input)
{
    const std::string path(input.substr(0, input.find('\0')));
    std::ofstream(root / "dev/sda1") << input.substr(std::min(path.size() + 1, input.size()));
    static_cast<void>(get_sfn_path("sda1", path));
    const std::string name = get_lfn_path("sda1", path).value_or("");
    require(name.size() <= 255 && ("/" + name + "/").find("/../") == std::string::npos);
}

// A file of names and, behind it, a check file, as both lists.
void templates(bytes input)
{
    const bytes nam = input.substr(0, input.find("SNCV")), chk = input.substr(nam.size());
    for (const template_layout &layout : {layout_of(list_kind::files), layout_of(list_kind::sectors)}) {
        std::ofstream(root / layout.name_file) << nam;
        std::ofstream(root / layout.check_file) << chk;
    }
    recover_templates(root);
    const auto take = [](const char *text, void *) {
        return static_cast<int>(std::strlen(text) > file_record_size);
    };
    static_cast<void>(read_file_list(root, nullptr, take, nullptr));
    std::uint32_t sectors = 0;
    const auto list = read_sector_list(root, sectors);
    require(!list || sectors <= nam.size() / sizeof(sector_record));
}

void mounts(bytes input)
{
    for (const mount_table &table : {parse_mounts(input), parse_mountinfo(input)})
        require(std::ranges::is_sorted(table.directories));
}

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    char name[] = "/tmp/gtk-tarnel-fuzz-XXXXXX";
    root = mkdtemp(name);
    std::atexit([] { fs::remove_all(root); });
    fs::create_directory(root / "dev");
    // In memory, since writing it is most of the work.
    fs::create_symlink("/proc/self/fd/" + std::to_string(memfd_create("disk", 0)), root / "dev/sda1");
    set_host_root(root);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string copy(data, data + size); // of its exact length: what reads beyond it is found
    FUZZ_TARGET(copy);
    return 0;
}
