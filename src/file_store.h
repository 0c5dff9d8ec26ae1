// The file tree's rows. They are plain nodes, each owned by its parent; the GtkTreeModel on top is only the
// face that tree views see. Everything here works without a display.
//
// Signals: row-inserted, row-deleted and row-has-child-toggled are emitted at once among rows for which
// somebody has once asked through GtkTreeModel, row-changed before the next repaint for rows of which
// somebody has once asked for a value. Nobody, be it a view or a model that sorts or filters, can have built
// anything from what it never asked for. A view asks for rows when they are unfolded, and for values when it
// draws: loading below rows that never were unfolded costs no signals, nor does marking rows that never were
// drawn.
#pragma once

#include <cstdint>
#include <gtk/gtk.h>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

struct mount_entry;

enum file_column {
    file_column_icon,         // GdkPixbuf, follows the kind of the row and its mark
    file_column_name,         // string: the bytes of the name, not necessarily UTF-8 (see display_text.h)
    file_column_is_dir,       // boolean: a partition or directory
    file_column_is_root,      // boolean: a partition
    file_column_not_loaded,   // boolean
    file_column_mount_entry,  // pointer, not owned
    file_column_full_path,    // string: bytes, null for a placeholder
    file_column_marked,       // boolean
    file_column_size,         // unsigned 64-bit, bytes
    file_column_marked_files, // int
    file_column_count
};

enum class file_kind : std::uint8_t {
    top,         // the store's own node above the partitions: no row
    root,        // partition
    directory,   //
    file,        //
    placeholder, // "Loading, please wait...", the only child of a directory that was not read yet; or the
                 // last of one that could not be read in full
};

struct file_node {
    file_node *parent = nullptr;  // for a partition the top node
    mount_entry *mount = nullptr; // of the partition that holds the row; null for a placeholder
    std::string name;             // bytes as on disk; of a partition its device path
    std::uint64_t size = 0;       // bytes; files only
    std::vector<std::unique_ptr<file_node>> children; // directories before files, each in collation order
    std::uint32_t position = 0;                       // index among the children of `parent`
    std::int32_t marked_files = 0;                    // marked files below this row
    file_kind kind = file_kind::top;
    bool not_loaded = false; // directory content not read yet; always set on a placeholder
    bool has_gaps = false;   // of a directory: some of what it holds has no row (app.h)
    bool marked = false;
    bool change_pending = false; // a row-changed is due
    bool seen = false;           // somebody has asked for the children
    bool is_newer = false;       // a file whose status changed after the saved template was written
    bool value_seen = false;     // somebody has asked for a value of this row

    bool is_dir() const { return kind == file_kind::root || kind == file_kind::directory; }
    bool is_root() const { return kind == file_kind::root; }
};

// Directory and name joined by one '/'; one of two leading '/' is dropped.
[[nodiscard]] std::string build_path(std::string_view directory, std::string_view name);

// Full local path: mount directory and the names down to this row. Empty for a placeholder and the top node.
[[nodiscard]] std::string full_path(const file_node &row);

// The images of the rows; any may be null. The store takes references.
struct file_icons {
    GdkPixbuf *folder_normal = nullptr, *folder_marked = nullptr;
    GdkPixbuf *file_normal = nullptr, *file_marked = nullptr;
    GdkPixbuf *disk_normal = nullptr, *disk_marked = nullptr;
};

typedef struct _file_store file_store;

GType file_store_get_type();
#define FILE_STORE(object) (G_TYPE_CHECK_INSTANCE_CAST((object), file_store_get_type(), file_store))

// The caller owns the reference.
[[nodiscard]] file_store *file_store_new(const file_icons &icons);

// The node whose children are the partitions.
[[nodiscard]] file_node *file_store_top(file_store *store);

// Between rows and the iterators that GTK passes around. Iterators stay valid as long as their row.
[[nodiscard]] GtkTreeIter file_store_iter(const file_store *store, file_node *row);
[[nodiscard]] file_node *file_store_row(const GtkTreeIter *iter);

// The row at a tree path; null when there is none.
[[nodiscard]] file_node *file_store_row_at(file_store *store, GtkTreePath *path);

// Adds a child before the one at the position, or behind the last; the first takes the place and the address
// of a placeholder. The row is complete before anybody hears of it.
constexpr std::size_t last_child = SIZE_MAX;
file_node *file_store_insert(file_store *store, file_node *parent, std::size_t position,
                             std::unique_ptr<file_node> row);
file_node *file_store_append(file_store *store, file_node *parent, std::unique_ptr<file_node> row);

// Removes a row that has no children.
void file_store_remove(file_store *store, file_node *row);

// To be called after a field of a row was changed.
void file_store_changed(file_store *store, file_node *row);

// Emits the row-changed signals that are due. Runs by itself before the next repaint.
void file_store_flush(file_store *store);
