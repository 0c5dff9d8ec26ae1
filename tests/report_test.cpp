// The report window: its rows, and what saving leaves under the chosen name.
#include "report.h"

#include "app.h"
#include "diskbrowser.h"
#include "file_store.h"
#include "gtk_support.h"
#include "support.h"

#include <csignal>
#include <fstream>
#include <gmock/gmock.h>
#include <sstream>
#include <sys/resource.h>

namespace {

namespace fs = std::filesystem;

std::string content(const fs::path &file)
{
    std::stringstream bytes;
    bytes << std::ifstream(file, std::ios::binary).rdbuf();
    return bytes.str();
}

file_node *append(file_store *store, file_node *parent, file_kind kind, const std::string &name,
                  mount_entry *mount = nullptr, std::uint64_t size = 0)
{
    auto row = std::make_unique<file_node>();
    row->kind = kind;
    row->name = name;
    row->mount = mount;
    row->size = size;
    row->marked = kind == file_kind::file && name != "not marked";
    return file_store_append(store, parent, std::move(row));
}

// The window over marked files on an ext4 and a FAT partition, a partition that was not read, and a sector.
struct report : testing::Test {
    void SetUp() override
    {
        NEED_DISPLAY();
        windows = std::make_unique<loaded_windows>();
        app.xml = windows->xml;
        app.filebrowser = windows->widget("filebrowser");
        app.diskbrowser = windows->widget("diskbrowser");
        GtkTreeStore *sectors = disk_create_model();
        app.disks.emplace_back().name = "md0";
        fill_tree(&app, sectors);
        GtkTreeIter first;
        gtk_tree_model_get_iter_from_string(GTK_TREE_MODEL(sectors), &first, "0:0");
        disk_mark_iter(&app, sectors, &first, 1);
        gtk_tree_view_set_model(GTK_TREE_VIEW(app.diskbrowser), GTK_TREE_MODEL(sectors));
        g_object_unref(sectors);
        fill_file_tree();
        ASSERT_EQ(report_init(&app), 1);
        report_show(&app);
    }

    void fill_file_tree()
    {
        file_store *files = file_store_new({});
        std::vector<file_node *> roots;
        for (const char *type : {"ext4", "fat32", "ntfs"}) {
            part &p = partitions.emplace_back();
            p.device = "md0";
            p.index = static_cast<std::int32_t>(roots.size()) + 1;
            p.fs_type = type;
            app.mounts.emplace_back().partition = &p;
            roots.push_back(append(files, file_store_top(files), file_kind::root, type, &app.mounts.back()));
        }
        file_node *boot = append(files, roots[0], file_kind::directory, "boot\xFF");
        append(files, boot, file_kind::file, "vmlinuz", nullptr, 5000000000);
        append(files, boot, file_kind::file, "not marked");
        append(files, roots[0], file_kind::file, "two\nlines {}", nullptr, 3);
        append(files, append(files, roots[1], file_kind::directory, "Отчёты"), file_kind::file, "win.ini");
        append(files, roots[2], file_kind::file, "behind an unread row");
        roots[2]->not_loaded = true;
        app.total_files_selected = 3;
        app.total_files_size = 5000000003;
        gtk_tree_view_set_model(GTK_TREE_VIEW(app.filebrowser), GTK_TREE_MODEL(files));
        g_object_unref(files);
    }

    // Presses the save button; the chooser is given one name after the other, the questions the responses.
    std::string save_as(std::vector<std::string> names, std::vector<int> responses)
    {
        const forgiven_leaks in_the_chooser;
        answered_dialogs user(std::move(responses));
        user.file_names = std::move(names);
        gtk_button_clicked(GTK_BUTTON(windows->widget("report_save_button")));
        std::string questions;
        for (const seen_dialog &dialog : user.seen)
            questions += dialog.title + ": " + dialog.text;
        return questions;
    }

    struct app app;
    std::list<part> partitions;
    std::unique_ptr<loaded_windows> windows;
    scratch_directory scratch;
    const std::string whole = "{\\rtf1\\ansi\\ansicpg1251\\deff0\\deflang1049\\plain {\n"
                              "{\\b Report}\\par\n"
                              "{\\i File list:}\\par\n"
                              "\\line\n"
                              "File: md0p1:/two\nlines \\{\\}, file size: 3\\line\n"
                              "File: md0p2:\\\\\xCE\xF2\xF7\xB8\xF2\xFB\\\\win.ini, file size: 0\\line\n"
                              "{\\b Total files: 3, total size: 5000000003}\\par\n"
                              "{\\i Sector list:}\\par\n"
                              "Sector: md0:/Master boot record, sector size: 512\\line\n"
                              "{\\b Total sectors: 1, total size: 512}\\par\n"
                              "}}\n";
};

TEST_F(report, saves_exactly_what_it_shows)
{
    EXPECT_EQ(windows->label("filehdr"), "Files selected: 3. Total size: 5000000003 byte.   ");
    EXPECT_EQ(windows->label("sectorhdr"), "Sectors selected: 1. Total size: 512 byte.   ");
    gtk_button_clicked(GTK_BUTTON(windows->widget("report_close_button")));
    EXPECT_FALSE(gtk_widget_get_visible(app.report));
    report_show(&app);
    settle();
    gboolean stays = FALSE;
    g_signal_emit_by_name(app.report, "delete-event", nullptr, &stays);
    EXPECT_TRUE(stays);

    fill_file_tree(); // what changes from here on is neither shown nor saved
    const fs::path name = scratch.path() / "Отчёт.rtf";
    EXPECT_EQ(save_as({name}, {}), "");
    EXPECT_EQ(content(name), whole);
    GtkTreeModel *files = gtk_tree_view_get_model(GTK_TREE_VIEW(app.file_report));
    GtkTreeIter first;
    gtk_tree_model_get_iter_first(files, &first);
    gchar *path = nullptr;
    gtk_tree_model_get(files, &first, file_report_path, &path, -1);
    EXPECT_STREQ(path, "md0p1:/boot\xFF/vmlinuz"); // the bytes of the names
    g_free(path);
}

TEST_F(report, overwrites_only_a_report_and_only_after_yes)
{
    const fs::path other = scratch.write("notes.txt", "notes");
    const fs::path old = scratch.write("old.rtf", "{\\rtf1 old}");
    fs::permissions(old, fs::perms::owner_read);
    const fs::path link = scratch.path() / "link.rtf";
    fs::create_symlink("old.rtf", link);
    captured_trace trace;
    EXPECT_THAT(save_as({other, old, link}, {GTK_RESPONSE_YES, GTK_RESPONSE_OK, GTK_RESPONSE_NO,
                                             GTK_RESPONSE_DELETE_EVENT, GTK_RESPONSE_CANCEL}),
                testing::StartsWith("Warning: File «notes.txt» already exists. Rewrite it?\n"
                                    "Error: File «notes.txt» is not rtf-document.\n"
                                    "Warning: File «old.rtf» already exists. Rewrite it?\n"
                                    "Warning: File «link.rtf» already exists. Rewrite it?\n"
                                    "Save report: "));
    EXPECT_THAT(save_as({}, {GTK_RESPONSE_CANCEL}), testing::HasSubstr("\nreport.rtf\n"));
    EXPECT_THAT(trace.messages(), testing::EndsWith("User has cancelled report saving\n"));
    EXPECT_EQ(content(other), "notes");
    EXPECT_EQ(content(old), "{\\rtf1 old}");

    save_as({link}, {GTK_RESPONSE_YES});
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_EQ(content(old), whole);
    EXPECT_EQ(fs::status(old).permissions(), fs::perms::owner_read);
}

TEST_F(report, a_document_that_does_not_fit_leaves_the_old_one)
{
    const fs::path old = scratch.write("old.rtf", "{\\rtf1 old}");
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit before;
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit small = {100, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    const std::string questions = save_as({old}, {GTK_RESPONSE_YES, GTK_RESPONSE_OK});
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_THAT(questions, testing::EndsWith("Error: Cannot write file «old.rtf»: File too large\n"));
    EXPECT_EQ(content(old), "{\\rtf1 old}");
    EXPECT_EQ(std::distance(fs::directory_iterator(scratch.path()), {}), 1);
}

} // namespace
