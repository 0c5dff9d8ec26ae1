#include "common/misc.h"

#include "common/environment.h"
#include "support.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <unistd.h>

namespace fs = std::filesystem;

// A machine with one disk and one partition. Nothing is really mounted, so the template directory and the
// partition's mount directory lie on the same device, that of /tmp.
TEST(app_init, names_the_template_directory_as_the_firmware_does)
{
    const scratch_directory scratch;
    const replaced_host host(scratch.path());
    const recorded_commands shell;
    environment record;
    const auto start = [&record](const std::string &template_directory) {
        setenv("PELVADB", template_directory.c_str(), 1);
        const int result = app_init(&record);
        if (!record.tmpdir.empty())
            fs::remove_all(record.tmpdir);
        EXPECT_EQ(std::getenv("PELVA_PATH"), template_directory);
        return result;
    };
    scratch.write("proc/partitions", "major minor  #blocks  name\n\n   8        0       8192 sda\n");
    scratch.write("sys/block/sda/removable", "0\n");
    setenv("IMAGE", scratch.write("dev/sda", "").c_str(), 1);
    const std::string here = scratch.path().string(),
                      directory = scratch.write("boot/pelva/file", "").parent_path();
    const std::tuple<std::string, std::string, std::string, char> samples[] = {
        {"ext4 -q -F -E offset=1048576 $IMAGE 7168", "/", directory, '/'},
        {"ext4 -q -F -E offset=1048576 $IMAGE 7168", here + "/boot", "/pelva", '/'},
        {"fat -F 16 -s 1 --offset 2048 $IMAGE 7168", directory, "", '\\'},
    };
    setenv("ENABLE_REMOVABLE", "", 1);
    for (const auto &[file_system, mount_directory, short_path, separator] : samples) {
        record = environment();
        run_tool("truncate -s 8M $IMAGE && echo '2048,,83' | sfdisk -q $IMAGE && mkfs." + file_system);
        scratch.write("proc/mounts", "/dev/sda1 " + mount_directory + " auto rw 0 0\n");
        ASSERT_EQ(start(directory), 0);
        EXPECT_EQ(record.short_path, short_path);
        EXPECT_EQ(record.separator, separator);
        EXPECT_EQ(record.pelva_db_mt->letter, 'C');
        EXPECT_EQ(record.use_removable, 1) << "set, though empty";
    }
    EXPECT_TRUE(shell.commands.front().starts_with("umount /tmp/tarnel")) << "leftovers go first";

    setenv("ENABLE_REMOVABLE", "0", 1);
    EXPECT_EQ(start(here + "/a/b"), 1) << "two levels are missing";
    EXPECT_EQ(record.use_removable, 0);
    ASSERT_EQ(chdir(here.c_str()), 0);
    EXPECT_EQ(start("relative"), 1) << "on no mount point";
    EXPECT_EQ(fs::status("relative").permissions(), fs::perms(0644)) << "made where it was missing";
    scratch.write("proc/partitions", "");
    record = environment();
    EXPECT_EQ(start(directory), 1) << "no disk";
}
