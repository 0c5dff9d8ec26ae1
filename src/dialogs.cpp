#include "dialogs.h"

#include "common/owned.h"
#include "common/process.h"
#include "gtk_owned.h"
#include "text_layout.h"
#include "wrapped_label.h"

#include <algorithm>
#include <cstdarg>
#include <gtk/gtk.h>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

using buttons = std::vector<std::pair<const char *, int>>;

// The scrolled list grows with its text up to this size, in pixels.
constexpr int list_max_width = 640;
constexpr int list_max_height = 320;
constexpr int border = 12;

const buttons ok = {{GTK_STOCK_OK, GTK_RESPONSE_OK}};
const buttons yes_no = {{GTK_STOCK_YES, GTK_RESPONSE_YES}, {GTK_STOCK_NO, GTK_RESPONSE_NO}};

GtkWidget *make_dialog(GtkWidget *parent, const char *title, const buttons &choices)
{
    GtkWidget *dialog = gtk_dialog_new_with_buttons(title, parent ? GTK_WINDOW(parent) : nullptr,
                                                    GTK_DIALOG_MODAL, nullptr, nullptr);
    for (const auto &[stock, response] : choices)
        gtk_dialog_add_button(GTK_DIALOG(dialog), stock, response);
    GtkWindow *window = GTK_WINDOW(dialog);
    gtk_window_set_resizable(window, FALSE);
    // A parent that is not on the screen yet has no centre to speak of.
    const bool parent_shown = parent && gtk_widget_get_visible(parent);
    gtk_window_set_position(window, parent_shown ? GTK_WIN_POS_CENTER_ON_PARENT : GTK_WIN_POS_CENTER);
    gtk_window_set_decorated(window, TRUE);
    gtk_window_set_deletable(window, FALSE);
    gtk_container_set_border_width(GTK_CONTAINER(dialog), border / 2);
    gtk_box_set_spacing(GTK_BOX(gtk_dialog_get_content_area(GTK_DIALOG(dialog))), border);
    return dialog;
}

// File names are bytes; a label takes UTF-8 only.
GtkWidget *make_message_label(const char *text)
{
    const owned_gchar shown(g_utf8_make_valid(text, -1));
    GtkWidget *label = gtk_label_new(shown.get());
    wrap_label(GTK_LABEL(label));
    gtk_misc_set_alignment(GTK_MISC(label), 0.0F, 0.5F);
    gtk_widget_show(label);
    // Around the label: its lines would be broken as if padding of its own were not there.
    GtkWidget *frame = gtk_alignment_new(0.0F, 0.5F, 1.0F, 1.0F);
    gtk_alignment_set_padding(GTK_ALIGNMENT(frame), border, border, border, border);
    gtk_container_add(GTK_CONTAINER(frame), label);
    return frame;
}

int run_and_destroy(GtkWidget *dialog)
{
    const int response = run_dialog(dialog);
    gtk_widget_destroy(dialog);
    return response;
}

int ask(GtkWidget *parent, const char *title, const buttons &choices, const char *format,
        std::va_list arguments) __attribute__((format(printf, 4, 0)));

int ask(GtkWidget *parent, const char *title, const buttons &choices, const char *format,
        std::va_list arguments)
{
    GtkWidget *dialog = make_dialog(parent, title, choices);
    const owned_gchar text(g_strdup_vprintf(format, arguments));
    GtkWidget *label = make_message_label(text.get());
    gtk_container_add(GTK_CONTAINER(gtk_dialog_get_content_area(GTK_DIALOG(dialog))), label);
    gtk_widget_show(label);
    return run_and_destroy(dialog);
}

// A text to read, select and copy. It is laid out where it is looked at: 10,000 lines show at once.
GtkWidget *make_text_view(const char *text)
{
    GtkWidget *widget = gtk_text_view_new();
    GtkTextView *view = GTK_TEXT_VIEW(widget);
    gtk_text_view_set_editable(view, FALSE);
    gtk_text_view_set_cursor_visible(view, FALSE);
    gtk_text_view_set_accepts_tab(view, FALSE);
    gtk_text_view_set_left_margin(view, border / 2);
    gtk_text_view_set_right_margin(view, border / 2);
    gtk_text_buffer_set_text(gtk_text_view_get_buffer(view), text, -1);
    return widget;
}

// A scrolled window around the list, as large as the list until that becomes too large for a dialog.
GtkWidget *make_list_area(const char *bytes)
{
    const owned_gchar text(g_utf8_make_valid(bytes, -1));
    GtkWidget *view = make_text_view(text.get());
    GtkWidget *scrolled = gtk_scrolled_window_new(nullptr, nullptr);
    gtk_scrolled_window_set_policy(GTK_SCROLLED_WINDOW(scrolled), GTK_POLICY_AUTOMATIC, GTK_POLICY_AUTOMATIC);
    gtk_scrolled_window_set_shadow_type(GTK_SCROLLED_WINDOW(scrolled), GTK_SHADOW_IN);
    gtk_container_add(GTK_CONTAINER(scrolled), view);

    widest_text lines(view);
    int count = 0;
    std::istringstream stream(text.get());
    for (std::string line; std::getline(stream, line); ++count)
        lines.add(line);
    const owned_object<PangoLayout> line(gtk_widget_create_pango_layout(view, "X"));
    int line_height = 0;
    pango_layout_get_pixel_size(line.get(), nullptr, &line_height);
    constexpr int room_for_scroll_bar = 32;
    const int height = std::min(count, list_max_height) * line_height + room_for_scroll_bar;
    gtk_widget_set_size_request(scrolled,
                                std::min(lines.width() + border + room_for_scroll_bar, list_max_width),
                                std::min(height, list_max_height));
    gtk_widget_show(view);
    return scrolled;
}

int ask_list(GtkWidget *parent, const char *title, const buttons &choices, const char *text,
             const char *format, std::va_list arguments) __attribute__((format(printf, 5, 0)));

int ask_list(GtkWidget *parent, const char *title, const buttons &choices, const char *text,
             const char *format, std::va_list arguments)
{
    const owned_gchar list(g_strdup_vprintf(format, arguments));
    GtkWidget *dialog = make_dialog(parent, title, choices);
    GtkWidget *label = make_message_label(text);
    GtkWidget *scrolled = make_list_area(list.get());
    GtkBox *content = GTK_BOX(gtk_dialog_get_content_area(GTK_DIALOG(dialog)));
    gtk_box_pack_start(content, label, TRUE, TRUE, 0);
    gtk_box_pack_start(content, scrolled, TRUE, TRUE, 0);
    gtk_widget_show(label);
    gtk_widget_show(scrolled);
    return run_and_destroy(dialog);
}

} // namespace

int run_dialog(GtkWidget *dialog)
{
    const int response = ending() ? GTK_RESPONSE_DELETE_EVENT : gtk_dialog_run(GTK_DIALOG(dialog));
    return ending() ? GTK_RESPONSE_DELETE_EVENT : response;
}

void dialog_ok(GtkWidget *parent, const char *title, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    ask(parent, title, ok, format, arguments);
    va_end(arguments);
}

int dialog_yes_no(GtkWidget *parent, const char *title, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int response = ask(parent, title, yes_no, format, arguments);
    va_end(arguments);
    return response;
}

int dialog_yes_no_cancel(GtkWidget *parent, const char *title, const char *format, ...)
{
    buttons choices = yes_no;
    choices.emplace_back(GTK_STOCK_CANCEL, GTK_RESPONSE_CANCEL);
    va_list arguments;
    va_start(arguments, format);
    const int response = ask(parent, title, choices, format, arguments);
    va_end(arguments);
    return response;
}

void dialog_ok_list(GtkWidget *parent, const char *title, const char *text, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    ask_list(parent, title, ok, text, format, arguments);
    va_end(arguments);
}

int dialog_yes_no_list(GtkWidget *parent, const char *title, const char *question, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int response = ask_list(parent, title, yes_no, question, format, arguments);
    va_end(arguments);
    return response;
}
