// The report window: what is marked, in two lists that can be saved as an RTF document.
#pragma once

struct app;
typedef struct _GtkWidget GtkWidget;

// Columns of the two lists. Paths are bytes, as they go into the document; what the window shows of them is
// made when it is drawn.
enum file_report_column {
    file_report_path, // string, such as sda1:/boot/vmlinuz
    file_report_size, // unsigned 64-bit, bytes
    file_report_columns
};
enum sector_report_column {
    sector_report_path, // string, such as sda:/Master boot record
    sector_report_columns
};

// Sets the window up; called once, after the window description is loaded. False when the
// description lacks one of its lists or buttons.
[[nodiscard]] bool report_init(struct app *app);

// Fills the lists from the marks and shows the window.
void report_show(struct app *app);

// Handler of the main window's report button.
void on_report_button_clicked(GtkWidget *widget, struct app *app);

// Handlers of the window's own buttons. Saving asks for a name and leaves either the complete document under
// it or what was there before.
void report_close_clicked(GtkWidget *widget, struct app *app);
void report_save_clicked(GtkWidget *widget, struct app *app);
