// window_outline DIRECTORY CATALOGUES: prints every widget of the windows with all its properties, and puts
// pictures of the windows and their pages into the directory. It is linked with each loader; what comes out
// must be the same.
#include "gtk_support.h"
#include "i18n.h"

#include <iostream>

namespace {

std::string text_of(const GValue &value)
{
    if (G_VALUE_HOLDS_OBJECT(&value)) {
        void *object = g_value_get_object(&value);
        return GTK_IS_WIDGET(object) ? gtk_widget_get_name(GTK_WIDGET(object))
               : object              ? "an object"
                                     : "none";
    }
    GValue text = G_VALUE_INIT;
    g_value_init(&text, G_TYPE_STRING);
    const char *characters = g_value_transform(&value, &text) ? g_value_get_string(&text) : nullptr;
    std::string result = characters ? characters : "none";
    g_value_unset(&text);
    return result;
}

void print_widget(GtkWidget *widget, gpointer)
{
    AtkObject *spoken = gtk_widget_get_accessible(widget);
    std::cout << G_OBJECT_TYPE_NAME(widget) << "\n";
    for (const char *text : {atk_object_get_name(spoken), atk_object_get_description(spoken)})
        std::cout << "  " << (text ? text : "none") << "\n";
    guint count = 0;
    GParamSpec **specs = g_object_class_list_properties(G_OBJECT_GET_CLASS(widget), &count);
    for (guint i = 0; i < count; i++) {
        GValue value = G_VALUE_INIT;
        g_value_init(&value, specs[i]->value_type);
        if (specs[i]->flags & G_PARAM_READABLE)
            g_object_get_property(G_OBJECT(widget), specs[i]->name, &value);
        std::cout << "  " << specs[i]->name << " = " << text_of(value) << "\n";
        g_value_unset(&value);
    }
    g_free(specs);
    if (GTK_IS_CONTAINER(widget))
        gtk_container_forall(GTK_CONTAINER(widget), print_widget, nullptr);
}

} // namespace

int main(int count, char **arguments)
{
    if (count != 3 || !have_display())
        return 1;
    bindtextdomain(TEXT_DOMAIN, arguments[2]);
    const loaded_windows windows;
    for (const auto &[name, page] :
         {std::pair("window", 0), {"window", 1}, {"window", 2}, {"report", 0}, {"progress_window", 0}}) {
        GtkWidget *window = windows.widget(name);
        gtk_notebook_set_current_page(GTK_NOTEBOOK(windows.widget("pages")), page);
        print_widget(window, nullptr);
        gtk_widget_show(window);
        gdk_display_sync(gdk_display_get_default());
        settle();
        gdk_window_process_all_updates();
        const auto [x, y, width, height] = window->allocation;
        GdkPixbuf *picture =
            gdk_pixbuf_get_from_drawable(nullptr, window->window, nullptr, 0, 0, 0, 0, width, height);
        const std::string file = std::string(arguments[1]) + "/" + name + std::to_string(page) + ".png";
        gdk_pixbuf_save(picture, file.c_str(), "png", nullptr, nullptr);
        g_object_unref(picture);
        gtk_widget_hide(window);
    }
}
