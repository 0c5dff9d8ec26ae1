// What a saved file template marks, and what it reports as missing.
#include "gtk_support.h"
#include "tree_support.h"

#include <gtest/gtest.h>
#include <list>

namespace {

namespace fs = std::filesystem;

// A template file: its magic, the record count at 0x110, and whatever follows the header of 1,024 bytes.
std::string template_file(const char *magic, std::uint32_t count, const std::string &body)
{
    std::string file = magic;
    file.resize(0x110);
    for (int shift = 0; shift < 32; shift += 8)
        file += static_cast<char>(count >> shift);
    file.resize(1024);
    return file + body;
}

std::string records(const std::vector<std::string> &texts)
{
    std::string body;
    for (std::string text : texts) {
        text.resize(256);
        body += text;
    }
    return body;
}

int premark(browsed_partition &partition, const std::vector<std::string> &texts)
{
    const auto count = static_cast<std::uint32_t>(texts.size());
    partition.host.write("boot/bootfile.nam", template_file("SNON", count, records(texts)));
    partition.host.write("boot/bootfile.chk",
                         template_file("SNCV", count, std::string(4 * texts.size(), '\0')));
    return fill_model(&partition.app, partition.store);
}

// Paths of the marked files below a row.
std::string marked(const browsed_partition &partition, const file_node &row)
{
    std::string names;
    if (row.kind == file_kind::file && row.marked)
        names = full_path(row).substr(partition.app.mounts.front().mountpoint.size()) + " ";
    for (const auto &child : row.children)
        names += marked(partition, *child);
    return names;
}

TEST(premarking, marks_what_exists_and_lists_what_does_not)
{
    browsed_partition partition;
    NEED_FILE_SYSTEM(partition);
    partition.app.mounts.front().disk->parts.emplace_back().letter = 0; // a partition without a letter
    partition.app.mounts.push_back({nullptr, &partition.app.disks.front().parts.back(), 0, "/", 0, 0});
    for (const char *name : {"a/b/f", "a/b/g", "a/\xff\n", "a/not", "other/f"})
        partition.files.write(name, "123");
    fs::create_symlink("f", partition.files.path() / "a/b/link");
    files_changed = 0;
    EXPECT_EQ(premark(partition, {"C:/a/b/f", "C:/gone", "C:\\a\\b\\g", "Z:/a/b/f", "C:/a/\xff\n", "C:/other",
                                  "C:", "C:/a/b/link", "C:/a/b/../b/f", "C:/a//b/f", "C:/", "", "C:/a/b/f"}),
              0);
    EXPECT_EQ(marked(partition, *partition.root()), "/a/b/f /a/b/g /a/\xff\n ");
    EXPECT_EQ(partition.app.missing_files,
              (std::list<std::string>{"", "Z:/a/b/f", partition.files.path() / "gone"}));
    EXPECT_EQ(partition.app.total_files_size, 9U);
    EXPECT_EQ(partition.root()->marked_files, 3);
    EXPECT_EQ(partition.row("a/b")->marked_files, 2);
    EXPECT_TRUE(partition.row("other")->not_loaded && !partition.row("other")->marked);
    EXPECT_EQ(files_changed, 0);
    // Where this run has mounted the partition says nothing to anybody.
    partition.app.mounts.front().mountpoint += "/tmp/tarnel1";
    EXPECT_EQ(premark(partition, {"C:/gone"}), 0);
    EXPECT_EQ(partition.app.missing_files, std::list<std::string>{"C:/gone"});
}

TEST(premarking, takes_what_a_damaged_pair_still_gives)
{
    const std::string body = records({"C:/1", "C:/2", "C:/3"}), checks(12, '\0');
    const auto name = [](std::uint32_t count, const std::string &records) {
        return template_file("SNON", count, records);
    };
    const std::string nam = name(3, body), chk = template_file("SNCV", 3, checks);
    const struct {
        std::string nam, chk; // empty: no such file
        int result;
        unsigned marked;
    } cases[] = {
        {nam, chk, 0, 3},
        {"", chk, -1, 0},
        {nam, "", -2, 0},
        {chk, nam, -2, 0},
        {nam.substr(0, 1023), chk, -2, 0},
        {nam, chk.substr(0, 1023), -2, 0},
        {template_file("SNOM", 3, body), chk, -2, 0},
        {name(0, body), chk, 0, 0},
        {name(2, body), chk, 0, 2},
        {name(0xFFFFFFFF, body), chk, 0, 3},
        {name(3, body.substr(0, 767)), chk, 0, 2},
        {name(3, body.substr(0, 256)), chk, 0, 1},
        {nam + "x", chk, 0, 3},
    };
    for (const auto &c : cases) {
        browsed_partition partition;
        NEED_FILE_SYSTEM(partition);
        for (const char *file : {"1", "2", "3"})
            partition.files.write(file, "");
        if (!c.nam.empty())
            partition.host.write("boot/bootfile.nam", c.nam);
        if (!c.chk.empty())
            partition.host.write("boot/bootfile.chk", c.chk);
        EXPECT_EQ(fill_model(&partition.app, partition.store), c.result);
        EXPECT_EQ(partition.app.total_files_selected, c.marked);
        EXPECT_TRUE(partition.app.missing_files.empty());
    }
}

TEST(premarking, finds_files_by_the_names_of_their_file_system)
{
    if (!have_tool("mkfs.fat") || !have_tool("mcopy"))
        GTEST_SKIP() << "no tools to make a FAT volume";
    for (const auto &[fs_type, size] :
         {std::pair<std::string, std::string>("fat16", "16M"), {"fat32", "64M"}}) {
        browsed_partition partition(fs_type);
        NEED_FILE_SYSTEM(partition);
        partition.files.write("Long directory/\xd0\x96 file.text", "");
        partition.files.write("PLAIN.TXT", "");
        partition.host.write("dev/none", "");
        const std::string image = partition.host.path() / "dev/sda1";
        run_tool("truncate -s " + size + " " + image + " && mkfs.fat -F " + fs_type.substr(3) + " " + image +
                 " && LC_ALL=C.UTF-8 mcopy -si " + image + " " + partition.files.path().string() + "/* ::/");
        EXPECT_EQ(premark(partition, {"C:\\LONGDI~1\\_FILE~1.TEX", "C:/PLAIN.TXT", "C:\\LOST.TXT"}), 0);
        EXPECT_EQ(marked(partition, *partition.root()), "/Long directory/\xd0\x96 file.text /PLAIN.TXT ");
        EXPECT_EQ(partition.app.missing_files, std::list<std::string>{partition.files.path() / "LOST.TXT"});
    }
    browsed_partition ntfs("ntfs");
    ntfs.files.write("My\\Files/a\\b.txt", "");
    ntfs.files.write("\xd0\x96/x", "");
    EXPECT_EQ(premark(ntfs, {"C:\\My\\Files\\a\\b.txt", "C:\\\x86\\x"}), 0);
    EXPECT_EQ(marked(ntfs, *ntfs.root()), "/My\\Files/a\\b.txt /\xd0\x96/x ");
}

TEST(premarking, asks_whether_to_drop_missing_files)
{
    NEED_DISPLAY();
    for (const int answer : {GTK_RESPONSE_NO, GTK_RESPONSE_YES}) {
        browsed_partition partition;
        NEED_FILE_SYSTEM(partition);
        partition.files.write("here", "");
        premark(partition, {"C:/first\xff", "C:/here", "C:/sec\nond"});
        answered_dialogs user({answer});
        partition.show();
        ASSERT_EQ(user.seen.size(), 1U);
        EXPECT_EQ(user.seen[0].title, "Confirm");
        const std::string top = partition.files.path();
        EXPECT_EQ(user.seen[0].text,
                  "The following files are missing. Delete these files from a template?\n" + top +
                      "/sec\u240Aond\n" + top + "/first\uFFFD\n\n");
        EXPECT_TRUE(partition.app.missing_files.empty());
        EXPECT_STREQ(gtk_label_get_text(GTK_LABEL(partition.app.total_files_selected_label)), "1");
        EXPECT_EQ(fs::file_size(partition.host.path() / "boot/bootfile.nam"),
                  1024U + 256 * (answer == GTK_RESPONSE_YES ? 1 : 3));
    }
}

} // namespace
