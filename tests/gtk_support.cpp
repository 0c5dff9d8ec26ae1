#include "gtk_support.h"

#include "gtk_owned.h"

#include <algorithm>
#include <gtest/gtest.h>

bool have_display()
{
    static const bool started = gtk_init_check(nullptr, nullptr);
    return started;
}

void settle()
{
    while (gtk_events_pending())
        gtk_main_iteration();
}

bool cell_fits(GtkTreeView *view, GtkTreePath *path, const std::string &text, int column)
{
    const owned_object<PangoLayout> layout(gtk_widget_create_pango_layout(GTK_WIDGET(view), text.c_str()));
    int width = 0;
    pango_layout_get_pixel_size(layout.get(), &width, nullptr);
    GdkRectangle area;
    gtk_tree_view_get_cell_area(view, path, gtk_tree_view_get_column(view, column), &area);
    return width <= area.width;
}

std::string description_file()
{
    return DATA_DIR + std::filesystem::path(window_description_file).filename().string();
}

loaded_windows::loaded_windows() : xml(load_window_description(description_file()))
{
    EXPECT_TRUE(xml);
}

loaded_windows::~loaded_windows()
{
    for (const char *name : {"report", "progress_window", "window"})
        if (GtkWidget *window = widget(name))
            gtk_widget_destroy(window);
    release_window_description(xml);
}

std::string loaded_windows::label(const char *name) const
{
    return gtk_label_get_text(GTK_LABEL(widget(name)));
}

namespace {

void collect(GtkWidget *widget, gpointer data)
{
    auto *dialog = static_cast<seen_dialog *>(data);
    if (GTK_IS_BUTTON(widget)) {
        GtkAllocation place;
        gtk_widget_get_allocation(widget, &place);
        const char *name = gtk_button_get_label(GTK_BUTTON(widget));
        dialog->buttons.emplace(place.x, name ? name : "?");
    } else if (GTK_IS_LABEL(widget)) {
        int line = 0;
        pango_layout_get_pixel_size(gtk_label_get_layout(GTK_LABEL(widget)), &line, nullptr);
        EXPECT_TRUE(!gtk_widget_get_mapped(widget) || line <= widget->allocation.width) << "cut off";
        dialog->text += std::string(gtk_label_get_text(GTK_LABEL(widget))) + "\n";
    } else if (GTK_IS_ENTRY(widget)) {
        dialog->text += std::string(gtk_entry_get_text(GTK_ENTRY(widget))) + "\n";
    } else if (GTK_IS_TEXT_VIEW(widget)) {
        g_autofree gchar *text = nullptr;
        g_object_get(gtk_text_view_get_buffer(GTK_TEXT_VIEW(widget)), "text", &text, nullptr);
        dialog->text += std::string(text) + "\n";
    } else if (GTK_IS_CONTAINER(widget)) {
        gtk_container_foreach(GTK_CONTAINER(widget), collect, data);
    }
}

GtkWidget *open_dialog()
{
    GList *windows = gtk_window_list_toplevels();
    GtkWidget *found = nullptr;
    for (GList *at = windows; at; at = at->next) {
        auto *window = static_cast<GtkWidget *>(at->data);
        if (GTK_IS_DIALOG(window) && gtk_widget_get_mapped(window))
            found = window;
    }
    g_list_free(windows);
    return found;
}

} // namespace

answered_dialogs::answered_dialogs(std::vector<int> responses)
    : responses_(std::move(responses)), timer_(g_timeout_add(10, look, this))
{
}

answered_dialogs::~answered_dialogs()
{
    g_source_remove(timer_);
}

std::string answered_dialogs::text() const
{
    std::string all;
    for (const seen_dialog &dialog : seen)
        all += dialog.title + ": " + dialog.text;
    return all;
}

gboolean answered_dialogs::look(gpointer data)
{
    auto *self = static_cast<answered_dialogs *>(data);
    GtkWidget *dialog = open_dialog();
    if (!dialog)
        return TRUE;
    if (GTK_IS_FILE_CHOOSER(dialog) && !self->file_names.empty()) {
        self->choose(GTK_FILE_CHOOSER(dialog));
        return TRUE;
    }
    if (self->name_accepted_) { // a question about the chosen name
        self->file_names.erase(self->file_names.begin());
        self->name_accepted_ = false;
    }
    seen_dialog record = {gtk_window_get_title(GTK_WINDOW(dialog)), "", {}, 0, 0};
    collect(gtk_dialog_get_content_area(GTK_DIALOG(dialog)), &record);
    gtk_window_get_size(GTK_WINDOW(dialog), &record.width, &record.height);
    self->seen.push_back(record);
    int response = GTK_RESPONSE_DELETE_EVENT;
    if (!self->responses_.empty()) {
        response = self->responses_.front();
        self->responses_.erase(self->responses_.begin());
    }
    if (response == GTK_RESPONSE_DELETE_EVENT)
        g_signal_emit_by_name(dialog, "close");
    else
        gtk_dialog_response(GTK_DIALOG(dialog), response);
    return TRUE;
}

// The chooser looks at folders in the background, and one that it began with may come in last: it is told
// again until it has the name.
void answered_dialogs::choose(GtkFileChooser *chooser)
{
    constexpr unsigned looks_until_told_again = 30;
    const std::string &name = file_names.front();
    const auto slash = name.rfind('/');
    gchar *taken = gtk_file_chooser_get_filename(chooser);
    if (name_accepted_)
        chooser_looks_ = 0;
    else if (taken && name == taken) {
        gtk_dialog_response(GTK_DIALOG(chooser), GTK_RESPONSE_ACCEPT);
        name_accepted_ = true;
    } else if (chooser_looks_++ % looks_until_told_again == 0) {
        gtk_file_chooser_set_current_folder(chooser, name.substr(0, slash).c_str());
        gtk_file_chooser_set_current_name(chooser, name.substr(slash + 1).c_str());
    }
    g_free(taken);
}
