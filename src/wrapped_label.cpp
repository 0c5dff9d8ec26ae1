#include "wrapped_label.h"

#include <gtk/gtk.h>

void wrap_label(GtkLabel *label)
{
    constexpr int max_width = 600; // pixels: fits the smallest screen
    GtkRequisition natural;
    gtk_label_set_line_wrap(label, FALSE);
    gtk_widget_size_request(GTK_WIDGET(label), &natural);
    if (natural.width <= max_width)
        return;
    gtk_label_set_line_wrap(label, TRUE);
    gtk_label_set_line_wrap_mode(label, PANGO_WRAP_WORD_CHAR);
    gtk_widget_set_size_request(GTK_WIDGET(label), max_width, -1);
}
