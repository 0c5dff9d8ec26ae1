// One job of the windows, as a process of its own:
//   bench_windows ROOT mark|premark|save|report DIRECTORY [FILE-SYSTEM]
//       works on a partition mounted at the directory; prints the marked files, the milliseconds of processor
//       time that the work took, the bytes of memory per row, and the longest time in milliseconds that the
//       main loop was kept from its turn; templates are those in ROOT
//   bench_windows ROOT start
//       comes up as the program does, until its window is shown
//   bench_windows ROOT empty
//       shows an empty window
//   bench_windows ROOT question FILE
//       asks a question with the file as its list, until it is shown
#include "app.h"
#include "common/filesystem.h"
#include "common/host.h"
#include "common/misc.h"
#include "dialogs.h"
#include "diskbrowser.h"
#include "filebrowser.h"
#include "main_window.h"
#include "report.h"
#include "template_save.h"
#include "window_description.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

struct app the_app;

double milliseconds()
{
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    const auto of = [](const timeval &t) {
        return static_cast<double>(t.tv_sec) * 1e3 + static_cast<double>(t.tv_usec) / 1e3;
    };
    return of(usage.ru_utime) + of(usage.ru_stime);
}

void settle()
{
    while (gtk_events_pending())
        gtk_main_iteration();
}

// The longest time between two turns of the main loop.
class longest_gap {
public:
    longest_gap()
    {
        since = now();
        longest = 0;
        g_main_context_set_poll_func(nullptr, poll);
    }
    ~longest_gap() { g_main_context_set_poll_func(nullptr, g_poll); }

    double milliseconds() const { return static_cast<double>(std::max(longest, now() - since)) / 1e3; }

private:
    static gint64 now() { return g_get_monotonic_time(); }
    static gint poll(GPollFD *files, guint count, gint timeout)
    {
        longest = std::max(longest, now() - since);
        const gint ready = g_poll(files, count, timeout);
        since = now();
        return ready;
    }

    static inline gint64 since = 0, longest = 0; // microseconds
};

void describe_partition(const std::string &directory, const char *file_system, const char *templates)
{
    struct stat status = {};
    stat(directory.c_str(), &status);
    disk &d = the_app.disks.emplace_back();
    part &p = d.parts.emplace_back();
    d.name = p.device = "sda";
    p.index = 1;
    p.letter = 'C';
    p.fs_type = file_system;
    p.mount_point = directory;
    the_app.mounts.push_back({&d, &p, status.st_dev, directory, 'C', 0});
    the_app.pelva_db_path = templates;
    the_app.pelva_db_mt = &the_app.mounts.back();
    the_app.separator = file_system_of(p).separator;
}

void show_window()
{
    the_app.xml = load_window_description(host_path(window_description_file));
    the_app.window = described_widget(the_app.xml, "window");
    the_app.progress_window = described_widget(the_app.xml, "progress_window");
    the_app.progressbar = described_widget(the_app.xml, "progressbar");
    if (!filebrowser_init(&the_app) || !diskbrowser_init(&the_app) || !report_init(&the_app))
        std::exit(1);
    gtk_widget_show(the_app.window);
    settle();
}

std::size_t count_rows(const file_node &row)
{
    std::size_t count = 0;
    for (const auto &child : row.children)
        count += 1 + count_rows(*child);
    return count;
}

void unfold(file_store *store, file_node *row)
{
    GtkTreeIter iter = file_store_iter(store, row);
    GtkTreePath *path = gtk_tree_model_get_path(GTK_TREE_MODEL(store), &iter);
    gtk_tree_view_expand_row(GTK_TREE_VIEW(the_app.filebrowser), path, FALSE);
    gtk_tree_path_free(path);
}

// Unfolds the partition, and a directory that is all it holds, and marks everything, as the user would.
void mark_everything()
{
    file_store *store = filebrowser_store(&the_app);
    file_node *root = file_store_top(store)->children.front().get();
    unfold(store, root);
    if (root->children.size() == 1)
        unfold(store, root->children.front().get());
    toggle_iter(&the_app, store, root);
    settle();
}

void do_job(const std::string &job)
{
    file_store *store = nullptr;
    std::size_t memory = 0;
    if (job == "premark") {
        store = create_model(&the_app);
    } else {
        for (const char *name : {"/bootfile.nam", "/bootfile.chk"})
            remove((the_app.pelva_db_path + name).c_str());
        show_window();
        store = filebrowser_store(&the_app);
        memory = mallinfo2().uordblks;
        if (job != "mark")
            mark_everything();
    }
    files_changed = job == "save"; // until it is done
    const double begin = milliseconds();
    const longest_gap gap;
    if (job == "premark" && fill_model(&the_app, store) != 0)
        std::exit(1);
    if (job == "mark")
        mark_everything();
    if (job == "save")
        save_file_template(&the_app, store);
    if (job == "report")
        report_show(&the_app);
    settle();
    const double time = milliseconds() - begin;
    memory = mallinfo2().uordblks - memory;
    std::printf("%u %.3f %zu %.1f\n", files_changed ? 0 : the_app.total_files_selected, time,
                memory / count_rows(*file_store_top(store)), gap.milliseconds());
}

// The program's commands run as they are, but of the programs in them the machine's own directory has only
// those that change nothing on the computer that measures.
void find_programs_in(const std::string &root)
{
    setenv("PATH", (root + "/bin").c_str(), 1);
}

gboolean on_shown(GtkWidget *, GdkEvent *, gpointer)
{
    settle();
    gtk_main_quit();
    return FALSE;
}

void show_until_mapped(GtkWidget *window)
{
    g_signal_connect(window, "map-event", G_CALLBACK(on_shown), nullptr);
    gtk_widget_show(window);
    gtk_main();
}

// As the program does.
void start()
{
    the_app.asked_board = ask_board();
    const auto connect_display = [] {
        gtk_init(nullptr, nullptr);
        pango_cairo_font_map_get_default();
    };
    if (app_init(&the_app, {.early = connect_display, .meanwhile = [] { prepare_gui(&the_app); }}) != 0 ||
        app_init_gui(&the_app) != 0)
        std::exit(1);
    show_until_mapped(the_app.window);
    std::printf("%u %s\n", the_app.total_files_selected, the_app.tmpdir.c_str());
}

gboolean leave_question(gpointer dialog)
{
    gtk_dialog_response(GTK_DIALOG(dialog), GTK_RESPONSE_NO);
    return FALSE;
}

// Behind the drawing, but before the lines that nobody sees yet are laid out.
gboolean on_question_mapped(GSignalInvocationHint *, guint, const GValue *values, gpointer)
{
    gdk_display_sync(gdk_display_get_default());
    g_idle_add_full(GDK_PRIORITY_REDRAW + 1, leave_question, g_value_get_object(values), nullptr);
    return FALSE;
}

void show_question(const char *file)
{
    gchar *text = nullptr;
    if (!g_file_get_contents(file, &text, nullptr, nullptr))
        std::exit(1);
    g_type_class_ref(GTK_TYPE_DIALOG); // which makes the signal known
    g_signal_add_emission_hook(g_signal_lookup("map-event", GTK_TYPE_DIALOG), 0, on_question_mapped, nullptr,
                               nullptr);
    static_cast<void>(dialog_yes_no_list(nullptr, "Confirm", "Delete these files?", "%s", text));
    std::printf("%ld\n", static_cast<long>(std::count(text, text + std::strlen(text), '\n')));
}

} // namespace

int main(int count, char **arguments)
{
    if (count < 3)
        return 2;
    set_host_root(arguments[1]);
    gtk_set_locale();
    gtk_disable_setlocale();
    const std::string job = arguments[2];
    find_programs_in(arguments[1]);
    if (job != "start")
        gtk_init(nullptr, nullptr);
    if (job == "start") {
        start();
    } else if (job == "question") {
        show_question(arguments[3]);
    } else if (count >= 4) {
        describe_partition(arguments[3], count > 4 ? arguments[4] : "ext4", arguments[1]);
        do_job(job);
    } else {
        show_until_mapped(gtk_window_new(GTK_WINDOW_TOPLEVEL));
    }
    std::fflush(stdout);
    _exit(0); // what a program frees when it ends is not measured
}
