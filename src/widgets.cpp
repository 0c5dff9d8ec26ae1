#include "widgets.h"

#include "trace_log.h"
#include "window_description.h"

GtkWidget *find_widget(window_description *description, const char *name)
{
    GtkWidget *widget = described_widget(description, name);
    if (!widget) {
        trace_log("Cannot find '%s' widget", name);
        trace_log("* Failed");
    }
    return widget;
}
