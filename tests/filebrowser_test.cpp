// Loading directories, the lookup of rows, and the page itself.
#include "filebrowser.h"

#include "common/host.h"
#include "display_text.h"
#include "gtk_support.h"
#include "progress.h"
#include "tree_support.h"

#include <algorithm>
#include <climits>
#include <clocale>
#include <fstream>
#include <glade/glade.h>
#include <gtest/gtest.h>
#include <regex>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>

namespace {

namespace fs = std::filesystem;

// One of everything that a directory can hold.
void fill_directory(const fs::path &path)
{
    for (const char *name : {"b", "A", ".d", "c\xff"})
        fs::create_directory(path / name);
    for (const char *name : {"z", "B", ".f", "two\nlines", "\xd0\xaf", "\xff\xfe", "back\\slash"})
        std::ofstream(path / name) << name;
    fs::create_directory_symlink("b", path / "link-to-directory");
    fs::create_symlink("z", path / "link-to-file");
    mkfifo((path / "pipe").c_str(), 0600);
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = {AF_UNIX, {}};
    (path / "socket").string().copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    close(fd);
}

TEST(loading, shows_directories_and_regular_files_in_order)
{
    browsed_partition partition;
    NEED_FILE_SYSTEM(partition);
    fill_directory(partition.files.path());
    EXPECT_EQ(outline(*file_store_top(partition.store)), "/dev/sda1[Loading, please wait...]");
    const std::string wait = "[Loading, please wait...]";
    const std::string before = ".d" + wait + " A" + wait + " b",
                      after = " c\xff" + wait + " .f B back\\slash two\nlines z \xd0\xaf \xff\xfe";
    EXPECT_EQ(outline(*partition.loaded("")), before + wait + after);
    EXPECT_EQ(partition.row("z")->size, 1U);
    EXPECT_EQ(full_path(*partition.row("two\nlines")), partition.files.path() / "two\nlines");
    EXPECT_EQ(partition.row("A")->mount, &partition.app.mounts.front());
    EXPECT_EQ(outline(*partition.loaded("b")), "");

    // A directory is read once.
    fs::remove(partition.files.path() / "z");
    EXPECT_EQ(outline(*partition.loaded("")), before + after);
}

TEST(loading, sorts_as_the_locale_does)
{
    browsed_partition partition;
    NEED_FILE_SYSTEM(partition);
    scratch_directory locales;
    const std::string locale = (locales.path() / "en_US.UTF-8").string();
    if (!fs::exists("/usr/share/i18n/locales/en_US"))
        GTEST_SKIP() << "no locale sources to build a locale from";
    run_tool("localedef -i en_US -f UTF-8 " + locale);
    for (const char *name :
         {"b", "B", "a", "_a", "A", "\xc3\xa4", "Z", "a b", "ab", "a-b", "\xd0\xb6", "1", "10", "2"})
        partition.files.write(name, "");
    setenv("LOCPATH", locales.path().c_str(), 1);
    ASSERT_NE(std::setlocale(LC_COLLATE, "en_US.UTF-8"), nullptr);
    const std::string rows = outline(*partition.loaded(""));
    // Lookups rely on the order.
    for (const auto &row : partition.root()->children)
        EXPECT_EQ(find_child(*partition.root(), row->name), row.get());
    std::setlocale(LC_COLLATE, "C");
    unsetenv("LOCPATH");
    std::string listed = run_tool("LOCPATH=" + locales.path().string() + " LC_ALL=en_US.UTF-8 ls -A " +
                                  partition.files.path().string());
    std::ranges::replace(listed, '\n', ' ');
    EXPECT_EQ(rows + " ", listed);
}

TEST(loading, traces_every_step_and_shows_the_same)
{
    browsed_partition traced, silent;
    NEED_FILE_SYSTEM(traced);
    for (browsed_partition *partition : {&silent, &traced}) {
        fs::create_directory(partition->files.path() / "d");
        partition->files.write("f", "1234");
    }
    set_host_root(silent.host.path());
    silent.loaded("");
    set_host_root(traced.host.path());
    const std::string top = traced.files.path();
    captured_trace trace;
    traced.loaded("");
    const std::string messages = trace.messages();
    EXPECT_EQ(outline(*traced.root()), outline(*silent.root()));
    std::size_t at = 0;
    for (const std::string &line : std::vector<std::string>{
             "* Enter", "* Enter", "Loading directory content: " + top, "Loading directory list...",
             "dir_filter: .", "Directory: " + top + "/d", "cur_dev = /dev/sda1", "* Enter",
             "current directory = " + top + "/d len = " + std::to_string(top.size() + 2) +
                 " current device = /dev/sda1 len 9",
             "bg_dev.st_rdev = 0", "bg_dev_m.st_rdev = 0",
             "Find mount point: dev = /dev/sda1 mount_point = " + top, "Loading file list...",
             "Template file name lenght: 2", "* Success"}) {
        at = messages.find(line + "\n", at);
        ASSERT_NE(at, std::string::npos) << line << "\nis not in its place in\n" << messages;
        at += line.size();
    }
}

TEST(loading, keeps_to_the_length_that_the_board_can_read)
{
    browsed_partition partition;
    NEED_FILE_SYSTEM(partition);
    const std::string deep(100, 'd'), at_limit(253 - 102, 'f'), over(254 - 102, 'g'), longest(255, 'h');
    partition.files.write(deep + "/" + at_limit, "");
    partition.files.write(deep + "/" + over, "");
    fs::create_directory(partition.files.path() / longest);
    EXPECT_EQ(outline(*partition.loaded(deep)), at_limit);
    EXPECT_NE(partition.row(longest), nullptr);
    // The same file below a deeper mount: counted from there.
    browsed_partition mounted;
    mounted.files.write(deep + "/" + over, "");
    mounted.mount("/dev/sda1 " + (mounted.files.path() / deep).string() + " ext4 rw 0 0\n");
    EXPECT_EQ(outline(*mounted.loaded(deep)), over);
}

TEST(loading, survives_what_it_cannot_read)
{
    browsed_partition partition;
    NEED_FILE_SYSTEM(partition);
    fs::create_directory(partition.files.path() / "gone");
    partition.loaded("");
    fs::remove(partition.files.path() / "gone");
    testing::internal::CaptureStderr();
    file_node *gone = partition.loaded("gone");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "scandir: No such file or directory\nscandir: No such file or directory\n");
    EXPECT_TRUE(gone->children.empty());
    fs::create_directories(partition.files.path() / "gone/late");
    EXPECT_TRUE(partition.loaded("gone")->children.empty());

    // As deep as the system allows: no stack and no path overflows.
    fs::current_path(partition.files.path());
    const std::string name(200, 'n');
    for (int depth = 0; depth < 40; depth++) {
        ASSERT_EQ(mkdir(name.c_str(), 0700), 0);
        ASSERT_EQ(chdir(name.c_str()), 0);
    }
    fs::current_path("/");
    browsed_partition deep;
    fs::rename(partition.files.path() / name, deep.files.path() / name);
    mark_recursive(&deep.app, deep.store, deep.root(), 1);
    int levels = 0;
    for (const file_node *row = deep.root(); !row->children.empty(); row = row->children.front().get())
        levels++;
    EXPECT_EQ(levels, static_cast<int>((PATH_MAX - 1 - deep.files.path().string().size()) / 201));
    run_tool("rm -rf " + deep.files.path().string());
}

TEST(check_dir_mount, finds_the_device_that_holds_a_directory)
{
    browsed_partition partition;
    const auto node = [&partition](const char *name, unsigned minor_number) {
        partition.host.write("dev/none", "");
        return mknod((partition.host.path() / "dev" / name).c_str(), S_IFBLK | 0600,
                     makedev(8, minor_number));
    };
    if (node("sda1", 1) != 0 || node("sda2", 2) != 0 || node("same", 1) != 0)
        GTEST_SKIP() << "only root makes device nodes";
    partition.mount("/dev/sda2 / ext4 rw 0 0\n/dev/sda1 /boot ext4 rw 0 0\n/dev/sda2 /boot/efi vfat rw 0 0\n"
                    "tmpfs /tmp tmpfs rw 0 0\n/dev/same /srv ext4 rw 0 0\n/dev/sda2 /over ext4 rw 0 0\n"
                    "/dev/sda1 /over ext4 rw 0 0\n/dev/sda2 /with\\040blank ext4 rw 0 0\n");
    const struct {
        const char *directory, *device;
        int other;
    } cases[] = {
        {"/home", "/dev/sda1", 0}, // only "/" holds it, which never counts
        {"/boot", "/dev/sda1", 0},         {"/boot", "/dev/sda2", 1},
        {"/boot/grub", "/dev/sda2", 1},    {"/bootstrap", "/dev/sda2", 0},
        {"/boot/efi", "/dev/sda1", 1},     {"/boot/efi/EFI", "/dev/sda2", 0}, // the deepest mount decides
        {"/boot/efix", "/dev/sda1", 0},    {"/tmp/x", "/dev/sda1", 0},
        {"/srv/x", "/dev/sda1", 0},        {"/srv/x", "/dev/sda2", 1},
        {"/over/x", "/dev/sda1", 0}, // the later mount hides the earlier
        {"/with blank/x", "/dev/sda1", 1},
    };
    for (const auto &c : cases)
        EXPECT_EQ(check_dir_mount(c.directory, c.device), c.other) << c.directory << " " << c.device;
    fs::remove(partition.host.path() / "proc/mounts");
    testing::internal::CaptureStdout();
    EXPECT_EQ(check_dir_mount("/boot", "/dev/sda2"), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Unable to open /proc/mounts: No such file or directory\n");

    // And so a directory on which another device is mounted has no row.
    NEED_FILE_SYSTEM(partition);
    fs::create_directories(partition.files.path() / "efi");
    fs::create_directories(partition.files.path() / "efi2");
    partition.mount("/dev/sda2 " + (partition.files.path() / "efi").string() + " vfat rw 0 0\n");
    EXPECT_EQ(outline(*partition.loaded("")), "efi2[Loading, please wait...]");
}

TEST(find_iter_for_file, gives_the_row_or_the_reason)
{
    browsed_partition partition;
    NEED_FILE_SYSTEM(partition);
    const std::string top = partition.files.path();
    partition.files.write("a/b/f", "");
    partition.files.write("a/c/f", "");
    fs::create_symlink("f", partition.files.path() / "a/b/link");
    fs::create_directory_symlink("b", partition.files.path() / "a/d");
    const struct {
        std::string path;
        int result;
    } cases[] = {{top + "/a/b/f", 0},
                 {top + "/a/b", 0},
                 {top + "/a//b/f", -4},
                 {top + "/a/b/", -4},
                 {top, -4},
                 {top + "/a/b/link", -4},
                 {top + "/a/d/f", -4},
                 {top + "/a/b/x", -1},
                 {"/proc/self", -2},
                 {fs::path(top).parent_path(), -4}};
    for (const auto &c : cases) {
        file_node *row = nullptr;
        EXPECT_EQ(find_iter_for_file(&partition.app, partition.store, c.path, &row), c.result) << c.path;
        EXPECT_EQ(row ? full_path(*row) : "", c.result == 0 ? c.path : "");
    }
    EXPECT_TRUE(partition.row("a/c")->not_loaded) << "only the directories on the way are read";
    partition.host.write("proc/mounts", "proc /proc proc rw 0 0\n");
    file_node *row = nullptr;
    EXPECT_EQ(find_iter_for_file(&partition.app, partition.store, top + "/a/b/f", &row), -3);
}

TEST(display_text, is_valid_and_on_one_line)
{
    EXPECT_EQ(display_text("plain \xd0\xaf \xe2\x80\xae"), "plain \xd0\xaf \xe2\x80\xae");
    EXPECT_EQ(display_text("a\nb\x01\x7f"), "a\u240Ab\u2401\u2421");
    EXPECT_EQ(display_text("\xff\xd0x\xed\xa0\x80"), "\uFFFD\uFFFDx\uFFFD\uFFFD\uFFFD");
}

// --- The page ---

TEST(page, shows_any_name_without_a_warning)
{
    NEED_DISPLAY();
    browsed_partition partition;
    NEED_FILE_SYSTEM(partition);
    fill_directory(partition.files.path());
    partition.files.write(std::string("\x01\x1b[31m\t"), "");
    partition.files.write("\xd7\x90\xd7\x91\xe2\x80\xae txt", "");
    fs::create_directory(partition.files.path() / std::string(255, '\xfe'));
    const GLogLevelFlags before = g_log_set_always_fatal(
        static_cast<GLogLevelFlags>(G_LOG_LEVEL_WARNING | G_LOG_LEVEL_CRITICAL | G_LOG_FATAL_MASK));
    partition.show();
    GtkTreeView *view = GTK_TREE_VIEW(partition.app.filebrowser);
    gtk_tree_view_expand_all(view);
    settle();
    mark_recursive(&partition.app, partition.store, partition.root(), 1);
    settle();
    EXPECT_STREQ(gtk_label_get_text(GTK_LABEL(partition.app.total_files_selected_label)), "9");
    EXPECT_EQ(partition.row("\xff\xfe")->marked, true);
    // Rows of one height: two lines would be two rows high.
    GdkRectangle first, area;
    for (int i = 0; i < static_cast<int>(partition.root()->children.size()); i++) {
        GtkTreePath *path = gtk_tree_path_new_from_indices(0, i, -1);
        gtk_tree_view_get_background_area(view, path, gtk_tree_view_get_column(view, 0), i ? &area : &first);
        EXPECT_EQ(i ? area.height : first.height, first.height);
        gtk_tree_path_free(path);
    }
    g_log_set_always_fatal(before);
}

TEST(page, starts_with_zero_totals_and_warns_of_each_unmounted_ntfs_partition)
{
    NEED_DISPLAY();
    browsed_partition partition;
    for (const int index : {2, 3, 4}) {
        part &p = partition.app.disks.front().parts.emplace_back();
        p.device = index == 3 ? "md7" : "sda";
        p.index = index;
        p.fs_type = "ntfs";
        if (index == 4)
            p.mount_point = "/mnt";
    }
    answered_dialogs user({GTK_RESPONSE_OK, GTK_RESPONSE_OK});
    partition.show();
    ASSERT_EQ(user.seen.size(), 2U);
    EXPECT_EQ(user.seen[0].title, "Warning");
    EXPECT_EQ(user.seen[0].text, "Cannot read files on partition sda2 with NTFS.\n"
                                 "Perhaps the ntfs-3g package is not installed.\n");
    EXPECT_NE(user.seen[1].text.find("md7p3 "), std::string::npos);
    EXPECT_STREQ(gtk_label_get_text(GTK_LABEL(partition.app.total_files_selected_label)), "0");
    EXPECT_STREQ(gtk_label_get_text(GTK_LABEL(partition.app.total_files_size_label)), "0 bytes");
    EXPECT_TRUE(gtk_widget_has_focus(partition.app.filebrowser) ||
                gtk_widget_is_focus(partition.app.filebrowser));
    gboolean kept = FALSE;
    GdkEvent *event = gdk_event_new(GDK_DELETE);
    g_signal_emit_by_name(partition.app.progress_window, "delete-event", event, &kept);
    gdk_event_free(event);
    EXPECT_TRUE(kept);
}

TEST(page, does_not_start_without_its_widgets)
{
    NEED_DISPLAY();
    std::ifstream file(DATA_DIR "/gtk-tarnel.glade");
    const std::string description((std::istreambuf_iterator<char>(file)), {});
    for (const std::string name : {"filebrowser", "total_files_selected", "total_files_size"}) {
        const std::string without =
            std::regex_replace(description, std::regex("id=\"" + name + "\""), "id=\"other\"");
        struct app app;
        app.xml =
            glade_xml_new_from_buffer(without.data(), static_cast<int>(without.size()), nullptr, nullptr);
        app.window = glade_xml_get_widget(app.xml, "window");
        app.progress_window = glade_xml_get_widget(app.xml, "progress_window");
        captured_trace trace;
        EXPECT_EQ(filebrowser_init(&app), 0);
        EXPECT_NE(trace.messages().find("Cannot find '" + name + "' widget\n* Failed\n"), std::string::npos);
        filebrowser_release(&app);
        gtk_widget_destroy(app.window);
        gtk_widget_destroy(app.progress_window);
        g_object_unref(app.xml);
    }
}

// Keeps a long operation going for some milliseconds; whether the progress window was seen.
bool operate(struct app &app, int milliseconds)
{
    bool seen = false;
    for (const gint64 end = g_get_monotonic_time() + milliseconds * 1000; g_get_monotonic_time() < end;) {
        progress_run_main_loop(&app);
        seen = seen || gtk_widget_get_visible(app.progress_window);
        g_usleep(1000);
    }
    return seen;
}

gboolean count_exposures(GtkWidget *, GdkEvent *, int *count)
{
    ++*count;
    return FALSE;
}

TEST(progress, shows_a_moving_bar_only_during_long_operations)
{
    NEED_DISPLAY();
    browsed_partition partition;
    partition.show();
    struct app &app = partition.app;
    EXPECT_FALSE(operate(app, 120)) << "no operation was started";
    for (int i = 0; i < 3; i++) { // timers of one must not reach the next
        progress_start(&app);
        EXPECT_FALSE(operate(app, 70));
        progress_stop(&app);
    }
    int bar = 0, tree = 0;
    g_signal_connect(app.progressbar, "expose-event", G_CALLBACK(count_exposures), &bar);
    g_signal_connect(app.filebrowser, "expose-event", G_CALLBACK(count_exposures), &tree);
    progress_start(&app);
    EXPECT_TRUE(operate(app, 200));
    const int bar_before = bar, tree_before = tree;
    gtk_widget_queue_draw(app.filebrowser);
    operate(app, 650);
    EXPECT_GE(bar, bar_before + 2);
    EXPECT_GT(tree, tree_before);
    progress_stop(&app);
    EXPECT_FALSE(gtk_widget_get_visible(app.progress_window));
    EXPECT_EQ(app.progress_pending, 0U);
    progress_start(&app);
    EXPECT_FALSE(operate(app, 70)) << "the last operation's timers are gone";
}

} // namespace
