// A GTK module (GTK_MODULES) that tells the acceptance tests what a user sees. It listens on the socket
// /run/probe and answers a line "look" with the visible windows, texts and rows and where they are on the
// screen, and a line "picture FILE" by saving the screen as PNG. It only looks: the tests' clicks and keys
// come from the X server.
//
// Answer: one record a line, fields separated by tabs and escaped like C strings:
//   window TITLE X Y WIDTH HEIGHT
//   widget KIND NAME TEXT X Y WIDTH HEIGHT SENSITIVE
//   row TREE PATH EXPANDED IN_VIEW X Y WIDTH HEIGHT IMAGE TEXT...
#include <gtk/gtk.h>

#include <array>
#include <cstring>
#include <glib/gstdio.h>
#include <initializer_list>
#include <map>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

G_DEFINE_AUTOPTR_CLEANUP_FUNC(GtkTreePath, gtk_tree_path_free)

namespace {

struct rows_walk {
    GtkTreeView *tree;
    int origin_x, origin_y; // of the tree's bin window
    std::string *out;
};

void field(std::string &out, const char *text)
{
    g_autofree char *escaped = g_strescape(text ? text : "", nullptr);
    out += escaped;
    out += '\t';
}

void numbers(std::string &out, std::initializer_list<int> values)
{
    for (const int value : values)
        out += std::to_string(value) + '\t';
}

// The name of the installed image that has the same pixels, "other" for any other picture.
const char *image_name(GdkPixbuf *shown)
{
    static const auto installed = [] {
        std::map<const char *, GdkPixbuf *> images;
        for (const char *name :
             {"disk_normal", "disk_marked", "folder_normal", "folder_marked", "file_normal", "file_marked"}) {
            const std::string path = std::string("/usr/share/gtk-tarnel/images/") + name + ".png";
            if (GdkPixbuf *image = gdk_pixbuf_new_from_file(path.c_str(), nullptr))
                images[name] = image;
        }
        return images;
    }();
    if (!shown)
        return "";
    const gsize length = gdk_pixbuf_get_byte_length(shown);
    for (const auto &[name, image] : installed)
        if (gdk_pixbuf_get_byte_length(image) == length &&
            std::memcmp(gdk_pixbuf_read_pixels(image), gdk_pixbuf_read_pixels(shown), length) == 0)
            return name;
    return "other";
}

// What the cells of one row show, read from the renderers after the view has set them up for it.
void row_cells(const rows_walk &walk, GtkTreeModel *model, GtkTreeIter *iter, const char *&image,
               std::string &texts)
{
    g_autoptr(GList) columns = gtk_tree_view_get_columns(walk.tree);
    for (GList *column = columns; column; column = column->next) {
        auto *view_column = GTK_TREE_VIEW_COLUMN(column->data);
        gtk_tree_view_column_cell_set_cell_data(view_column, model, iter, FALSE, FALSE);
        g_autoptr(GList) cells = gtk_cell_layout_get_cells(GTK_CELL_LAYOUT(view_column));
        for (GList *cell = cells; cell; cell = cell->next) {
            if (GTK_IS_CELL_RENDERER_PIXBUF(cell->data)) {
                g_autoptr(GdkPixbuf) shown = nullptr;
                g_object_get(cell->data, "pixbuf", &shown, nullptr);
                image = image_name(shown);
            } else if (GTK_IS_CELL_RENDERER_TEXT(cell->data)) {
                g_autofree char *text = nullptr;
                g_object_get(cell->data, "text", &text, nullptr);
                field(texts, text);
            }
        }
    }
}

void rows_below(const rows_walk &walk, GtkTreeModel *model, GtkTreeIter *parent)
{
    g_autoptr(GtkTreePath) first = nullptr;
    g_autoptr(GtkTreePath) last = nullptr;
    if (!gtk_tree_view_get_visible_range(walk.tree, &first, &last))
        return;
    GtkTreeIter iter;
    for (gboolean more = gtk_tree_model_iter_children(model, &iter, parent); more;
         more = gtk_tree_model_iter_next(model, &iter)) {
        g_autoptr(GtkTreePath) path = gtk_tree_model_get_path(model, &iter);
        g_autofree char *name = gtk_tree_path_to_string(path);
        const bool expanded = gtk_tree_view_row_expanded(walk.tree, path);
        const bool in_view =
            gtk_tree_path_compare(path, first) >= 0 && gtk_tree_path_compare(path, last) <= 0;
        GdkRectangle area = {0, 0, 0, 0};
        GtkTreeViewColumn *column = gtk_tree_view_get_expander_column(walk.tree);
        if (in_view)
            gtk_tree_view_get_cell_area(walk.tree, path,
                                        column ? column : gtk_tree_view_get_column(walk.tree, 0), &area);
        const char *image = "";
        std::string texts;
        row_cells(walk, model, &iter, image, texts);
        *walk.out += "row\t";
        field(*walk.out, gtk_widget_get_name(GTK_WIDGET(walk.tree)));
        field(*walk.out, name);
        numbers(*walk.out,
                {expanded, in_view, walk.origin_x + area.x, walk.origin_y + area.y, area.width, area.height});
        field(*walk.out, image);
        *walk.out += texts + '\n';
        if (expanded)
            rows_below(walk, model, &iter);
    }
}

std::string text_of(GtkWidget *widget)
{
    g_autofree char *text = nullptr;
    if (GTK_IS_LABEL(widget))
        return gtk_label_get_text(GTK_LABEL(widget));
    if (GTK_IS_ENTRY(widget))
        return gtk_entry_get_text(GTK_ENTRY(widget));
    if (GTK_IS_PROGRESS_BAR(widget))
        g_object_get(widget, "text", &text, nullptr);
    if (GTK_IS_TEXT_VIEW(widget))
        g_object_get(gtk_text_view_get_buffer(GTK_TEXT_VIEW(widget)), "text", &text, nullptr);
    return text ? text : "";
}

void look_at(GtkWidget *widget, gpointer data)
{
    if (!gtk_widget_get_mapped(widget))
        return;
    auto &out = *static_cast<std::string *>(data);
    int x = 0;
    int y = 0;
    gdk_window_get_origin(gtk_widget_get_window(widget), &x, &y);
    GtkAllocation area;
    gtk_widget_get_allocation(widget, &area);
    if (!gtk_widget_get_has_window(widget)) {
        x += area.x;
        y += area.y;
    }
    out += "widget\t";
    field(out, G_OBJECT_TYPE_NAME(widget));
    field(out, gtk_widget_get_name(widget));
    field(out, text_of(widget).c_str());
    numbers(out, {x, y, area.width, area.height, gtk_widget_is_sensitive(widget)});
    out += '\n';
    if (GTK_IS_TREE_VIEW(widget)) {
        rows_walk walk = {GTK_TREE_VIEW(widget), 0, 0, &out};
        gdk_window_get_origin(gtk_tree_view_get_bin_window(walk.tree), &walk.origin_x, &walk.origin_y);
        if (GtkTreeModel *model = gtk_tree_view_get_model(walk.tree))
            rows_below(walk, model, nullptr);
    } else if (GTK_IS_CONTAINER(widget)) {
        gtk_container_forall(GTK_CONTAINER(widget), look_at, data);
    }
}

std::string look()
{
    std::string out;
    g_autoptr(GList) windows = gtk_window_list_toplevels();
    for (GList *window = windows; window; window = window->next) {
        auto *widget = GTK_WIDGET(window->data);
        if (!gtk_widget_get_mapped(widget))
            continue;
        int x = 0;
        int y = 0;
        gdk_window_get_origin(gtk_widget_get_window(widget), &x, &y);
        out += "window\t";
        field(out, gtk_window_get_title(GTK_WINDOW(widget)));
        numbers(out, {x, y, widget->allocation.width, widget->allocation.height});
        out += '\n';
        look_at(widget, &out);
    }
    return out;
}

std::string picture(const char *file)
{
    GdkWindow *root = gdk_get_default_root_window();
    g_autoptr(GdkPixbuf) screen = gdk_pixbuf_get_from_drawable(
        nullptr, root, nullptr, 0, 0, 0, 0, gdk_window_get_width(root), gdk_window_get_height(root));
    const bool saved = screen && gdk_pixbuf_save(screen, file, "png", nullptr, nullptr);
    return saved ? "saved\n" : "not saved\n";
}

gboolean on_request(GIOChannel *channel, GIOCondition, gpointer)
{
    const int connection = accept(g_io_channel_unix_get_fd(channel), nullptr, nullptr);
    if (connection < 0)
        return TRUE;
    std::array<char, 1024> request = {};
    const ssize_t length = read(connection, request.data(), request.size() - 1);
    if (length > 0) {
        request[static_cast<std::size_t>(length)] = '\0';
        g_strchomp(request.data());
        const std::string answer = g_str_has_prefix(request.data(), "picture ")
                                       ? picture(request.data() + std::strlen("picture "))
                                       : look();
        for (std::size_t sent = 0; sent < answer.size();) {
            const ssize_t count = send(connection, answer.data() + sent, answer.size() - sent, MSG_NOSIGNAL);
            if (count <= 0)
                break;
            sent += static_cast<std::size_t>(count);
        }
    }
    close(connection);
    return TRUE;
}

} // namespace

extern "C" G_MODULE_EXPORT void gtk_module_init(int *, char ***)
{
    const char *path = "/run/probe";
    // It gets its name when it answers.
    const std::string unready = std::string(path) + ".new";
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    unready.copy(address.sun_path, sizeof address.sun_path - 1);
    g_unlink(address.sun_path);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        listen(listener, 4) != 0 || g_rename(address.sun_path, path) != 0)
        return;
    // Only when the program has nothing else to do: what is told is what its last event led to.
    g_io_add_watch_full(g_io_channel_unix_new(listener), G_PRIORITY_LOW, G_IO_IN, on_request, nullptr,
                        nullptr);
}
