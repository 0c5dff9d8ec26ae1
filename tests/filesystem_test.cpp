#include "common/filesystem.h"

#include "common/defaults.h"
#include "support.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <sys/statfs.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace fs = std::filesystem;

// A path that is no absolute one stands for what is mounted with this magic number.
extern "C" int statfs64(const char *path, struct statfs64 *status) noexcept
{
    status->f_type = std::atol(path);
    return *path == '/' ? static_cast<int>(syscall(SYS_statfs, path, status)) : 0;
}

TEST(filesystem, magic_numbers)
{
    for (const std::uint32_t known : {0x137DU, 0xEF51U, 0xEF53U, 0x4006U, 0x4D44U, 0x5346544EU, 0x7366746EU,
                                      0x65735546U, 0x11954U, 0x54190100U})
        EXPECT_EQ(check_fs_type(std::to_string(known)), known);
    for (const char *path : {"/proc", "/missing", "1", "4294967295"})
        EXPECT_EQ(check_fs_type(path), 0U) << path;
}

TEST(defaults, present_files_in_table_order_without_linked_directories)
{
    const scratch_directory scratch;
    const fs::path root = fs::canonical(scratch.path());
    const replaced_host host(root);
    for (const char *file : {"usr/bin/pelva", "usr/lib/libpelva.so.1", "etc/pam.d/gtk-tarnel",
                             "usr/share/gtk-tarnel/gtk-tarnel.ui", "etc/passwd"})
        scratch.write(file, "");
    fs::create_symlink("libpelva.so.1", root / "usr/lib/libpelva.so");
    fs::create_directory_symlink("lib", root / "usr/lib64");
    EXPECT_THAT(generate_defaults(),
                testing::ElementsAre("/usr/share/gtk-tarnel/gtk-tarnel.ui", "/etc/pam.d/gtk-tarnel",
                                     "/usr/lib/libpelva.so", "/usr/bin/pelva"));
}
