// The report window: what is marked, in two lists that can be saved as a document.
#pragma once

struct app;
typedef struct _GtkWidget GtkWidget;

// Sets the window up; called once, after the window description is loaded. Returns 1, or 0 when the
// description lacks one of its lists or buttons.
[[nodiscard]] int report_init(struct app *app);

// Handler of the main window's report button: fills the lists from the marks and shows the window.
void on_report_button_clicked(GtkWidget *widget, struct app *app);
