// A GTK module that tells the acceptance tests what a user sees; clicks and keys come from the X server. Each
// line in the queue /run/probe names a file: one that ends in .png receives a picture of the screen, any
// other descriptions of all visible widgets, windows before what is in them, and all rows of the two trees:
//   WINDOW NAME IMAGE TEXT X Y WIDTH HEIGHT EXPANDED
// WINDOW is a title. A row has its tree's NAME, and as TEXT the names that lead to it. Fields end in 0x1f,
// descriptions in 0x1e.
#include <gtk/gtk.h>

#include <cstdint>
#include <string>

G_DEFINE_AUTOPTR_CLEANUP_FUNC(GtkTreePath, gtk_tree_path_free)

namespace {

// The area is one of the window.
void describe(std::string &out, GtkWidget *widget, GdkWindow *window, const GdkRectangle &area,
              const std::string &text, const GdkPixbuf *image = nullptr, bool expanded = false)
{
    int left = 0, top = 0;
    gdk_window_get_origin(window, &left, &top);
    const char *title = gtk_window_get_title(GTK_WINDOW(gtk_widget_get_toplevel(widget)));
    const auto known_image = std::to_string(reinterpret_cast<std::uintptr_t>(image)); // each is loaded once
    for (const std::string &field :
         {title ? title : std::string(), {gtk_widget_get_name(widget)}, known_image, text})
        out += field + '\x1f';
    for (const int number : {left + area.x, top + area.y, area.width, area.height, expanded ? 1 : 0})
        out += std::to_string(number) + '\x1f';
    out += '\x1e';
}

void look_at_rows(std::string &out, GtkTreeView *tree, GtkTreeIter *parent, const std::string &above)
{
    GtkTreeModel *model = gtk_tree_view_get_model(tree);
    GtkTreeViewColumn *column = gtk_tree_view_get_column(tree, 0);
    g_autoptr(GList) cells = gtk_cell_layout_get_cells(GTK_CELL_LAYOUT(column)); // image and name
    GtkTreeIter iter;
    for (gboolean more = gtk_tree_model_iter_children(model, &iter, parent); more;
         more = gtk_tree_model_iter_next(model, &iter)) {
        g_autoptr(GtkTreePath) path = gtk_tree_model_get_path(model, &iter);
        const bool expanded = gtk_tree_view_row_expanded(tree, path);
        GdkRectangle area;
        gtk_tree_view_get_cell_area(tree, path, column, &area);
        gtk_tree_view_column_cell_set_cell_data(column, model, &iter, FALSE, FALSE);
        g_autoptr(GdkPixbuf) pixels = nullptr;
        g_autofree char *text = nullptr;
        g_object_get(cells->data, "pixbuf", &pixels, nullptr);
        g_object_get(cells->next->data, "text", &text, nullptr);
        describe(out, GTK_WIDGET(tree), gtk_tree_view_get_bin_window(tree), area, above + text, pixels,
                 expanded);
        if (expanded)
            look_at_rows(out, tree, &iter, above + text + '\n');
    }
}

void look_at(GtkWidget *widget, gpointer data)
{
    if (!gtk_widget_get_mapped(widget))
        return;
    auto &out = *static_cast<std::string *>(data);
    GtkAllocation area;
    gtk_widget_get_allocation(widget, &area);
    if (gtk_widget_get_has_window(widget))
        area.x = area.y = 0;
    const char *text = GTK_IS_LABEL(widget) ? gtk_label_get_text(GTK_LABEL(widget)) : "";
    describe(out, widget, gtk_widget_get_window(widget), area, text);
    if (g_str_has_suffix(gtk_widget_get_name(widget), "browser"))
        look_at_rows(out, GTK_TREE_VIEW(widget), nullptr, "");
    else if (GTK_IS_CONTAINER(widget))
        gtk_container_forall(GTK_CONTAINER(widget), look_at, data);
}

gboolean on_request(GIOChannel *requests, GIOCondition, gpointer)
{
    g_autofree char *file = nullptr;
    if (g_io_channel_read_line(requests, &file, nullptr, nullptr, nullptr) != G_IO_STATUS_NORMAL)
        return TRUE;
    if (g_str_has_suffix(g_strchomp(file), ".png")) {
        GdkWindow *root = gdk_get_default_root_window();
        g_autoptr(GdkPixbuf) screen = gdk_pixbuf_get_from_drawable(nullptr, root, nullptr, 0, 0, 0, 0,
                                                                   gdk_screen_width(), gdk_screen_height());
        gdk_pixbuf_save(screen, file, "png", nullptr, nullptr);
        return TRUE;
    }
    std::string out;
    g_autoptr(GList) windows = gtk_window_list_toplevels();
    for (GList *window = windows; window; window = window->next)
        look_at(GTK_WIDGET(window->data), &out);
    g_file_set_contents(file, out.data(), static_cast<gssize>(out.size()), nullptr); // all at once
    return TRUE;
}

} // namespace

extern "C" G_MODULE_EXPORT void gtk_module_init(int *, char ***)
{
    // Only when the program has nothing else to do: what is told is what its last event led to.
    if (GIOChannel *requests = g_io_channel_new_file("/run/probe", "r+", nullptr))
        g_io_add_watch_full(requests, G_PRIORITY_LOW, G_IO_IN, on_request, nullptr, nullptr);
}
