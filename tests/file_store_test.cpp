// The store as GTK sees it: what it answers, and that a view which listens to its signals always knows the
// tree.
#include "file_store.h"

#include "common/mount.h"
#include "gtk_owned.h"

#include <gtest/gtest.h>
#include <random>

namespace {

std::unique_ptr<file_node> make(file_kind kind, const std::string &name)
{
    auto row = std::make_unique<file_node>();
    row->kind = kind;
    row->name = name;
    return row;
}

struct shown_row {
    std::string name;
    bool marked, has_child;
    bool unfolded = false;
    std::vector<shown_row> children{};
};

// What a tree view does: it knows the top level and the levels below unfolded rows, which are never empty,
// refers to every row of those, and believes the signals.
class listener {
public:
    explicit listener(file_store *store) : model_(GTK_TREE_MODEL(store))
    {
        top_.unfolded = true;
        g_signal_connect(model_, "row-inserted", G_CALLBACK(inserted), this);
        g_signal_connect(model_, "row-deleted", G_CALLBACK(deleted), this);
        g_signal_connect(model_, "row-changed", G_CALLBACK(changed), this);
        g_signal_connect(model_, "row-has-child-toggled", G_CALLBACK(changed), this);
    }
    ~listener() { g_signal_handlers_disconnect_by_data(model_, this); }
    listener(const listener &) = delete;
    listener &operator=(const listener &) = delete;

    void unfold(GtkTreePath *path)
    {
        GtkTreeIter iter, child;
        shown_row *row = find(path);
        if (!row || row->unfolded || !gtk_tree_model_get_iter(model_, &iter, path))
            return;
        row->unfolded = gtk_tree_model_iter_has_child(model_, &iter);
        for (gboolean more = gtk_tree_model_iter_children(model_, &child, &iter); more;
             more = gtk_tree_model_iter_next(model_, &child)) {
            row->children.push_back(read(&child));
            gtk_tree_model_ref_node(model_, &child);
        }
    }

    void fold(GtkTreePath *path)
    {
        GtkTreeIter iter, child;
        shown_row *row = find(path);
        if (!row || !row->unfolded || !gtk_tree_model_get_iter(model_, &iter, path))
            return;
        for (int i = 0; i < static_cast<int>(row->children.size()); i++) {
            const owned_path below(gtk_tree_path_copy(path));
            gtk_tree_path_append_index(below.get(), i);
            fold(below.get());
            ASSERT_TRUE(gtk_tree_model_iter_nth_child(model_, &child, &iter, i));
            gtk_tree_model_unref_node(model_, &child);
        }
        row->unfolded = false;
        row->children.clear();
    }

    void expect_true() { compare(top_, nullptr); }
    int signals = 0;

private:
    shown_row *find(GtkTreePath *path, int levels = -1)
    {
        shown_row *row = &top_;
        for (int i = 0; i < (levels < 0 ? gtk_tree_path_get_depth(path) : levels); i++) {
            const auto index = static_cast<std::size_t>(gtk_tree_path_get_indices(path)[i]);
            if (!row->unfolded || index >= row->children.size())
                return nullptr;
            row = &row->children[index];
        }
        return row;
    }

    shown_row read(GtkTreeIter *iter)
    {
        gchar *name = nullptr;
        gboolean marked = FALSE;
        gtk_tree_model_get(model_, iter, file_column_name, &name, file_column_marked, &marked, -1);
        shown_row row = {name, marked != FALSE, gtk_tree_model_iter_has_child(model_, iter) != FALSE};
        g_free(name);
        return row;
    }

    void compare(const shown_row &level, GtkTreeIter *parent)
    {
        ASSERT_EQ(static_cast<int>(level.children.size()), gtk_tree_model_iter_n_children(model_, parent));
        for (std::size_t i = 0; i < level.children.size(); i++) {
            GtkTreeIter iter, up;
            ASSERT_TRUE(gtk_tree_model_iter_nth_child(model_, &iter, parent, static_cast<int>(i)));
            const shown_row now = read(&iter);
            const shown_row &believed = level.children[i];
            ASSERT_EQ(believed.name, now.name);
            ASSERT_EQ(believed.marked, now.marked);
            ASSERT_EQ(believed.has_child, now.has_child);
            ASSERT_EQ(gtk_tree_model_iter_parent(model_, &up, &iter), parent != nullptr);
            ASSERT_TRUE(!parent || up.user_data == parent->user_data);
            if (believed.unfolded)
                compare(believed, &iter);
        }
    }

    static int last_index(GtkTreePath *path)
    {
        return gtk_tree_path_get_indices(path)[gtk_tree_path_get_depth(path) - 1];
    }

    static void inserted(GtkTreeModel *model, GtkTreePath *path, GtkTreeIter *iter, listener *self)
    {
        self->signals++;
        const owned_path found(gtk_tree_model_get_path(model, iter));
        ASSERT_EQ(gtk_tree_path_compare(found.get(), path), 0);
        shown_row *parent = self->find(path, gtk_tree_path_get_depth(path) - 1);
        if (!parent || !parent->unfolded)
            return;
        ASSERT_LE(last_index(path), static_cast<int>(parent->children.size()));
        parent->children.insert(parent->children.begin() + last_index(path), self->read(iter));
        gtk_tree_model_ref_node(model, iter);
    }

    static void deleted(GtkTreeModel *, GtkTreePath *path, listener *self)
    {
        self->signals++;
        shown_row *parent = self->find(path, gtk_tree_path_get_depth(path) - 1);
        if (!parent || !parent->unfolded)
            return;
        ASSERT_LT(last_index(path), static_cast<int>(parent->children.size()));
        parent->children.erase(parent->children.begin() + last_index(path));
        parent->unfolded = !parent->children.empty() || parent == &self->top_;
    }

    static void changed(GtkTreeModel *, GtkTreePath *path, GtkTreeIter *iter, listener *self)
    {
        self->signals++;
        if (shown_row *row = self->find(path)) {
            const shown_row now = self->read(iter);
            row->marked = now.marked;
            row->has_child = now.has_child;
        }
    }

    GtkTreeModel *model_;
    shown_row top_ = {"", false, true};
};

TEST(file_store, tells_a_view_all_that_it_must_know)
{
    const owned_object<file_store> store(file_store_new({}));
    listener view(store.get());
    std::mt19937 random(7);
    std::vector<file_node *> rows;
    const auto pick = [&]() { return rows[random() % rows.size()]; };
    const auto path_of = [&](file_node *row) {
        GtkTreeIter iter = file_store_iter(store.get(), row);
        return owned_path(gtk_tree_model_get_path(GTK_TREE_MODEL(store.get()), &iter));
    };
    for (int step = 0; step < 4000 && !HasFatalFailure(); step++) {
        file_node *row = rows.empty() ? nullptr : pick();
        switch (random() % 8) {
        case 0:
        case 1:
        case 2:
            if (!row || row->is_dir()) {
                file_node *parent = row && random() % 20 ? row : file_store_top(store.get());
                const file_kind kind = random() % 2 ? file_kind::directory : file_kind::file;
                rows.push_back(file_store_append(store.get(), parent, make(kind, std::to_string(step))));
            }
            break;
        case 3:
            if (row && row->children.empty() && random() % 3 == 0) {
                std::erase(rows, row);
                file_store_remove(store.get(), row);
            }
            break;
        case 4:
        case 5:
            if (row) {
                row->marked = !row->marked;
                file_store_changed(store.get(), row);
            }
            break;
        case 6:
            if (row)
                view.unfold(path_of(row).get());
            break;
        default:
            if (row && random() % 3 == 0)
                view.fold(path_of(row).get());
        }
        if (step % 16 == 0) {
            file_store_flush(store.get());
            view.expect_true();
        }
    }
    EXPECT_GT(rows.size(), 300U);
    for (file_node *row : rows)
        ASSERT_EQ(file_store_row_at(store.get(), path_of(row).get()), row);
}

TEST(file_store, is_silent_below_folded_rows)
{
    const owned_object<file_store> store(file_store_new({}));
    file_node *root = file_store_append(store.get(), file_store_top(store.get()), make(file_kind::root, "r"));
    file_store_append(store.get(), root, make(file_kind::placeholder, ""));
    listener view(store.get());
    for (int i = 0; i < 100; i++) {
        file_node *file = file_store_append(store.get(), root, make(file_kind::file, std::to_string(i)));
        file->marked = true;
        file_store_changed(store.get(), file);
    }
    file_store_remove(store.get(), root->children.front().get());
    file_store_flush(store.get());
    EXPECT_EQ(view.signals, 0);
}

TEST(file_store, answers_every_column_of_every_kind_of_row)
{
    const auto pixbuf = [] {
        return owned_object<GdkPixbuf>(gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, 1, 1));
    };
    const auto normal = pixbuf(), marked = pixbuf();
    const owned_object<file_store> store(
        file_store_new({normal.get(), marked.get(), normal.get(), marked.get(), normal.get(), marked.get()}));
    mount_entry mount;
    mount.mountpoint = "/";
    file_node *row = file_store_top(store.get());
    const std::string bytes = "a\n\xff";
    for (const auto &[kind, name, path] : {std::tuple(file_kind::root, "/dev/sda1", "/"),
                                           {file_kind::directory, "boot", "/boot"},
                                           {file_kind::directory, "grub", "/boot/grub"},
                                           {file_kind::file, bytes.c_str(), "/boot/grub/a\n\xff"},
                                           {file_kind::placeholder, "Loading", nullptr}}) {
        auto added = make(kind, name);
        added->mount = path ? &mount : nullptr;
        added->size = kind == file_kind::file ? 5'000'000'000 : 0;
        added->marked = kind == file_kind::file;
        added->marked_files = kind == file_kind::directory ? 1 : 0;
        row = file_store_append(store.get(), kind == file_kind::placeholder ? row->parent : row,
                                std::move(added));
        GtkTreeIter iter = file_store_iter(store.get(), row);
        GdkPixbuf *icon = nullptr;
        gchar *shown_name = nullptr, *full = nullptr;
        gpointer entry = nullptr;
        gboolean is_dir, is_root, is_marked;
        guint64 size = 0;
        gint count = 0;
        gtk_tree_model_get(GTK_TREE_MODEL(store.get()), &iter, file_column_icon, &icon, file_column_name,
                           &shown_name, file_column_is_dir, &is_dir, file_column_is_root, &is_root,
                           file_column_mount_entry, &entry, file_column_full_path, &full, file_column_marked,
                           &is_marked, file_column_size, &size, file_column_marked_files, &count, -1);
        EXPECT_EQ(icon, kind == file_kind::placeholder ? nullptr : row->marked ? marked.get() : normal.get());
        EXPECT_STREQ(shown_name, name);
        EXPECT_STREQ(full, path);
        EXPECT_EQ(entry, row->mount);
        EXPECT_EQ(is_dir, kind == file_kind::root || kind == file_kind::directory);
        EXPECT_EQ(is_root, kind == file_kind::root);
        EXPECT_EQ(is_marked, row->marked);
        EXPECT_EQ(size, row->size);
        EXPECT_EQ(count, row->marked_files);
        if (icon)
            g_object_unref(icon);
        g_free(shown_name);
        g_free(full);
    }
}

TEST(build_path, joins_with_one_separator)
{
    const struct {
        const char *directory, *name, *path;
    } cases[] = {{"/", "boot", "/boot"},
                 {"//boot", "grub", "/boot/grub"},
                 {"/boot///", "x", "/boot/x"},
                 {"//", "a", "/a"},
                 {"/a//b", "c", "/a//b/c"},
                 {"", "a", "/a"},
                 {"/mnt", "a\n\xff", "/mnt/a\n\xff"}};
    for (const auto &c : cases)
        EXPECT_EQ(build_path(c.directory, c.name), c.path);
}

} // namespace
