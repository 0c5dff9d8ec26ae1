// Loading directories, the lookup of rows, the page itself, and its end by a signal in the middle of things.
#include "common/process.h"
#include "display_text.h"
#include "notice_bar.h"
#include "template_save.h"
#include "termination.h"
#include "trace_log.h"
#include "tree_support.h"

#include <atomic>
#include <csignal>
#include <dlfcn.h>
#include <functional>
#include <gtest/gtest.h>
#include <map>

namespace {

namespace fs = std::filesystem;

// Names of the children, each followed by its own in brackets when it has some.
std::string outline(const file_node &row)
{
    std::string text;
    for (const auto &child : row.children) {
        text += (text.empty() ? "" : " ") + child->name;
        if (!child->children.empty())
            text += "[" + outline(*child) + "]";
    }
    return text;
}

const std::string wait = "[Loading, please wait...]", not_all = "Not everything here could be read";

// Names whose status ends with an error, and after how many entries a listing does.
std::map<std::string, int, std::less<>> bad_status;
int entries_left = -1;

// What happens at each status call on a file below the tree, to a disk that is slow.
std::function<void()> during_status;

gboolean mark_and_save(gpointer data)
{
    auto *browsed = static_cast<browsed_partition *>(data);
    static std::atomic<int> left = 500; // two threads look at the files
    during_status = [] {
        if (--left == 0) {
            std::raise(SIGTERM);
            g_usleep(200'000); // the progress window is due
        }
    };
    toggle_iter(&browsed->app, browsed->store, browsed->root());
    EXPECT_LT(browsed->row("many")->children.size(), 1000U);
    EXPECT_TRUE(browsed->row("next")->not_loaded);
    std::raise(SIGHUP); // changes nothing any more
    files_changed = 1;
    save_file_template(&browsed->app, browsed->store);
    EXPECT_EQ(files_changed, 1);
    EXPECT_TRUE(fs::is_empty(browsed->app.pelva_db_path));
    return FALSE;
}

// The first case: the child that it forks needs a display of its own.
TEST(termination, leaves_whatever_is_going_on)
{
    browsed_partition partition;
    for (int i = 0; i < 1000; i++)
        partition.files.write("many/" + std::to_string(i), "");
    partition.files.write("next/x", "");
    fs::create_directory(partition.app.pelva_db_path);
    // The child is the program, as far as its main loop goes.
    const auto program = [&partition] {
        partition.show();
        partition.loaded("");
        end_on_signals();
        g_idle_add(mark_and_save, &partition);
        gtk_main();
        // What is open on a partition keeps it from being unmounted.
        for (const auto &entry : fs::directory_iterator("/proc/self/fd")) {
            std::error_code gone;
            EXPECT_FALSE(fs::read_symlink(entry, gone).string().starts_with(partition.files.path().string()));
        }
        std::exit(ending_status() + testing::Test::HasFailure());
    };
    EXPECT_EXIT(program(), testing::ExitedWithCode(128 + SIGTERM), "");
}

TEST(loading, knows_every_file_of_a_large_directory)
{
    browsed_partition partition;
    std::string names;
    for (int i = 1000; i < 1700; i++) {
        const std::string name = std::to_string(i);
        partition.files.write("many/" + name, std::string(static_cast<std::size_t>(i), ' '));
        names += (names.empty() ? "" : " ") + name;
    }
    EXPECT_EQ(outline(*partition.loaded("many")), names);
    for (const auto &file : partition.row("many")->children)
        EXPECT_EQ(std::to_string(file->size), file->name);
}

TEST(loading, leaves_out_what_something_is_mounted_on)
{
    browsed_partition partition;
    if (!keep_mounts_private())
        GTEST_SKIP() << "needs the right to mount in a namespace of its own";
    const std::string top = partition.files.path();
    for (const char *file : {"/dir/f", "/tmpfs/f", "/bind/f", "/a b/f", "/file", "/bound file", "/last"})
        partition.files.write(file + 1, "");
    for (const auto &[from, to] : {std::pair("", ""), // the partition's own mount
                                   {"/dir", "/bind"},
                                   {"/dir", "/a b"},
                                   {"/file", "/dir/f"},
                                   {"/file", "/bound file"}})
        EXPECT_EQ(mount((top + from).c_str(), (top + to).c_str(), nullptr, MS_BIND, nullptr), 0) << to;
    EXPECT_EQ(mount("/dev/sda1", (top + "/tmpfs").c_str(), "tmpfs", 0, nullptr), 0);
    fs::remove_all(partition.host.path() / "proc");
    fs::create_directory_symlink("/proc", partition.host.path() / "proc");
    EXPECT_EQ(outline(*partition.loaded("")), "dir" + wait + " file last");
    EXPECT_EQ(outline(*partition.loaded("dir")), "");
    EXPECT_EQ(umount2(top.c_str(), MNT_DETACH), 0);
}

TEST(find_iter_for_file, gives_the_row_or_the_reason_and_reads_what_the_board_can)
{
    browsed_partition partition;
    const std::string top = partition.files.path();
    // The board's limit counts from the mount.
    const fs::path deep = std::string(100, 'd'), longest = std::string(255, 'h');
    const std::string at_limit(253 - 102, 'f');
    for (const fs::path &file : std::vector<fs::path>{"a/b/f", "a/c/f", "b/f", "q/f", deep / at_limit,
                                                      deep / ("g" + at_limit), longest / "x"})
        partition.files.write(file, "");
    fs::create_symlink("f", top + "/a/b/link");
    fs::create_directory_symlink("b", top + "/a/d");
    const auto look_up = [&partition](const std::string &path, int result) {
        file_node *row = nullptr;
        EXPECT_EQ(find_iter_for_file(&partition.app, partition.store, path, &row), result) << path;
        EXPECT_EQ(row ? full_path(*row) : "", result == 0 ? path : "");
    };
    for (const char *path : {"/a/b/f", "/a/b"})
        look_up(top + path, 0);
    for (const char *path : {"/a//b/f", "/a/b/", "", "/", "/a/b/link", "/a/d/f", "/.."})
        look_up(top + path, -4);
    look_up(top + "/a/b/x", -1);
    look_up("/proc/self", -2);
    EXPECT_TRUE(partition.row("a/c")->not_loaded) << "only the directories on the way are read";
    EXPECT_EQ(outline(*partition.loaded(deep)), at_limit);
    EXPECT_EQ(outline(*partition.loaded(longest)), "");
    partition.host.write("proc/mounts", "proc /proc proc rw 0 0\n");
    look_up(top + "/a/b/f", -3);
    partition.host.write("proc/mounts", "/dev/sda1 " + top + "/q ext4 rw 0 0\n"); // not where the tree reads
    look_up(top + "/a/b/f", -4);
}

TEST(gaps, are_counted_when_marked_or_unfolded_and_tried_again)
{
    browsed_partition partition;
    const fs::path top = partition.files.path();
    const std::string deep(200, 'd'), tail(60, 't'), at = "/dev/sda1: /";
    for (const std::string &file : std::vector<std::string>{"a/1", "a/2", "a/3/x", "a/4", "gone/1", "ok/1",
                                                            deep + "/" + tail + "1", deep + "/" + tail + "2"})
        partition.files.write(file, "");
    partition.show();
    struct app &app = partition.app;
    const auto said = [&app]() -> const notice & { return app.file_template.notices.at(4); };
    const auto unfold = [&](const std::string &name) {
        const owned_path path = path_of(partition.store, partition.row(name));
        gtk_tree_view_collapse_row(partition.view(), path.get());
        gtk_tree_view_expand_row(partition.view(), path.get(), FALSE);
        return outline(*partition.row(name));
    };
    unfold("");
    bad_status = {{"2", EIO}, {"3", EACCES}, {"4", ENOENT}};
    fs::rename(top / "gone", top / "away");
    EXPECT_EQ(unfold("gone"), not_all);
    EXPECT_EQ(said().text, "1 directory could not be read in full. What is missing there is not marked.");
    EXPECT_EQ(unfold("a"), "1 " + not_all);
    toggle_iter(&app, partition.store, partition.root());
    EXPECT_EQ(app.total_files_selected, 2U);
    EXPECT_EQ(said().text, "2 directories could not be read in full, and 2 files have too long a path. "
                           "They are not marked.");
    EXPECT_EQ(said().names, (std::list<std::string>{at + "a", at + deep + "/" + tail + "1",
                                                    at + deep + "/" + tail + "2", at + "gone"}));
    clear_notices(&app, list_kind::files);
    EXPECT_NE(notice_bar(app.filebrowser), nullptr) << "as true as before";

    // What was read keeps its marks; what can be read now stands in its place.
    fs::rename(top / "away", top / "gone");
    EXPECT_EQ(unfold("gone"), "1");
    bad_status.clear();
    entries_left = 3;
    EXPECT_NE(unfold("a").find(not_all), std::string::npos);
    entries_left = -1;
    partition.files.write("a/0/y", "");
    EXPECT_EQ(unfold("a"), "0" + wait + " 3" + wait + " 1 2 4");
    EXPECT_EQ(app.total_files_selected, 2U);
    EXPECT_EQ(said().text, "2 files have too long a path. They are not marked.");
}

TEST(page, shows_directories_and_regular_files_of_any_name_in_order_once)
{
    browsed_partition partition;
    const fs::path top = partition.files.path();
    for (const char *name : {"b", "A", ".d", "c\xff"})
        fs::create_directory(top / name);
    for (const char *name : {"z", "B", ".f", "two\nlines", "\xd0\xaf", "\xff\xfe", "back\\slash",
                             "\x01\x1b[31m\t", "\xd7\x90\xd7\x91\xe2\x80\xae txt\xe2\x80\xac"})
        partition.files.write(name, name);
    fs::create_directory_symlink("b", top / "link-to-directory");
    fs::create_symlink("z", top / "link-to-file");
    mkfifo((top / "pipe").c_str(), 0600);
    mknod((top / "socket").c_str(), S_IFSOCK | 0600, 0);
    part &p = partition.app.disks.front().parts.emplace_back();
    p.device = "md7";
    p.index = 3;
    p.fs_type = "ntfs";
    answered_dialogs user({GTK_RESPONSE_OK});
    partition.show();
    EXPECT_EQ(user.text, "Warning: Cannot read files on partition md7p3 with NTFS.\n"
                         "Perhaps the ntfs-3g package is not installed.\n");
    EXPECT_STREQ(gtk_label_get_text(GTK_LABEL(partition.app.total_files_size_label)), "0 bytes");
    EXPECT_EQ(outline(*file_store_top(partition.store)), "/dev/sda1" + wait);
    const std::string
        first = ".d" + wait + " A" + wait + " b",
        second =
            " c\xff" + wait + " \x01\x1b[31m\t" +
            " .f B back\\slash two\nlines z \xd0\xaf \xd7\x90\xd7\x91\xe2\x80\xae txt\xe2\x80\xac \xff\xfe";
    trace_enabled = 1; // which must not get in the way of any name
    testing::internal::CaptureStderr();
    gtk_tree_view_expand_row(partition.view(), path_of(partition.store, partition.root()).get(), FALSE);
    const std::string traced = testing::internal::GetCapturedStderr();
    EXPECT_EQ(traced.find('\x1b'), traced.npos) << "reaches the terminal";
    EXPECT_NE(traced.find("<U+001B>[31m"), traced.npos);
    trace_enabled = 0;
    EXPECT_EQ(outline(*partition.root()), first + wait + second);
    EXPECT_EQ(partition.row("back\\slash")->size, 10U);
    fs::remove(top / "z");
    EXPECT_EQ(outline(*partition.loaded("b")), "");
    EXPECT_EQ(outline(*partition.root()), first + second);

    mark_recursive(&partition.app, partition.store, partition.root(), 1);
    settle();
    EXPECT_STREQ(gtk_label_get_text(GTK_LABEL(partition.app.total_files_selected_label)), "9");
}

TEST(texts, are_shown_on_one_line)
{
    for (const auto &[bytes, shown] :
         {std::pair("\u042f \ufffd e\u0301 <i> <b 0x", "\u042f \ufffd e\u0301 <i> <b 0x"),
          {"a\nb\x01\x7f\xff\xd0x\xed\xa0\x80", "a\u240Ab\u2401\u2421\uFFFD\uFFFDx\uFFFD\uFFFD\uFFFD"},
          {"\u202egpj\u2028\u2029\u0085\ufe0f\u2065", "<U+202E>gpj<U+2028><U+2029><U+0085><U+FE0F><U+2065>"},
          {"<U+202E>\u240a<0x<\U000e0041", "<U+003C>U+202E><U+240A><U+003C>0x<<U+E0041>"}})
        EXPECT_EQ(display_text(bytes), shown);
}

TEST(progress, covers_unfolding_and_drops_what_is_pressed_meanwhile)
{
    browsed_partition partition;
    for (int i = 0; i < 400; i++)
        partition.files.write(std::to_string(i), "");
    partition.show();
    std::size_t most_rows = 0;
    bool shown = false;
    during_status = [&] { // before the window is up, while it is, and at the very end
        most_rows = std::max(most_rows, partition.root()->children.size());
        shown = shown || gtk_widget_get_visible(partition.app.progress_window);
        partition.press(nullptr, 3);
        g_usleep(2000);
    };
    gtk_tree_view_expand_row(partition.view(), path_of(partition.store, partition.root()).get(), FALSE);
    during_status = nullptr;
    EXPECT_FALSE(gtk_widget_get_visible(partition.app.progress_window));
    settle();
    EXPECT_TRUE(shown);
    EXPECT_EQ(most_rows, 1U) << "rows appear one by one";
    EXPECT_EQ(partition.root()->children.size(), 400U);
    EXPECT_EQ(files_changed, 0);
}

} // namespace

extern "C" int fstatat(int directory, const char *name, struct stat *status, int flags)
{
    if (during_status)
        during_status();
    if (const auto bad = bad_status.find(std::string_view(name)); bad != bad_status.end())
        return errno = bad->second, -1;
    return static_cast<int>(syscall(SYS_newfstatat, directory, name, status, flags));
}

// No file system that gives no type with a name is at hand; one that fails half-way neither.
extern "C" dirent *readdir(DIR *directory)
{
    static const auto next = reinterpret_cast<dirent *(*)(DIR *)>(dlsym(RTLD_NEXT, "readdir"));
    if (entries_left >= 0 && entries_left-- == 0)
        return errno = EIO, nullptr;
    dirent *entry = next(directory);
    if (entry)
        entry->d_type = DT_UNKNOWN;
    return entry;
}
