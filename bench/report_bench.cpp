// How long the report of 10,000 marked files takes to open and to save.
// Run with a display: xvfb-run build/release/bench/report_bench
#include "app.h"
#include "diskbrowser.h"
#include "file_store.h"
#include "report.h"

#include <cstdio>
#include <filesystem>
#include <glade/glade.h>

namespace fs = std::filesystem;

namespace {

constexpr int file_count = 10000;

double now()
{
    return static_cast<double>(g_get_monotonic_time()) / 1e6;
}

void settle()
{
    while (gtk_events_pending())
        gtk_main_iteration();
}

file_node *append(file_store *store, file_node *parent, file_kind kind, const char *name, mount_entry *mount)
{
    auto row = std::make_unique<file_node>();
    row->kind = kind;
    row->name = name;
    row->mount = mount;
    row->size = kind == file_kind::file ? 4096 : 0;
    row->marked = true;
    return file_store_append(store, parent, std::move(row));
}

// One partition with all files in one directory, every one of them marked.
void fill(struct app &app)
{
    disk &d = app.disks.emplace_back();
    part &p = d.parts.emplace_back();
    d.name = p.device = "sda";
    p.index = 1;
    p.fs_name = p.fs_type = "ext4";
    app.mounts.push_back({.disk = &d, .partition = &p, .mountpoint = "/", .letter = 'C'});
    file_store *store = file_store_new({});
    file_node *root = append(store, file_store_top(store), file_kind::root, "/dev/sda1", &app.mounts.back());
    for (int i = 0; i < file_count; i++) {
        const std::string name = "file with a name of usual length " + std::to_string(i) + ".conf";
        append(store, root, file_kind::file, name.c_str(), &app.mounts.back());
    }
    gtk_tree_view_set_model(GTK_TREE_VIEW(app.filebrowser), GTK_TREE_MODEL(store));
    app.total_files_selected = file_count;
}

// Gives the file chooser its name and accepts it, as soon as it is there; then notes the time.
struct chooser_user {
    std::string path;
    bool named = false;
    double accepted = 0;
};

gboolean use_chooser(gpointer data)
{
    auto *user = static_cast<chooser_user *>(data);
    GList *windows = gtk_window_list_toplevels();
    for (GList *at = windows; at; at = at->next) {
        if (!GTK_IS_FILE_CHOOSER(at->data))
            continue;
        if (user->named) {
            user->accepted = now();
            gtk_dialog_response(GTK_DIALOG(at->data), GTK_RESPONSE_ACCEPT);
        } else {
            const fs::path path = user->path;
            gtk_file_chooser_set_current_folder(GTK_FILE_CHOOSER(at->data), path.parent_path().c_str());
            gtk_file_chooser_set_current_name(GTK_FILE_CHOOSER(at->data), path.filename().c_str());
            user->named = true;
        }
    }
    g_list_free(windows);
    return user->accepted == 0;
}

} // namespace

int main(int count, char **arguments)
{
    gtk_init(&count, &arguments);
    static struct app app;
    app.xml = glade_xml_new(TARNEL_GLADE_FILE, nullptr, nullptr);
    app.window = glade_xml_get_widget(app.xml, "window");
    app.filebrowser = glade_xml_get_widget(app.xml, "filebrowser");
    fill(app);
    if (!diskbrowser_init(&app) || !report_init(&app))
        return 1;

    double begin = now();
    report_show(&app);
    settle();
    std::printf("opening the report of %d files  %.3f s\n", file_count, now() - begin);

    chooser_user user{.path = fs::temp_directory_path() / "report_bench.rtf"};
    g_timeout_add(500, use_chooser, &user);
    report_save_clicked(nullptr, &app);
    std::printf("saving it                         %.3f s, %ju bytes\n", now() - user.accepted,
                static_cast<std::uintmax_t>(fs::file_size(user.path)));
    fs::remove(user.path);
    return 0;
}
