#include "file_store.h"

#include "common/mount.h"
#include "gtk_owned.h"

#include <algorithm>
#include <array>
#include <utility>

namespace {

using owned_pixbuf = owned_object<GdkPixbuf>;

struct icon_pair {
    owned_pixbuf normal, marked;
};

// Before GTK lays out and draws.
constexpr int flush_priority = G_PRIORITY_HIGH_IDLE;

struct store_state {
    file_node top;
    icon_pair disk, folder, file;
    std::vector<file_node *> changed; // a row-changed is due
    guint flush_source = 0;
    gint stamp = 0;
};

} // namespace

struct _file_store {
    GObject parent;
    store_state *state;
};

typedef struct {
    GObjectClass parent_class;
} file_storeClass;

static void implement_model(gpointer interface, gpointer);

G_DEFINE_TYPE_WITH_CODE(file_store, file_store, G_TYPE_OBJECT,
                        G_IMPLEMENT_INTERFACE(GTK_TYPE_TREE_MODEL,
                                              reinterpret_cast<GInterfaceInitFunc>(implement_model)))

static store_state &state_of(GtkTreeModel *model)
{
    return *FILE_STORE(model)->state;
}

static void file_store_init(file_store *store)
{
    store->state = new store_state;
    store->state->stamp = static_cast<gint>(g_random_int() | 1); // never 0, which marks an invalid iterator
}

static void file_store_finalize(GObject *object)
{
    store_state *state = FILE_STORE(object)->state;
    if (state->flush_source)
        g_source_remove(state->flush_source);
    delete state;
    G_OBJECT_CLASS(file_store_parent_class)->finalize(object);
}

static void file_store_class_init(file_storeClass *klass)
{
    G_OBJECT_CLASS(klass)->finalize = file_store_finalize;
}

// --- What GTK asks ---

static GtkTreeIter make_iter(const store_state &state, file_node *row)
{
    return {.stamp = state.stamp, .user_data = row, .user_data2 = nullptr, .user_data3 = nullptr};
}

// The node that an iterator stands for; the top node for none.
static file_node *node_or_top(GtkTreeModel *model, GtkTreeIter *iter)
{
    return iter ? file_store_row(iter) : &state_of(model).top;
}

// Sets the iterator to the n-th child; FALSE, and an invalid iterator, when there is none.
static gboolean set_child(GtkTreeModel *model, GtkTreeIter *iter, file_node &parent, std::size_t n)
{
    parent.seen = true;
    if (n >= parent.children.size()) {
        *iter = GtkTreeIter{};
        return FALSE;
    }
    *iter = make_iter(state_of(model), parent.children[n].get());
    return TRUE;
}

static GtkTreeModelFlags get_flags(GtkTreeModel *)
{
    return GTK_TREE_MODEL_ITERS_PERSIST;
}

static gint get_n_columns(GtkTreeModel *)
{
    return file_column_count;
}

static GType get_column_type(GtkTreeModel *, gint column)
{
    // In the order of file_column.
    const std::array<GType, file_column_count> types = {
        GDK_TYPE_PIXBUF, G_TYPE_STRING, G_TYPE_BOOLEAN, G_TYPE_BOOLEAN, G_TYPE_BOOLEAN,
        G_TYPE_POINTER,  G_TYPE_STRING, G_TYPE_BOOLEAN, G_TYPE_UINT64,  G_TYPE_INT};
    return column >= 0 && column < file_column_count ? types[static_cast<std::size_t>(column)]
                                                     : G_TYPE_INVALID;
}

static gboolean get_iter(GtkTreeModel *model, GtkTreeIter *iter, GtkTreePath *path)
{
    file_node *row = file_store_row_at(FILE_STORE(model), path);
    for (file_node *level = row ? row->parent : nullptr; level; level = level->parent)
        level->seen = true;
    *iter = row ? make_iter(state_of(model), row) : GtkTreeIter{};
    return row != nullptr;
}

static GtkTreePath *path_of(const file_node *row)
{
    GtkTreePath *path = gtk_tree_path_new();
    for (; row->parent; row = row->parent)
        gtk_tree_path_prepend_index(path, static_cast<gint>(row->position));
    return path;
}

static GtkTreePath *get_path(GtkTreeModel *, GtkTreeIter *iter)
{
    return path_of(file_store_row(iter));
}

static GdkPixbuf *icon_of(const store_state &state, const file_node &row)
{
    const auto pick = [&row](const icon_pair &icons) {
        return row.marked ? icons.marked.get() : icons.normal.get();
    };
    switch (row.kind) {
    case file_kind::root:
        return pick(state.disk);
    case file_kind::directory:
        return pick(state.folder);
    case file_kind::file:
        return pick(state.file);
    default:
        return nullptr;
    }
}

static void get_value(GtkTreeModel *model, GtkTreeIter *iter, gint column, GValue *value)
{
    file_node &row = *file_store_row(iter);
    row.value_seen = true;
    g_value_init(value, get_column_type(model, column));
    switch (column) {
    case file_column_icon:
        g_value_set_object(value, icon_of(state_of(model), row));
        break;
    case file_column_name:
        g_value_set_string(value, row.name.c_str());
        break;
    case file_column_is_dir:
        g_value_set_boolean(value, row.is_dir());
        break;
    case file_column_is_root:
        g_value_set_boolean(value, row.is_root());
        break;
    case file_column_not_loaded:
        g_value_set_boolean(value, row.not_loaded);
        break;
    case file_column_mount_entry:
        g_value_set_pointer(value, row.mount);
        break;
    case file_column_full_path:
        if (row.kind != file_kind::placeholder)
            g_value_set_string(value, full_path(row).c_str());
        break;
    case file_column_marked:
        g_value_set_boolean(value, row.marked);
        break;
    case file_column_size:
        g_value_set_uint64(value, row.size);
        break;
    case file_column_marked_files:
        g_value_set_int(value, row.marked_files);
        break;
    default:
        break;
    }
}

static gboolean iter_next(GtkTreeModel *model, GtkTreeIter *iter)
{
    file_node *row = file_store_row(iter);
    return set_child(model, iter, *row->parent, row->position + 1U);
}

static gboolean iter_children(GtkTreeModel *model, GtkTreeIter *iter, GtkTreeIter *parent)
{
    return set_child(model, iter, *node_or_top(model, parent), 0);
}

static gboolean iter_has_child(GtkTreeModel *, GtkTreeIter *iter)
{
    return !file_store_row(iter)->children.empty();
}

static gint iter_n_children(GtkTreeModel *model, GtkTreeIter *iter)
{
    file_node *parent = node_or_top(model, iter);
    parent->seen = true;
    return static_cast<gint>(parent->children.size());
}

static gboolean iter_nth_child(GtkTreeModel *model, GtkTreeIter *iter, GtkTreeIter *parent, gint n)
{
    return set_child(model, iter, *node_or_top(model, parent), static_cast<std::size_t>(n));
}

static gboolean iter_parent(GtkTreeModel *model, GtkTreeIter *iter, GtkTreeIter *child)
{
    file_node *parent = file_store_row(child)->parent;
    *iter = parent->parent ? make_iter(state_of(model), parent) : GtkTreeIter{};
    return parent->parent != nullptr;
}

static void implement_model(gpointer interface, gpointer)
{
    auto *model = static_cast<GtkTreeModelIface *>(interface);
    model->get_flags = get_flags;
    model->get_n_columns = get_n_columns;
    model->get_column_type = get_column_type;
    model->get_iter = get_iter;
    model->get_path = get_path;
    model->get_value = get_value;
    model->iter_next = iter_next;
    model->iter_children = iter_children;
    model->iter_has_child = iter_has_child;
    model->iter_n_children = iter_n_children;
    model->iter_nth_child = iter_nth_child;
    model->iter_parent = iter_parent;
}

// --- What the program does ---

static owned_pixbuf referenced(GdkPixbuf *pixbuf)
{
    return owned_pixbuf(pixbuf ? static_cast<GdkPixbuf *>(g_object_ref(pixbuf)) : nullptr);
}

file_store *file_store_new(const file_icons &icons)
{
    auto *store = static_cast<file_store *>(g_object_new(file_store_get_type(), nullptr));
    store->state->disk = {referenced(icons.disk_normal), referenced(icons.disk_marked)};
    store->state->folder = {referenced(icons.folder_normal), referenced(icons.folder_marked)};
    store->state->file = {referenced(icons.file_normal), referenced(icons.file_marked)};
    return store;
}

file_node *file_store_top(file_store *store)
{
    return &store->state->top;
}

GtkTreeIter file_store_iter(const file_store *store, file_node *row)
{
    return make_iter(*store->state, row);
}

file_node *file_store_row(const GtkTreeIter *iter)
{
    return static_cast<file_node *>(iter->user_data);
}

file_node *file_store_row_at(file_store *store, GtkTreePath *path)
{
    file_node *row = &store->state->top;
    const gint *indices = gtk_tree_path_get_indices(path);
    for (gint depth = 0; depth < gtk_tree_path_get_depth(path); depth++) {
        const auto index = static_cast<std::size_t>(indices[depth]); // a negative one is past every end
        if (index >= row->children.size())
            return nullptr;
        row = row->children[index].get();
    }
    return row->parent ? row : nullptr;
}

// Whether somebody must hear of changes among the children of this node. Nobody can know of rows that nobody
// has asked for; the partitions are known without asking.
static bool is_watched(const file_node &parent)
{
    return parent.seen || !parent.parent;
}

static void tell_has_child(file_store *store, file_node *row)
{
    if (!row->parent || !is_watched(*row->parent))
        return;
    GtkTreeIter iter = file_store_iter(store, row);
    gtk_tree_model_row_has_child_toggled(GTK_TREE_MODEL(store), owned_path(path_of(row)).get(), &iter);
}

// The row takes the place of a placeholder, which is not removed: a view that unfolds all levels at once has
// taken it for the first child before it lets the directory be read.
static file_node *fill_placeholder(file_store *store, file_node *placeholder, file_node &&row)
{
    placeholder->mount = row.mount;
    placeholder->name = std::move(row.name);
    placeholder->size = row.size;
    placeholder->kind = row.kind;
    placeholder->not_loaded = row.not_loaded;
    file_store_changed(store, placeholder);
    return placeholder;
}

file_node *file_store_insert(file_store *store, file_node *parent, std::size_t position,
                             std::unique_ptr<file_node> row)
{
    auto &children = parent->children;
    if (!children.empty() && children.front()->kind == file_kind::placeholder)
        return fill_placeholder(store, children.front().get(), std::move(*row));
    file_node *added = row.get();
    added->parent = parent;
    added->position = static_cast<std::uint32_t>(std::min(position, children.size()));
    const auto place = children.insert(children.begin() + added->position, std::move(row));
    for (auto later = place + 1; later != children.end(); ++later)
        (*later)->position++;
    if (is_watched(*parent)) {
        GtkTreeIter iter = file_store_iter(store, added);
        gtk_tree_model_row_inserted(GTK_TREE_MODEL(store), owned_path(path_of(added)).get(), &iter);
    }
    if (children.size() == 1)
        tell_has_child(store, parent);
    return added;
}

file_node *file_store_append(file_store *store, file_node *parent, std::unique_ptr<file_node> row)
{
    return file_store_insert(store, parent, last_child, std::move(row));
}

void file_store_remove(file_store *store, file_node *row)
{
    file_node *parent = row->parent;
    const owned_path path(path_of(row));
    const bool watched = is_watched(*parent);
    if (row->change_pending)
        std::erase(store->state->changed, row);
    const auto place = parent->children.begin() + row->position;
    for (auto later = place + 1; later != parent->children.end(); ++later)
        (*later)->position--;
    parent->children.erase(place);
    if (watched)
        gtk_tree_model_row_deleted(GTK_TREE_MODEL(store), path.get());
    if (parent->children.empty())
        tell_has_child(store, parent);
}

static gboolean flush_when_idle(gpointer store)
{
    FILE_STORE(store)->state->flush_source = 0;
    file_store_flush(FILE_STORE(store));
    return FALSE;
}

void file_store_changed(file_store *store, file_node *row)
{
    if (row->change_pending || !row->value_seen)
        return;
    row->change_pending = true;
    store->state->changed.push_back(row);
    if (!store->state->flush_source)
        store->state->flush_source = g_idle_add_full(flush_priority, flush_when_idle, store, nullptr);
}

void file_store_flush(file_store *store)
{
    std::vector<file_node *> &changed = store->state->changed;
    while (!changed.empty()) {
        file_node *row = changed.back();
        changed.pop_back();
        row->change_pending = false;
        GtkTreeIter iter = file_store_iter(store, row);
        gtk_tree_model_row_changed(GTK_TREE_MODEL(store), owned_path(path_of(row)).get(), &iter);
    }
}

std::string build_path(std::string_view directory, std::string_view name)
{
    while (directory.ends_with('/'))
        directory.remove_suffix(1);
    if (directory.starts_with("//"))
        directory.remove_prefix(1);
    std::string path;
    path.reserve(directory.size() + 1 + name.size());
    return path.append(directory).append(1, '/').append(name);
}

std::string full_path(const file_node &row)
{
    switch (row.kind) {
    case file_kind::root:
        return row.mount ? row.mount->mountpoint : "";
    case file_kind::directory:
    case file_kind::file:
        return build_path(full_path(*row.parent), row.name);
    default:
        return "";
    }
}
