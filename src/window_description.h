// The description of the windows, loaded. The system offers libglade or GtkBuilder for that; which of them
// the program was configured for (TARNEL_WINDOWS) is known in here alone.
#pragma once

#include "trace_log.h"

#include <span>
#include <string>

typedef struct _GtkWidget GtkWidget;

// Owns what was loaded, except the windows, which live until they are destroyed.
struct window_description;

// A function of the program and the name under which the description asks for it.
struct window_handler {
    const char *name;
    void (*function)();
};

// The fixed path of the installed description, in the format that is read here.
extern const char *const window_description_file;

// Builds the windows of a file, in the user's language. Null when it is missing or damaged.
[[nodiscard]] window_description *load_window_description(const std::string &file);
void release_window_description(window_description *description);

// The widget of this name, null when the description has none.
[[nodiscard]] GtkWidget *described_widget(window_description *description, const char *name);

// The same; a missing one is traced, with the failure of the caller.
[[nodiscard]] inline GtkWidget *find_widget(window_description *description, const char *name)
{
    GtkWidget *widget = described_widget(description, name);
    if (!widget) {
        trace_log("Cannot find '%s' widget", name);
        trace_log("* Failed");
    }
    return widget;
}

// Connects, once, each signal that the description gives to one of the handlers; these receive `record` last.
// Signals for handlers of other names stay without one.
void connect_handlers(window_description *description, std::span<const window_handler> handlers,
                      void *record);
