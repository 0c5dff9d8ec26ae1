// The main window: window description, icons, handlers, exit question, and what shutdown releases.
#pragma once

#include "window_description.h"

#include <span>

struct app;
typedef union _GdkEvent GdkEvent;

// Does ahead what needs no disk: loads the windows, and the fonts and icons that their size depends on. What
// fails is left for app_init_gui to find and to report.
void prepare_gui(struct app *app);

// Builds all windows. Returns 0; on any failure it ends the process with status 1 through GTK's own exit.
[[nodiscard]] int app_init_gui(struct app *app);

// What the description of the windows is connected to.
[[nodiscard]] std::span<const window_handler> main_window_handlers();

// Warns, over the main window, when the board library finds no board.
void warn_missing_board(struct app *app);

// Close request of the main window: true keeps the window.
int delete_event(GtkWidget *widget, GdkEvent *event, struct app *app);

// Destruction of the main window: ends the main loop unless the user cancels.
void on_close(GtkWidget *widget, struct app *app);

// Asks whether to save unsaved marks, does what the user chose and returns the response.
[[nodiscard]] int confirm_save_changes(struct app *app);

// Releases the browsers, unmounts what the program mounted and drops the icons.
void app_cleanup(struct app *app);
