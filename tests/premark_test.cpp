// What a saved file template marks, and what it reports as missing.
#include "gtk_support.h"
#include "template_bytes.h"
#include "tree_support.h"

#include <gtest/gtest.h>
#include <list>

namespace {

namespace fs = std::filesystem;

int premark_pair(browsed_partition &partition, const pair_bytes &pair)
{
    partition.host.write("boot/bootfile.nam", pair.nam);
    partition.host.write("boot/bootfile.chk", pair.chk);
    return fill_model(&partition.app, partition.store);
}

int premark(browsed_partition &partition, const std::vector<std::string> &records)
{
    return premark_pair(partition, pair_of(2, "", records));
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
    browsed_partition partition;
    NEED_FILE_SYSTEM(partition);
    for (const char *file : {"1", "2", "3"})
        partition.files.write(file, "");
    const pair_bytes whole = pair_of(2, "", {"C:/1", "C:/2", "C:/3"});
    const std::string &nam = whole.nam, &chk = whole.chk;
    const auto claiming = [&nam](const std::string &count) {
        return std::string(nam).replace(0x110, 4, count);
    };
    const std::tuple<pair_bytes, int, unsigned> cases[] = {
        {{nam, chk}, 0, 3},
        {{chk, nam}, -2, 0},
        {{nam.substr(0, 1023), chk}, -2, 0},
        {{nam, chk.substr(0, 1023)}, -2, 0},
        {{claiming({"\0\0\0\0", 4}), chk}, 0, 0},
        {{claiming({"\2\0\0\0", 4}), chk}, 0, 2},
        {{claiming("\xFF\xFF\xFF\xFF"), chk}, 0, 3},
        {{nam.substr(0, 1024 + 767), chk}, 0, 2},
        {{nam.substr(0, 1024 + 256), chk}, 0, 1},
        {{nam + "x", chk}, 0, 3},
    };
    for (const auto &[pair, result, marked] : cases) {
        mark_recursive(&partition.app, partition.store, partition.root(), 0);
        EXPECT_EQ(premark_pair(partition, pair), result);
        EXPECT_EQ(partition.app.total_files_selected, marked);
        EXPECT_TRUE(partition.app.missing_files.empty());
    }
    fs::remove(partition.host.path() / "boot/bootfile.chk");
    EXPECT_EQ(fill_model(&partition.app, partition.store), -2);
    fs::remove(partition.host.path() / "boot/bootfile.nam");
    EXPECT_EQ(fill_model(&partition.app, partition.store), -1);
}

TEST(premarking, finds_files_by_the_names_of_their_file_system)
{
    for (const std::string kind : {"16", "32"}) {
        browsed_partition partition("fat" + kind);
        NEED_FILE_SYSTEM(partition);
        for (const auto *name :
             {"Long directory/\xd0\x96 file.text", "PLAIN.TXT", "README.txt", "\xd0\x96.txt"})
            partition.files.write(name, "");
        fs::current_path(partition.files.path());
        setenv("IMAGE", partition.host.write("dev/sda1", "").c_str(), 1);
        setenv("KIND", kind.c_str(), 1);
        run_tool(
            "truncate -s 64M $IMAGE && mkfs.fat -F $KIND $IMAGE && LC_ALL=C.UTF-8 mcopy -si $IMAGE * ::/");
        fs::current_path("/");
        partition.files.write("plain.txt", "");
        EXPECT_EQ(premark(partition, {"C:\\LONGDI~1\\_FILE~1.TEX", "C:/PLAIN.TXT", "C:\\LOST.TXT",
                                      "C:\\README.TXT", "C:\\\x86.TXT"}),
                  0);
        EXPECT_EQ(marked(partition, *partition.root()),
                  "/Long directory/\xd0\x96 file.text /PLAIN.TXT /README.txt /\xd0\x96.txt ");
        EXPECT_EQ(partition.app.missing_files, std::list<std::string>{partition.files.path() / "LOST.TXT"});
    }
    browsed_partition ntfs("ntfs");
    ntfs.files.write("My\\Files/a\\b.txt", "");
    ntfs.files.write("\xd0\x96/x", "");
    EXPECT_EQ(premark(ntfs, {"C:\\My\\Files\\a\\b.txt", "C:\\\x86\\x"}), 0);
    EXPECT_EQ(marked(ntfs, *ntfs.root()), "/My\\Files/a\\b.txt /\xd0\x96/x ");
}

TEST(premarking, keeps_the_template_when_missing_files_are_not_to_be_dropped)
{
    NEED_DISPLAY();
    browsed_partition partition;
    NEED_FILE_SYSTEM(partition);
    partition.files.write("here", "");
    premark(partition, {"C:/first\xff", "C:/here", "C:/sec\nond"});
    answered_dialogs user({GTK_RESPONSE_NO});
    partition.show();
    const std::string top = partition.files.path();
    EXPECT_EQ(user.text(), "Confirm: The following files are missing. Delete these files from a template?\n" +
                               top + "/sec\u240Aond\n" + top + "/first\uFFFD\n\n");
    EXPECT_TRUE(partition.app.missing_files.empty());
    EXPECT_STREQ(gtk_label_get_text(GTK_LABEL(partition.app.total_files_selected_label)), "1");
    EXPECT_EQ(fs::file_size(partition.host.path() / "boot/bootfile.nam"), 1024U + 256 * 3);
}

} // namespace
