// What the board will find of a saved template: files on partitions of each kind, sectors, and what nobody
// can tell.
#include "common/check.h"
#include "common/environment.h"
#include "template_bytes.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

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
        add_part('C', "ext4", 100).mount_point = top;
        host.write("proc/mounts", "/dev/sda1 " + top + " ext4 rw 0 0\nnone " + top +
                                      "/over tmpfs rw 0 0\n/dev/sda1 " + top + "/bound ext4 rw 0 0\n");
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

    void save()
    {
        host.write("boot/bootfile.nam", "");
        fs::last_write_time(name_file, fs::last_write_time(files.write("last", "")));
    }

    // As package systems do it, with a time of modification that is old.
    void replace(const std::string &name) const
    {
        const fs::path file = files.path() / name;
        do
            files.write(name, "x");
        while (fs::last_write_time(file) <= fs::last_write_time(name_file));
        fs::last_write_time(file, fs::last_write_time(name_file) - 1000h);
    }

    // The first one again after each: what was looked up before makes no difference.
    void expect(entry_state state, const std::vector<std::string> &records)
    {
        file_check check(env);
        board_names names([](const auto &work) { work(); });
        for (const std::string &record : records)
            for (const std::string &looked_up : {record, records.front()})
                EXPECT_EQ(check.state_of(names, looked_up), state) << looked_up << " after " << record;
    }

    using enum entry_state;
    const scratch_directory files, host;
    const replaced_host replaced;
    const std::string top = files.path();
    const fs::path name_file = host.path() / "boot/bootfile.nam";
    const fs::file_time_type ahead = fs::file_time_type::clock::now() + 1000h;
    environment env;
};

TEST_F(template_check, tells_what_is_gone_changed_or_out_of_sight)
{
    for (const char *name : {"same", "dir/deep/same", "dir/new", "over/file", "bound", "dir/odd\\n\xFF\n"})
        files.write(name, "");
    fs::create_symlink("same", files.path() / "link");
    fs::create_directory_symlink("dir", files.path() / "linked");
    fs::last_write_time(files.path() / "same", ahead); // by its maker
    save();
    replace("dir/new");
    add_part('D', "ext4", 200);
    add_part('E', "xfs", 300);
    add_part('F', std::nullopt, 400);
    add_part(0, "ext4", 500);
    add_part('\xFE', "ext4", 600).mount_point = top;
    env.disks.front().parts.back().dev = 1; // something else is mounted there by now
    expect(unchanged, {"C:/dir/deep/same", "C:/dir/odd\\n\xFF\n", "C:/same", "C://dir//deep/same"});
    expect(changed, {"C:/dir/new"});
    // The board follows no links.
    expect(gone, {"C:/missing", "C:/dir/missing/file", "C:/same/file", "C:/dir/deep", "C:/link",
                  "C:/linked/deep/same", "C:", "", "E:/same", std::string(1, '\0') + ":/same", "Z:/same"});
    expect(unknown, {"C:/over/file", "C:/bound", "C:/dir/../same", "D:/same", "F:/same", "\xFE:/same"});
    env.disk_notes.push_back({"sdb", disk_note_reason::nvme});
    expect(gone, {"C:/missing"});
    env.disk_notes.push_back({"sdb", disk_note_reason::cannot_open});
    expect(unknown, {"C:/missing", "Z:/same"});
    fs::last_write_time(name_file, ahead);
    expect(unknown, {"C:/dir/new"});
}

TEST_F(template_check, takes_the_later_of_two_times)
{
    const auto soon = fs::file_time_type::clock::now() + 1s;
    fs::last_write_time(files.write("file", ""), soon);
    fs::last_write_time(host.write("boot/bootfile.nam", ""), soon - 1us); // after ctime
    while (fs::file_time_type::clock::now() <= soon)
        usleep(10'000);
    expect(changed, {"C:/file"});
}

TEST_F(template_check, finds_files_by_short_names_and_in_code_page_866)
{
    for (const char *name : {"Dir/Long name.txt", "Dir/Longer name.txt", "Dir/Ф", "plain"})
        files.write(name, "");
    const std::string volume = host.write("dev/sda1", "");
    run_tool("cd " + top + "; truncate -s 64M " + volume + "; mkfs.fat -F 32 " + volume +
             " && LC_ALL=C.UTF-8 mcopy -si " + volume + " Dir plain ::/");
    save();
    replace("Dir/Longer name.txt");
    fs::remove(files.path() / "plain");
    env.disks.front().parts.front().fs_type = "fat32";
    expect(unchanged, {"C:\\DIR\\LONGNA~1.TXT"});
    expect(changed, {"C:\\DIR\\LONGER~1.TXT"});
    expect(gone, {"C:\\DIR\\LONGNA~2.TXT", "C:\\DIR"});
    expect(unknown, {"C:\\PLAIN"}); // the mount has another name for it
    fs::remove(volume);
    expect(unknown, {"C:\\DIR\\LONGNA~1.TXT"});
    env.disks.front().parts.front().fs_type = "ntfs";
    expect(unchanged, {"C:\\Dir\\\x94"});
    expect(changed, {"C:\\Dir\\Longer name.txt"});
    expect(gone, {"C:\\Dir\\LONGNA~1.TXT"});
}

TEST_F(template_check, knows_the_sectors_at_which_something_begins)
{
    add_part('D', "linux-swap(v1)", 300).swap = 1;
    add_part(0, std::nullopt, 400).extended = 1;
    // 101: it moved; 300: of no use for the board; 5000: behind the end
    const std::pair<std::uint32_t, entry_state> cases[] = {{0, unchanged}, {100, unchanged}, {400, unchanged},
                                                           {101, gone},    {300, gone},      {5000, gone}};
    for (const auto &[sector, state] : cases) {
        EXPECT_EQ(check_sector(env, make_sector_record(0x80, sector)), state) << sector;
        EXPECT_EQ(check_sector(env, make_sector_record(0x81, sector)), gone) << sector;
    }
    env.disk_notes.push_back({"sda", disk_note_reason::unreadable});
    EXPECT_EQ(check_sector(env, make_sector_record(0x80, 101)), unknown);
}

} // namespace
