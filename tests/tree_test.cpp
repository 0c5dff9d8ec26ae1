// The tree on any sequence of operations: counts, images, and what a view and a model on top are told. The
// right button on the real tree view.
#include "gtk_support.h"
#include "tree_support.h"

#include <gtest/gtest.h>
#include <random>
#include <set>

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

// The names of all rows below one, each followed by those below it.
std::string dump(GtkTreeModel *model, GtkTreeIter *parent = nullptr)
{
    std::string text;
    GtkTreeIter row;
    for (gboolean more = gtk_tree_model_iter_children(model, &row, parent); more;
         more = gtk_tree_model_iter_next(model, &row)) {
        g_autofree gchar *name = nullptr;
        gtk_tree_model_get(model, &row, file_column_name, &name, -1);
        text += "(" + (name + dump(model, &row)) + ")";
    }
    return text;
}

TEST(tree, stays_true_on_any_sequence)
{
    browsed_partition partition;
    partition.show();
    struct app *app = &partition.app;
    file_store *store = partition.store;
    const owned_object<GtkTreeModel> upper(gtk_tree_model_sort_new_with_model(GTK_TREE_MODEL(store)));
    std::set<file_node *> announced;
    const auto note = +[](GtkTreeModel *, GtkTreePath *, GtkTreeIter *iter, std::set<file_node *> *changed) {
        changed->insert(file_store_row(iter));
    };
    g_signal_connect(store, "row-changed", G_CALLBACK(note), &announced);
    std::mt19937 random(11);
    partition.root()->not_loaded = false; // its placeholder stays, which nothing may mark
    std::vector<file_node *> directories = {partition.root()},
                             files = {append_file(store, partition.root(), "first", 1)};
    for (int step = 0; step < 3000 && !HasFailure(); step++) {
        file_node *directory = directories[random() % directories.size()];
        file_node *file = files[random() % files.size()], *last = file;
        const auto &siblings = file->parent->children;
        const bool was_marked = directory->marked, was_seen = file->value_seen;
        const int value = static_cast<int>(random() % 2);
        const std::string name = std::to_string(step);
        switch (random() % 10) {
        case 0:
            directories.push_back(
                append_dir(store, random() % 10 ? directory : file_store_top(store), name, nullptr));
            directories.back()->not_loaded = false;
            break;
        case 1:
        case 2:
            files.push_back(append_file(store, directory, name, random() * 3));
            break;
        case 3:
            if (!file->marked && files.size() > 1) {
                std::erase(files, file);
                file_store_remove(store, file);
            }
            break;
        case 4:
            gtk_tree_view_expand_row(partition.view(), path_of(store, directory).get(), FALSE);
            break;
        case 5:
            gtk_tree_view_collapse_row(partition.view(), path_of(store, directory).get());
            break;
        case 6:
            announced.clear();
            EXPECT_EQ(toggle_iter(app, store, file), file->marked);
            settle();
            EXPECT_EQ(announced.contains(file), was_seen); // nobody can know of what nobody has asked for
            break;
        case 7:
            while (last->position + 1 < siblings.size() && !siblings[last->position + 1]->is_dir())
                last = siblings[last->position + 1].get();
            mark_range(app, store, file, last, value);
            EXPECT_EQ(file->marked, value);
            EXPECT_EQ(last->marked, value);
            break;
        case 8:
            EXPECT_FALSE(toggle_iter(app, store, directory));
            EXPECT_EQ(directory->marked, !was_marked && directory->marked_files > 0);
            break;
        default:
            mark_recursive(app, store, directory, value);
        }
        if (step % 4 == 0) {
            expect_true_counts(*app, store);
            EXPECT_EQ(dump(upper.get()), dump(GTK_TREE_MODEL(store)));
        }
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
