// window_outline DIRECTORY CATALOGUES: prints the widgets of the windows with their names and what they say,
// and puts pictures of the windows and their pages into the directory. It is linked with each loader; what
// comes out must be the same. The status is 1 when a window does not fit a small screen.
#include "gtk_support.h"
#include "i18n.h"

#include <iostream>

static void print_widget(GtkWidget *widget, gpointer)
{
    AtkObject *spoken = gtk_widget_get_accessible(widget);
    std::cout << gtk_widget_get_name(widget);
    for (const char *text : {atk_object_get_name(spoken), atk_object_get_description(spoken)})
        std::cout << "|" << (text ? text : "");
    std::cout << "\n";
    if (GTK_IS_CONTAINER(widget))
        gtk_container_forall(GTK_CONTAINER(widget), print_widget, nullptr);
}

int main(int, char **arguments)
{
    bindtextdomain(TEXT_DOMAIN, arguments[2]);
    const loaded_windows windows;
    bool fit = true;
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
        fit = fit && width <= 1000 && height <= 720; // the frame takes some of 1024x768
        const owned_object<GdkPixbuf> picture(
            gdk_pixbuf_get_from_drawable(nullptr, window->window, nullptr, 0, 0, 0, 0, width, height));
        const std::string file = std::string(arguments[1]) + "/" + name + std::to_string(page) + ".png";
        gdk_pixbuf_save(picture.get(), file.c_str(), "png", nullptr, nullptr);
        gtk_widget_hide(window);
    }
    return fit ? 0 : 1;
}
