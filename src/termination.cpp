#include "termination.h"

#include "common/process.h"
#include "gtk_owned.h"
#include "trace_log.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <glib-unix.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::array ending_signals = {SIGINT, SIGTERM, SIGHUP};
// GTK's own dialogs know nothing of the end and may open while it goes on, so it is told again; milliseconds.
constexpr guint told_again = 50;

// From the signal handler to the main loop.
std::array<int, 2> ends = {-1, -1};

void on_signal(int number)
{
    const int error = errno;
    note_ending(number);
    (void)!write(ends[1], "", 1);
    errno = error;
}

gboolean leave_loops(gpointer)
{
    GList *windows = gtk_window_list_toplevels();
    std::vector<owned_object<GtkWidget>> held; // closing one window may destroy another
    for (GList *at = windows; at; at = at->next)
        held.emplace_back(static_cast<GtkWidget *>(g_object_ref(at->data)));
    g_list_free(windows);
    for (const auto &window : held) {
        if (GTK_IS_DIALOG(window.get()) && gtk_widget_get_visible(window.get()))
            gtk_dialog_response(GTK_DIALOG(window.get()), GTK_RESPONSE_DELETE_EVENT);
    }
    if (gtk_main_level() > 0)
        gtk_main_quit();
    return G_SOURCE_CONTINUE;
}

gboolean on_readable(gint, GIOCondition, gpointer)
{
    trace_log("Ended by signal %d", ending_status() - 128);
    leave_loops(nullptr);
    g_timeout_add_full(G_PRIORITY_HIGH, told_again, leave_loops, nullptr, nullptr);
    return G_SOURCE_REMOVE;
}

} // namespace

void end_on_signals()
{
    if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        trace_log("Cannot make a pipe: %s", std::strerror(errno));
        return;
    }
    g_unix_fd_add_full(G_PRIORITY_HIGH, ends[0], G_IO_IN, on_readable, nullptr, nullptr);
    for (const int number : ending_signals) {
        struct sigaction before = {}, after = {};
        after.sa_handler = on_signal;
        after.sa_flags = SA_RESTART;
        if (sigaction(number, nullptr, &before) == 0 && before.sa_handler != SIG_IGN)
            sigaction(number, &after, nullptr);
    }
}
