#include "progress.h"

#include "app.h"
#include "common/process.h"

#include <gtk/gtk.h>

namespace {

constexpr gint64 show_delay = 100;    // milliseconds
constexpr guint pulse_interval = 200; // milliseconds
// How often the main loop gets its turn, and how long it may take then; in microseconds.
constexpr gint64 turn_interval = 40'000;
constexpr gint64 turn_length = 20'000;

guint show_source = 0, pulse_source = 0; // timers that are running, or 0
gint64 started = 0, last_turn = 0;       // monotonic time in microseconds

bool is_shown(const struct app *app)
{
    return app->progress_window && gtk_widget_get_visible(app->progress_window);
}

void stop_timer(guint &source)
{
    if (source)
        g_source_remove(source);
    source = 0;
}

} // namespace

void progress_start(struct app *app)
{
    if (app->progress_pending)
        return;
    app->progress_pending = 1;
    started = last_turn = g_get_monotonic_time();
    show_source = g_timeout_add(static_cast<guint>(show_delay), progress_show, app);
}

void progress_stop(struct app *app)
{
    // A timer left over from this operation would disturb the next one.
    stop_timer(show_source);
    stop_timer(pulse_source);
    if (app->progress_window)
        gtk_widget_hide(app->progress_window);
    app->progress_pending = 0;
}

int progress_show(void *data)
{
    auto *app = static_cast<struct app *>(data);
    show_source = 0;
    if (app->progress_pending && app->progress_window) {
        pulse_source = g_timeout_add(pulse_interval, progress_pulse, app);
        gtk_widget_show(app->progress_window);
    }
    return FALSE;
}

int progress_pulse(void *data)
{
    auto *app = static_cast<struct app *>(data);
    if (is_shown(app)) {
        gtk_progress_bar_pulse(GTK_PROGRESS_BAR(app->progressbar));
        return TRUE;
    }
    pulse_source = 0;
    app->progress_pending = 0;
    return FALSE;
}

void progress_run_main_loop(struct app *app)
{
    if (!app->progress_pending || ending())
        return;
    const gint64 now = g_get_monotonic_time();
    if (now - started < show_delay * 1000 || now - last_turn < turn_interval)
        return;
    // The window must be up, and take all input, before the first event is looked at.
    if (show_source) {
        stop_timer(show_source);
        progress_show(app);
    }
    while (g_main_context_pending(nullptr) && g_get_monotonic_time() - now < turn_length)
        g_main_context_iteration(nullptr, FALSE);
    last_turn = g_get_monotonic_time();
}
