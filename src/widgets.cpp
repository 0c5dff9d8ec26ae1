#include "widgets.h"

#include "trace_log.h"

#include <glade/glade.h>

GtkWidget *find_widget(GladeXML *xml, const char *name)
{
    GtkWidget *widget = glade_xml_get_widget(xml, name);
    if (!widget) {
        trace_log("Cannot find '%s' widget", name);
        trace_log("* Failed");
    }
    return widget;
}
