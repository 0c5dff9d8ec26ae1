// The file template: which marks become which bytes, which files a saved one marks, and what is told of the
// others. Also the commands of both pages.
#include "callbacks.h"
#include "diskbrowser.h"
#include "gtk_support.h"
#include "notice_bar.h"
#include "start_questions.h"
#include "template_bytes.h"
#include "template_save.h"
#include "tree_support.h"

#include <algorithm>
#include <atomic>
#include <gmock/gmock.h>
#include <list>
#include <sys/mount.h>

// What happens while something is synced: the disk is slow, or the driver writes what it still held.
static std::function<void()> at_sync;

extern "C" int syncfs(int) noexcept // NOLINT
{
    return at_sync ? at_sync() : void(), 0;
}

extern "C" int fsync(int) // NOLINT
{
    return at_sync ? at_sync() : void(), 0;
}

namespace {

namespace fs = std::filesystem;

using texts = std::list<std::string>;
using namespace std::chrono_literals;

// A partition and an empty template directory, which the firmware knows as C:/boot/pelva.
struct file_template : testing::Test {
    file_template() { use_partition("ext4"); }

    void use_partition(const std::string &fs_type)
    {
        partition.reset(); // before the next one replaces the host
        partition = std::make_unique<browsed_partition>(fs_type);
        app = &partition->app;
        top = partition->files.path();
        fs::create_directory(app->pelva_db_path);
        app->pelva_db_mt = &app->mounts.front();
        app->short_path = "/boot/pelva/"; // the slash at the end must not be doubled
        app->separator = '/';
        files_changed = sectors_changed = 1;
    }

    ~file_template() override { at_sync = nullptr; }

    // The volume is on its device only after a sync.
    void hold_volume_back() const
    {
        const fs::path device = partition->host.path() / "dev/sda1", held = partition->host.path() / "held";
        fs::rename(device, held);
        at_sync = [=] {
            if (fs::exists(held))
                fs::rename(held, device);
        };
    }

    void write_files(const texts &names) const
    {
        for (const std::string &name : names)
            partition->files.write(name, "x");
    }

    void mark_all() const { mark_recursive(app, partition->store, partition->root(), 1); }

    // A marked row with a path that is too long for a tree read from disk.
    file_node *add(file_node *parent, std::size_t length, file_kind kind)
    {
        file_node *added =
            append_row(partition->store, parent, kind, std::string(length, 'x'), &app->mounts.front());
        mark_iter(app, partition->store, added, 1);
        return added;
    }

    pair_bytes saved() const { return read_pair(app->pelva_db_path); }

    texts unmarked(unmarked_reason reason) const
    {
        texts found;
        for (const unmarked_entry &entry : app->file_template.unmarked)
            if (entry.reason == reason)
                found.push_back(entry.text);
        return found;
    }

    int premark(const pair_bytes &pair) const
    {
        write_pair(partition->host, pair, "boot/bootfile");
        return fill_model(app, partition->store);
    }
    int mark_records(const std::vector<std::string> &records) const
    {
        return premark(pair_of(2, "", records));
    }

    // Paths of the marked files below a row, or of the marked files that a notice names.
    std::string marked(const file_node &row) const
    {
        std::string paths =
            row.kind == file_kind::file && row.marked ? full_path(row).substr(top.size()) + " " : "";
        for (const auto &child : row.children)
            paths += marked(*child);
        return paths;
    }
    std::string left_out() const
    {
        std::string paths;
        for (const std::string &name : app->file_template.notices[1].names)
            paths += name.substr(top.size()) + " ";
        return paths;
    }

    std::unique_ptr<browsed_partition> partition;
    struct app *app = nullptr;
    std::string top; // the partition's directory
};

TEST_F(file_template, tells_until_a_save_which_files_have_changed_since_the_last)
{
    const pair_bytes pair = pair_of(2, "", {"C:/a", "C:/c"});
    write_files({"a", "b", "c"});
    premark(pair);
    EXPECT_EQ(app->file_template.changed, texts());
    use_partition("ext4");
    write_files({"a", "b", "c"});
    write_pair(partition->host, pair, "boot/bootfile");
    fs::last_write_time(app->pelva_db_path + "/bootfile.nam", fs::file_time_type::clock::now() - 24h);
    fill_model(app, partition->store);
    ask_start_questions(app);
    const notice &told = app->file_template.notices[5];
    EXPECT_EQ(told.text, "2 marked files have changed since the template was saved.");
    EXPECT_EQ(told.names, (texts{top + "/a", top + "/c"}));
    EXPECT_TRUE(save_file_template(app, partition->store));
    EXPECT_EQ(told.text, "");
}

TEST_F(file_template, names_files_as_the_firmware_knows_them)
{
    const std::tuple<std::string, std::vector<std::string>, const char *> cases[] = {
        {"ext4",
         {"C:/Dir/Long name.txt", "C:/Dir/a\\b", "C:/Dir/plain.txt", "C:/Dir/Ф", "C:/Dir/\xFF\n"},
         ""},
        {"fat32", {"C:\\DIR\\LONGNA~1.TXT", "C:\\DIR\\PLAIN.TXT"}, "/Dir/a\\b /Dir/Ф /Dir/\xFF\n "},
        {"ntfs",
         {"\x84:\\Dir\\Long name.txt", "\x84:\\Dir\\plain.txt", "\x84:\\Dir\\\x94"},
         "/Dir/a\\b /Dir/\xFF\n "}};
    for (const auto &[fs_type, records, unnamed] : cases) {
        use_partition(fs_type);
        write_files({"Dir/Long name.txt", "Dir/plain.txt"});
        partition->make_volume();
        write_files({"Dir/\xFF\n", "Dir/a\\b", "Dir/Ф"});
        mark_all();
        hold_volume_back();
        app->mounts.front().letter = app->disks.front().parts.front().letter = records.front()[0];
        app->separator = records.front()[2];
        app->short_path = fs_type == "fat32" ? "/Dir" : "/boot";
        save_file_template(app, partition->store);
        std::string name_file = "C:" + app->short_path + "/bootfile.nam";
        name_file[0] = records.front()[0];
        std::ranges::replace(name_file, '/', app->separator);
        EXPECT_EQ(saved(), pair_of(2, name_file, records));
        EXPECT_EQ(std::tuple(files_changed, app->total_files_selected), std::tuple(0, 5U)) << fs_type;
        EXPECT_EQ(left_out(), unnamed) << fs_type;
        mark_recursive(app, partition->store, partition->root(), 0);
        hold_volume_back();
        EXPECT_EQ(premark(saved()), 0);
        EXPECT_EQ(app->total_files_selected, records.size()) << "marked again";
    }
}

TEST_F(file_template, names_its_directory_as_the_firmware_does_or_is_refused)
{
    const std::string no_name = "The path of the template directory has no name that the board can read.",
                      no_letter =
                          "The partition of the template directory has no drive letter for the board.";
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {"ext4", "/Шаблоны", "C:/Шаблоны/"},
        {"ntfs", "/Шаблоны", "C:\\\x98\xA0\xA1\xAB\xAE\xAD\xEB\\"},
        {"ntfs", "/a\\b", no_name},
        {"ntfs", "/\xFF", no_name},
        {"fat32", "", "C:\\"},
        {"fat32", "/pelva", "C:\\pelva\\"},
        {"fat32", "/Templates/Cfg", "C:\\TEMPLA~1\\Cfg\\"},
        {"fat32", "/Шаблоны платы", "C:\\SHORT\\"}, // as mtools says
        {"fat32", "/pelva/file", no_name},
        {"fat32", "/gone", no_name},
        {"fat32", "/pelva", no_letter}};
    for (const auto &[fs_type, path, named] : cases) {
        use_partition(fs_type);
        write_files({"pelva/file", "Templates/Cfg/file", "Шаблоны платы/file"});
        partition->make_volume();
        std::string expected = named;
        if (const std::size_t at = named.find("SHORT"); at != named.npos) {
            std::string command = "LC_ALL=C.UTF-8 mshortname -i ";
            command.append(partition->host.path() / "dev/sda1").append(" '::").append(path).append("'");
            const std::string name = run_tool(command);
            expected.replace(at, 5, name, 3, name.find('\n') - 3);
        }
        app->short_path = path;
        app->separator = fs_type == "ext4" ? '/' : '\\';
        app->mounts.front().letter = named == no_letter ? '\0' : 'C';
        answered_dialogs dialogs({GTK_RESPONSE_OK});
        save_file_template(app, partition->store);
        const bool refused = named == no_letter || named == no_name;
        EXPECT_EQ(dialogs.text, refused ? "Error: " + named + "\n" : "");
        EXPECT_EQ(saved(), refused ? pair_bytes() : pair_of(2, expected + "bootfile.nam", {}));
        EXPECT_EQ(files_changed, refused);
    }
}

TEST_F(file_template, window_answers_while_a_disk_is_slow)
{
    partition->show();
    app->disks.front().drive_number = 0x80;
    ASSERT_TRUE(diskbrowser_init(app));
    std::atomic<bool> shown = false;
    at_sync = [&shown] {
        for (int i = 0; i < 6000 && !shown; ++i) // waits for as long as it may take
            usleep(10000);
    };
    const auto look = [&] { shown = shown || gtk_widget_get_visible(app->progress_window); };
    const guint timer = g_timeout_add(
        10, [](gpointer work) -> gboolean { return (*static_cast<decltype(look) *>(work))(), TRUE; },
        const_cast<void *>(static_cast<const void *>(&look)));
    for (const auto handler : {on_files_save_clicked, on_sectors_save_clicked}) {
        shown = false;
        handler(nullptr, app);
        EXPECT_TRUE(shown);
        EXPECT_FALSE(gtk_widget_get_visible(app->progress_window));
    }
    g_source_remove(timer);
}

TEST_F(file_template, leaves_out_and_refuses_what_is_too_long_without_loss)
{
    answered_dialogs dialogs({GTK_RESPONSE_OK, GTK_RESPONSE_OK});
    write_files({std::string(252, 'n')});
    mark_all();
    const std::string path(113, 'p'); // one more than the header's field can hold
    const pair_bytes whole =
        pair_of(2, "C:" + path.substr(1) + "/bootfile.nam", {"C:/" + std::string(252, 'n')});
    const file_node *too_long = add(partition->root(), 253, file_kind::file);
    for (const int refused : {0, 1}) {
        files_changed = 1;
        app->short_path = path.c_str() + 1 - refused;
        save_file_template(app, partition->store);
        EXPECT_EQ(saved(), whole);
        EXPECT_EQ(files_changed, refused);
        EXPECT_FALSE(too_long->marked);
    }
    // What the recovery cannot put right is in the way, and named.
    const std::string way = app->pelva_db_path + "/.gtk-tarnel-bootfile.nam.new";
    app->short_path = path.c_str() + 1;
    for (const bool barred : {true, false}) {
        if (barred)
            fs::create_directory(way);
        else
            fs::remove(way);
        EXPECT_EQ(save_file_template(app, partition->store), !barred);
        EXPECT_EQ(app->file_template.notices[2].text.find(fs::path(way).filename()) != std::string::npos,
                  barred);
        EXPECT_EQ(saved(), whole);
    }
    EXPECT_EQ(dialogs.text, "Warning: File name is too long.\n"
                            "Error: The path of the template directory is too long for the board.\n");
    app->short_path = "";
    file_node *at = partition->root();
    for (int level = 0; level < 4; ++level)
        at = add(at, 250, file_kind::directory);
    // Their path takes 1,006 of 1,024 bytes; a separator and a NUL come on top of each name. The first fits,
    // and is then too long for a record; the second ends the walk of its directory.
    for (const std::size_t length : {16U, 17U, 1U})
        add(at, length, file_kind::file);
    save_file_template(app, partition->store);
    EXPECT_EQ(std::ranges::count(left_out(), ' '), 2);
    EXPECT_EQ(saved().nam, whole.nam);
    mount_entry elsewhere = app->mounts.front();
    app->pelva_db_mt = &elsewhere;
    app->mounts.front().letter = 0;
    save_file_template(app, partition->store);
    EXPECT_EQ(std::ranges::count(left_out(), ' '), 3);
    EXPECT_EQ(saved().nam.size(), 1024U);
}

TEST_F(file_template, marks_what_exists_and_lists_what_does_not)
{
    app->disks.front().parts.emplace_back().letter = 0; // a partition without a letter
    app->mounts.push_back({nullptr, &app->disks.front().parts.back(), 0, "/", 0, 0});
    write_files({"a/b/f", "a/b/g", "a/\xff\n", "a/not", "other/f"});
    fs::create_symlink("f", top + "/a/b/link");
    files_changed = 0;
    EXPECT_EQ(mark_records({"C:/a/b/f", "C:/gone", "C:\\a\\b\\g", "Z:\\\x94", "C:/a/\xff\n", "C:/other",
                            "C:", "C:/a/b/link", "C:/a/b/../b/f", "C:/a//b/f", "C:/", "", "C:/a/b/f"}),
              0);
    EXPECT_EQ(marked(*partition->root()), "/a/b/f /a/b/g /a/\xff\n ");
    EXPECT_EQ(unmarked(unmarked_reason::missing), (texts{"", "Z:\\Ф", top + "/gone"}));
    EXPECT_EQ(unmarked(unmarked_reason::hidden).size(), 6U);
    EXPECT_EQ(app->total_files_size, 3U);
    EXPECT_EQ(partition->row("a/b")->marked_files, 2);
    EXPECT_TRUE(partition->row("other")->not_loaded);
    EXPECT_EQ(files_changed, 0);
    // Where this run has mounted the partition says nothing to anybody.
    app->mounts.front().mountpoint += "/tmp/tarnel1";
    EXPECT_EQ(mark_records({"C:/gone"}), 0);
    EXPECT_EQ(unmarked(unmarked_reason::missing), texts{"C:/gone"});
}

TEST_F(file_template, tells_what_a_damaged_pair_does_not_give)
{
    write_files({"1"});
    pair_bytes pair = pair_of(2, "", {"C:/1", "C:/2"});
    pair.nam.pop_back();
    EXPECT_EQ(premark(pair), 0);
    EXPECT_EQ(app->total_files_selected, 1U);
    EXPECT_EQ(unmarked(unmarked_reason::unread), texts{"Record 2 cannot be read"});
    pair.nam[0x113] = '\x40';
    EXPECT_EQ(premark(pair), 0);
    EXPECT_EQ(app->file_template.unmarked.size(), 1U);
    EXPECT_EQ(unmarked(unmarked_reason::unread), texts{"Records 2 to 1073741826 cannot be read"});
    pair.chk.clear();
    EXPECT_EQ(premark(pair), -2);
    EXPECT_EQ(unmarked(unmarked_reason::unread_template).size(), 1U);
    for (const std::string name : {"nam", "chk"}) {
        fs::remove(partition->host.path() / ("boot/bootfile." + name));
        EXPECT_EQ(fill_model(app, partition->store), -1);
        // Half of a template is still there.
        EXPECT_EQ(unmarked(unmarked_reason::unread_template).size(), name == "nam" ? 1U : 0U);
    }
}

TEST_F(file_template, missing_files_are_asked_about_and_those_without_a_row_listed)
{
    write_files({"here"});
    fs::create_symlink("here", top + "/li\nnk");
    mark_records({"C:/first\xff", "C:/here", "C:/li\nnk", "C:/sec\nond"});
    constexpr int yes = GTK_RESPONSE_YES, no = GTK_RESPONSE_NO;
    answered_dialogs user({no, GTK_RESPONSE_OK, yes, no, yes, yes});
    partition->show();
    EXPECT_EQ(user.text, "Confirm: The following files are missing. Delete these files from a template?\n" +
                             top + "/sec\u240Aond\n" + top + "/first\uFFFD\n\n");
    EXPECT_STREQ(gtk_label_get_text(GTK_LABEL(app->total_files_selected_label)), "1");
    EXPECT_EQ(saved().nam.size(), 1024U + 256 * 4);
    user.text.clear();
    GtkInfoBar *bar = GTK_INFO_BAR(notice_bar(app->filebrowser));
    g_autoptr(GList) content = gtk_container_get_children(GTK_CONTAINER(gtk_info_bar_get_content_area(bar)));
    const std::string hidden = "1 file of the saved template is not shown in the tree. ";
    ASSERT_EQ(g_list_length(content), 2U); // image and text
    EXPECT_EQ(gtk_label_get_text(GTK_LABEL(content->next->data)), hidden + "The next save drops it.");
    gtk_info_bar_response(bar, GTK_RESPONSE_OK);
    EXPECT_EQ(user.text, "Files: " + hidden + "The next save drops it.\n" + top + "/li\u240Ank\n\n");
    // Who gives up what is missing has not given up the rest.
    const std::string rest =
        "Confirm: Do you really want to overwrite existing template?\n\nThese entries of "
        "the saved template are not marked and will be gone:\n";
    for (const std::size_t left : {3UL, 0UL}) {
        ask_delete_missing_files(app);
        EXPECT_THAT(user.text, testing::EndsWith(rest + top + "/li\u240Ank\n\n"));
        EXPECT_EQ(app->file_template.unmarked.size(), left);
        EXPECT_EQ(saved().nam.size(), 1024U + 256 * (left + 1));
    }
    EXPECT_EQ(notice_bar(app->filebrowser), nullptr);
}

TEST_F(file_template, commands_do_something_only_on_yes)
{
    if (!keep_mounts_private()) // as long as there is one thread
        GTEST_SKIP() << "needs the right to mount in a namespace of its own";
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
    write_files({"a", "pelva/pelva.h"});
    partition->host.write("usr/include/pelva/pelva.h", ""); // one of the default files
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
