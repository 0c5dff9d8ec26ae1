// Marks: counts and images on any sequence of operations, and the right button on the real tree view.
#include "gtk_support.h"
#include "tree_support.h"

#include <gtest/gtest.h>
#include <random>

namespace {

// Recounts the marked files below a row, holds every row against it, and adds up their sizes.
std::uint32_t recount(const struct app &app, file_store *store, file_node *row, std::uint64_t &size)
{
    std::uint32_t files = row->kind == file_kind::file && row->marked ? 1 : 0;
    size += files * row->size;
    for (const auto &child : row->children)
        files += recount(app, store, child.get(), size);
    if (!row->parent)
        return files;
    EXPECT_EQ(row->marked, files > 0);
    EXPECT_EQ(row->marked_files, row->is_dir() ? static_cast<std::int32_t>(files) : 0);
    GtkTreeIter iter = file_store_iter(store, row);
    GdkPixbuf *icon = nullptr;
    gtk_tree_model_get(GTK_TREE_MODEL(store), &iter, file_column_icon, &icon, -1);
    const owned_object<GdkPixbuf> owned(icon);
    GdkPixbuf *const normal[] = {nullptr, app.disk_normal, app.folder_normal, app.file_normal, nullptr};
    GdkPixbuf *const marked[] = {nullptr, app.disk_marked, app.folder_marked, app.file_marked, nullptr};
    EXPECT_EQ(icon, (row->marked ? marked : normal)[static_cast<int>(row->kind)]);
    return files;
}

void expect_true_counts(const struct app &app, file_store *store)
{
    std::uint64_t size = 0;
    EXPECT_EQ(app.total_files_selected, recount(app, store, file_store_top(store), size));
    EXPECT_EQ(app.total_files_size, size);
}

TEST(marks, stay_true_on_any_sequence)
{
    browsed_partition partition;
    partition.show(); // for the images
    file_store *store = partition.store;
    std::mt19937 random(11);
    std::vector<file_node *> directories = {partition.root()}, files;
    for (int i = 0; i < 500; i++) {
        file_node *parent =
            random() % 40 ? directories[random() % directories.size()] : file_store_top(store);
        if (random() % 4 == 0 || !parent->parent)
            directories.push_back(append_dir(store, parent, "d", nullptr));
        else
            files.push_back(append_file(store, parent, "f", random() * 3));
    }
    for (file_node *directory : directories)
        directory->not_loaded = false; // its placeholder stays, which nothing may mark
    for (int step = 0; step < 1500 && !HasFailure(); step++) {
        file_node *file = files[random() % files.size()], *last = file;
        const auto &siblings = file->parent->children;
        file_node *directory = directories[random() % directories.size()];
        const bool was_marked = directory->marked;
        const int value = static_cast<int>(random() % 2);
        switch (random() % 4) {
        case 0:
            EXPECT_EQ(toggle_iter(&partition.app, store, file), file->marked);
            break;
        case 1:
            while (last->position + 1 < siblings.size() && !siblings[last->position + 1]->is_dir())
                last = siblings[last->position + 1].get();
            mark_range(&partition.app, store, file, last, value);
            EXPECT_EQ(file->marked, value);
            EXPECT_EQ(last->marked, value);
            break;
        case 2:
            EXPECT_FALSE(toggle_iter(&partition.app, store, directory));
            EXPECT_EQ(directory->marked, !was_marked && directory->marked_files > 0);
            break;
        default:
            mark_recursive(&partition.app, store, directory, value);
        }
        expect_true_counts(partition.app, store);
    }
}

// Names of the marked files, or their number when there are many.
std::string marked(const file_node &row)
{
    if (row.marked_files > 6)
        return std::to_string(row.marked_files);
    std::string names = row.kind == file_kind::file && row.marked ? row.name + " " : "";
    for (const auto &child : row.children)
        names += marked(*child);
    return names;
}

TEST(right_button, marks_rows_and_ranges)
{
    browsed_partition partition;
    for (int i = 10; i < 99; i++)
        partition.files.write("many/" + std::to_string(i), "12345");
    partition.files.write("dir/below/deep", "123");
    partition.files.write("dir/x", "1");
    partition.show();
    GtkTreeView *view = partition.view();
    constexpr guint shift = GDK_SHIFT_MASK, control = GDK_CONTROL_MASK;
    const struct {
        const char *cursor; // put there first; null: it stays where the last press left it
        const char *row;    // null: below the rows
        guint button, state;
        const char *marked; // afterwards
        GdkEventType type = GDK_BUTTON_PRESS;
    } steps[] = {
        {nullptr, nullptr, 3, 0, ""},
        {nullptr, "many/11", 2, shift, ""},
        {nullptr, "many/12", 3, 0, "12 "},
        {nullptr, "many/15", 3, shift, "12 13 14 15 "},
        {nullptr, "many/13", 3, control, "12 "}, // upwards, and against the state of the pressed row
        {"many/13", "many/13", 3, shift, "12 "},
        {"dir/x", "many/14", 3, shift, "12 "}, // from another directory
        {"many/11", "many", 3, shift, "12 "},  // to a directory
        {nullptr, "many/98", 3, 0, "12 98 "},  // far out of sight before
        {"many/97", "many/96", 3, control, "12 96 97 98 "},
        {nullptr, "many/98", 3, 0, "12 96 97 ", GDK_2BUTTON_PRESS},
        {nullptr, "many", 3, 0, ""},
        {nullptr, "many", 3, 0, "89"},
        {nullptr, "", 3, 0, ""},
        {nullptr, "", 3, 0, "91"},
    };
    for (const auto &step : steps) {
        SCOPED_TRACE(step.marked);
        if (step.row)
            gtk_tree_view_expand_all(view);
        if (step.cursor)
            gtk_tree_view_set_cursor(view, path_of(partition.store, partition.row(step.cursor)).get(),
                                     nullptr, FALSE);
        files_changed = 0;
        partition.press(step.row ? partition.row(step.row) : nullptr, step.button, step.state, step.type);
        settle();
        EXPECT_EQ(marked(*partition.root()), step.marked);
        EXPECT_EQ(files_changed, step.button == 3);
        expect_true_counts(partition.app, partition.store);
        EXPECT_EQ(gtk_label_get_text(GTK_LABEL(partition.app.total_files_size_label)),
                  std::to_string(partition.app.total_files_size) + " bytes");
    }
}

} // namespace
