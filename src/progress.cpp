#include "progress.h"

#include "app.h"
#include "common/background.h"
#include "common/process.h"

#include <atomic>
#include <ctime>
#include <gtk/gtk.h>
#include <utility>
#include <vector>

namespace {

constexpr gint64 show_delay = 100;    // milliseconds
constexpr guint pulse_interval = 200; // milliseconds
// How often the main loop gets its turn, and how long it may take then; in microseconds.
constexpr gint64 turn_interval = 40'000;
constexpr gint64 turn_length = 20'000;

guint show_source = 0, pulse_source = 0; // timers that are running, or 0
gint64 started = 0, last_turn = 0;       // as of now_in_microseconds()

// Exact to some milliseconds, and much cheaper than GLib's clock: it is looked at for every row.
gint64 now_in_microseconds()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return static_cast<gint64>(now.tv_sec) * 1'000'000 + now.tv_nsec / 1'000;
}

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

bool lasts_long(gint64 now)
{
    return now - started >= show_delay * 1000;
}

// Releases are none: what was pressed before must come to its end.
bool is_new_input(const GdkEvent *event)
{
    switch (event->type) {
    case GDK_BUTTON_PRESS:
    case GDK_2BUTTON_PRESS:
    case GDK_3BUTTON_PRESS:
    case GDK_SCROLL:
    case GDK_KEY_PRESS:
        return true;
    default:
        return false;
    }
}

// What came before the window was shown and must wait, in its order. Owned.
std::vector<GdkEvent *> held;

bool is_input(const GdkEvent *event)
{
    return is_new_input(event) || event->type == GDK_BUTTON_RELEASE || event->type == GDK_KEY_RELEASE;
}

// Serves an event while the window does not yet keep input away from the rest: what is pressed waits, and
// with it the releases behind it; so does the wish to close a window.
void hold_input(GdkEvent *event, gpointer)
{
    if (is_new_input(event) || event->type == GDK_DELETE || (!held.empty() && is_input(event)))
        held.push_back(gdk_event_copy(event));
    else
        gtk_main_do_event(event);
}

void serve_all_events()
{
    gdk_event_handler_set([](GdkEvent *event, gpointer) { gtk_main_do_event(event); }, nullptr, nullptr);
}

// Gives back what was held, or, after an operation that lasted long, takes away what was pressed until now
// and not looked at yet; everything else stays in its order.
void release_input(bool drop)
{
    GdkDisplay *display = gdk_display_get_default();
    if (!display || (held.empty() && !drop))
        return;
    if (drop)
        gdk_display_sync(display);
    std::vector<GdkEvent *> waiting = std::exchange(held, {});
    while (GdkEvent *event = gdk_display_get_event(display))
        waiting.push_back(event);
    for (GdkEvent *event : waiting) {
        if (!drop || !is_new_input(event))
            gdk_display_put_event(display, event);
        gdk_event_free(event);
    }
}

} // namespace

void progress_start(struct app *app)
{
    if (app->progress_pending)
        return;
    app->progress_pending = 1;
    started = last_turn = now_in_microseconds();
    show_source = g_timeout_add(static_cast<guint>(show_delay), progress_show, app);
}

void progress_stop(struct app *app)
{
    if (app->progress_pending)
        release_input(lasts_long(now_in_microseconds()));
    // A timer left over from this operation would disturb the next one.
    stop_timer(show_source);
    stop_timer(pulse_source);
    if (app->progress_window)
        gtk_widget_hide(app->progress_window);
    app->progress_pending = 0;
}

progress_scope::progress_scope(struct app *app) : app_(app->progress_pending ? nullptr : app)
{
    if (app_)
        progress_start(app_);
}

progress_scope::~progress_scope()
{
    if (app_)
        progress_stop(app_);
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
    const gint64 now = now_in_microseconds();
    if (now - last_turn < turn_interval)
        return;
    if (show_source && lasts_long(now)) {
        stop_timer(show_source);
        progress_show(app);
    }
    if (!is_shown(app))
        gdk_event_handler_set(hold_input, nullptr, nullptr);
    while (g_main_context_pending(nullptr) && now_in_microseconds() - now < turn_length)
        g_main_context_iteration(nullptr, FALSE);
    serve_all_events();
    last_turn = now_in_microseconds();
}

void progress_wait(struct app *app, const std::function<void()> &work)
{
    std::atomic<bool> done = false;
    background thread([&] {
        work();
        done = true;
    });
    while (thread.has_begun() && !done) {
        progress_run_main_loop(app);
        g_usleep(1000);
    }
    thread.finish();
}
