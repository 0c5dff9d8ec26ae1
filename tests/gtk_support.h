// For tests of windows: somebody who answers the dialogs. Without a display they fail.
#pragma once

#include "gtk_owned.h"
#include "support.h"
#include "window_description.h"

#include <gtk/gtk.h>

// Runs the main loop until nothing is waiting.
inline void settle()
{
    while (gtk_events_pending())
        gtk_main_iteration();
}

// The description of the windows that was built for the loader of this test program.
inline std::string description_file()
{
    return DATA_DIR + std::filesystem::path(window_description_file).filename().string();
}

// The program's windows as described, not shown; destroyed at the end of the scope.
struct loaded_windows {
    loaded_windows()
    {
        gtk_init(nullptr, nullptr);
        xml = load_window_description(description_file());
        EXPECT_TRUE(xml);
    }
    ~loaded_windows()
    {
        for (const char *name : {"report", "progress_window", "window"})
            gtk_widget_destroy(widget(name));
        release_window_description(xml);
    }

    GtkWidget *widget(const char *name) const { return described_widget(xml, name); }
    std::string label(const char *name) const { return gtk_label_get_text(GTK_LABEL(widget(name))); }

    window_description *xml = nullptr;
};

// While it lives, every modal dialog that appears is noted and answered with the next of the given responses;
// GTK_RESPONSE_DELETE_EVENT stands for the Escape key. With none left, it answers with Escape.
class answered_dialogs {
public:
    explicit answered_dialogs(std::vector<int> responses) : responses_(std::move(responses))
    {
        gtk_init(nullptr, nullptr);
        timer_ = g_timeout_add(10, look, this);
    }
    ~answered_dialogs() { g_source_remove(timer_); }

    // Of each dialog title, colon, blank, and all labels, entries and lists, one per line.
    std::string text;
    int count = 0, width = 0, height = 0;          // the size in pixels is that of the largest
    std::vector<std::filesystem::path> file_names; // what a file chooser is given, before the responses
    std::function<void()> meanwhile;               // happens while a question is open

private:
    static void collect(GtkWidget *widget, gpointer data)
    {
        std::string &all = *static_cast<std::string *>(data);
        g_autofree gchar *text = nullptr;
        if (GTK_IS_LABEL(widget) || GTK_IS_ENTRY(widget)) {
            g_object_get(widget, GTK_IS_LABEL(widget) ? "label" : "text", &text, nullptr);
        } else if (GTK_IS_TEXT_VIEW(widget)) {
            g_object_get(gtk_text_view_get_buffer(GTK_TEXT_VIEW(widget)), "text", &text, nullptr);
        } else if (GTK_IS_CONTAINER(widget) && !GTK_IS_BUTTON(widget)) {
            gtk_container_foreach(GTK_CONTAINER(widget), collect, data);
        }
        int needed = 0;
        if (GTK_IS_LABEL(widget))
            pango_layout_get_pixel_size(gtk_label_get_layout(GTK_LABEL(widget)), &needed, nullptr);
        EXPECT_TRUE(!gtk_widget_get_mapped(widget) || needed <= widget->allocation.width) << "cut off";
        all += text ? std::string(text) + "\n" : "";
    }

    static gboolean look(gpointer data)
    {
        auto *self = static_cast<answered_dialogs *>(data);
        GtkWidget *dialog = nullptr;
        g_autoptr(GList) windows = gtk_window_list_toplevels();
        for (GList *at = windows; at; at = at->next)
            if (GTK_IS_DIALOG(at->data) && gtk_widget_get_mapped(GTK_WIDGET(at->data)))
                dialog = GTK_WIDGET(at->data);
        if (dialog && GTK_IS_FILE_CHOOSER(dialog) && !self->file_names.empty())
            self->choose(GTK_FILE_CHOOSER(dialog));
        else if (dialog)
            self->answer(GTK_DIALOG(dialog));
        return TRUE;
    }

    void answer(GtkDialog *dialog)
    {
        int size[2];
        gtk_window_get_size(GTK_WINDOW(dialog), &size[0], &size[1]);
        width = std::max(width, size[0]);
        height = std::max(height, size[1]);
        text += gtk_window_get_title(GTK_WINDOW(dialog)) + std::string(": ");
        collect(gtk_dialog_get_content_area(dialog), &text);
        ++count;
        if (meanwhile)
            meanwhile();
        file_names.erase(file_names.begin(), file_names.begin() + std::exchange(name_given_, false));
        const int response = responses_.empty() ? GTK_RESPONSE_DELETE_EVENT : responses_.front();
        responses_.erase(responses_.begin(), responses_.begin() + !responses_.empty());
        if (response == GTK_RESPONSE_DELETE_EVENT)
            g_signal_emit_by_name(dialog, "close");
        else
            gtk_dialog_response(dialog, response);
    }

    // The chooser looks at folders in the background, and one that it began with may come in last: it is told
    // again until it has the name.
    void choose(GtkFileChooser *chooser)
    {
        constexpr unsigned looks_until_told_again = 30;
        const std::filesystem::path name = file_names.front();
        g_autofree gchar *taken = gtk_file_chooser_get_filename(chooser);
        if (taken && name == taken && !name_given_) {
            name_given_ = true;
            chooser_looks_ = 0;
            gtk_dialog_response(GTK_DIALOG(chooser), GTK_RESPONSE_ACCEPT);
        } else if (!name_given_ && chooser_looks_++ % looks_until_told_again == 0) {
            gtk_file_chooser_set_current_folder(chooser, name.parent_path().c_str());
            gtk_file_chooser_set_current_name(chooser, name.filename().c_str());
        }
    }

    std::vector<int> responses_;
    unsigned chooser_looks_ = 0;
    bool name_given_ = false; // a question about it is to come
    guint timer_;
};
