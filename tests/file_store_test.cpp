// The store under GTK's own view and a model on top, which know of the tree only what the signals have told.
#include "gtk_support.h"
#include "tree_support.h"

#include <gtest/gtest.h>
#include <random>
#include <set>

namespace {

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

TEST(file_store, keeps_a_view_and_a_model_on_top_true)
{
    browsed_partition partition;
    partition.show();
    file_store *store = partition.store;
    const owned_object<GtkTreeModel> upper(gtk_tree_model_sort_new_with_model(GTK_TREE_MODEL(store)));
    std::set<file_node *> announced;
    const auto note = +[](GtkTreeModel *, GtkTreePath *, GtkTreeIter *iter, std::set<file_node *> *changed) {
        changed->insert(file_store_row(iter));
    };
    g_signal_connect(store, "row-changed", G_CALLBACK(note), &announced);
    std::mt19937 random(7);
    std::vector<file_node *> rows = {partition.root()};
    for (int step = 0; step < 3000 && !HasFailure(); step++) {
        file_node *row = rows[random() % rows.size()];
        const auto action = random() % 12;
        if (action < 5 && row->is_dir()) {
            const file_kind kind = random() % 2 ? file_kind::directory : file_kind::file;
            rows.push_back(
                append_row(store, random() % 20 ? row : file_store_top(store), kind, std::to_string(step)));
        } else if (action == 5 && row->children.empty() && rows.size() > 1) {
            std::erase(rows, row);
            file_store_remove(store, row);
        } else if (action == 6) {
            gtk_tree_view_collapse_row(partition.view(), path_of(store, row).get());
        } else if (action < 10) {
            gtk_tree_view_expand_row(partition.view(), path_of(store, row).get(), FALSE);
        } else {
            file_store_changed(store, row);
        }
        if (step % 16 == 0) {
            EXPECT_EQ(dump(upper.get()), dump(GTK_TREE_MODEL(store)));
            announced.clear();
            file_store_changed(store, rows.back());
            settle();
            EXPECT_TRUE(announced.contains(rows.back()));
        }
    }
    EXPECT_GT(rows.size(), 400U);
}

} // namespace
