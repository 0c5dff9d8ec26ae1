// Marks on the file tree and their totals.
#include "filebrowser.h"

#include "common/owned.h"
#include "common/process.h"
#include "gtk_owned.h"
#include "i18n.h"
#include "progress.h"
#include "trace_log.h"

namespace {

// Before GTK lays out and draws, so that nobody sees a label that is behind.
constexpr int totals_priority = G_PRIORITY_HIGH_IDLE;
guint totals_source = 0;

gboolean show_totals_when_idle(gpointer app)
{
    totals_source = 0;
    show_file_totals(static_cast<struct app *>(app));
    return FALSE;
}

void set_label(GtkWidget *label, char *text)
{
    const owned_gchar owned(text);
    if (label)
        gtk_label_set_text(GTK_LABEL(label), text);
}

void set_mark(file_store *store, file_node *row, int value)
{
    row->marked = value != 0;
    file_store_changed(store, row); // the image follows
}

// Counts a file's new mark in the totals and in every row above it.
void count_mark(struct app *app, file_store *store, const file_node &file, int value)
{
    if (value) {
        app->total_files_selected++;
        app->total_files_size += file.size;
    } else {
        app->total_files_selected--;
        app->total_files_size -= file.size;
    }
    for (file_node *above = file.parent; above->parent; above = above->parent) {
        above->marked_files += value ? 1 : -1;
        above->marked = above->marked_files > 0;
        file_store_changed(store, above);
    }
    if (!totals_source)
        totals_source = g_idle_add_full(totals_priority, show_totals_when_idle, app, nullptr);
}

} // namespace

void show_file_totals(struct app *app)
{
    forget_file_totals();
    set_label(app->total_files_selected_label,
              g_strdup_printf(_("%d"), static_cast<int>(app->total_files_selected)));
    set_label(app->total_files_size_label,
              g_strdup_printf(_("%llu bytes"), static_cast<unsigned long long>(app->total_files_size)));
}

void forget_file_totals()
{
    if (totals_source)
        g_source_remove(totals_source);
    totals_source = 0;
}

int mark_iter(struct app *app, file_store *store, file_node *row, int value)
{
    if (row->marked == (value != 0) || row->kind == file_kind::placeholder)
        return 1;
    set_mark(store, row, value);
    if (row->kind == file_kind::file)
        count_mark(app, store, *row, value);
    progress_run_main_loop(app);
    return 1;
}

bool toggle_iter(struct app *app, file_store *store, file_node *row)
{
    if (!row->is_dir()) {
        mark_iter(app, store, row, !row->marked);
        return row->marked;
    }
    // Whatever the main loop does meanwhile, the rows stay.
    const owned_object<file_store> held(static_cast<file_store *>(g_object_ref(store)));
    const progress_scope progress(app);
    mark_recursive(app, store, row, !row->marked);
    tell_gaps(app);
    return false;
}

void mark_recursive(struct app *app, file_store *store, file_node *directory, int value)
{
    trace_log("* Enter");
    progress_run_main_loop(app);
    if (value)
        load_iter(app, store, directory);
    for (std::size_t i = 0; i < directory->children.size() && !ending(); i++) {
        file_node *child = directory->children[i].get();
        if (child->is_dir()) {
            mark_recursive(app, store, child, value);
        } else {
            trace_log("+ %s", full_path(*child).c_str());
            mark_iter(app, store, child, value);
        }
    }
    trace_log("* Success");
}

void mark_range(struct app *app, file_store *store, file_node *from, file_node *to, int value)
{
    const file_node &parent = *from->parent;
    for (std::size_t i = from->position; i < to->position && !ending(); i++)
        mark_iter(app, store, parent.children[i].get(), value);
    mark_iter(app, store, to, value);
}

void multiple_select(struct app *app, GtkTreeView *view, file_store *store, file_node *clicked)
{
    trace_log("* Enter");
    if (clicked->is_dir())
        return;
    GtkTreePath *path = nullptr;
    GtkTreeViewColumn *column = nullptr;
    gtk_tree_view_get_cursor(view, &path, &column);
    const owned_path cursor_path(path);
    if (!path || !column) {
        trace_log("Focus is not set");
        trace_log("* Exit");
        return;
    }
    file_node *cursor = file_store_row_at(store, path);
    if (!cursor || cursor->is_dir())
        return;
    const int value = !clicked->marked;
    const owned_object<file_store> held(static_cast<file_store *>(g_object_ref(store)));
    const progress_scope progress(app);
    if (cursor->parent == clicked->parent) {
        if (clicked->position < cursor->position)
            mark_range(app, store, clicked, cursor, value);
        else if (clicked->position > cursor->position)
            mark_range(app, store, cursor, clicked, value);
    }
    trace_log("* Exit");
}

gboolean on_filebrowser_button_press(GtkWidget *widget, GdkEventButton *event, struct app *app)
{
    constexpr guint right_button = 3;
    if (event->button != right_button)
        return FALSE;
    files_changed = 1;
    GtkTreeView *view = GTK_TREE_VIEW(widget);
    GtkTreePath *path = nullptr;
    if (event->window != gtk_tree_view_get_bin_window(view) ||
        !gtk_tree_view_get_path_at_pos(view, static_cast<gint>(event->x), static_cast<gint>(event->y), &path,
                                       nullptr, nullptr, nullptr))
        return FALSE;
    const owned_path owned(path);
    file_store *store = FILE_STORE(gtk_tree_view_get_model(view));
    file_node *row = file_store_row_at(store, path);
    if (event->state & (GDK_SHIFT_MASK | GDK_CONTROL_MASK))
        multiple_select(app, view, store, row);
    else
        toggle_iter(app, store, row);
    return FALSE;
}
