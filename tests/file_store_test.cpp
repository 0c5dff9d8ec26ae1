// The store under GTK's own view and a model on top, which know of the tree only what the signals have told.
#include "gtk_support.h"
#include "tree_support.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <set>

namespace {

// The rows that the view must show, from top to bottom.
void collect(const browsed_partition &partition, file_node *parent, std::vector<file_node *> &rows)
{
    for (const auto &row : parent->children) {
        rows.push_back(row.get());
        if (gtk_tree_view_row_expanded(partition.view(), path_of(partition.store, row.get()).get()))
            collect(partition, row.get(), rows);
    }
}

// Asks the view for the row at every height.
void expect_shown(const browsed_partition &partition)
{
    std::vector<file_node *> rows;
    collect(partition, file_store_top(partition.store), rows);
    GdkRectangle first;
    gtk_tree_view_get_background_area(partition.view(), path_of(partition.store, rows.front()).get(),
                                      gtk_tree_view_get_column(partition.view(), 0), &first);
    rows.push_back(nullptr); // below the last
    for (std::size_t i = 0; i < rows.size(); i++) {
        GtkTreePath *path = nullptr;
        const int y = first.y + first.height * static_cast<int>(i) + first.height / 2;
        gtk_tree_view_get_path_at_pos(partition.view(), 1, y, &path, nullptr, nullptr, nullptr);
        const owned_path owned(path);
        ASSERT_EQ(path ? file_store_row_at(partition.store, path) : nullptr, rows[i]) << i;
    }
}

TEST(file_store, keeps_a_view_and_a_model_on_top_true)
{
    browsed_partition partition;
    partition.show();
    file_store *store = partition.store;
    const owned_object<GtkTreeModel> sorted(gtk_tree_model_sort_new_with_model(GTK_TREE_MODEL(store)));
    std::set<file_node *> announced, due;
    const auto note = +[](GtkTreeModel *, GtkTreePath *, GtkTreeIter *iter, std::set<file_node *> *changed) {
        changed->insert(file_store_row(iter));
    };
    g_signal_connect(store, "row-changed", G_CALLBACK(note), &announced);
    std::mt19937 random(7);
    std::vector<file_node *> rows = {partition.root()};
    for (int step = 0; step < 5000 && !HasFatalFailure(); step++) {
        file_node *row = rows[random() % rows.size()];
        GtkTreeIter iter = file_store_iter(store, row), upper;
        const auto action = random() % 12;
        if (action < 5 && row->is_dir()) {
            const file_kind kind = random() % 2 ? file_kind::directory : file_kind::file;
            rows.push_back(append_row(store, random() % 20 ? row : file_store_top(store), kind, "name"));
        } else if (action == 5 && row->children.empty() && rows.size() > 1) {
            std::erase(rows, row);
            due.erase(row);
            file_store_remove(store, row);
        } else if (action < 9) {
            gboolean marked; // only who has asked hears of changes
            gtk_tree_model_get(GTK_TREE_MODEL(store), &iter, file_column_marked, &marked, -1);
            row->marked = !marked;
            file_store_changed(store, row);
            due.insert(row);
            gtk_tree_model_sort_convert_child_iter_to_iter(GTK_TREE_MODEL_SORT(sorted.get()), &upper, &iter);
            EXPECT_EQ(gtk_tree_model_iter_n_children(sorted.get(), &upper), std::ssize(row->children));
        } else {
            const owned_path path = path_of(store, row);
            if (action == 9)
                gtk_tree_view_collapse_row(partition.view(), path.get());
            else
                gtk_tree_view_expand_row(partition.view(), path.get(), FALSE);
        }
        if (step % 16 == 0) {
            settle();
            expect_shown(partition);
            EXPECT_TRUE(std::ranges::includes(std::exchange(announced, {}), std::exchange(due, {})));
        }
    }
    EXPECT_GT(rows.size(), 400U);
}

} // namespace
