// Saving and the other commands: which marks become which bytes, what every answer leaves behind, and what
// stays when something is refused.
#include "template_save.h"

#include "callbacks.h"
#include "diskbrowser.h"
#include "gtk_support.h"
#include "template_bytes.h"
#include "tree_support.h"
#include "tree_walk.h"

#include <gtest/gtest.h>

namespace {

using texts = std::vector<std::string>;

// A partition and an empty template directory, which the firmware knows as C:/boot/pelva.
struct saving : testing::Test {
    void mark_files(const texts &names)
    {
        for (const std::string &name : names)
            partition->files.write(name, "x");
        mark_recursive(app, partition->store, partition->root(), 1);
    }

    void use_partition(const std::string &fs_type)
    {
        partition.reset(); // before the next one replaces the host
        partition = std::make_unique<browsed_partition>(fs_type);
        app = &partition->app;
        std::filesystem::create_directory(app->pelva_db_path);
        app->pelva_db_mt = &app->mounts.front();
        app->short_path = "/boot/pelva/"; // the slash at the end must not be doubled
        app->separator = '/';
        files_changed = sectors_changed = 1;
    }

    // A marked row with a path that is too long for a tree read from disk.
    file_node *add(file_node *parent, std::size_t length, file_kind kind)
    {
        file_node *added =
            append_row(partition->store, parent, kind, std::string(length, 'x'), &app->mounts.front());
        mark_iter(app, partition->store, added, 1);
        return added;
    }

    void SetUp() override { use_partition("ext4"); }
    pair_bytes saved(const std::string &name = "bootfile") { return read_pair(app->pelva_db_path, name); }
    static pair_bytes file_pair(const texts &records)
    {
        return pair_of(2, "C:/boot/pelva/bootfile.nam", records);
    }

    std::unique_ptr<browsed_partition> partition;
    struct app *app = nullptr;
};

TEST_F(saving, names_files_as_the_firmware_knows_them)
{
    const texts names = {"Dir/Long name.txt", "Dir/plain.txt", "Dir/\xFF\n", "Dir/\xD0\xA4"};
    const std::pair<const char *, texts> cases[] = {
        {"ext4", {"C:/Dir/Long name.txt", "C:/Dir/plain.txt", "C:/Dir/\xD0\xA4", "C:/Dir/\xFF\n"}},
        {"fat16", {"C:\\DIR\\LONGNA~1.TXT", "C:\\DIR\\PLAIN.TXT"}},
        {"ntfs", {"C:\\Dir\\Long name.txt", "C:\\Dir\\plain.txt", "C:\\Dir\\\x94"}}};
    for (const auto &[fs_type, records] : cases) {
        use_partition(fs_type);
        NEED_FILE_SYSTEM(*partition);
        mark_files(names);
        std::filesystem::current_path(partition->files.path() / "Dir");
        setenv("IMAGE", partition->host.write("dev/sda1", "").c_str(), 1);
        run_tool("truncate -s 16M $IMAGE; mkfs.fat -F 16 $IMAGE; mmd -i $IMAGE ::/Dir;"
                 "mcopy -i $IMAGE 'Long name.txt' plain.txt ::/Dir");
        std::filesystem::current_path("/");
        save_file_template(app, partition->store);
        EXPECT_EQ(saved(), file_pair(records)) << fs_type;
        EXPECT_TRUE(files_changed == 0 && app->total_files_selected == 4) << fs_type;
    }
}

TEST_F(saving, ends_a_level_whose_path_grows_too_long)
{
    static texts visited;
    file_node *at = partition->root();
    for (int level = 0; level < 4; ++level)
        at = add(at, 250, file_kind::directory);
    // Their path takes 1,006 of 1,024 bytes; a separator and a NUL come on top of each name.
    for (const std::size_t length : {16U, 17U, 1U})
        add(at, length, file_kind::file);
    add(partition->root(), 4, file_kind::file);
    begin_path(app, "C:");
    const auto visit = [](struct app *to, file_store *, file_node *) { visited.emplace_back(to->path_buf); };
    walk_file_rows(app, partition->store, *partition->root(), visit, '\\');
    ASSERT_EQ(visited.size(), 2U);
    EXPECT_EQ(visited[0].size(), 1023U);
    EXPECT_EQ(visited[1], "C:\\xxxx");
}

TEST_F(saving, refuses_without_loss)
{
    NEED_DISPLAY();
    NEED_FILE_SYSTEM(*partition);
    answered_dialogs dialogs({GTK_RESPONSE_OK, GTK_RESPONSE_OK});
    mark_files({std::string(252, 'n')});
    const file_node *too_long = add(partition->root(), 253, file_kind::file);
    const pair_bytes whole = file_pair({"C:/" + std::string(252, 'n')});
    save_file_template(app, partition->store);
    EXPECT_EQ(saved(), whole);
    EXPECT_FALSE(too_long->marked);

    // The template directory's path does not fit into the header.
    files_changed = 1;
    const std::string path(120, 'p');
    app->short_path = path.c_str();
    save_file_template(app, partition->store);
    EXPECT_EQ(dialogs.text(), "Warning: File name is too long.\n"
                              "Error: The path of the template directory is too long for the board.\n");
    EXPECT_EQ(files_changed, 1);
    EXPECT_EQ(saved(), whole);
}

TEST_F(saving, commands_do_something_only_on_yes)
{
    NEED_DISPLAY();
    NEED_FILE_SYSTEM(*partition);
    const struct {
        void (*handler)(GtkWidget *, struct app *);
        const char *question;
        bool files;
        std::uint32_t before, after; // marked rows
        bool saves;
    } commands[] = {{on_files_save_clicked, "overwrite existing template?", true, 2, 2, true},
                    {on_files_clear_clicked, "clear files selection?", true, 2, 0, false},
                    {on_files_default_clicked, "set default selection?", true, 2, 0, false},
                    {on_sectors_save_clicked, "overwrite existing template?", false, 0, 0, true},
                    {on_sectors_default_clicked, "set default selection?", false, 0, 4, false},
                    {on_sectors_save_clicked, "overwrite existing template?", false, 4, 4, true},
                    {on_sectors_clear_clicked, "clear sectors selection?", false, 4, 0, false}};
    partition->show();
    app->disks.front().drive_number = 0x80;
    app->disks.push_back(app->disks.front());
    app->disks.back().drive_number = 0x81;
    app->disks.back().parts.front().sect_before = 0xFE030201;
    GtkTreeStore *sectors = disk_create_model();
    fill_tree(app, sectors);
    const owned_object<GtkWidget> view(
        static_cast<GtkWidget *>(g_object_ref_sink(gtk_tree_view_new_with_model(GTK_TREE_MODEL(sectors)))));
    app->diskbrowser = view.get();
    mark_files({"a", "dir/b"});
    for (const auto &[handler, question, files, before, after, saves] : commands) {
        mark_recursive(app, partition->store, partition->root(), files);
        for (const int answer : {GTK_RESPONSE_NO, GTK_RESPONSE_DELETE_EVENT, GTK_RESPONSE_YES}) {
            answered_dialogs dialogs({answer});
            files_changed = sectors_changed = saves;
            handler(app->window, app);
            EXPECT_EQ(dialogs.text(), "Confirm: Do you really want to " + std::string(question) + "\n");
            const bool yes = answer == GTK_RESPONSE_YES;
            EXPECT_EQ(files ? files_changed : sectors_changed, yes != saves) << question;
            EXPECT_EQ(files ? sectors_changed : files_changed, saves) << question;
            EXPECT_EQ(files ? app->total_files_selected : app->total_sectors_selected, yes ? after : before);
        }
    }
    EXPECT_EQ(
        saved("bootsect"),
        pair_of(1, "C:/boot/pelva/bootsect.nam",
                {{'\x80', 0, 0, 0, 0}, {'\x80', 0, 0, 0, 0}, {'\x81', 0, 0, 0, 0}, "\x81\x01\x02\x03\xFE"}));
    app->diskbrowser = nullptr;
    g_object_unref(sectors);
}

} // namespace
