// Looking up what the window description must provide.
#pragma once

typedef struct _GladeXML GladeXML;
typedef struct _GtkWidget GtkWidget;

// The widget of this name. A missing one is traced, with the failure of the caller, and gives null.
[[nodiscard]] GtkWidget *find_widget(GladeXML *xml, const char *name);
