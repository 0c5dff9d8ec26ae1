// Discovery on machines whose disks are image files: what is listed and read, and what the disk list is.
#include "common/disk.h"
#include "common/disk_notes.h"
#include "common/gpt.h"
#include "common/partition_table.h"
#include "common/table_record.h"
#include "support.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace {

namespace fs = std::filesystem;
using namespace testing;

struct machine : Test {
    // A fixed disk of 16 MiB, partitioned by a shell command in which $D is the image.
    void add_disk(const std::string &name, const std::string &command = ":")
    {
        listed += "   8        0  16384 " + name + "\n";
        root.write("proc/partitions", listed);
        root.write("sys/block/" + name + "/removable", "0\n");
        root.write("dev/" + name, "");
        run_tool("D=" + root.path().string() + "/dev/" + name + "; truncate -s 16M $D && " + command);
    }

    // A line for each disk: "80 sda 32768*512:", then number, letter, start, length and file system of its
    // partitions; x and l for extended and logical, * for boot, v for LVM, s for swap, / for mounted.
    std::string list()
    {
        std::list<disk> disks;
        EXPECT_EQ(get_disk_list(disks, notes), 0);
        std::ostringstream text;
        for (const disk &d : disks) {
            text << std::hex << d.drive_number << std::dec << " " << d.name << (d.is_gpt ? " gpt " : " ")
                 << d.length << "*" << d.sector_size << ":";
            for (const part &p : d.parts)
                text << " " << p.index << (p.letter ? p.letter : '-') << p.sect_before << "+" << p.sect_total
                     << (p.extended ? "x" : "") << (p.logical ? "l" : "") << (p.boot ? "*" : "")
                     << (p.lvm ? "v" : "") << (p.swap ? "s" : "") << p.fs_type.value_or("")
                     << (p.mount_point == root.path() ? "/" : "");
            text << "\n";
        }
        return text.str();
    }

    scratch_directory root;
    replaced_host host{root.path()};
    recorded_commands commands;
    std::vector<disk_note> notes;
    std::string listed = "major minor  #blocks  name\n\n";
};

TEST_F(machine, system_disk_comes_first)
{
    std::list<disk> disks;
    EXPECT_EQ(get_disk_list(disks, notes), -1);
    for (const char *name : {"sda", "sdb", "md1", "md127"})
        add_disk(name);
    // The files of btrfs show a number that no device has; the mounted one tells.
    root.write("proc/mounts", "/dev/sda1 / ext4 rw 0 0\n/dev/sdb1 / btrfs rw 0 0\n");
    const bool has_node = mknod((root.path() / "dev/sdb1").c_str(), S_IFBLK, makedev(8, 17)) == 0;
    // On which lsblk shows "/" (the name of one array begins that of the other), links of /sys, in which $R
    // is the number of the device of "/", and the first disk.
    const std::tuple<std::string, std::string, const char *> cases[] = {
        {"\"sda.", "$R=sdb/sdb1", "sdb"}, // a mapping on sdb is named sda5_crypt
        {"\"md1. \"md127.", "$R=md127 md127/slaves/a=sda/sda1", "md127"},
        {"", "$R=dm-1 dm-1/slaves/a=dm-0 dm-0/slaves/a=sdb/sdb3", "sdb"},
        {"", "$R=dm-0 dm-0/slaves/a=sdb dm-0/slaves/b=sda/sda2", "sda"},
        {"\"sdb.", "$R=dm-0 dm-0/slaves/a=dm-0 dm-0/slaves/b=sdc", "sdb"},
        {"\"sda. \"sdb.", "$R=dm-0", "md1"},
        {"", "dev/block/8:17=sdb/sdb1", has_node ? "sdb" : "md1"},
    };
    for (const auto &[shown_on, links, first] : cases) {
        commands.status = [&shown = shown_on](const std::string &command) {
            return shown.find(command.substr(13, command.find('.') - 12)) == shown.npos;
        };
        run_tool("cd " + root.path().string() +
                 "/sys && rm -rf [dms]*; R=dev/block/$(stat -c %Hd:%Ld .); for link in " + links +
                 "; do to=${link#*=} at=${link%=*}; mkdir -p $to ${at%/*} && ln -sr $to $at;"
                 "case $to in */*) : >$to/partition;; esac; done");
        EXPECT_EQ(get_disk_list(disks, notes), 0);
        EXPECT_EQ(disks.front().name, first) << links;
        EXPECT_EQ(notes_warn(notes), disks.front().name == "md1") << links;
    }
    EXPECT_THAT(commands.commands, SizeIs(has_node ? 8 : 12)) << "asked although /sys tells";
    EXPECT_EQ(commands.commands.front(), "lsblk | grep \"md1.*/$\" 1>/dev/null 2>&1");
}

TEST_F(machine, disk_list_changes_nothing)
{
    for (const char *name : {"nvme0n1", "mmcblk0", "mmcblk0boot0", "sdaa", "vda", "sr0", "fd0"}) {
        root.write("sys/block/" + std::string(name) + "/device", "");
        listed += "   8        0  16384 " + std::string(name) + "\n";
    }
    listed += " 7 0 9 loop0\n 259 1 9 nvme0n1p1 more\n 65 161 9 sdaa1\n 9 0 99999999999 md0p1\n"
              " 9 9 9 md_\"$(id)\"\n 8 64 9 sde\n 8 176 9 sdl\n";
    root.write("proc/mdstat",
               "md0 : active raid1 sdl[1](F) sdb1[0]\r\n      9 blocks\n\nmd3 : inactive sda[0]\n"
               "md1 : active (auto-read-only) raid1 sde[2](S)");
    add_disk("sda",
             "printf '1:start=2048,size=8192,bootable\\n2:start=10240,size=9000,type=5\\n"
             "5:start=12288,size=2048,type=82\\n6:start=16384,size=2048,type=8e\\n"
             "3:start=20000,size=2000,type=7\\n' | sfdisk -q $D && mke2fs -qt ext4 -E offset=1048576 $D 4M");
    add_disk("sdb", "sgdisk -j 64 -S 256 -n 3:8192:+1M -n 7:4096:+1M -t 7:0700 -n 9:6144:+1M -t 9:ef00"
                    " -n 130:2048:+1M -t 130:0700 $D && truncate -s 20M $D && cp $D ${D}7");
    add_disk("md0", "printf '2048,2048,83' | sfdisk -q $D; mknod ${D}p1 b $(stat -c '%Hd %Ld' $D) || :");
    root.write("proc/mounts", "/dev/md0p1 " + root.path().string() + " ext4 rw 0 0\n");
    add_disk("sdc");
    root.write("sys/block/sdc/removable", "1\n");
    add_disk("sdd", "rm $D");
    add_disk("sdf", "mke2fs -qt ext4 $D"); // without a table
    add_disk("sdg", "truncate -s 3T $D && sgdisk -n 1:2048:4294969343 -t 1:0700 -n 2::+1M -t 2:0700 $D");
    add_disk("sdh"); // without a table, like those with code there or half a signature
    add_disk("sdi", "yes | head -c 510 >$D && printf '\\125\\252' >>$D && truncate -s 16M $D");
    add_disk("sdk");
    overwrite(root.path() / "dev/sdk", 450, "\x83" + std::string(60, '\0') + "\xAA");
    add_disk("sdj", "sgdisk -n 1:2048:+1M -t 1:0700 $D; for at in 528 16776720; do echo wrong |"
                    "dd of=$D bs=1 seek=$at conv=notrunc; done"); // both checksums
    // That of sdb has a backup that libparted offers to move, and a node that it opens to flush its cache.
    run_tool("touch -d 2001-01-01 " + root.path().string() + "/dev/sd*");
    EXPECT_EQ(list(), "80 md0 32768*512: 1C2048+2048" +
                          std::string(fs::exists(root.path() / "dev/md0p1") ? "/" : "") +
                          "\n81 sda 32768*512: 1D2048+8192*ext4 2-10240+9000x 3I20000+2000 "
                          "5G12288+2048ls 6H16384+2048lv\n"
                          "82 sdb gpt 40960*512: 7E4096+2048 9J6144+2048*\n83 sdf 32768*512:\n"
                          "84 sdg gpt 6442450944*512: 1F2048+4294967296 2K4294969344+2048\n"
                          "85 sdh 32768*512:\n86 sdi 32768*512:\n87 sdj 32768*512:\n88 sdk 32768*512:\n");
    run_tool("! find " + root.path().string() + "/dev/sd* -newermt 2001-01-02 | grep .");
    EXPECT_THAT(commands.commands, Each(Not(HasSubstr("$("))));
    EXPECT_THAT(describe_disk_notes(notes),
                AllOf(HasSubstr("opened: md_\"$(id)\", sdd."), HasSubstr(": sdj."),
                      HasSubstr("GPT disks: sdb3."),
                      HasSubstr(": nvme0n1 (NVMe), mmcblk0 (eMMC or memory card), "
                                "sdaa (behind sdz), vda, sdc (removable).")));
}

TEST_F(machine, reader_can_do_nothing_but_read)
{
    add_disk("sda");
    // It ends with a signal when it calls the kernel as a program of another kind.
    const std::string said =
        run_tool("env -i LC_ALL=C PARTED_GPT_APPLE=0 LD_PRELOAD=" READER_PROBE " " READ_TABLE " " +
                 root.path().string() + "/dev/sda table 3>&1 || :");
    EXPECT_THAT(said, AllOf(StartsWith("Name:\tread-table\n"), Not(HasSubstr("survived")),
                            HasSubstr("\nNoNewPrivs:\t1\nSeccomp:\t2\n")));
    if (geteuid() != 0)
        GTEST_SKIP() << "only root has rights to give up";
    for (const char *line : {"Uid:\t65534\t65534\t65534\t65534\n", "Gid:\t65534\t65534\t65534\t65534\n",
                             "Groups:\t \n", "CapPrm:\t0000000000000004\n", "CapInh:\t0000000000000000\n",
                             "CapEff:\t0000000000000004\n", "CapBnd:\t0000000000000000\n"})
        EXPECT_THAT(said, HasSubstr(line));
}

TEST_F(machine, notes_what_the_firmware_does_not_see)
{
    const std::string gpt = "sgdisk -n 1:2048:+1M -t 1:0700 -n 2:: $D";
    const std::string msdos = "printf '2048,2048\\n,20000,5\\n26000,2000\\n28672,2048\\n,2048\\n,2048\\n' | "
                              "sfdisk -q $D && printf ";
    const std::string change = " | dd of=$D bs=1 conv=notrunc seek=";
    // What is done to a disk, and what is said of it.
    const std::pair<std::string, const char *> cases[] = {
        {gpt, "on GPT disks: sda2."},
        {"sgdisk -S 4100 $D && " + gpt, "the partition table (GPT) of: sda. "},
        {gpt + " && printf X" + change + "528", "of: sda (The primary GPT table is corrupt, "},
        {msdos + "XX" + change + "$((8192 * 512 + 510))", "table of: sda (Invalid partition table on "},
        {msdos + "'\\11'" + change + "487", "table of: sda (Can't have overlapping partitions). "},
        {msdos + "'\\377'" + change + "491", "table of: sda (Can't have a partition outside the disk!). "},
        {"mv $D $D.img && L=$(losetup -b 4096 -f --show $D.img) && echo $L >$D.loop && "
         "mknod $D b $(stat -c '%Hr %Lr' $L); " +
             gpt,
         "the partition table (GPT) of: sda. "},
    };
    for (const auto &[command, said] : cases) {
        listed = "\n\n";
        if (command.starts_with("mv") && std::system("losetup -f >/dev/null 2>&1") != 0) // NOLINT
            GTEST_SKIP() << "needs loop devices for sectors of 4,096 bytes";
        add_disk("sda", command);
        EXPECT_THAT(list(), HasSubstr("80 sda ")) << command;
        EXPECT_THAT(describe_disk_notes(notes), HasSubstr(said)) << command;
        EXPECT_EQ(notes_warn(notes), command != gpt);
        run_tool("cd " + root.path().string() + "/dev; losetup -d $(cat sda.loop); rm sda*");
    }
}

TEST_F(machine, of_a_reader_that_fails_only_the_device_is_taken)
{
    add_disk("sda", "echo 2048,2048,83 | sfdisk -q $D");
    add_disk("sdb");
    const fs::path reader = root.path() / (table_reader_program + 1);
    for (const std::string command : {"exec sleep 9", "exec yes >&3", "exec " READ_TABLE " ${1%a}b $2",
                                      READ_TABLE " \"$@\" 3>&1 | head -c -1 >&3"}) {
        fs::remove(reader);
        fs::permissions(root.write(table_reader_program + 1, "#!/bin/sh\n" + command), fs::perms::owner_all);
        const partition_table table =
            read_partition_table("/dev/sda", table_depth::whole_table, std::chrono::milliseconds(500));
        EXPECT_EQ(table.length, command.ends_with("-1 >&3") ? 32768 : 0) << command;
        EXPECT_TRUE(table.unreadable && table.type.empty() && table.entries.empty()) << command;
    }
    // Behind libparted nobody else reads the disk: here it hangs whoever opens it.
    fs::remove(reader);
    fs::permissions(root.write(table_reader_program + 1, "#!/bin/sh\n" READ_TABLE " \"$@\" 3>$1.out;"
                                                         "rm $1; mkfifo $1; cat $1.out >&3"),
                    fs::perms::owner_all);
    listed = "\n\n";
    add_disk("sda", "sgdisk -n 1::+1M -t 1:0700 $D");
    EXPECT_EQ(list(), "80 sda gpt 32768*512: 1C2048+2048\n");
    fs::remove(reader);
    EXPECT_EQ(list(), "80 sda 0*0:\n");
}

TEST_F(machine, damaged_gpt_has_no_entries)
{
    add_disk("sda", "sgdisk -n 2:0:+1M -t 2:0700 $D");
    const std::string table = content_of(root.path() / "dev/sda").substr(0, 2 * 512 + 128 * 128);
    // The size of the image, the place of the damage, and its bytes.
    const std::tuple<std::size_t, std::uint64_t, std::string> cases[] = {
        {table.size(), 512 + 7, "\xD4"},                     // the signature
        {table.size(), 512 + 84, {"\0\1\0\0", 4}},           // entries of 256 bytes
        {table.size(), 512 + 80, {"\1\x10\0\0", 4}},         // 4,097 entries
        {table.size(), 512 + 72, {"\1\0\0\0\0\0\0\x80", 8}}, // beyond any offset
        {table.size() - 1, 512, "E"},
        {1023, 512, "E"},
    };
    for (const auto &[size, offset, bytes] : cases) {
        overwrite(root.write("damaged", table.substr(0, size)), offset, bytes);
        EXPECT_FALSE(readGpt("/damaged")) << size << " bytes, damaged at " << offset;
    }
    root.write("damaged", table);
    EXPECT_THAT(readGpt("/damaged"), Optional(ElementsAre(2))) << "nothing beyond the entries is read";
}

} // namespace
