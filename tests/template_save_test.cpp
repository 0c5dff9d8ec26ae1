// Saving and the other commands: which marks become which bytes, what every answer leaves behind, and what
// stays when something is refused.
#include "template_save.h"

#include "callbacks.h"
#include "diskbrowser.h"
#include "gtk_support.h"
#include "template_bytes.h"
#include "tree_support.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <sys/mount.h>

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

    // Marked files that the page says are not in the template, by their paths on the partition.
    texts left_out()
    {
        texts paths;
        for (const std::string &name : app->file_template.notices[1].names)
            paths.push_back(name.substr(app->mounts.front().mountpoint.size()));
        return paths;
    }

    std::unique_ptr<browsed_partition> partition;
    struct app *app = nullptr;
};

TEST_F(saving, names_files_as_the_firmware_knows_them)
{
    const std::tuple<const char *, texts, texts> cases[] = {
        {"ext4", {"C:/Dir/Long name.txt", "C:/Dir/plain.txt", "C:/Dir/Ф", "C:/Dir/\xFF\n"}, {}},
        {"fat32", {"C:\\DIR\\LONGNA~1.TXT", "C:\\DIR\\PLAIN.TXT"}, {"/Dir/Ф", "/Dir/\xFF\n"}},
        {"ntfs",
         {"\x84:\\Dir\\Long name.txt", "\x84:\\Dir\\plain.txt", "\x84:\\Dir\\\x94"},
         {"/Dir/\xFF\n"}}};
    for (const auto &[fs_type, records, unnamed] : cases) {
        use_partition(fs_type);
        for (const char *name : {"Dir/Long name.txt", "Dir/plain.txt"})
            partition->files.write(name, "x");
        partition->make_volume();
        mark_files({"Dir/\xFF\n", "Dir/Ф"});
        app->mounts.front().letter = app->disks.front().parts.front().letter = records.front()[0];
        app->separator = records.front()[2];
        save_file_template(app, partition->store);
        std::string name_file = "C:/boot/pelva/bootfile.nam";
        name_file[0] = records.front()[0];
        std::ranges::replace(name_file, '/', app->separator);
        EXPECT_EQ(saved(), pair_of(2, name_file, records));
        EXPECT_EQ(std::tuple(files_changed, app->total_files_selected), std::tuple(0, 4U)) << fs_type;
        EXPECT_EQ(left_out(), unnamed) << fs_type;
        mark_recursive(app, partition->store, partition->root(), 0);
        EXPECT_EQ(fill_model(app, partition->store), 0);
        EXPECT_EQ(app->total_files_selected, records.size()) << "marked again";
    }
}

TEST_F(saving, tells_of_every_marked_file_without_a_record)
{
    answered_dialogs dialogs({GTK_RESPONSE_OK});
    mark_files({});
    file_node *at = partition->root();
    for (int level = 0; level < 4; ++level)
        at = add(at, 250, file_kind::directory);
    // Their path takes 1,006 of 1,024 bytes; a separator and a NUL come on top of each name. The first fits,
    // and is then too long for a record; the second ends the walk of its directory.
    for (const std::size_t length : {16U, 17U, 1U})
        add(at, length, file_kind::file);
    add(partition->root(), 4, file_kind::file);
    for (const std::size_t unnamed : {2U, 3U}) {
        save_file_template(app, partition->store);
        EXPECT_EQ(left_out().size(), unnamed);
        EXPECT_EQ(saved().nam.size(), 1024 + 256 * (3 - unnamed));
        app->mounts.front().letter = 0;
    }
    EXPECT_EQ(dialogs.text, "Warning: File name is too long.\n");
}

TEST_F(saving, refuses_what_is_too_long_without_loss)
{
    answered_dialogs dialogs({GTK_RESPONSE_OK, GTK_RESPONSE_OK});
    mark_files({std::string(252, 'n')});
    const file_node *too_long = add(partition->root(), 253, file_kind::file);
    const std::string path(113, 'p'); // one more than the header's field can hold
    const pair_bytes whole =
        pair_of(2, "C:" + path.substr(1) + "/bootfile.nam", {"C:/" + std::string(252, 'n')});
    for (const int refused : {0, 1}) {
        files_changed = 1;
        app->short_path = path.c_str() + 1 - refused;
        save_file_template(app, partition->store);
        EXPECT_EQ(saved(), whole);
        EXPECT_EQ(files_changed, refused);
        EXPECT_FALSE(too_long->marked);
    }
    EXPECT_EQ(dialogs.text, "Warning: File name is too long.\n"
                            "Error: The path of the template directory is too long for the board.\n");
}

TEST_F(saving, commands_do_something_only_on_yes)
{
    const struct {
        void (*handler)(GtkWidget *, struct app *);
        const char *question;
        bool files;
        std::uint32_t before, after; // marked rows
        bool saves;
    } commands[] = {{on_files_save_clicked, "overwrite existing template?", true, 2, 2, true},
                    {on_files_clear_clicked, "clear files selection?", true, 2, 0, false},
                    {on_files_default_clicked, "set default selection?", true, 2, 1, false},
                    {on_sectors_save_clicked, "overwrite existing template?", false, 0, 0, true},
                    {on_sectors_default_clicked, "set default selection?", false, 0, 2, false},
                    {on_sectors_save_clicked, "overwrite existing template?", false, 2, 2, true},
                    {on_sectors_clear_clicked, "clear sectors selection?", false, 2, 0, false}};
    partition->show();
    app->disks.front().drive_number = 0x80;
    EXPECT_TRUE(diskbrowser_init(app));
    mark_files({"a", "pelva/pelva.h"});
    partition->host.write("usr/include/pelva/pelva.h", ""); // one of the default files
    if (!keep_mounts_private())
        GTEST_SKIP() << "needs the right to mount in a namespace of its own";
    EXPECT_EQ(mount(partition->files.path().c_str(), "/usr/include", nullptr, MS_BIND, nullptr), 0);
    partition->host.write("proc/mounts", "/dev/sda1 /usr/include ext4 rw 0 0\n");
    for (const auto &[handler, question, files, before, after, saves] : commands) {
        mark_recursive(app, partition->store, partition->root(), files);
        for (const int answer : {GTK_RESPONSE_NO, GTK_RESPONSE_DELETE_EVENT, GTK_RESPONSE_YES}) {
            answered_dialogs dialogs({answer});
            files_changed = sectors_changed = saves;
            handler(app->window, app);
            EXPECT_EQ(dialogs.text, "Confirm: Do you really want to " + std::string(question) + "\n");
            const bool yes = answer == GTK_RESPONSE_YES;
            EXPECT_EQ(files ? files_changed : sectors_changed, yes != saves) << question;
            EXPECT_EQ(files ? sectors_changed : files_changed, saves) << question;
            EXPECT_EQ(files ? app->total_files_selected : app->total_sectors_selected, yes ? after : before)
                << question;
        }
    }
    umount("/usr/include");
}

} // namespace
