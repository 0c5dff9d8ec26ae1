// One job of the windows, as a process of its own:
//   bench_windows ROOT mark|premark|report DIRECTORY
//       works on a partition mounted at the directory; prints the marked files, the milliseconds of processor
//       time that the work took, and the bytes of memory per row
//   bench_windows ROOT start
//       comes up as the program does, until its window is shown
//   bench_windows ROOT empty
//       shows an empty window
#include "app.h"
#include "common/host.h"
#include "common/misc.h"
#include "diskbrowser.h"
#include "filebrowser.h"
#include "main_window.h"
#include "report.h"
#include "window_description.h"

#include <cstdio>
#include <cstdlib>
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

void describe_partition(const std::string &directory)
{
    struct stat status = {};
    stat(directory.c_str(), &status);
    disk &d = the_app.disks.emplace_back();
    part &p = d.parts.emplace_back();
    d.name = p.device = "sda";
    p.index = 1;
    p.letter = 'C';
    p.fs_type = "ext4";
    p.mount_point = directory;
    the_app.mounts.push_back({&d, &p, status.st_dev, directory, 'C', 0});
    the_app.pelva_db_path = directory;
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

void work(const std::string &job)
{
    double begin = milliseconds();
    std::size_t memory = mallinfo2().uordblks, rows = 1;
    if (job == "premark") {
        file_store *store = create_model(&the_app);
        if (fill_model(&the_app, store) != 0)
            std::exit(1);
    } else {
        show_window();
        begin = milliseconds();
        memory = mallinfo2().uordblks;
        mark_everything();
        memory = mallinfo2().uordblks - memory;
        rows = count_rows(*file_store_top(filebrowser_store(&the_app)));
    }
    if (job == "report") {
        begin = milliseconds();
        report_show(&the_app);
        settle();
    }
    std::printf("%u %.3f %zu\n", the_app.total_files_selected, milliseconds() - begin, memory / rows);
}

// Starts the shells of the program's commands, but clears nothing up on the computer that measures.
int run_harmless(const std::string &command)
{
    return std::system((command.starts_with("lsblk") ? command : "/bin/false " + command).c_str()); // NOLINT
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

void start()
{
    if (app_init_gui(&the_app) != 0)
        std::exit(1);
    show_until_mapped(the_app.window);
    rmdir(the_app.tmpdir.c_str());
    std::printf("%u\n", the_app.total_files_selected);
}

} // namespace

int main(int count, char **arguments)
{
    if (count < 3)
        return 2;
    set_host_root(arguments[1]);
    const std::string job = arguments[2];
    if (count == 4)
        describe_partition(arguments[3]);
    set_command_runner(run_harmless);
    if (job == "start" && app_init(&the_app) != 0)
        return 1;
    gtk_init(nullptr, nullptr);
    if (count == 4)
        work(job);
    else if (job == "start")
        start();
    else
        show_until_mapped(gtk_window_new(GTK_WINDOW_TOPLEVEL));
    std::fflush(stdout);
    _exit(0); // what a program frees when it ends is not measured
}
