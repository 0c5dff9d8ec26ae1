// Looking up what the window description must provide.
#pragma once

typedef struct _GtkWidget GtkWidget;
struct window_description;

// The widget of this name. A missing one is traced, with the failure of the caller, and gives null.
[[nodiscard]] GtkWidget *find_widget(window_description *description, const char *name);
