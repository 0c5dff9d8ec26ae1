// window_outline DIRECTORY CATALOGUES: prints every widget of the windows with all its properties, and puts
// pictures of the windows and their pages into the directory. It is linked with each loader; what comes out
// must be the same.
#include "gtk_support.h"
#include "i18n.h"

#include <iostream>

namespace {

std::string text_of(const GValue &value)
{
    GValue text = G_VALUE_INIT;
    g_value_init(&text, G_TYPE_STRING);
    if (G_VALUE_HOLDS_OBJECT(&value)) {
        void *object = g_value_get_object(&value);
        return !object                 ? "none"
               : GTK_IS_WIDGET(object) ? gtk_widget_get_name(GTK_WIDGET(object))
                                       : G_OBJECT_TYPE_NAME(object);
    }
    if (!g_value_transform(&value, &text))
        return G_VALUE_TYPE_NAME(&value);
    const char *characters = g_value_get_string(&text);
    const std::string result = characters ? characters : "null";
    g_value_unset(&text);
    return result;
}

using reader = std::function<void(const char *name, GValue *value)>;

void print_properties(GParamSpec **specs, guint count, const reader &read)
{
    for (guint i = 0; i < count; i++) {
        if (!(specs[i]->flags & G_PARAM_READABLE))
            continue;
        GValue value = G_VALUE_INIT;
        g_value_init(&value, specs[i]->value_type);
        read(specs[i]->name, &value);
        std::cout << "  " << specs[i]->name << " = " << text_of(value) << "\n";
        g_value_unset(&value);
    }
    g_free(specs);
}

void print_widget(GtkWidget *widget, gpointer)
{
    std::cout << G_OBJECT_TYPE_NAME(widget) << " " << gtk_widget_get_name(widget) << "\n";
    AtkObject *spoken = gtk_widget_get_accessible(widget);
    for (const char *text : {atk_object_get_name(spoken), atk_object_get_description(spoken)})
        std::cout << "  " << (text ? text : "none") << "\n";
    guint count = 0;
    GParamSpec **specs = g_object_class_list_properties(G_OBJECT_GET_CLASS(widget), &count);
    print_properties(specs, count, [widget](const char *name, GValue *value) {
        g_object_get_property(G_OBJECT(widget), name, value);
    });
    if (GtkWidget *parent = gtk_widget_get_parent(widget)) {
        specs = gtk_container_class_list_child_properties(G_OBJECT_GET_CLASS(parent), &count);
        print_properties(specs, count, [=](const char *name, GValue *value) {
            gtk_container_child_get_property(GTK_CONTAINER(parent), widget, name, value);
        });
    }
    if (GTK_IS_CONTAINER(widget))
        gtk_container_forall(GTK_CONTAINER(widget), print_widget, nullptr);
}

bool take_picture(GtkWidget *window, const std::string &file)
{
    settle();
    gdk_window_process_all_updates();
    GdkDrawable *drawn = gtk_widget_get_window(window);
    gint width, height;
    gdk_drawable_get_size(drawn, &width, &height);
    GdkPixbuf *picture = gdk_pixbuf_get_from_drawable(nullptr, drawn, nullptr, 0, 0, 0, 0, width, height);
    const bool saved = gdk_pixbuf_save(picture, file.c_str(), "png", nullptr, nullptr);
    g_object_unref(picture);
    return saved;
}

} // namespace

int main(int count, char **arguments)
{
    if (count != 3 || !have_display())
        return 1;
    bindtextdomain(TEXT_DOMAIN, arguments[2]);
    const loaded_windows windows;
    bool saved = true;
    for (const char *name : {"window", "report", "progress_window"}) {
        GtkWidget *window = windows.widget(name);
        print_widget(window, nullptr);
        gtk_widget_show(window);
        for (int page = 0; page < (name == std::string("window") ? 3 : 1); page++) {
            gtk_notebook_set_current_page(GTK_NOTEBOOK(windows.widget("pages")), page);
            saved = take_picture(window,
                                 std::string(arguments[1]) + "/" + name + std::to_string(page) + ".png") &&
                    saved;
        }
        gtk_widget_hide(window);
    }
    return saved ? 0 : 1;
}
