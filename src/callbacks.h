// The commands behind the buttons of the two browser pages. `widget` is the button; without one a save asks
// nothing, which is how the exit question and the questions about missing entries call it.
#pragma once

struct app;
typedef struct _GtkWidget GtkWidget;

void on_files_save_clicked(GtkWidget *widget, struct app *app);
void on_files_clear_clicked(GtkWidget *widget, struct app *app);
void on_files_default_clicked(GtkWidget *widget, struct app *app);

void on_sectors_save_clicked(GtkWidget *widget, struct app *app);
void on_sectors_clear_clicked(GtkWidget *widget, struct app *app);
void on_sectors_default_clicked(GtkWidget *widget, struct app *app);
