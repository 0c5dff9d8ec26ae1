// The commands behind the buttons of the two browser pages. `widget` is the button; without one a save asks
// nothing, unless it would drop what the tree does not show.
#pragma once

#include "common/file_format.h"

#include <list>
#include <string>

struct app;
struct unmarked_entry;
typedef struct _GtkWidget GtkWidget;

// Saves the marks of a page, with the question whether to overwrite when `ask` is set or the saved template
// holds entries that are no marks. Whether it was saved; if not, the user knows why.
bool save_template(struct app *app, list_kind kind, bool ask);

// As dialogs show them: a line for each entry.
[[nodiscard]] std::string list_unmarked(const std::list<unmarked_entry> &unmarked);

void on_files_save_clicked(GtkWidget *widget, struct app *app);
void on_files_clear_clicked(GtkWidget *widget, struct app *app);
void on_files_default_clicked(GtkWidget *widget, struct app *app);

void on_sectors_save_clicked(GtkWidget *widget, struct app *app);
void on_sectors_clear_clicked(GtkWidget *widget, struct app *app);
void on_sectors_default_clicked(GtkWidget *widget, struct app *app);
