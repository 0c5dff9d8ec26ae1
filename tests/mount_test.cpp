#include "common/mount.h"

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
using testing::ElementsAre;
using testing::HasSubstr;

static dev_t device_of(const fs::path &path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? status.st_dev : 0;
}

TEST(mount_table, fields_and_where_the_scan_ends)
{
    const std::string x254(254, 'x');
    const std::string root = "/dev/sda2 / ext4 rw,relatime 0 0\n";
    const std::tuple<std::string, std::size_t, std::string> samples[] = {
        {root + "/dev/sda1 /boot vfat ro 0 0", 2, "[/][/boot]"},
        {"\t/dev/sda2  \t/ ext4 rw 12 0\n", 1, "[/]"},
        {root + "//host/x /x cifs rw 0\n" + root, 1, "[/][/x][/]"},
        {"/dev/sda2 / ext4 rw - 0\n" + root, 0, "[/][/]"},
        {root + "\n" + root, 1, "[/][][/]"},
        {"f /f fuse.gvfsd-fuse rw 0 0\nf /g fuse.sixteen-cha rw 0 0\n" + root, 1, "[/f][/g][/]"},
        {"d" + x254 + " /" + x254 + " ext4 w" + x254 + " 0 0\n", 1, "[/" + x254 + "]"},
        {"d /x" + x254 + " ext4 rw 0 0\n", 0, "[/x" + x254 + "]"},
        {"overlay / overlay rw" + x254 + " 0 0\n" + root, 0, "[/][/]"},
        // Escapes are decoded after the split; what is no escape stays, and so does an escaped zero.
        {R"(d /my\040usb\011\134040\012x vfat rw 0 0)", 1, "[/my usb\t\\040\nx]"},
        {R"(d /a\9\04\400\000\ vfat rw 0 0)", 1, R"([/a\9\04\400\000\])"},
        {"d /\\320\\241\r\xff vfat rw 0 0", 1, "[/\xd0\xa1\r\xff]"},
    };
    for (const auto &[text, scanned, directories] : samples) {
        const mount_table table = parse_mount_table(text);
        std::string found;
        for (const mount_data &mount : table.lines)
            found += "[" + mount.directory + "]";
        EXPECT_EQ(table.scanned, scanned) << text;
        EXPECT_EQ(found, directories) << text;
    }
}

TEST(mount_table, longest_prefix_and_first_device)
{
    const scratch_directory scratch;
    const replaced_host host(scratch.path());
    EXPECT_FALSE(mount_data_find("/boot") || find_mountpoint_for_device(2049)) << "no table";
    const std::string here = scratch.path().string();
    std::string table;
    for (const char *line : {"gone @/missing", "c @", "c @/proc", "a /boot", "b /boot", "d /"})
        table += std::regex_replace(line, std::regex("@"), here) + " vfat ro,utf8 0 0\n";
    scratch.write("proc/mounts", table + "x /x a.type.too.long. rw 0 0\nx /boot/pelva ext4 rw 0 0\n");
    const mount_data found = mount_data_find("/boot/pelva").value();
    EXPECT_EQ(found.device + found.directory + found.type + found.options, "a/bootvfatro,utf8");
    EXPECT_EQ(mount_data_find("/bootstrap/x")->directory, "/boot") << "no test for a component's end";
    EXPECT_EQ(mount_data_find("/bo")->device, "d");
    EXPECT_EQ(find_mountpoint_for_device(device_of(here)), here);
    EXPECT_FALSE(mount_data_find("boot/pelva") || find_mountpoint_for_device(~0ULL));

    scratch.write("proc/mounts", "/dev/sda5 /boot ext4 rw 0 0\n");
    EXPECT_EQ(mount_data_find("/boot/pelva")->device, "/dev/sda5") << "an ordinary file is read each time";
}

TEST(mount_table, changes_of_the_kernels_table_are_noticed)
{
    const scratch_directory scratch;
    if (!keep_mounts_private())
        GTEST_SKIP() << "needs the right to mount in a namespace of its own";
    const fs::path odd = fs::canonical(scratch.path()) / "a b\n\\c";
    fs::create_directory(odd);
    const std::string before = mount_data_find(odd)->directory;
    for (int round = 0; round < 3; round++) {
        ASSERT_EQ(mount("tarnel", odd.c_str(), "tmpfs", 0, nullptr), 0);
        EXPECT_EQ(mount_data_find(odd)->directory, odd);
        const dev_t device = device_of(odd);
        EXPECT_EQ(find_mountpoint_for_device(device), odd.string());
        ASSERT_EQ(umount(odd.c_str()), 0);
        EXPECT_EQ(mount_data_find(odd)->directory, before);
        EXPECT_FALSE(find_mountpoint_for_device(device));
    }
}

TEST(mount, a_taken_temporary_directory_is_never_used)
{
    const private_tmp own;
    if (!own.works)
        GTEST_SKIP() << "needs the right to mount in a namespace of its own";
    const auto now = static_cast<unsigned>(std::time(nullptr));
    for (unsigned i = 0; i < 50; i++) {
        if (i % 10 == 0)
            std::srand(now + i / 10);
        const std::string taken = tmpdir_name();
        EXPECT_EQ(i % 2 ? symlink("/", taken.c_str()) : mkdir(taken.c_str(), 0700), 0);
    }
    environment record;
    EXPECT_EQ(mount_partitions(&record), -1);
}

TEST(mount, mounts_lists_and_undoes)
{
    environment record;
    record.pelva_db_dev = device_of("/tmp");
    // Disk, partition number, file system, mount point.
    std::istringstream rows(
        "sda 1 fat32 -  sda 2 ext4 -  sda 3 ntfs -  sda 4 - -  sda 5 xfs -  sda 6 ext3 - "
        "sda 7 ext2 /tmp/tarnelX  sdb 1 ext2 -  md0 1 fat16 -  md0 2 ext4 /tmp  md;x 1 ext4 -");
    part row;
    for (std::string type, where; rows >> row.device >> row.index >> type >> where;) {
        if (record.disks.empty() || record.disks.back().name != row.device)
            record.disks.emplace_back().name = row.device;
        record.disks.back().removable = row.device == "sdb";
        row.letter = static_cast<char>('A' + row.index);
        row.lvm = row.index == 6;
        row.fs_type = type == "-" ? std::nullopt : std::optional(type);
        row.mount_point = where == "-" ? std::nullopt : std::optional(where);
        record.disks.back().parts.push_back(row);
    }
    recorded_commands shell;
    shell.status = [](const std::string &command) { return command.find("sda3") == command.npos ? 0 : 32; };
    ASSERT_EQ(mount_partitions(&record), 0);
    const std::string dir = record.tmpdir;
    EXPECT_THAT(dir, testing::MatchesRegex("/tmp/tarnel[0-9]+"));
    EXPECT_EQ(fs::status(dir).permissions(), fs::perms::owner_all);
    EXPECT_THAT(shell.commands,
                ElementsAre("mount -t vfat /dev/sda1 " + dir + "/sda1 -o codepage=866,utf8",
                            "mount -t ext4 /dev/sda2 " + dir + "/sda2 ",
                            "mount -t ntfs-3g /dev/sda3 " + dir + "/sda3 ",
                            "mount -t vfat /dev/md0p1 " + dir + "/md0p1 -o codepage=866,utf8"));
    std::string entries;
    for (const mount_entry &entry : record.mounts)
        entries += entry.disk->name + entry.letter + std::to_string(entry.mounted) +
                   (entry.dev == record.pelva_db_dev ? "+" : "-") + entry.mountpoint + " ";
    EXPECT_EQ(entries, "sdaB1+" + dir + "/sda1 sdaC1+" + dir + "/sda2 sdaH0-/tmp/tarnelX md0B1+" + dir +
                           "/md0p1 md0C0+/tmp ");
    EXPECT_EQ(record.pelva_db_mt, &record.mounts.back()) << "the last one on the template directory's device";
    EXPECT_EQ(record.disks.front().parts.front().mount_point, dir + "/sda1");

    // What cannot be removed stays ; what others mounted, or what is elsewhere, is left alone.
    fs::create_directory(dir + "/sda2/busy");
    record.mounts.front().mountpoint = dir.substr(4) + "/sda1";
    shell.commands.clear();
    umount_partitions(&record);
    EXPECT_THAT(shell.commands, ElementsAre("umount " + dir + "/sda2", "umount " + dir + "/md0p1"));
    EXPECT_EQ(fs::remove_all(dir), 4U) << "the directory, sda1, sda2 and busy; no sda3";
}

TEST(mount, cleanup_of_earlier_runs_reaches_into_nothing_foreign)
{
    const scratch_directory scratch;
    const replaced_host host(scratch.path());
    const fs::path own = scratch.write("tmp/tarnel42/sda1", "").parent_path();
    fs::permissions(own, fs::perms::owner_all);
    recorded_commands shell;
    umount_rm_tmpdir();
    EXPECT_THAT(shell.commands,
                ElementsAre("umount /tmp/tarnel*/sd* 2>/dev/null", "umount /tmp/tarnel*/hd* 2>/dev/null",
                            "umount /tmp/tarnel*/md* 2>/dev/null", "rmdir /tmp/tarnel*/sd* 2>/dev/null",
                            "rmdir /tmp/tarnel*/hd* 2>/dev/null", "rmdir /tmp/tarnel*/md* 2>/dev/null",
                            "rmdir /tmp/tarnel* 2>/dev/null"));
    fs::create_directory(scratch.path() / "tmp/tarnel43");
    fs::create_directory_symlink(own, scratch.path() / "tmp/tarnel44");
    shell.commands.clear();
    umount_rm_tmpdir();
    EXPECT_THAT(shell.commands,
                testing::AllOf(testing::SizeIs(7), testing::Each(HasSubstr(" /tmp/tarnel42"))));
}
