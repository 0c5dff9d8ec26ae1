// The commands: what each of them asks, and what every answer leaves behind.
#include "callbacks.h"

#include "gtk_support.h"
#include "marked_partition.h"

#include <gtest/gtest.h>

namespace {

struct command {
    void (*handler)(GtkWidget *, struct app *);
    std::string question;
    bool files;
    std::uint32_t before, after; // rows that are marked
    bool saves;
};

const std::string clear = "Do you really want to clear ",
                  preset = "Do you really want to set default selection?",
                  overwrite = "Do you really want to overwrite existing template?";
const command commands[] = {{on_files_default_clicked, preset, true, 2, 0, false},
                            {on_files_clear_clicked, clear + "files selection?", true, 2, 0, false},
                            {on_files_clear_clicked, clear + "files selection?", true, 0, 0, false},
                            {on_files_save_clicked, overwrite, true, 2, 2, true},
                            {on_sectors_default_clicked, preset, false, 0, 4, false},
                            {on_sectors_save_clicked, overwrite, false, 4, 4, true},
                            {on_sectors_clear_clicked, clear + "sectors selection?", false, 4, 0, false}};

TEST(commands, change_something_only_on_yes)
{
    NEED_DISPLAY();
    marked_partition partition;
    partition.show();
    partition.take_over_root();
    struct app &app = partition.app;
    sector_tree tree;
    app.diskbrowser = gtk_tree_view_new_with_model(GTK_TREE_MODEL(tree.store));
    file_node *dir = partition.add(partition.root(), "dir", file_kind::directory);
    file_node *const marked[] = {partition.add(dir, "a"), partition.add(partition.root(), "b")};
    for (const auto &[handler, question, files, before, after, saves] : commands) {
        for (file_node *file : marked)
            mark_iter(&app, partition.store, file, files && before > 0);
        for (const int answer : {GTK_RESPONSE_NO, GTK_RESPONSE_DELETE_EVENT, GTK_RESPONSE_YES}) {
            answered_dialogs dialogs({answer});
            files_changed = sectors_changed = saves;
            handler(app.window, &app);
            ASSERT_EQ(dialogs.seen.size(), 1U);
            EXPECT_EQ(dialogs.seen[0].title + ": " + dialogs.seen[0].text, "Confirm: " + question + "\n");
            const bool yes = answer == GTK_RESPONSE_YES;
            EXPECT_EQ(files ? files_changed : sectors_changed, yes != saves) << question;
            EXPECT_EQ(files ? sectors_changed : files_changed, saves) << question;
            EXPECT_EQ(files ? app.total_files_selected : app.total_sectors_selected, yes ? after : before)
                << question;
            EXPECT_EQ(partition.root()->marked, app.total_files_selected > 0);
        }
    }
    // Without a button nothing is asked.
    files_changed = 1;
    on_files_save_clicked(nullptr, &app);
    EXPECT_EQ(files_changed, 0);
    gtk_widget_destroy(std::exchange(app.diskbrowser, nullptr));
}

} // namespace
