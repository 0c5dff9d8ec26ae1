#include "common/misc.h"

#include "app.h"
#include "support.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <regex>
#include <unistd.h>

namespace fs = std::filesystem;
using testing::EndsWith;

namespace {

// A machine with one disk and one partition. Nothing is really mounted, so the template directory and the
// partition's mount directory lie on the same device, that of /tmp.
struct app_init_test : testing::Test {
    void make_disk(const std::string &make_file_system)
    {
        scratch.write("proc/partitions", "major minor  #blocks  name\n\n   8        0       8192 sda\n");
        scratch.write("sys/block/sda/removable", "0\n");
        run_tool("cd " + scratch.write("dev/sda", "").parent_path().string() + " && truncate -s 8M sda && " +
                 "echo '2048,,83' | sfdisk -q sda && " + make_file_system + " sda 7168");
    }

    // Returns what was traced and written to standard error.
    std::string start(const std::string &template_directory)
    {
        setenv("PELVADB", template_directory.c_str(), 1);
        captured_trace trace;
        const int result = app_init(&record);
        if (!record.tmpdir.empty())
            fs::remove_all(record.tmpdir);
        EXPECT_EQ(std::getenv("PELVA_PATH"), template_directory);
        std::string log = trace.messages();
        EXPECT_EQ(result, log.ends_with("\n* Exit\n") ? 0 : 1);
        return log;
    }

    scratch_directory scratch;
    replaced_host host{scratch.path()};
    recorded_commands shell;
    const std::string here = scratch.path().string();
    app record;
};

} // namespace

TEST_F(app_init_test, names_the_template_directory_as_the_firmware_does)
{
    const std::string directory = scratch.write("boot/pelva/file", "").parent_path();
    const std::tuple<std::string, std::string, std::string, char> samples[] = {
        {"ext4 -q -F -E offset=1048576", "/", directory, '/'},
        {"ext4 -q -F -E offset=1048576", here + "/boot", "/pelva", '/'},
        {"fat -F 16 -s 1 --offset 2048", directory, "", '\\'},
        {"fat -F 16 -s 1 --offset 2048", here + "/bo", "ot/pelva", '\\'},
    };
    setenv("ENABLE_REMOVABLE", "", 1);
    for (const auto &[file_system, mount_directory, short_path, separator] : samples) {
        record = app();
        make_disk("mkfs." + file_system);
        scratch.write("proc/mounts", "/dev/sda1 " + mount_directory + " auto rw 0 0\n");
        EXPECT_THAT(start(directory),
                    EndsWith("\nShort path for pelva device: C:" + short_path + "\n* Exit\n"));
        EXPECT_EQ(record.separator, separator);
        EXPECT_EQ(record.use_removable, 1) << "set, though empty";
    }
    EXPECT_THAT(shell.commands.front(), testing::StartsWith("umount /tmp/tarnel")) << "leftovers go first";
}

TEST_F(app_init_test, its_failures)
{
    setenv("ENABLE_REMOVABLE", "0", 1);
    const std::string lines = "\nCannot create database directory, exiting\n"
                              "Unable to locate database directory (@)\n"
                              "Try to execute following command:\n# mkdir -p '@'\n";
    EXPECT_THAT(start(here + "/a/b"), EndsWith(std::regex_replace(lines, std::regex("@"), here + "/a/b")));
    EXPECT_EQ(record.use_removable, 0);
    ASSERT_EQ(chdir(here.c_str()), 0);
    scratch.write("proc/mounts", "/dev/sda1 / ext4 rw 0 0\n");
    EXPECT_THAT(start("relative"), EndsWith("\nCannot find mountpoint for pelva db path\n"));
    EXPECT_EQ(fs::status("relative").permissions(), fs::perms(0644)) << "made where it was missing";
    EXPECT_THAT(start(here), EndsWith("\nget_disk_list() failed\n"));
    make_disk("true");
    EXPECT_THAT(start(here), EndsWith("\npelva_db_mt: 0\n"
                                      "Unable to determine partition with pelva database, stopping\n"));
}
