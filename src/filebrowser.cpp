// The file page: its widgets, the view's column, and the lookup from a path to its row.
#include "filebrowser.h"

#include "common/disk.h"
#include "common/mount_table.h"
#include "common/owned.h"
#include "display_text.h"
#include "filebrowser_names.h"
#include "gtk_owned.h"
#include "i18n.h"
#include "progress.h"
#include "text_layout.h"
#include "trace_log.h"
#include "window_description.h"
#include "wrapped_label.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>

namespace {

// Room right of the longest name, in pixels.
constexpr int column_margin = 24;

// --- The view ---

// A name that is not valid UTF-8, or holds control characters, is shown in a form that GTK can draw.
void set_shown_name(GtkTreeViewColumn *, GtkCellRenderer *renderer, GtkTreeModel *, GtkTreeIter *iter,
                    gpointer)
{
    g_object_set(renderer, "text", display_text(file_store_row(iter)->name).c_str(), nullptr);
}

// All rows have one height and the column has a fixed width, so that a directory of any size unfolds at once.
// The column grows here with the widest of the names that have just appeared.
void make_room_for_children(struct app *app, const file_node &parent)
{
    widest_text names(app->filebrowser);
    for (const auto &child : parent.children) {
        names.add(display_text(child->name));
        progress_run_main_loop(app);
    }
    int expander_size = 0, separator = 0;
    gtk_widget_style_get(app->filebrowser, "expander-size", &expander_size, "horizontal-separator",
                         &separator, nullptr);
    int width = names.width() + column_margin;
    width += app->folder_normal ? gdk_pixbuf_get_width(app->folder_normal) : 0;
    for (const file_node *up = &parent; up; up = up->parent)
        width += expander_size + 2 * separator;
    GtkTreeViewColumn *column = gtk_tree_view_get_column(GTK_TREE_VIEW(app->filebrowser), 0);
    if (width > gtk_tree_view_column_get_fixed_width(column))
        gtk_tree_view_column_set_fixed_width(column, width);
}

// Where the name of a row lies in the view's bin window, from its first to behind its last pixel.
std::pair<int, int> name_extent(GtkTreeView *view, GtkTreePath *path, const std::string &shown)
{
    GtkTreeViewColumn *column = gtk_tree_view_get_column(view, 0);
    GdkRectangle cell;
    gtk_tree_view_get_cell_area(view, path, column, &cell);
    GList *renderers = gtk_cell_layout_get_cells(GTK_CELL_LAYOUT(column));
    int start = 0;
    gtk_tree_view_column_cell_get_position(column, GTK_CELL_RENDERER(g_list_last(renderers)->data), &start,
                                           nullptr);
    g_list_free(renderers);
    widest_text name(GTK_WIDGET(view));
    name.add(shown);
    return {cell.x + start, cell.x + start + name.width()};
}

// The whole name of a row that the view, narrow or scrolled, shows only a part of.
gboolean on_query_tooltip(GtkWidget *widget, int x, int y, gboolean keyboard, GtkTooltip *tooltip, gpointer)
{
    GtkTreeView *view = GTK_TREE_VIEW(widget);
    GtkTreePath *found = nullptr;
    GtkTreeIter row;
    if (!gtk_tree_view_get_tooltip_context(view, &x, &y, keyboard, nullptr, &found, &row))
        return FALSE;
    const owned_path path(found);
    const std::string shown = display_text(file_store_row(&row)->name);
    const auto [left, right] = name_extent(view, path.get(), shown);
    GdkRectangle visible;
    gtk_tree_view_get_visible_rect(view, &visible);
    if (left >= visible.x && right <= visible.x + visible.width)
        return FALSE;
    GtkWidget *label = gtk_label_new(shown.c_str());
    wrap_anywhere(GTK_LABEL(label));
    gtk_widget_show(label);
    gtk_tooltip_set_custom(tooltip, label);
    gtk_tree_view_set_tooltip_row(view, tooltip, path.get());
    return TRUE;
}

void add_column(GtkTreeView *view)
{
    GtkTreeViewColumn *column = gtk_tree_view_column_new();
    gtk_tree_view_column_set_title(column, _("File"));
    gtk_tree_view_column_set_sizing(column, GTK_TREE_VIEW_COLUMN_FIXED);
    GtkCellRenderer *image = gtk_cell_renderer_pixbuf_new();
    gtk_tree_view_column_pack_start(column, image, FALSE);
    gtk_tree_view_column_add_attribute(column, image, "pixbuf", file_column_icon);
    GtkCellRenderer *text = gtk_cell_renderer_text_new();
    g_object_set(text, "single-paragraph-mode", TRUE, nullptr);
    gtk_tree_view_column_pack_start(column, text, TRUE);
    gtk_tree_view_column_add_attribute(column, text, "text", file_column_name);
    gtk_tree_view_column_set_cell_data_func(column, text, set_shown_name, nullptr, nullptr);
    gtk_tree_view_append_column(view, column);
    gtk_tree_view_set_fixed_height_mode(view, TRUE);
    gtk_widget_set_has_tooltip(GTK_WIDGET(view), TRUE);
    g_signal_connect(view, "query-tooltip", G_CALLBACK(on_query_tooltip), nullptr);
}

// Reads a row before the view unfolds it: the view takes rows that are there at once, and one by one those
// that come later.
gboolean on_test_expand_row(GtkTreeView *, GtkTreeIter *iter, GtkTreePath *, struct app *app)
{
    file_node *row = file_store_row(iter);
    // The main loop runs in between; whatever it does, the rows stay.
    const owned_object<file_store> held(static_cast<file_store *>(g_object_ref(filebrowser_store(app))));
    const progress_scope progress(app);
    load_iter(app, held.get(), row);
    tell_gaps(app);
    if (app->filebrowser)
        make_room_for_children(app, *row);
    return !app->filebrowser; // TRUE: it stays folded
}

void on_row_expanded(GtkTreeView *, GtkTreeIter *iter, GtkTreePath *, struct app *app)
{
    trace_log("Enter *");
    load_directory_content(app, filebrowser_store(app), file_store_row(iter));
    trace_log("Success *");
}

gboolean keep_open(GtkWidget *, GdkEvent *, gpointer)
{
    return TRUE;
}

constexpr std::pair<const char *, GtkWidget * app::*> page_widgets[] = {
    {"filebrowser", &app::filebrowser},
    {"total_files_selected", &app::total_files_selected_label},
    {"total_files_size", &app::total_files_size_label},
};

// The fields become null when their widget is destroyed: a long operation can outlive the window.
void keep_widget(GtkWidget *&field, GtkWidget *widget)
{
    field = widget;
    g_object_add_weak_pointer(G_OBJECT(widget), reinterpret_cast<gpointer *>(&field));
}

bool find_widgets(struct app *app)
{
    for (const auto &[name, field] : page_widgets) {
        GtkWidget *found = find_widget(app->xml, name);
        if (!found)
            return false;
        keep_widget(app->*field, found);
    }
    return true;
}

void fill_view(struct app *app)
{
    GtkTreeView *view = GTK_TREE_VIEW(app->filebrowser);
    file_store *store = create_model(app);
    static_cast<void>(fill_model(app, store)); // without a template the tree starts with no marks
    trace_log("* 4");
    gtk_tree_view_set_model(view, GTK_TREE_MODEL(store));
    gtk_tree_view_set_rules_hint(view, TRUE);
    gtk_tree_selection_set_mode(gtk_tree_view_get_selection(view), GTK_SELECTION_BROWSE);
    add_column(view);
    trace_log("* 5");
    g_signal_connect(view, "button-press-event", G_CALLBACK(on_filebrowser_button_press), app);
    g_signal_connect(view, "test-expand-row", G_CALLBACK(on_test_expand_row), app);
    g_signal_connect(view, "row-expanded", G_CALLBACK(on_row_expanded), app);
    trace_log("* 6");
    g_object_unref(store); // the view holds it now
    trace_log("* 7");
}

// --- Lookup ---

// The partition whose files carry this device number; null when the tree has none.
file_node *find_root(file_store *store, std::uint64_t dev)
{
    for (const auto &root : file_store_top(store)->children) {
        if (root->mount->dev == dev)
            return root.get();
    }
    return nullptr;
}

// What follows the mount directory and one '/' in the path; nothing when the path lies elsewhere, as it does
// below the second of two mounts of one device.
std::optional<std::string_view> path_below(std::string_view path, std::string_view mountpoint)
{
    if (!path.starts_with(mountpoint))
        return std::nullopt;
    path.remove_prefix(mountpoint.size());
    if (!mountpoint.ends_with('/')) {
        if (!path.starts_with('/'))
            return std::nullopt;
        path.remove_prefix(1);
    }
    return path;
}

} // namespace

int find_iter_go_down(struct app *app, file_store *store, const std::string &name, file_node **row)
{
    trace_log("Enter *");
    load_directory_content(app, store, *row);
    file_node *child = find_child(**row, name);
    if (!child) {
        trace_log("Exit *");
        return -1;
    }
    *row = child;
    return 0;
}

int find_iter_from(struct app *app, file_store *store, std::string_view path, file_node **row)
{
    trace_log("* Enter");
    for (std::size_t start = 0; start <= path.size();) {
        const std::size_t end = std::min(path.find('/', start), path.size());
        const std::string word(path.substr(start, end - start));
        trace_log("Search for word %s", word.c_str());
        if (find_iter_go_down(app, store, word, row) != 0) {
            trace_log("Not found");
            trace_log("* Failed");
            return -1;
        }
        start = end + 1;
    }
    trace_log("* Success");
    return 0;
}

int find_iter_for_file(struct app *app, file_store *store, const std::string &path, file_node **row)
{
    trace_log("* Enter");
    trace_log("Path: %s", path.c_str());
    struct stat status;
    if (lstat(path.c_str(), &status) != 0) {
        trace_log("stat() failed: %s", std::strerror(errno));
        trace_log("* Failed");
        return -1;
    }
    file_node *root = find_root(store, status.st_dev);
    if (!root) {
        trace_log("Requested file is not present on supported file systems and devices");
        trace_log("* Failed");
        return -2;
    }
    trace_log("Mountpoint found");
    trace_log("Device: /dev/%s%d", root->mount->disk->name.c_str(), root->mount->partition->index);
    const std::optional<std::string> mountpoint = find_mountpoint_for_device(status.st_dev);
    if (!mountpoint) {
        trace_log("Is not mounted");
        trace_log("* Failed");
        return -3;
    }
    trace_log("Mounted: [%s]", mountpoint->c_str());
    const std::optional<std::string_view> rest = path_below(path, *mountpoint);
    if (rest)
        trace_log("Short path: %s", rest->data());
    if (!rest || find_iter_from(app, store, *rest, &root) != 0) {
        trace_log("Path not found");
        trace_log("* Failed");
        return -4;
    }
    *row = root;
    trace_log("* Success");
    return 0;
}

file_store *filebrowser_store(struct app *app)
{
    GtkTreeModel *model =
        app->filebrowser ? gtk_tree_view_get_model(GTK_TREE_VIEW(app->filebrowser)) : nullptr;
    return model ? FILE_STORE(model) : nullptr;
}

bool filebrowser_init(struct app *app)
{
    trace_log("* Enter");
    app->total_files_selected = 0;
    app->total_files_size = 0;
    progress_stop(app);
    gtk_window_set_modal(GTK_WINDOW(app->progress_window), TRUE);
    gtk_window_set_transient_for(GTK_WINDOW(app->progress_window), GTK_WINDOW(app->window));
    g_signal_connect(app->progress_window, "delete-event", G_CALLBACK(keep_open), nullptr);
    // The last number in a trace, here or in what is called below, says how far the start came.
    trace_log("* 1");
    if (!find_widgets(app))
        return false;
    trace_log("* 2");
    show_file_totals(app);
    trace_log("* 3");
    fill_view(app);
    gtk_widget_grab_focus(app->filebrowser);
    trace_log("* Success");
    return true;
}

void filebrowser_release(struct app *app)
{
    forget_file_totals();
    for (const auto &[name, field] : page_widgets) {
        GtkWidget *&widget = app->*field;
        if (widget)
            g_object_remove_weak_pointer(G_OBJECT(widget), reinterpret_cast<gpointer *>(&widget));
        widget = nullptr;
    }
}
