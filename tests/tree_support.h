// For tests of the file tree: a partition as start-up would have prepared it.
#pragma once

#include "common/filesystem.h"
#include "filebrowser.h"
#include "filebrowser_names.h"
#include "gtk_support.h"
#include "progress.h"
#include "start_questions.h"

#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/syscall.h>

// Whatever the tests run on, it is a file system that the tool knows.
extern "C" [[gnu::used]] inline int statfs64(const char *path, struct statfs64 *status) noexcept
{
    const auto result = static_cast<int>(syscall(SYS_statfs, path, status));
    status->f_type = 0xEF53;
    return result;
}

inline owned_path path_of(file_store *store, file_node *row)
{
    GtkTreeIter iter = file_store_iter(store, row);
    return owned_path(gtk_tree_model_get_path(GTK_TREE_MODEL(store), &iter));
}

inline file_node *append_row(file_store *store, file_node *parent, file_kind kind, const std::string &name,
                             mount_entry *mount = nullptr)
{
    auto row = std::make_unique<file_node>();
    row->name = name;
    row->kind = kind;
    row->mount = mount;
    return file_store_append(store, parent, std::move(row));
}

// Its root is a scratch directory, which the replaced /proc/mounts lists as /dev/sda1; drive letter C.
struct browsed_partition {
    explicit browsed_partition(const std::string &fs_type = "ext4") : replaced(host.path())
    {
        struct stat status;
        stat(files.path().c_str(), &status);
        disk &d = app.disks.emplace_back();
        d.name = "sda";
        part &p = d.parts.emplace_back();
        p.device = "sda";
        p.index = 1;
        p.letter = 'C';
        p.fs_type = fs_type;
        p.mount_point = files.path();
        app.mounts.push_back({&d, &p, status.st_dev, files.path(), 'C', 0});
        app.pelva_db_path = (host.path() / "boot").string();
        app.pelva_db_mt = &app.mounts.front();
        app.short_path = app.pelva_db_path;
        app.separator = '/';
        host.write("proc/mounts", "/dev/sda1 " + files.path().string() + " " + fs_type + " rw 0 0\n");
        store = create_model(&app);
    }
    ~browsed_partition()
    {
        progress_stop(&app);
        filebrowser_release(&app);
        if (app.window) {
            gtk_widget_destroy(app.window);
            gtk_widget_destroy(app.progress_window);
            release_window_description(app.xml);
        }
        g_object_unref(store);
    }

    file_node *root() const { return file_store_top(store)->children.front().get(); }

    // Null when no such row is loaded.
    file_node *row(const std::string &path) const
    {
        file_node *at = root();
        for (const std::filesystem::path &name : std::filesystem::path(path))
            at = at ? find_child(*at, name) : nullptr;
        return at;
    }

    // The same after reading all directories on the path.
    file_node *loaded(const std::string &path)
    {
        load_iter(&app, store, root());
        for (std::size_t end = 0; end < path.size();) {
            end = std::min(path.find('/', end + 1), path.size());
            load_iter(&app, store, row(path.substr(0, end)));
        }
        return row(path);
    }

    // Makes the device a FAT volume with the files that are there now.
    void make_volume() const
    {
        const std::string image = host.write("dev/sda1", "");
        run_tool("cd " + files.path().string() + "; truncate -s 64M " + image + "; mkfs.fat -F 32 " + image +
                 " && LC_ALL=C.UTF-8 mcopy -si " + image + " * ::/");
    }

    // Builds the page and shows the window. From then on a warning of GTK or GLib ends the test program.
    void show()
    {
        gtk_init(nullptr, nullptr);
        constexpr int fatal = G_LOG_LEVEL_WARNING | G_LOG_LEVEL_CRITICAL | G_LOG_FATAL_MASK;
        g_log_set_always_fatal(static_cast<GLogLevelFlags>(fatal)); // NOLINT: several flags in one
        app.xml = load_window_description(description_file());
        app.window = described_widget(app.xml, "window");
        app.progress_window = described_widget(app.xml, "progress_window");
        app.progressbar = described_widget(app.xml, "progressbar");
        if (!filebrowser_init(&app))
            std::abort();
        ask_start_questions(&app);
        g_object_unref(store);
        store = static_cast<file_store *>(g_object_ref(filebrowser_store(&app)));
        gtk_widget_show(app.window);
        settle();
    }

    GtkTreeView *view() const { return GTK_TREE_VIEW(app.filebrowser); }

    // Sends the press and release of a mouse button on a row, after scrolling to it, or below the rows
    // (null).
    void press(file_node *row, guint button, guint state = 0, GdkEventType type = GDK_BUTTON_PRESS) const
    {
        GdkRectangle area = {0, GTK_WIDGET(view())->allocation.height - 60, 0, 0};
        if (row) {
            const owned_path path = path_of(store, row);
            gtk_tree_view_scroll_to_cell(view(), path.get(), nullptr, TRUE, 0.5, 0);
            settle();
            gtk_tree_view_get_cell_area(view(), path.get(), gtk_tree_view_get_column(view(), 0), &area);
        }
        GdkEvent *event = gdk_event_new(type);
        event->button.window = GDK_WINDOW(g_object_ref(gtk_tree_view_get_bin_window(view())));
        event->button.x = area.x + 2.9;
        event->button.y = area.y + 2.9;
        event->button.button = button;
        event->button.state = state;
        gdk_event_put(event);
        event->type = GDK_BUTTON_RELEASE;
        gdk_event_put(event);
        gdk_event_free(event);
    }

    scratch_directory files, host;
    replaced_host replaced;
    struct app app;
    file_store *store = nullptr;
};
