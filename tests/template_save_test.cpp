// Saving: which marks become which bytes, and what stays when something is refused or fails.
#include "template_save.h"

#include "gtk_support.h"
#include "marked_partition.h"
#include "template_bytes.h"
#include "tree_walk.h"

#include <csignal>
#include <gtest/gtest.h>
#include <sys/resource.h>

namespace {

using texts = std::vector<std::string>;

pair_bytes file_pair(const texts &records)
{
    return pair_of(2, "C:/boot/pelva/bootfile.nam", records);
}

// The five marked files of C:/Dir that a save on this kind of partition writes.
pair_bytes save_names(const std::string &fs_type)
{
    marked_partition partition(fs_type);
    const std::string image = partition.host.write("dev/sda1", ""), file = partition.host.write("file", "x");
    run_tool("truncate -s 16M " + image + "; mkfs.fat -F 16 " + image + "; mmd -i " + image +
             " ::/Dir; for n in" + " 'Long name.txt' plain.txt; do mcopy -i " + image + " " + file +
             " \"::/Dir/$n\" || exit; done");
    file_node *dir = partition.add(partition.root(), "Dir", file_kind::directory);
    for (const char *name :
         {"Long name.txt", "plain.txt", "two\nlines", "\xFF", "\xD0\xA4\xD0\xB0\xD0\xB9\xD0\xBB"})
        partition.add(dir, name);
    mark_iter(&partition.app, partition.store, partition.add(dir, "unmarked"), 0);
    files_changed = 1;
    save_file_template(&partition.app, partition.store);
    EXPECT_TRUE(files_changed == 0 && partition.app.total_files_selected == 5) << fs_type;
    return read_pair(partition.app.pelva_db_path);
}

TEST(saving, names_files_as_the_firmware_knows_them)
{
    EXPECT_TRUE(save_names("ext4") ==
                file_pair({"C:/Dir/Long name.txt", "C:/Dir/plain.txt", "C:/Dir/two\nlines", "C:/Dir/\xFF",
                           "C:/Dir/\xD0\xA4\xD0\xB0\xD0\xB9\xD0\xBB"}));
    EXPECT_TRUE(save_names("fat16") == file_pair({"C:\\DIR\\LONGNA~1.TXT", "C:\\DIR\\PLAIN.TXT"}));
    EXPECT_TRUE(save_names("ntfs") == file_pair({"C:\\Dir\\Long name.txt", "C:\\Dir\\plain.txt",
                                                 "C:\\Dir\\two\nlines", "C:\\Dir\\\x94\xA0\xA9\xAB"}));
}

texts visited;

TEST(saving, walks_what_was_read_and_fits)
{
    marked_partition partition;
    file_node *unread = partition.add(partition.root(), "unread", file_kind::directory);
    unread->not_loaded = true;
    partition.add(unread, "never");
    file_node *deep = partition.root();
    for (int level = 0; level < 4; ++level)
        deep = partition.add(deep, std::string(250, 'd'), file_kind::directory);
    // The path to them takes 1,006 of 1,024 bytes; a separator and a NUL come on top of each name.
    for (const std::size_t length : {16U, 17U, 1U})
        partition.add(deep, std::string(length, 'f'));
    partition.add(partition.root(), "last");
    begin_path(&partition.app, "C:");
    const auto visit = [](struct app *app, file_store *, file_node *) {
        visited.emplace_back(app->path_buf);
    };
    walk_file_rows(&partition.app, partition.store, *partition.root(), visit, '\\');
    ASSERT_EQ(visited.size(), 2U);
    EXPECT_EQ(visited[0].size(), 1023U);
    EXPECT_EQ(visited[1], "C:\\last");
}

TEST(saving, sectors)
{
    marked_partition partition;
    sector_tree tree;
    GtkTreeIter first;
    gtk_tree_model_get_iter_first(GTK_TREE_MODEL(tree.store), &first);
    const std::string path = "C:/boot/pelva/bootsect.nam";
    const texts records = {
        {'\x80', 0, 0, 0, 0}, "\x80\x01\x02\x03\xFE", {'\x81', 0, 0, 0, 0}, "\x81\x01\x02\x03\xFE"};
    for (const texts &expected : {texts{}, records}) {
        sectors_changed = 1;
        save_sector_template(&partition.app, GTK_TREE_MODEL(tree.store));
        EXPECT_EQ(read_pair(partition.app.pelva_db_path, "bootsect"), pair_of(1, path, expected));
        EXPECT_EQ(sectors_changed, 0);
        disk_mark_all(&partition.app, tree.store, &first);
    }
}

TEST(saving, refuses_and_fails_without_loss)
{
    NEED_DISPLAY();
    marked_partition partition;
    struct app &app = partition.app;
    answered_dialogs dialogs(std::vector<int>(9, GTK_RESPONSE_OK));
    partition.add(partition.root(), std::string(252, 'n'));
    file_node *too_long = partition.add(partition.root(), std::string(253, 'n'));
    app.short_path = "/boot/pelva/"; // a slash at the end is not doubled
    save_file_template(&app, partition.store);
    const pair_bytes whole = file_pair({"C:/" + std::string(252, 'n')});
    EXPECT_EQ(read_pair(app.pelva_db_path), whole);
    EXPECT_FALSE(too_long->marked);
    ASSERT_EQ(dialogs.seen.size(), 1U);
    EXPECT_EQ(dialogs.seen[0].title + ": " + dialogs.seen[0].text, "Warning: File name is too long.\n");

    // Not even a file can be created: nobody is told, but the marks still wait to be saved.
    files_changed = 1;
    const std::string directory = std::exchange(app.pelva_db_path, "/nowhere");
    save_file_template(&app, partition.store);
    EXPECT_EQ(dialogs.seen.size(), 1U);
    app.pelva_db_path = directory;

    // A write fails; and the template directory's path does not fit into the header.
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit limit{1100, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
    save_file_template(&app, partition.store);
    setrlimit(RLIMIT_FSIZE, &before);
    const std::string path(120, 'p');
    app.short_path = path.c_str();
    save_file_template(&app, partition.store);
    ASSERT_EQ(dialogs.seen.size(), 3U);
    EXPECT_TRUE(dialogs.seen[1].title == "Error" && dialogs.seen[2].title == "Error");
    EXPECT_EQ(files_changed, 1);
    EXPECT_EQ(read_pair(app.pelva_db_path), whole);
    EXPECT_FALSE(app.fsnon || app.fsncv);
}

} // namespace
