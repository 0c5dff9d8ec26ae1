#include "tree_support.h"

#include "gtk_support.h"
#include "progress.h"

#include <glade/glade.h>
#include <sys/stat.h>

browsed_partition::browsed_partition(const std::string &fs_type) : replaced(host.path())
{
    struct stat status;
    stat(files.path().c_str(), &status);
    disk &d = app.disks.emplace_back();
    d.name = "sda";
    part &p = d.parts.emplace_back();
    p.device = "sda";
    p.index = 1;
    p.letter = 'C';
    p.fs_name = p.fs_type = fs_type;
    p.mount_point = files.path();
    p.dev = status.st_dev;
    app.mounts.push_back({&d, &p, status.st_dev, files.path(), 'C', 0});
    app.pelva_db_path = (host.path() / "boot").string();
    mount("/dev/sda1 " + files.path().string() + " " + fs_type + " rw 0 0\n");
    store = create_model(&app);
}

browsed_partition::~browsed_partition()
{
    progress_stop(&app);
    filebrowser_release(&app);
    for (GtkWidget *window : {app.window, app.progress_window}) {
        if (window)
            gtk_widget_destroy(window);
    }
    g_object_unref(store);
    if (app.xml)
        g_object_unref(app.xml);
}

void browsed_partition::mount(const std::string &lines)
{
    table_ += lines;
    host.write("proc/mounts", table_);
}

file_node *browsed_partition::row(const std::string &path) const
{
    file_node *at = root();
    for (const std::filesystem::path &name : std::filesystem::path(path))
        at = at ? find_child(*at, name) : nullptr;
    return at;
}

file_node *browsed_partition::loaded(const std::string &path)
{
    file_node *at = root();
    load_iter(&app, store, at);
    for (const std::filesystem::path &name : std::filesystem::path(path)) {
        at = at ? find_child(*at, name) : nullptr;
        if (at)
            load_iter(&app, store, at);
    }
    return at;
}

void browsed_partition::show()
{
    app.xml = glade_xml_new(DATA_DIR "/gtk-tarnel.glade", nullptr, nullptr);
    app.window = glade_xml_get_widget(app.xml, "window");
    app.progress_window = glade_xml_get_widget(app.xml, "progress_window");
    app.progressbar = glade_xml_get_widget(app.xml, "progressbar");
    if (!filebrowser_init(&app))
        std::abort();
    g_object_unref(store);
    store = static_cast<file_store *>(g_object_ref(filebrowser_store(&app)));
    gtk_widget_show(app.window);
    settle();
}

std::string outline(const file_node &row)
{
    std::string text;
    for (const auto &child : row.children) {
        text += (text.empty() ? "" : " ") + child->name;
        if (!child->children.empty())
            text += "[" + outline(*child) + "]";
    }
    return text;
}
