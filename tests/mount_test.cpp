#include "common/mount.h"

#include "common/disk_notes.h"
#include "common/environment.h"
#include "common/mktmpdir.h"
#include "support.h"

#include <cstdlib>
#include <ctime>
#include <gmock/gmock.h>
#include <regex>
#include <sstream>
#include <sys/mount.h>
#include <sys/stat.h>

namespace fs = std::filesystem;
using namespace testing;

static dev_t device_of(const fs::path &path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? status.st_dev : 0;
}

TEST(mount_table, has_what_a_path_leads_to)
{
    const std::string x254(254, 'x');
    const std::string root = "/dev/sda2 / ext4 rw,relatime 0 0\n";
    // The parser, a text in which "@" ends a line of mountinfo, and the directories of the lines: in
    // brackets, or in parentheses when a line lacks fields.
    const std::tuple<mount_table (*)(std::string_view), std::string, std::string> samples[] = {
        {parse_mounts, "//h/x /x cifs rw 0\n\n" + root + "\t/dev/sda2  \t/y ext4 rw - 0\n", "(/x)[/](/y)"},
        {parse_mounts, "f /f fuse.gvfsd-fuse rw 0 0\nf /g fuse.sixteen-cha rw 0 0\n" + root, "[/f](/g)[/]"},
        {parse_mounts, "d /" + x254 + " ext4 rw 0 0\nd /x" + x254 + " ext4 rw 0 0",
         "[/" + x254 + "](/x" + x254 + ")"},
        // Escapes are decoded after the split; what is no escape stays, and so does an escaped zero.
        {parse_mounts, R"(d /my\040usb\011\134040\012x vfat rw 0 0)", "[/my usb\t\\040\nx]"},
        {parse_mounts, R"(d /a\9\04\400\000\ vfat rw 0 0)", R"([/a\9\04\400\000\])"},
        {parse_mountinfo, "2 1 8:1 / /@3 2 0:9 / /a t:1 m:2 - autofs  rw\n4 3 8:2 / /a@5 2 8:3 / /ab@",
         "[/][/a][/ab]"},
        {parse_mountinfo, "2 1 8:1 / /@3 2 8:2 / /a/b@4 3 8:2 / /a/b/c@5 2 8:3 / /a@6 5 8:4 / /a/b@",
         "[/][/a][/a/b]"},
        // "/" itself is never left.
        {parse_mountinfo, "2 2 8:1 / /@3 2 8:2 / /@4 3 8:3 / /a@5 2 8:4 / /b@", "[/][/b]"},
        {parse_mountinfo, "2 1 8:1 / /@3 4 8:2 / /a@4 3 8:3 / /b@5 2 8:3 / /c@6 9 8:4 / /d@", "[/][/c]"},
        {parse_mountinfo, "2 1 8:1 / /@3 2 8:2 / /a/@4 2 8:3 / /a//b@", "[/][/a/]"},
        {parse_mountinfo, "2 1 8:1 / /a rw\n3 2 8:1 / /a/b rw -\n4 2 8:1 /\n5 2 8.1 / /c@x@", "(/a)(/a/b)"},
    };
    for (const auto &[parse, text, directories] : samples) {
        const std::string lines = std::regex_replace(text, std::regex("@"), " rw - ext4 /dev/sda1 rw\n");
        std::string outline;
        for (const mount_table table = parse(lines); const mount_data &mount : table.lines)
            outline += mount.complete ? "[" + mount.directory + "]" : "(" + mount.directory + ")";
        EXPECT_EQ(outline, directories) << text;
    }
}

TEST(mount, follows_the_kernel)
{
    const private_tmp here;
    if (!here.works)
        GTEST_SKIP() << "needs the right to mount in a namespace of its own";
    const std::string odd = "/tmp/a b\n\\c", part = "/tmp/part";
    fs::create_directory(odd);
    fs::create_directory(part);
    ASSERT_EQ(mount("tarnel", odd.c_str(), "tmpfs", 0, nullptr), 0);
    const dev_t device = device_of(odd);
    fs::create_directory(odd + "/sub");
    ASSERT_EQ(mount((odd + "/sub").c_str(), part.c_str(), nullptr, MS_BIND, nullptr), 0);
    EXPECT_EQ(find_mountpoint_for_device(device), odd) << "the first that shows its root";
    ASSERT_EQ(umount(odd.c_str()), 0);
    const auto above = mount_data_find(odd);
    EXPECT_TRUE(above && above->directory == "/tmp");
    EXPECT_FALSE(find_mountpoint_for_device(device)) << "seen through a bind mount of a part only";
}

TEST(mount, makes_a_directory_of_its_own_where_all_names_are_taken)
{
    const private_tmp here;
    if (!here.works)
        GTEST_SKIP() << "needs the right to mount in a namespace of its own";
    const auto now = static_cast<unsigned>(std::time(nullptr));
    for (unsigned second = now; second < now + 3600; second++) {
        std::srand(second);
        for (int i = 0; i < 10; i++)
            mkdir(tmpdir_name().c_str(), 0755);
    }
    const std::optional<std::string> made = mktmpdir();
    ASSERT_TRUE(made && is_own_directory(*made, 077));
    fs::create_directory(*made + "/sda1");
    umount_rm_tmpdir();
    EXPECT_FALSE(fs::exists(*made)) << "the next start would not have found it";
}

TEST(mount, mounts_lists_and_undoes)
{
    environment record;
    record.pelva_db_dev = device_of("/tmp");
    // Disk, partition number, file system, mount point.
    std::istringstream rows("sda 1 fat32 -  sda 2 ext4 -  sda 3 ntfs -  sda 5 exfat -  sda 6 ext3 - "
                            "sda 7 ext2 /tmp/tarnelX  md0 1 fat16 -  md0 2 ext4 /tmp  md;x 1 ext4 -");
    part row;
    for (std::string type, where; rows >> row.device >> row.index >> type >> where;) {
        if (record.disks.empty() || record.disks.back().name != row.device)
            record.disks.emplace_back().name = row.device;
        row.letter = static_cast<char>('A' + row.index);
        row.lvm = row.index == 6;
        row.fs_type = type;
        row.mount_point = where == "-" ? std::nullopt : std::optional(where);
        record.disks.back().parts.push_back(row);
    }
    recorded_commands shell;
    shell.status = [](const std::string &command) { return command.find("sda3") == command.npos ? 0 : 32; };
    ASSERT_EQ(mount_partitions(&record), 0);
    const std::string dir = record.tmpdir;
    std::string entries;
    for (const mount_entry &entry : record.mounts)
        entries += entry.disk->name + entry.letter + std::to_string(entry.mounted) +
                   (entry.dev == record.pelva_db_dev ? "+" : "-") + entry.mountpoint + " ";
    EXPECT_EQ(entries, "sdaB1+" + dir + "/sda1 sdaC1+" + dir + "/sda2 sdaH0-/tmp/tarnelX md0B1+" + dir +
                           "/md0p1 md0C0+/tmp ");
    EXPECT_THAT(describe_disk_notes(record.disk_notes),
                StartsWith("Could not be mounted: sda3 (ntfs), md;xp1 (ext4). "));
    EXPECT_EQ(record.pelva_db_mt, &record.mounts.back()) << "the last one on the template directory's device";

    // What cannot be removed stays; what others mounted, or what is elsewhere, is left alone.
    fs::create_directories(dir + "/sda2/busy");
    record.mounts.front().mountpoint = dir.substr(4) + "/sda1";
    umount_partitions(&record);
    std::string ran;
    for (const std::string &command : shell.commands)
        ran += std::regex_replace(command, std::regex(dir), "T") + "\n";
    // What fails is tried once more, as beside a mount for writing, unless nobody has the device.
    EXPECT_EQ(ran, "mount -t vfat /dev/sda1 T/sda1 -o ro,nosuid,nodev,noexec,codepage=866,utf8\n"
                   "mount -t ext4 /dev/sda2 T/sda2 -o ro,nosuid,nodev,noexec,errors=remount-ro\n"
                   "mount -t ntfs-3g /dev/sda3 T/sda3 -o ro,nosuid,nodev,noexec\n"
                   "mount -t ntfs-3g /dev/sda3 T/sda3 -o nosuid,nodev,noexec\n"
                   "mount -t vfat /dev/md0p1 T/md0p1 -o ro,nosuid,nodev,noexec,codepage=866,utf8\n"
                   "umount T/sda2\numount T/md0p1\n");
    EXPECT_EQ(fs::remove_all(dir), 4U) << "the directory, sda1, sda2 and busy; no sda3";
}
