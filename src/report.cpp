#include "report.h"

#include "app.h"
#include "common/filesystem.h"
#include "common/owned.h"
#include "diskbrowser.h"
#include "display_text.h"
#include "gtk_owned.h"
#include "i18n.h"
#include "text_layout.h"
#include "trace_log.h"
#include "tree_walk.h"
#include "window_description.h"

#include <gtk/gtk.h>
#include <string>
#include <utility>
#include <vector>

namespace {

// Least width of a column, in pixels.
constexpr int column_width = 50;
// Room beside the text of a cell or a title, in pixels.
constexpr int cell_margin = 16;

owned_object<GtkListStore> create_file_report_model()
{
    return owned_object<GtkListStore>(gtk_list_store_new(file_report_columns, G_TYPE_STRING, G_TYPE_UINT64));
}

owned_object<GtkListStore> create_sector_report_model()
{
    return owned_object<GtkListStore>(gtk_list_store_new(sector_report_columns, G_TYPE_STRING));
}

// Paths may be any bytes; the cell needs UTF-8 on one line.
void show_path(GtkTreeViewColumn *, GtkCellRenderer *cell, GtkTreeModel *model, GtkTreeIter *row, gpointer)
{
    gchar *path = nullptr;
    gtk_tree_model_get(model, row, 0, &path, -1);
    const owned_gchar owner(path);
    g_object_set(cell, "text", display_text(path).c_str(), nullptr);
}

// Columns of fixed width let the view take rows without measuring them. What a user makes too narrow is shown
// with an ellipsis: a size cut off at the edge would read as a smaller one.
GtkTreeViewColumn *add_column(GtkTreeView *view, const char *title, GtkCellRenderer *cell,
                              PangoEllipsizeMode ellipsize)
{
    g_object_set(cell, "ellipsize", ellipsize, nullptr);
    GtkTreeViewColumn *column = gtk_tree_view_column_new_with_attributes(title, cell, nullptr);
    gtk_tree_view_column_set_sizing(column, GTK_TREE_VIEW_COLUMN_FIXED);
    gtk_tree_view_column_set_fixed_width(column, column_width);
    gtk_tree_view_column_set_resizable(column, TRUE);
    gtk_tree_view_append_column(view, column);
    return column;
}

// The column of the paths takes what room the window has.
void add_path_column(GtkTreeView *view, const char *title)
{
    GtkCellRenderer *cell = gtk_cell_renderer_text_new();
    GtkTreeViewColumn *column = add_column(view, title, cell, PANGO_ELLIPSIZE_MIDDLE);
    gtk_tree_view_column_set_cell_data_func(column, cell, show_path, nullptr, nullptr);
    gtk_tree_view_column_set_expand(column, TRUE);
}

void add_file_report_columns(GtkTreeView *view)
{
    add_path_column(view, _("File"));
    GtkCellRenderer *cell = gtk_cell_renderer_text_new();
    GtkTreeViewColumn *column = add_column(view, _("File size"), cell, PANGO_ELLIPSIZE_END);
    gtk_tree_view_column_add_attribute(column, cell, "text", file_report_size);
    gtk_tree_view_set_fixed_height_mode(view, TRUE);
}

void add_sector_report_columns(GtkTreeView *view)
{
    add_path_column(view, _("Sector"));
    gtk_tree_view_set_fixed_height_mode(view, TRUE);
}

// From here on only the view holds the store.
void attach(GtkTreeView *view, owned_object<GtkListStore> store)
{
    gtk_tree_view_set_model(view, GTK_TREE_MODEL(store.get()));
    gtk_tree_view_set_rules_hint(view, TRUE);
}

// Takes a list off its view while it is filled anew: a view that watches does work for every row. The columns
// then have room for their widest texts.
class refilled_list {
public:
    explicit refilled_list(GtkWidget *view)
        : view_(GTK_TREE_VIEW(view)), store_(GTK_LIST_STORE(g_object_ref(gtk_tree_view_get_model(view_))))
    {
        gtk_tree_view_set_model(view_, nullptr);
        gtk_list_store_clear(store());
        for (int i = 0; GtkTreeViewColumn *column = gtk_tree_view_get_column(view_, i); ++i)
            widest_.emplace_back(view).add(gtk_tree_view_column_get_title(column));
    }
    ~refilled_list()
    {
        gtk_tree_view_column_set_fixed_width(gtk_tree_view_get_column(view_, 0), needed_width(0));
        for (int i = 1; GtkTreeViewColumn *column = gtk_tree_view_get_column(view_, i); ++i)
            gtk_tree_view_column_set_min_width(column, needed_width(i));
        gtk_tree_view_set_model(view_, GTK_TREE_MODEL(store()));
    }
    refilled_list(const refilled_list &) = delete;
    refilled_list &operator=(const refilled_list &) = delete;

    GtkListStore *store() const { return store_.get(); }
    void make_room(int column, const std::string &text)
    {
        widest_[static_cast<std::size_t>(column)].add(text);
    }

private:
    int needed_width(int column) const
    {
        return widest_[static_cast<std::size_t>(column)].width() + cell_margin;
    }

    GtkTreeView *view_;
    owned_object<GtkListStore> store_;
    std::vector<widest_text> widest_; // of each column
};

void add_file(refilled_list &list, const struct app &app, const file_node &row)
{
    trace_log("* Enter");
    trace_log("Saving file: %s", app.path_buf);
    list.make_room(file_report_path, display_text(app.path_buf));
    list.make_room(file_report_size, std::to_string(row.size));
    gtk_list_store_insert_with_values(list.store(), nullptr, G_MAXINT, file_report_path, app.path_buf,
                                      file_report_size, guint64{row.size}, -1);
    trace_log("* Success");
}

void add_sector(refilled_list &list, const struct app &app)
{
    trace_log("* Enter");
    trace_log("%s", app.path_buf);
    list.make_room(sector_report_path, display_text(app.path_buf));
    gtk_list_store_insert_with_values(list.store(), nullptr, G_MAXINT, sector_report_path, app.path_buf, -1);
    trace_log("* Success");
}

void fill_file_report(struct app *app)
{
    file_store *tree = FILE_STORE(gtk_tree_view_get_model(GTK_TREE_VIEW(app->filebrowser)));
    refilled_list list(app->file_report);
    const auto add = [&](auto &&, auto &&, const file_node *row) { add_file(list, *app, *row); };
    for (const auto &root : file_store_top(tree)->children) {
        if (!root->mount || root->not_loaded)
            continue;
        const part &partition = *root->mount->partition;
        begin_path(app, partition_name(partition) + ":");
        walk_file_rows(app, tree, *root, add, file_system_of(partition).separator);
    }
}

void fill_sector_report(struct app *app)
{
    GtkTreeModel *tree = gtk_tree_view_get_model(GTK_TREE_VIEW(app->diskbrowser));
    refilled_list list(app->sector_report);
    const auto add = [&](auto &&...) { add_sector(list, *app); };
    GtkTreeIter top;
    for (gboolean more = gtk_tree_model_get_iter_first(tree, &top); more;
         more = gtk_tree_model_iter_next(tree, &top)) {
        disk *disk = nullptr;
        gtk_tree_model_get(tree, &top, disk_column_disk, &disk, -1);
        GtkTreeIter first;
        if (!disk || !gtk_tree_model_iter_children(tree, &first, &top))
            continue;
        begin_path(app, disk->name + ":");
        walk_sector_rows(app, tree, &first, add);
    }
}

void set_header(struct app *app, const char *name, const char *format, std::uint32_t count,
                std::uint64_t size)
{
    GtkWidget *label = find_widget(app->xml, name);
    if (!label)
        return;
    const owned_gchar text(g_strdup_printf(format, count, static_cast<unsigned long long>(size)));
    gtk_label_set_text(GTK_LABEL(label), text.get());
}

} // namespace

bool report_init(struct app *app)
{
    trace_log("* Enter");
    for (const auto &[name, field] : {std::pair{"report", &app::report},
                                      {"file_report", &app::file_report},
                                      {"sector_report", &app::sector_report}}) {
        app->*field = find_widget(app->xml, name);
        if (!(app->*field))
            return false;
    }
    GtkWidget *close = find_widget(app->xml, "report_close_button");
    GtkWidget *save = close ? find_widget(app->xml, "report_save_button") : nullptr;
    if (!save)
        return false;

    attach(GTK_TREE_VIEW(app->file_report), create_file_report_model());
    attach(GTK_TREE_VIEW(app->sector_report), create_sector_report_model());
    add_file_report_columns(GTK_TREE_VIEW(app->file_report));
    add_sector_report_columns(GTK_TREE_VIEW(app->sector_report));

    GtkWindow *window = GTK_WINDOW(app->report);
    gtk_window_set_modal(window, TRUE);
    gtk_window_set_transient_for(window, GTK_WINDOW(app->window));
    g_signal_connect(window, "delete-event", G_CALLBACK(gtk_widget_hide_on_delete), nullptr);
    g_signal_connect(close, "clicked", G_CALLBACK(report_close_clicked), app);
    g_signal_connect(save, "clicked", G_CALLBACK(report_save_clicked), app);
    trace_log("* Success");
    return true;
}

void report_show(struct app *app)
{
    set_header(app, "filehdr", _("Files selected: %u. Total size: %llu byte.   "), app->total_files_selected,
               app->total_files_size);
    set_header(app, "sectorhdr", _("Sectors selected: %u. Total size: %llu byte.   "),
               app->total_sectors_selected, app->total_sectors_size);
    fill_file_report(app);
    fill_sector_report(app);
    gtk_widget_show(app->report);
}

void on_report_button_clicked(GtkWidget *, struct app *app)
{
    report_show(app);
}

void report_close_clicked(GtkWidget *, struct app *app)
{
    gtk_widget_hide(app->report);
}
