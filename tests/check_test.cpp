// What the board will find of a saved template: files on partitions of each kind, sectors, and what nobody
// can tell.
#include "common/check.h"
#include "common/environment.h"
#include "template_bytes.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;

// Partition sda1 with the letter C is mounted on a directory of its own; the template is saved when the files
// of a test have been made.
struct template_check : testing::Test {
    template_check() : replaced(host.path())
    {
        env.pelva_db_path = host.path() / "boot";
        disk &d = env.disks.emplace_back();
        d.name = "sda";
        d.drive_number = 0x80;
        d.length = 1000;
        add_part('C', "ext4", 100).mount_point = files.path();
        host.write("proc/mounts", "/dev/sda1 " + files.path().string() + " ext4 rw 0 0\n");
    }

    part &add_part(char letter, const std::optional<std::string> &fs_type, std::uint64_t first)
    {
        part &p = env.disks.front().parts.emplace_back();
        p.sect_before = first;
        p.sect_total = 100;
        p.index = static_cast<std::int32_t>(first / 100);
        p.letter = letter;
        p.fs_type = fs_type;
        p.device = "sda";
        return p;
    }

    static struct stat status_of(const fs::path &file)
    {
        struct stat status = {};
        EXPECT_EQ(lstat(file.c_str(), &status), 0) << file;
        return status;
    }

    static void set_time(const fs::path &file, timespec time)
    {
        const timespec times[] = {time, time};
        EXPECT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0) << file;
    }

    // As when nothing was written to the partition since.
    void save() { set_time(host.write("boot/bootfile.nam", ""), status_of(files.write("last", "")).st_ctim); }

    // Lets a file have changed after the save, by its times only.
    void change(const std::string &name) const
    {
        const timespec saved = status_of(host.path() / "boot/bootfile.nam").st_mtim;
        timespec time = saved;
        while (time.tv_sec == saved.tv_sec && time.tv_nsec == saved.tv_nsec) {
            fs::permissions(files.path() / name, fs::perms::owner_all);
            time = status_of(files.path() / name).st_ctim;
        }
    }

    void expect_states(const std::vector<std::pair<std::string, entry_state>> &expected)
    {
        file_check check(env);
        board_names names([](const auto &work) { work(); });
        for (const auto &[record, state] : expected)
            EXPECT_EQ(check.state_of(names, record), state) << record;
    }

    using enum entry_state;
    const scratch_directory files, host;
    const replaced_host replaced;
    environment env;
};

TEST_F(template_check, tells_what_is_gone_changed_or_out_of_sight)
{
    for (const char *name : {"same", "dir/deep/same", "dir/new", "over/file", "bound", "dir/odd\\n\xFF\n"})
        files.write(name, "");
    fs::create_symlink("same", files.path() / "link");
    fs::create_directory_symlink("dir", files.path() / "linked");
    set_time(files.path() / "same", {1L << 33, 0}); // by its maker, and ahead
    save();
    change("dir/new");
    host.write("proc/mounts", "/dev/sda1 " + files.path().string() + " ext4 rw 0 0\nnone " +
                                  files.path().string() + "/over tmpfs rw 0 0\n/dev/sda1 " +
                                  files.path().string() + "/bound ext4 rw 0 0\n");
    add_part('D', "ext4", 200);
    add_part('E', "xfs", 300);
    add_part('F', std::nullopt, 400);
    add_part(0, "ext4", 500);
    add_part('\xFE', "ext4", 600).mount_point = files.path();
    env.disks.front().parts.back().dev = 1; // something else is mounted there by now
    expect_states({{"C:/dir/deep/same", unchanged},
                   {"C:/dir/odd\\n\xFF\n", unchanged},
                   {"C:/same", unchanged},
                   {"C:/dir/new", changed},
                   {"C:/missing", gone},
                   {"C:/dir/missing/file", gone},
                   {"C:/same/file", gone},
                   {"C:/dir/deep", gone},
                   {"C:/link", gone}, // the board follows none
                   {"C:/linked/deep/same", gone},
                   {"C:/over/file", unknown}, // another one lies below the mount
                   {"C:/bound", unknown},
                   {"C:/dir/../same", unknown},
                   {"C:", gone},
                   {"", gone},
                   {"D:/same", unknown},
                   {"E:/same", gone},
                   {"F:/same", unknown},
                   {std::string(1, '\0') + ":/same", gone},
                   {"Z:/same", gone},
                   {"\xFE:/same", unknown},
                   {"C:/dir/deep/same", unchanged}});
    env.disk_notes.push_back({"sdb", disk_note_reason::nvme});
    expect_states({{"C:/missing", gone}});
    env.disk_notes.push_back({"sdb", disk_note_reason::cannot_open});
    expect_states({{"C:/missing", unknown}, {"Z:/same", unknown}, {"C:/dir/new", changed}});
}

TEST_F(template_check, takes_the_later_of_two_times_and_none_that_lies_ahead)
{
    const fs::path file = files.write("file", ""), saved = host.write("boot/bootfile.nam", "");
    timespec soon = status_of(file).st_ctim;
    soon.tv_sec += 1;
    set_time(file, soon);
    set_time(saved, status_of(file).st_ctim);
    expect_states({{"C:/file", unchanged}});
    for (timespec now{}; now.tv_sec <= soon.tv_sec + 1;)
        clock_gettime(CLOCK_REALTIME, &now);
    expect_states({{"C:/file", changed}});
    set_time(saved, {1L << 33, 0});
    EXPECT_FALSE(file_check(env).knows_time());
    expect_states({{"C:/file", unknown}, {"C:/missing", gone}});
}

TEST_F(template_check, finds_files_by_short_names_and_in_code_page_866)
{
    for (const char *name : {"Dir/Long name.txt", "Dir/Longer name.txt", "Dir/Ф", "plain"})
        files.write(name, "");
    const std::string volume = host.write("dev/sda1", "");
    run_tool("cd " + files.path().string() + "; truncate -s 64M " + volume + "; mkfs.fat -F 32 " + volume +
             " && LC_ALL=C.UTF-8 mcopy -si " + volume + " Dir plain ::/");
    save();
    change("Dir/Longer name.txt");
    fs::remove(files.path() / "plain");
    env.disks.front().parts.front().fs_type = "fat32";
    expect_states({{"C:\\DIR\\LONGNA~1.TXT", unchanged},
                   {"C:\\DIR\\LONGER~1.TXT", changed},
                   {"C:\\DIR\\LONGNA~2.TXT", gone},
                   {"C:\\PLAIN", unknown}, // the mount has another name for it
                   {"C:\\DIR", gone}});
    fs::remove(volume);
    expect_states({{"C:\\DIR\\LONGNA~1.TXT", unknown}});
    env.disks.front().parts.front().fs_type = "ntfs";
    expect_states({{"C:\\Dir\\\x94", unchanged},
                   {"C:\\Dir\\Longer name.txt", changed},
                   {"C:\\Dir\\LONGNA~1.TXT", gone}});
}

TEST_F(template_check, knows_the_sectors_at_which_something_begins)
{
    add_part('D', "linux-swap(v1)", 300).swap = 1;
    add_part(0, std::nullopt, 400).extended = 1;
    const std::tuple<std::uint32_t, std::uint32_t, entry_state> cases[] = {
        {0x80, 0, unchanged}, {0x80, 100, unchanged}, {0x80, 400, unchanged}, {0x80, 101, gone}, // it moved
        {0x80, 300, gone},    {0x80, 5000, gone},     {0x81, 0, gone}};
    for (const auto &[drive, sector, state] : cases)
        EXPECT_EQ(check_sector(env, make_sector_record(drive, sector)), state) << drive << " " << sector;
    env.disk_notes.push_back({"sda", disk_note_reason::unreadable});
    EXPECT_EQ(check_sector(env, make_sector_record(0x80, 101)), unknown);
}

} // namespace
