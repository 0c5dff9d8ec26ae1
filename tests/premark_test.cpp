// What a saved file template marks, and what it reports as missing.
#include "gtk_support.h"
#include "notice_bar.h"
#include "start_questions.h"
#include "template_bytes.h"
#include "template_save.h"
#include "tree_support.h"

#include <gtest/gtest.h>
#include <list>

namespace {

namespace fs = std::filesystem;

int premark(browsed_partition &partition, const pair_bytes &pair)
{
    write_pair(partition.host, pair, "boot/bootfile");
    return fill_model(&partition.app, partition.store);
}

// Paths of the marked files below a row.
std::string marked(const browsed_partition &partition, const file_node &row)
{
    std::string paths;
    if (row.kind == file_kind::file && row.marked)
        paths = full_path(row).substr(partition.files.path().string().size()) + " ";
    for (const auto &child : row.children)
        paths += marked(partition, *child);
    return paths;
}

TEST(premarking, marks_what_exists_and_lists_what_does_not)
{
    browsed_partition partition;
    partition.app.mounts.front().disk->parts.emplace_back().letter = 0; // a partition without a letter
    partition.app.mounts.push_back({nullptr, &partition.app.disks.front().parts.back(), 0, "/", 0, 0});
    for (const char *name : {"a/b/f", "a/b/g", "a/\xff\n", "a/not", "other/f"})
        partition.files.write(name, "123");
    fs::create_symlink("f", partition.files.path() / "a/b/link");
    files_changed = 0;
    EXPECT_EQ(premark(partition,
                      pair_of(2, "",
                              {"C:/a/b/f", "C:/gone", "C:\\a\\b\\g", "Z:\\\x94", "C:/a/\xff\n", "C:/other",
                               "C:", "C:/a/b/link", "C:/a/b/../b/f", "C:/a//b/f", "C:/", "", "C:/a/b/f"})),
              0);
    EXPECT_EQ(marked(partition, *partition.root()), "/a/b/f /a/b/g /a/\xff\n ");
    EXPECT_EQ(partition.app.missing_files,
              (std::list<std::string>{"", "Z:\\\u0424", partition.files.path() / "gone"}));
    EXPECT_EQ(partition.app.hidden_files.size(), 6U);
    EXPECT_EQ(partition.app.total_files_size, 9U);
    EXPECT_EQ(partition.row("a/b")->marked_files, 2);
    EXPECT_TRUE(partition.row("other")->not_loaded);
    EXPECT_EQ(files_changed, 0);
    // Where this run has mounted the partition says nothing to anybody.
    partition.app.mounts.front().mountpoint += "/tmp/tarnel1";
    EXPECT_EQ(premark(partition, pair_of(2, "", {"C:/gone"})), 0);
    EXPECT_EQ(partition.app.missing_files, std::list<std::string>{"C:/gone"});
}

TEST(premarking, tells_what_a_damaged_pair_does_not_give)
{
    browsed_partition partition;
    partition.files.write("1", "");
    pair_bytes pair = pair_of(2, "", {"C:/1", "C:/2"});
    pair.nam.pop_back();
    EXPECT_EQ(premark(partition, pair), 0);
    EXPECT_EQ(partition.app.total_files_selected, 1U);
    EXPECT_EQ(partition.app.missing_files, std::list<std::string>{"Record 2 cannot be read"});
    pair.nam[0x113] = '\x40';
    EXPECT_EQ(premark(partition, pair), 0);
    EXPECT_EQ(partition.app.missing_files, std::list<std::string>{"Records 2 to 1073741826 cannot be read"});
    EXPECT_FALSE(partition.app.file_template.unreadable);
    pair.chk.clear();
    EXPECT_EQ(premark(partition, pair), -2);
    EXPECT_TRUE(partition.app.file_template.unreadable);
    for (const std::string name : {"nam", "chk"}) {
        fs::remove(partition.host.path() / ("boot/bootfile." + name));
        EXPECT_EQ(fill_model(&partition.app, partition.store), -1);
        EXPECT_EQ(partition.app.file_template.unreadable, name == "nam"); // half of a template is still there
    }
}

TEST(premarking, finds_files_by_their_short_names)
{
    browsed_partition partition("fat32");
    for (const auto *name : {"Long directory/Ж file.text", "PLAIN.TXT", "README.txt", "Ж.txt"})
        partition.files.write(name, "");
    partition.make_volume();
    partition.files.write("plain.txt", "");
    EXPECT_EQ(premark(partition, pair_of(2, "",
                                         {"C:\\LONGDI~1\\_FILE~1.TEX", "C:/PLAIN.TXT", "C:\\LOST.TXT",
                                          "C:\\README.TXT", "C:\\\x86.TXT"})),
              0);
    EXPECT_EQ(marked(partition, *partition.root()),
              "/Long directory/Ж file.text /PLAIN.TXT /README.txt /Ж.txt ");
    EXPECT_EQ(partition.app.missing_files, std::list<std::string>{partition.files.path() / "LOST.TXT"});
}

TEST(premarking, asks_about_missing_files_and_lists_those_without_a_row)
{
    browsed_partition partition;
    partition.files.write("here", "");
    const std::string top = partition.files.path();
    fs::create_symlink("here", top + "/li\nnk");
    premark(partition, pair_of(2, "", {"C:/first\xff", "C:/here", "C:/li\nnk", "C:/sec\nond"}));
    answered_dialogs user({GTK_RESPONSE_NO, GTK_RESPONSE_OK, GTK_RESPONSE_YES});
    partition.show();
    EXPECT_EQ(user.text, "Confirm: The following files are missing. Delete these files from a template?\n" +
                             top + "/sec\u240Aond\n" + top + "/first\uFFFD\n\n");
    EXPECT_STREQ(gtk_label_get_text(GTK_LABEL(partition.app.total_files_selected_label)), "1");
    EXPECT_EQ(fs::file_size(partition.host.path() / "boot/bootfile.nam"), 1024U + 256 * 4);
    user.text.clear();
    GtkInfoBar *bar = GTK_INFO_BAR(notice_bar(partition.app.filebrowser));
    g_autoptr(GList) content = gtk_container_get_children(GTK_CONTAINER(gtk_info_bar_get_content_area(bar)));
    const std::string hidden = "1 file of the saved template is not shown in the tree. ";
    ASSERT_EQ(g_list_length(content), 2U); // image and text
    EXPECT_EQ(gtk_label_get_text(GTK_LABEL(content->next->data)), hidden + "The next save drops it.");
    gtk_info_bar_response(bar, GTK_RESPONSE_OK);
    EXPECT_EQ(user.text, "Files: " + hidden + "The next save drops it.\n" + top + "/li\u240Ank\n\n");
    partition.app.missing_files = {"gone"};
    ask_delete_missing_files(&partition.app);
    EXPECT_EQ(partition.app.file_template.notices[0].text, hidden + "It is no longer in the template.");
    save_file_template(&partition.app, partition.store);
    EXPECT_EQ(notice_bar(partition.app.filebrowser), nullptr);
}

} // namespace
