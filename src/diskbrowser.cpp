#include "diskbrowser.h"

#include "app.h"
#include "common/owned.h"
#include "gtk_owned.h"
#include "i18n.h"
#include "trace_log.h"
#include "window_description.h"

#include <string>

namespace {

constexpr std::uint64_t checked_sector_size = 512; // the board counts in these, whatever the disk's own size

struct disk_row {
    gboolean is_group;
    gboolean marked;
    struct part *part;
};

disk_row read_row(GtkTreeStore *store, GtkTreeIter *iter)
{
    disk_row row{};
    gtk_tree_model_get(GTK_TREE_MODEL(store), iter, disk_column_is_group, &row.is_group, disk_column_marked,
                       &row.marked, disk_column_part, &row.part, -1);
    return row;
}

GdkPixbuf *icon_of(const struct app &app, const disk_row &row, bool marked)
{
    if (!row.is_group)
        return marked ? app.file_marked : app.file_normal;
    if (row.part)
        return marked ? app.folder_marked : app.folder_normal;
    return marked ? app.disk_marked : app.disk_normal;
}

void show_sector_totals(const struct app &app)
{
    if (app.total_sectors_selected_label) {
        const std::string count = std::to_string(app.total_sectors_selected);
        gtk_label_set_text(GTK_LABEL(app.total_sectors_selected_label), count.c_str());
    }
    if (app.total_sectors_size_label) {
        const owned_gchar size(
            g_strdup_printf(_("%llu bytes"), static_cast<unsigned long long>(app.total_sectors_size)));
        gtk_label_set_text(GTK_LABEL(app.total_sectors_size_label), size.get());
    }
}

// Carries the new mark of a sector row up through its ancestors and into the totals.
void count_sector(struct app *app, GtkTreeStore *store, GtkTreeIter *sector, bool marked)
{
    app->total_sectors_selected += marked ? 1U : -1U;
    app->total_sectors_size += marked ? checked_sector_size : -checked_sector_size;

    GtkTreeModel *model = GTK_TREE_MODEL(store);
    GtkTreeIter row = *sector;
    for (GtkTreeIter parent; gtk_tree_model_iter_parent(model, &parent, &row); row = parent) {
        int below = 0;
        gtk_tree_model_get(model, &parent, disk_column_marked_sectors, &below, -1);
        below += marked ? 1 : -1;
        gtk_tree_store_set(store, &parent, disk_column_marked_sectors, below, -1);
        disk_mark_iter(app, store, &parent, below > 0);
    }
    show_sector_totals(*app);
}

} // namespace

GtkTreeStore *disk_create_model()
{
    return gtk_tree_store_new(disk_column_count, GDK_TYPE_PIXBUF, G_TYPE_STRING, G_TYPE_BOOLEAN,
                              G_TYPE_POINTER, G_TYPE_POINTER, G_TYPE_UINT, G_TYPE_BOOLEAN, G_TYPE_INT);
}

void disk_add_column(GtkTreeView *view)
{
    GtkTreeViewColumn *column = gtk_tree_view_column_new();
    gtk_tree_view_column_set_title(column, _("Disk"));
    GtkCellRenderer *image = gtk_cell_renderer_pixbuf_new();
    gtk_tree_view_column_pack_start(column, image, FALSE);
    gtk_tree_view_column_add_attribute(column, image, "pixbuf", disk_column_icon);
    GtkCellRenderer *text = gtk_cell_renderer_text_new();
    gtk_tree_view_column_pack_start(column, text, TRUE);
    gtk_tree_view_column_add_attribute(column, text, "text", disk_column_name);
    gtk_tree_view_append_column(view, column);
}

int disk_mark_iter(struct app *app, GtkTreeStore *store, GtkTreeIter *iter, int value)
{
    const bool marked = value != 0;
    const disk_row row = read_row(store, iter);
    if ((row.marked != 0) == marked)
        return 1;
    gtk_tree_store_set(store, iter, disk_column_marked, marked, disk_column_icon, icon_of(*app, row, marked),
                       -1);
    if (!row.is_group)
        count_sector(app, store, iter, marked);
    return 1;
}

void disk_toggle_iter(struct app *app, GtkTreeStore *store, GtkTreeIter *iter)
{
    const disk_row row = read_row(store, iter);
    if (row.is_group)
        disk_mark_recursive(app, store, iter, !row.marked);
    else
        disk_mark_iter(app, store, iter, !row.marked);
}

void disk_mark_recursive(struct app *app, GtkTreeStore *store, GtkTreeIter *group, int value)
{
    trace_log("* Enter");
    GtkTreeModel *model = GTK_TREE_MODEL(store);
    GtkTreeIter child;
    for (gboolean more = gtk_tree_model_iter_children(model, &child, group); more;
         more = gtk_tree_model_iter_next(model, &child)) {
        if (read_row(store, &child).is_group)
            disk_mark_recursive(app, store, &child, value);
        else
            disk_mark_iter(app, store, &child, value);
    }
    trace_log("* Success");
}

void disk_mark_all(struct app *app, GtkTreeStore *store, const GtkTreeIter *first)
{
    GtkTreeModel *model = GTK_TREE_MODEL(store);
    GtkTreeIter row = *first;
    do {
        disk_mark_iter(app, store, &row, 1);
        GtkTreeIter child;
        if (gtk_tree_model_iter_children(model, &child, &row))
            disk_mark_all(app, store, &child);
    } while (gtk_tree_model_iter_next(model, &row));
}

gboolean on_diskbrowser_button_press(GtkWidget *view, GdkEventButton *event, struct app *app)
{
    if (event->button != 3)
        return FALSE;
    sectors_changed = 1;
    GtkTreePath *found = nullptr;
    if (!gtk_tree_view_get_path_at_pos(GTK_TREE_VIEW(view), static_cast<int>(event->x),
                                       static_cast<int>(event->y), &found, nullptr, nullptr, nullptr))
        return FALSE;
    const owned_path path(found);
    GtkTreeModel *model = gtk_tree_view_get_model(GTK_TREE_VIEW(view));
    GtkTreeIter iter;
    if (gtk_tree_model_get_iter(model, &iter, path.get()))
        disk_toggle_iter(app, GTK_TREE_STORE(model), &iter);
    return FALSE;
}

bool diskbrowser_init(struct app *app)
{
    trace_log("* Enter");
    app->total_sectors_selected = 0;
    app->total_sectors_size = 0;

    GtkWidget *view = find_widget(app->xml, "diskbrowser");
    GtkWidget *count = view ? find_widget(app->xml, "total_sectors_selected") : nullptr;
    GtkWidget *size = count ? find_widget(app->xml, "total_sectors_size") : nullptr;
    if (!size)
        return false;
    app->diskbrowser = view;
    app->total_sectors_selected_label = count;
    app->total_sectors_size_label = size;
    show_sector_totals(*app);

    GtkTreeView *tree = GTK_TREE_VIEW(view);
    GtkTreeStore *store = disk_create_model();
    gtk_tree_view_set_model(tree, GTK_TREE_MODEL(store));
    g_object_unref(store); // the view keeps its own reference
    gtk_tree_view_set_rules_hint(tree, TRUE);
    gtk_tree_selection_set_mode(gtk_tree_view_get_selection(tree), GTK_SELECTION_BROWSE);
    disk_add_column(tree);

    if (!fill_tree(app, store)) {
        trace_log("Cannot read disk and partition info");
        trace_log("* Failed");
        return false;
    }
    g_signal_connect(view, "button-press-event", G_CALLBACK(on_diskbrowser_button_press), app);
    trace_log("* Success");
    return true;
}

void diskbrowser_release(struct app *) {}
