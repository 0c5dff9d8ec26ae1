// For tests of the file tree: a partition as start-up would have prepared it.
#pragma once

#include "common/filesystem.h"
#include "filebrowser.h"
#include "gtk_owned.h"
#include "support.h"

#include <string>

// Its root is a scratch directory, which the replaced /proc/mounts lists as /dev/sda1; drive letter C.
struct browsed_partition : not_copied {
    explicit browsed_partition(const std::string &fs_type = "ext4");
    ~browsed_partition();

    file_node *root() const { return file_store_top(store)->children.front().get(); }
    file_node *row(const std::string &path) const; // null when no such row is loaded
    file_node *loaded(const std::string &path);    // the same after reading all directories on the path
    void show();                                   // builds the page and shows the window

    scratch_directory files, host;
    replaced_host replaced;
    struct app app;
    file_store *store = nullptr;
};

// Names of the children, each followed by its own in brackets when it has some.
std::string outline(const file_node &row);

owned_path path_of(file_store *store, file_node *row);

file_node *append_row(file_store *store, file_node *parent, file_kind kind, const std::string &name,
                      mount_entry *mount = nullptr);

// Sends the press and release of a mouse button on a row, after scrolling to it, or below the rows (null).
void press(browsed_partition &partition, file_node *row, guint button, guint state, GdkEventType type);

// While it lives, a warning of GTK or GLib ends the test program.
struct fatal_warnings {
    fatal_warnings();
    ~fatal_warnings() { g_log_set_always_fatal(before); }
    GLogLevelFlags before;
};

#define NEED_FILE_SYSTEM(partition)                            \
    if (check_fs_type((partition).files.path().string()) == 0) \
    GTEST_SKIP() << "the temporary directory is not on ext, FAT or NTFS"
