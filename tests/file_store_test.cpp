// The store under GTK's own view and models, which know of the tree only what the signals have told them.
#include "gtk_support.h"
#include "tree_support.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <set>

namespace {

bool is_unfolded(GtkTreeView *view, file_store *store, file_node *row)
{
    return !row->parent || gtk_tree_view_row_expanded(view, path_of(store, row).get());
}

// The rows that the view must show, from top to bottom.
void collect(GtkTreeView *view, file_store *store, file_node *parent, std::vector<file_node *> &rows)
{
    for (const auto &row : parent->children) {
        rows.push_back(row.get());
        if (is_unfolded(view, store, row.get()))
            collect(view, store, row.get(), rows);
    }
}

// Asks the view for the row at every height.
void expect_shown(GtkTreeView *view, file_store *store)
{
    std::vector<file_node *> rows;
    collect(view, store, file_store_top(store), rows);
    GdkRectangle first;
    const owned_path top(gtk_tree_path_new_first());
    gtk_tree_view_get_background_area(view, top.get(), gtk_tree_view_get_column(view, 0), &first);
    rows.push_back(nullptr); // below the last
    for (std::size_t i = 0; i < rows.size(); i++) {
        GtkTreePath *path = nullptr;
        const int y = first.y + first.height * static_cast<int>(i) + first.height / 2;
        gtk_tree_view_get_path_at_pos(view, 1, y, &path, nullptr, nullptr, nullptr);
        const owned_path owned(path);
        ASSERT_EQ(path ? file_store_row_at(store, path) : nullptr, rows[i]) << i;
    }
}

using upper_path = GtkTreePath *(*)(GtkTreeModel *upper, GtkTreePath *path);
const auto to_sorted = reinterpret_cast<upper_path>(gtk_tree_model_sort_convert_child_path_to_path);
const auto to_filtered = reinterpret_cast<upper_path>(gtk_tree_model_filter_convert_child_path_to_path);

// Asks a model on top for the children of a row: it takes the level over, and has the rest from the signals.
void expect_children(GtkTreeModel *upper, upper_path convert, GtkTreePath *path, const file_node &row)
{
    const owned_path above(convert(upper, path));
    GtkTreeIter iter;
    ASSERT_NE(above, nullptr);
    ASSERT_TRUE(gtk_tree_model_get_iter(upper, &iter, above.get()));
    EXPECT_EQ(gtk_tree_model_iter_n_children(upper, &iter), std::ssize(row.children));
}

TEST(file_store, keeps_a_view_and_models_on_top_true)
{
    browsed_partition partition;
    partition.show();
    GtkTreeView *view = partition.view();
    file_store *store = partition.store;
    const owned_object<GtkTreeModel> sorted(gtk_tree_model_sort_new_with_model(GTK_TREE_MODEL(store))),
        filtered(gtk_tree_model_filter_new(GTK_TREE_MODEL(store), nullptr));
    gtk_tree_sortable_set_sort_column_id(GTK_TREE_SORTABLE(sorted.get()), file_column_name,
                                         GTK_SORT_DESCENDING);
    std::set<file_node *> announced, due, asked;
    const auto note = +[](GtkTreeModel *, GtkTreePath *, GtkTreeIter *iter, std::set<file_node *> *changed) {
        changed->insert(file_store_row(iter));
    };
    g_signal_connect(store, "row-changed", G_CALLBACK(note), &announced);
    std::mt19937 random(7);
    std::vector<file_node *> rows = {partition.root()};
    for (int step = 0; step < 5000 && !HasFatalFailure(); step++) {
        file_node *row = rows[random() % rows.size()];
        const owned_path path = path_of(store, row);
        const auto action = random() % 13;
        if (action < 5 && row->is_dir()) {
            const file_kind kind = random() % 2 ? file_kind::directory : file_kind::file;
            rows.push_back(append_row(store, random() % 20 ? row : file_store_top(store), kind,
                                      std::to_string(random() % 1000), row->mount));
            asked.erase(rows.back()); // what was at this address before
        } else if (action == 5 && row->children.empty() && rows.size() > 1) {
            std::erase(rows, row);
            due.erase(row);
            file_store_remove(store, row);
        } else if (action < 9) {
            row->marked = !row->marked;
            file_store_changed(store, row);
            if (asked.contains(row))
                due.insert(row);
        } else if (action < 11) {
            gtk_tree_view_expand_row(view, path.get(), FALSE);
        } else if (action == 11) {
            gtk_tree_view_collapse_row(view, path.get());
        } else {
            expect_children(sorted.get(), to_sorted, path.get(), *row);
            expect_children(filtered.get(), to_filtered, path.get(), *row);
            for (const auto &child : row->children) {
                GtkTreeIter iter = file_store_iter(store, child.get());
                gboolean marked;
                gtk_tree_model_get(GTK_TREE_MODEL(store), &iter, file_column_marked, &marked, -1);
                asked.insert(child.get());
            }
        }
        if (step % 16 == 0) {
            settle();
            expect_shown(view, store);
            EXPECT_TRUE(std::ranges::includes(announced, due));
            due.clear();
            announced.clear();
        }
    }
    EXPECT_GT(rows.size(), 400U);
}

} // namespace
