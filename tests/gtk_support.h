// For tests of windows: a display, and somebody who answers the dialogs.
#pragma once

#include "support.h"
#include "window_description.h"

#include <gtk/gtk.h>
#include <map>
#include <string>
#include <vector>

// Starts GTK once. False when there is no display.
bool have_display();

#define NEED_DISPLAY()   \
    if (!have_display()) \
    GTEST_SKIP() << "no X display: run the tests under xvfb-run"

// Runs the main loop until nothing is waiting.
void settle();

// Whether a cell of a shown list or tree is wide enough for a text.
bool cell_fits(GtkTreeView *view, GtkTreePath *path, const std::string &text, int column = 0);

// The description of the windows that was built for the loader of this test program.
std::string description_file();

// The program's windows as described, not shown; destroyed at the end of the scope.
class loaded_windows : not_copied {
public:
    loaded_windows();
    ~loaded_windows();

    window_description *xml;
    GtkWidget *widget(const char *name) const { return described_widget(xml, name); }
    std::string label(const char *name) const;
};

struct seen_dialog {
    std::string title;
    std::string text;                   // of all labels, entries and lists, one per line, in order
    std::map<int, std::string> buttons; // stock identifiers from left to right
    int width, height;                  // pixels
};

// While it lives, every modal dialog that appears is recorded and answered with the next of the given
// responses; GTK_RESPONSE_DELETE_EVENT stands for the Escape key. With none left, it answers with Escape.
class answered_dialogs : not_copied {
public:
    explicit answered_dialogs(std::vector<int> responses);
    ~answered_dialogs();

    std::vector<seen_dialog> seen;
    std::vector<std::string> file_names; // what a file chooser is given, before the responses
    std::string text() const;            // of all seen: title, colon, blank, and the texts

private:
    static gboolean look(gpointer self);
    void choose(GtkFileChooser *chooser);
    std::vector<int> responses_;
    unsigned chooser_looks_ = 0;
    bool name_accepted_ = false;
    guint timer_;
};
