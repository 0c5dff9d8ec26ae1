#include "common/filesystem.h"

#include "common/defaults.h"
#include "support.h"

#include <gmock/gmock.h>
#include <sys/statfs.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace fs = std::filesystem;

// "/ntfs3" stands for a volume that the kernel's own driver of NTFS mounted, which few machines have.
extern "C" int statfs64(const char *path, struct statfs64 *status) noexcept
{
    status->f_type = 0x7366746E;
    return path == std::string_view("/ntfs3") ? 0 : static_cast<int>(syscall(SYS_statfs, path, status));
}

TEST(filesystem, recognises_what_coreutils_calls_ext)
{
    const scratch_directory scratch;
    for (const fs::path &path : {scratch.path(), fs::path("/"), fs::path("/proc"), fs::path("/sys")}) {
        const std::string name = run_tool("stat -f -c %T '" + path.string() + "'");
        EXPECT_EQ(check_fs_type(path), name == "ext2/ext3\n" ? 0xEF53U : 0U) << path << " is " << name;
    }
    EXPECT_EQ(check_fs_type(scratch.path() / "missing"), 0U);
    EXPECT_EQ(check_fs_type("/ntfs3"), 0x7366746EU);
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
