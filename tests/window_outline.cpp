// window_outline CATALOGUES: prints the widgets of the windows with their sizes, their names and what they
// say. It is linked with each loader; what comes out must be the same. The status is 1 when a window does not
// fit a small screen.
#include "gtk_support.h"
#include "i18n.h"

#include <iostream>

static void print_widget(GtkWidget *widget, gpointer)
{
    AtkObject *spoken = gtk_widget_get_accessible(widget);
    const auto [width, height] = widget->requisition;
    std::cout << gtk_widget_get_name(widget) << " " << width << "x" << height;
    for (const char *text : {atk_object_get_name(spoken), atk_object_get_description(spoken)})
        std::cout << "|" << (text ? text : "");
    std::cout << "\n";
    if (GTK_IS_CONTAINER(widget))
        gtk_container_forall(GTK_CONTAINER(widget), print_widget, nullptr);
}

int main(int, char **arguments)
{
    bindtextdomain(TEXT_DOMAIN, arguments[1]);
    const loaded_windows windows;
    bool fit = true;
    for (const char *name : {"window", "report", "progress_window"}) {
        GtkRequisition needed;
        gtk_widget_size_request(windows.widget(name), &needed);
        print_widget(windows.widget(name), nullptr);
        fit = fit && needed.width <= 1000 && needed.height <= 720; // the frame takes some of 1024x768
    }
    return fit ? 0 : 1;
}
