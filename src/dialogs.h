// The dialogs through which the program talks to the user. Modal over the parent; they return GTK's
// response codes (Escape gives GTK_RESPONSE_DELETE_EVENT). Titles and texts come already translated. While
// the process is ending nothing opens, and everything is answered as with Escape.
#pragma once

typedef struct _GtkWidget GtkWidget;

// GTK's gtk_dialog_run for any dialog of the program.
[[nodiscard]] int run_dialog(GtkWidget *dialog);

void dialog_ok(GtkWidget *parent, const char *title, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

[[nodiscard]] int dialog_yes_no(GtkWidget *parent, const char *title, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

[[nodiscard]] int dialog_yes_no_cancel(GtkWidget *parent, const char *title, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

// The text is shown verbatim, the formatted one below it as in dialog_yes_no_list.
void dialog_ok_list(GtkWidget *parent, const char *title, const char *text, const char *format, ...)
    __attribute__((format(printf, 4, 5)));

// The question is shown verbatim; the formatted text goes below it into a scrolled area.
[[nodiscard]] int dialog_yes_no_list(GtkWidget *parent, const char *title, const char *question,
                                     const char *format, ...) __attribute__((format(printf, 4, 5)));
