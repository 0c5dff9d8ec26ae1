// For tests of saving and of the commands: trees whose rows are made by hand.
#pragma once

#include "diskbrowser.h"
#include "tree_support.h"

#include <array>
#include <memory>
#include <string>
#include <utility>

// A partition without files on disk; the firmware knows its template directory as /boot/pelva.
struct marked_partition : browsed_partition {
    explicit marked_partition(const std::string &fs_type = "ext4") : browsed_partition(fs_type)
    {
        take_over_root();
        std::filesystem::create_directory(app.pelva_db_path);
        app.pelva_db_mt = &app.mounts.front();
        app.short_path = "/boot/pelva";
        app.separator = '/';
    }

    void take_over_root()
    {
        file_store_remove(store, root()->children.front().get());
        root()->not_loaded = false;
    }

    // Files are marked.
    file_node *add(file_node *parent, const std::string &name, file_kind kind = file_kind::file)
    {
        auto row = std::make_unique<file_node>();
        row->name = name;
        row->kind = kind;
        row->mount = &app.mounts.front();
        file_node *added = file_store_append(store, parent, std::move(row));
        mark_iter(&app, store, added, kind == file_kind::file);
        return added;
    }
};

// Two disks, each with its master boot record and, in a group, a sector with a number of four bytes.
struct sector_tree {
    sector_tree()
    {
        for (disk &disk : disks) {
            disk.drive_number = &disk == disks.data() ? 0x80 : 0x81;
            GtkTreeIter top = add(nullptr, disk, true, 0);
            add(&top, disk, false, 0);
            GtkTreeIter extended = add(&top, disk, true, 7);
            add(&extended, disk, false, 0xFE030201);
        }
    }
    ~sector_tree() { g_object_unref(store); }
    sector_tree(const sector_tree &) = delete;
    sector_tree &operator=(const sector_tree &) = delete;

    GtkTreeIter add(GtkTreeIter *parent, disk &disk, bool group, guint sector) const
    {
        GtkTreeIter row;
        gtk_tree_store_insert_with_values(store, &row, parent, -1, disk_column_name, "row",
                                          disk_column_is_group, group, disk_column_disk, &disk,
                                          disk_column_sector, sector, -1);
        return row;
    }

    std::array<disk, 2> disks;
    GtkTreeStore *store = disk_create_model();
};
