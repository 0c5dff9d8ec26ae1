// The report window: its rows, and what saving leaves under the chosen name.
#include "report.h"
#include "report_file.h"

#include "diskbrowser.h"
#include "gtk_support.h"
#include "tree_support.h"

#include <csignal>
#include <gmock/gmock.h>
#include <sys/resource.h>

// The toolkit's file chooser leaks. Null without the sanitizer.
extern "C" __attribute__((weak)) void __lsan_disable(); // NOLINT

namespace {

namespace fs = std::filesystem;

// The window over marked files on an ext4 and a FAT partition, a partition that was not read, and a sector.
struct report : testing::Test {
    void SetUp() override
    {
        app.xml = windows.xml;
        app.total_files_selected = 4;
        app.total_files_size = 10000000006;
        app.filebrowser = windows.widget("filebrowser");
        app.disks.emplace_back().name = "md0";
        EXPECT_TRUE(diskbrowser_init(&app));
        GtkTreeModel *sectors = gtk_tree_view_get_model(GTK_TREE_VIEW(app.diskbrowser));
        GtkTreeIter top;
        gtk_tree_model_get_iter_first(sectors, &top);
        disk_toggle_iter(&app, GTK_TREE_STORE(sectors), &top);

        const owned_object<file_store> files(file_store_new({}));
        file_store *store = files.get();
        for (const char *type : {"ext4", "fat32", "ntfs"}) {
            part &p = app.disks.front().parts.emplace_back();
            p.device = "md0";
            p.fs_type = type;
            app.mounts.emplace_back().partition = &p;
            file_node *root =
                append_row(store, file_store_top(store), file_kind::root, type, &app.mounts.back());
            root->not_loaded = type[0] == 'n';
            // The first is wide, and no text; the second tries to break out of the document.
            for (const auto &[directory, file, size] :
                 {std::tuple("\xFF", std::string(260, 'w'), 3ULL), {"Я", "a}{b%s\n", 5000000000ULL}}) {
                file_node *row = append_row(store, root, file_kind::directory, directory);
                row = append_row(store, row, file_kind::file, file);
                row->size = size;
                row->marked = true;
            }
            append_row(store, root, file_kind::file, "not marked");
        }
        gtk_tree_view_set_model(GTK_TREE_VIEW(app.filebrowser), GTK_TREE_MODEL(store));
        ASSERT_TRUE(report_init(&app));
        report_show(&app);
        report_show(&app);                                                // filled anew, not added to
        gtk_tree_view_set_model(GTK_TREE_VIEW(app.filebrowser), nullptr); // from here on nothing can change
    }

    // Presses the save button; the chooser is given one name after the other, the questions the responses.
    std::string save_as(std::vector<fs::path> names, std::vector<int> responses,
                        std::function<void()> meanwhile = nullptr)
    {
        answered_dialogs user(std::move(responses));
        user.meanwhile = std::move(meanwhile);
        user.file_names = std::move(names);
        if (__lsan_disable)
            __lsan_disable();
        gtk_button_clicked(GTK_BUTTON(windows.widget("report_save_button")));
        return user.text;
    }

    struct app app;
    loaded_windows windows;
    scratch_directory scratch;
    const fs::path old = scratch.write("old.rtf", "{\\rtf1 old}");
};

TEST_F(report, shows_totals_and_overwrites_only_a_report_only_after_yes_and_only_with_a_whole_one)
{
    EXPECT_EQ(windows.label("filehdr"), "Files selected: 4. Total size: 10000000006 byte.   ");
    EXPECT_EQ(windows.label("sectorhdr"), "Sectors selected: 1. Total size: 512 byte.   ");
    const fs::path other = scratch.write("notes.txt", "notes"), link = scratch.path() / "link.rtf";
    rlimit size;
    getrlimit(RLIMIT_FSIZE, &size);
    std::signal(SIGXFSZ, SIG_IGN);
    size.rlim_cur = 100;
    setrlimit(RLIMIT_FSIZE, &size);
    const std::string rewrite_old = "Warning: File «old.rtf» already exists. Rewrite it?\n";
    EXPECT_EQ(save_as({old}, {GTK_RESPONSE_YES, GTK_RESPONSE_OK}),
              rewrite_old + "Error: Cannot write file «old.rtf»: File too large\n");
    size.rlim_cur = size.rlim_max;
    setrlimit(RLIMIT_FSIZE, &size);
    EXPECT_THAT(
        save_as({other, old}, {GTK_RESPONSE_YES, GTK_RESPONSE_OK, GTK_RESPONSE_NO, GTK_RESPONSE_CANCEL}),
        testing::StartsWith("Warning: File «notes.txt» already exists. Rewrite it?\n"
                            "Error: File «notes.txt» is not rtf-document.\n" +
                            rewrite_old + "Save report: "));
    EXPECT_EQ(content_of(other) + content_of(old), "notes{\\rtf1 old}");
    EXPECT_EQ(std::distance(fs::directory_iterator(scratch.path()), {}), 2);

    fs::create_symlink("nowhere.rtf", scratch.path() / "dangling.rtf");
    fs::create_symlink("old.rtf", link);
    fs::permissions(old, fs::perms::owner_read);
    EXPECT_EQ(save_as({"/proc/new.rtf"}, {GTK_RESPONSE_OK}),
              "Error: Cannot write file «new.rtf»: No such file or directory\n");
    EXPECT_EQ(save_as({scratch.path() / "dangling.rtf", link}, {GTK_RESPONSE_OK, GTK_RESPONSE_YES}),
              "Error: Cannot write file «dangling.rtf»: No such file or directory\n"
              "Warning: File «link.rtf» already exists. Rewrite it?\n"
              "Warning: The names of 2 files have characters that the document cannot hold. Their lines are "
              "empty:\nmd0p0:/\uFFFD/" +
                  std::string(260, 'w') + "\nmd0p0:\\\uFFFD\\" + std::string(260, 'w') + "\n\n");
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_EQ(fs::status(old).permissions(), fs::perms::owner_read);
    // A name that code page 1251 does not have leaves its line empty.
    EXPECT_EQ(content_of(old), "{\\rtf1\\ansi\\ansicpg1251\\deff0\\deflang1049\\plain {\n{\\b Report}\\par\n"
                               "{\\i File list:}\\par\n\\line\n"
                               "File: md0p0:/\xDF/a\\}\\{b%s\n, file size: 5000000000\\line\n\\line\n"
                               "File: md0p0:\\\\\xDF\\\\a\\}\\{b%s\n, file size: 5000000000\\line\n"
                               "{\\b Total files: 4, total size: 10000000006}\\par\n{\\i Sector list:}\\par\n"
                               "Sector: md0:/Master boot record, sector size: 512\\line\n"
                               "{\\b Total sectors: 1, total size: 512}\\par\n}}\n");

    // Somebody who may write there points the name elsewhere when it has been judged.
    const fs::path mine = scratch.write("mine.rtf", "{\\rtf1 mine}"), fresh = scratch.path() / "new.rtf";
    EXPECT_EQ(save_as({old}, {GTK_RESPONSE_YES, GTK_RESPONSE_OK},
                      [&] { fs::remove(old), fs::create_symlink("mine.rtf", old); }),
              rewrite_old + "Error: Cannot write file «old.rtf»: File exists\n");
    bool is_link = false;
    report_place place, other_place;
    report_file file;
    ASSERT_TRUE(find_report_place(place, fresh, is_link) && open_report_file(file, std::move(place)));
    fs::create_symlink("mine.rtf", fresh);
    EXPECT_TRUE(!put_in_place(file) && errno == EEXIST);
    EXPECT_EQ(content_of(mine), "{\\rtf1 mine}");
    if (geteuid() == 0 && lchown(fresh.c_str(), 1, 1) == 0) {
        EXPECT_TRUE(!find_report_place(other_place, fresh, is_link) && errno == EACCES) << "a link of his";
    }

    gboolean stays = FALSE;
    g_signal_emit_by_name(app.report, "delete-event", nullptr, &stays);
    EXPECT_TRUE(stays);
    EXPECT_FALSE(gtk_widget_get_visible(app.report));
}

} // namespace
