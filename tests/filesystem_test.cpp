#include "common/filesystem.h"

#include "common/defaults.h"
#include "support.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

namespace fs = std::filesystem;
using testing::ElementsAre;

TEST(filesystem, recognises_what_coreutils_calls_ext)
{
    const scratch_directory scratch;
    for (const fs::path &path : {scratch.path(), fs::path("/"), fs::path("/proc"), fs::path("/sys")}) {
        const std::string name = run_tool("stat -f -c %T '" + path.string() + "'");
        EXPECT_EQ(check_fs_type(path), name == "ext2/ext3\n" ? 0xEF53U : 0U) << path << " is " << name;
    }
    EXPECT_EQ(check_fs_type(scratch.path() / "missing"), 0U);
}

TEST(filesystem, a_linked_directory_anywhere_on_the_path_is_found)
{
    const scratch_directory scratch;
    const fs::path root = fs::canonical(scratch.path());
    scratch.write("real/deep/file", "");
    fs::create_directory_symlink(root / "real", root / "link");
    fs::create_directory_symlink(std::string(300, 'x'), root / "long");
    fs::create_symlink("file", root / "real/deep/linked_file");
    EXPECT_EQ(check_symlink(root / "real/deep/linked_file"), 1) << "the last component is not examined";
    EXPECT_EQ(check_symlink(root / "long/file"), 0) << "a target longer than the buffer";
    EXPECT_EQ(check_symlink(root / "link/deep/file"), 0);
}

TEST(filesystem, small_helpers)
{
    EXPECT_EQ(is_symlink("x", S_IFLNK | 0777) + is_directory("x", S_IFDIR) + is_regular("x", S_IFREG), 0);
    EXPECT_EQ(is_symlink("x", S_IFSOCK) + is_directory("x", S_IFBLK) + is_regular("x", S_IFSOCK), 3);
    EXPECT_EQ(static_sprintf("%s!", std::string(2000, 'x').c_str()), std::string(1023, 'x'));
    EXPECT_EQ(has_prefix("/boot/pelva", "/bo") + has_prefix("/boot", "/boot") + has_prefix("", ""), 3);
    EXPECT_EQ(has_prefix("/boot", "/boot/") + has_prefix("/boot", "/bot"), 0);
}

TEST(defaults, present_files_in_table_order_without_linked_directories)
{
    const scratch_directory scratch;
    const fs::path root = fs::canonical(scratch.path());
    const replaced_host host(root);
    if (check_fs_type(root) == 0)
        GTEST_SKIP() << root << " is on a file system that the tool does not recognise";

    for (const char *file : {"usr/bin/pelva", "usr/lib/libpelva.so.1", "etc/pam.d/gtk-tarnel",
                             "usr/share/gtk-tarnel/gtk-tarnel.ui", "etc/passwd"})
        scratch.write(file, "");
    fs::create_symlink("libpelva.so.1", root / "usr/lib/libpelva.so");
    fs::create_directory_symlink("lib", root / "usr/lib64");
    EXPECT_THAT(generate_defaults(),
                ElementsAre("/usr/share/gtk-tarnel/gtk-tarnel.ui", "/etc/pam.d/gtk-tarnel",
                            "/usr/lib/libpelva.so", "/usr/bin/pelva"));
}
