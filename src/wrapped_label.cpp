#include "wrapped_label.h"

#include <gtk/gtk.h>

void wrap_anywhere(GtkLabel *label)
{
    gtk_label_set_line_wrap(label, TRUE);
    gtk_label_set_line_wrap_mode(label, PANGO_WRAP_WORD_CHAR);
#if PANGO_VERSION_CHECK(1, 44, 0) // older ones insert none
    PangoAttrList *attributes = pango_attr_list_new();
    pango_attr_list_insert(attributes, pango_attr_insert_hyphens_new(FALSE));
    gtk_label_set_attributes(label, attributes);
    pango_attr_list_unref(attributes);
#endif
}

void wrap_label(GtkLabel *label)
{
    constexpr int max_width = 600; // pixels: fits the smallest screen
    GtkRequisition natural;
    gtk_label_set_line_wrap(label, FALSE);
    gtk_widget_size_request(GTK_WIDGET(label), &natural);
    if (natural.width <= max_width)
        return;
    wrap_anywhere(label);
    gtk_widget_set_size_request(GTK_WIDGET(label), max_width, -1);
}
