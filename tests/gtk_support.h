// For tests of windows: a display, and somebody who answers the dialogs.
#pragma once

#include <functional>
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

struct seen_dialog {
    std::string title;
    std::string text;                   // all label texts, one per line, in order
    std::map<int, std::string> buttons; // stock identifiers from left to right
    int width, height;                  // pixels
};

// While it lives, every modal dialog that appears is recorded and answered with the next of the given
// responses; GTK_RESPONSE_DELETE_EVENT stands for the Escape key. With none left, it answers with Escape.
class answered_dialogs {
public:
    explicit answered_dialogs(std::vector<int> responses);
    ~answered_dialogs();
    answered_dialogs(const answered_dialogs &) = delete;
    answered_dialogs &operator=(const answered_dialogs &) = delete;

    std::vector<seen_dialog> seen;
    std::function<void(GtkWidget *)> inspect; // called with each dialog before it is answered

private:
    static gboolean look(gpointer self);
    std::vector<int> responses_;
    guint timer_;
};
