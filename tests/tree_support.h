// For tests of the file tree: a partition as start-up would have prepared it.
#pragma once

#include "filebrowser.h"
#include "support.h"

#include "common/filesystem.h"

#include <string>
#include <vector>

// Its root is a scratch directory, which the replaced /proc/mounts lists as /dev/sda1; drive letter C.
struct browsed_partition {
    explicit browsed_partition(const std::string &fs_type = "ext4");
    ~browsed_partition();
    browsed_partition(const browsed_partition &) = delete;
    browsed_partition &operator=(const browsed_partition &) = delete;

    file_node *root() const { return file_store_top(store)->children.front().get(); }
    // The row at a relative path, through loaded rows only; null when there is none.
    file_node *row(const std::string &path) const;
    file_node *loaded(const std::string &path); // the same, and loaded
    // Adds lines to the replaced /proc/mounts.
    void mount(const std::string &lines);
    // Loads the window description, shows the window and builds the page; what follows needs a display.
    void show();

    scratch_directory files, host;
    replaced_host replaced;
    struct app app;
    file_store *store = nullptr;

private:
    std::string table_;
};

// Names of the children, each followed by its own in brackets when it has some.
std::string outline(const file_node &row);

#define NEED_FILE_SYSTEM(partition)                            \
    if (check_fs_type((partition).files.path().string()) == 0) \
    GTEST_SKIP() << "the temporary directory is not on ext, FAT or NTFS"
