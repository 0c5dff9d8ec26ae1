// Entry only: the order in which the program comes up, and its exit statuses.
#include "app.h"
#include "common/host.h"
#include "common/lock_file.h"
#include "common/misc.h"
#include "common/owned.h"
#include "common/process.h"
#include "i18n.h"
#include "main_window.h"
#include "termination.h"
#include "trace_log.h"

#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <gtk/gtk.h>
#include <sys/file.h>
#include <unistd.h>

namespace {

constexpr const char *lock_file = "/var/lock/gtk-tarnel";
constexpr const char *window_icon = "/usr/share/gtk-tarnel/gtk-tarnel.png";

struct app the_app;

void on_exit_cleanup()
{
    app_cleanup(&the_app);
    static_cast<void>(run_command("/bin/rm -f /var/log/gtk-tarnel"));
}

void bind_texts()
{
    bindtextdomain(TEXT_DOMAIN, "/usr/share/locale/");
    bind_textdomain_codeset(TEXT_DOMAIN, "UTF-8");
    gtk_set_locale();
    gtk_disable_setlocale(); // GTK comes up while others use the locale
    textdomain(TEXT_DOMAIN);
}

// Before the disks are read: GTK changes the variables of the process, which the commands for the disks
// inherit, and the answers of the display would wait behind them. Without a display nothing is said yet: the
// disks' troubles come first.
void connect_display(int &argc, char **&argv)
{
    if (gtk_init_check(&argc, &argv))
        pango_cairo_font_map_get_default(); // the fonts' configuration is read in a thread of its own
}

void prepare_windows()
{
    if (!gdk_display_get_default())
        return;
    gtk_window_set_default_icon_from_file(window_icon, nullptr);
    prepare_gui(&the_app);
}

} // namespace

int main(int argc, char **argv)
{
    settle_process();
    bind_texts();
    if (geteuid() != 0) {
        std::fprintf(stderr, "%s\n", _("Only root can run this program"));
        return EXIT_FAILURE;
    }
    owned_fd lock = open_lock_file(lock_file);
    if (!lock) {
        std::fprintf(stderr, _("Cannot open the lock file %s: %s\n"), lock_file, std::strerror(errno));
        return EXIT_FAILURE;
    }
    if (flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
        lock.reset();
        std::fprintf(stderr, "%s\n", _("Application gtk-tarnel is already running"));
        return EXIT_SUCCESS;
    }
    const char *trace = std::getenv("TRACE_PELVA");
    trace_enabled = trace && std::strcmp(trace, "1") == 0;
    trace_log("Tracing and message logging enabled.");

    end_on_signals();
    the_app.asked_board = ask_board();
    // A signal leaves the initialisation unfinished, but nothing mounted.
    const auto connect = [&] { connect_display(argc, argv); };
    const bool failed = app_init(&the_app, {.early = connect, .meanwhile = prepare_windows}) != 0;
    if (failed && !ending())
        return EXIT_FAILURE;
    std::atexit(on_exit_cleanup);
    if (ending())
        return ending_status();

    gtk_init(&argc, &argv); // says so when there is no display
    if (app_init_gui(&the_app) != 0)
        return EXIT_FAILURE;
    warn_missing_board(&the_app);
    if (!ending()) {
        gtk_widget_show(the_app.window);
        gtk_main();
    }
    lock.reset();
    return ending() ? ending_status() : EXIT_SUCCESS;
}
