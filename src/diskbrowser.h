// The sector browser: a tree of all disks with the sectors that the board can check on each, built once at
// start; their marks with the totals; and the marks that the saved template brings back. Except for
// diskbrowser_init and the signal handler everything works without a display, with null widgets in `app`.
#pragma once

#include "common/file_format.h"

#include <cstdint>
#include <gtk/gtk.h>
#include <memory>
#include <span>

struct app;

enum disk_column {
    disk_column_icon,     // GdkPixbuf
    disk_column_name,     // string
    disk_column_is_group, // boolean: disk, extended partition or logical drive, no sector itself
    disk_column_disk,     // pointer to the disk record, not owned
    disk_column_part,     // pointer to the partition record, not owned; null on the rows of the disk itself
    disk_column_sector,   // unsigned 32-bit LBA on the disk; sector rows only
    disk_column_marked,   // boolean
    disk_column_marked_sectors, // int: marked sector rows below a group
    disk_column_count
};

// Builds the browser in the loaded window description and pre-marks it. False when a widget is missing.
[[nodiscard]] bool diskbrowser_init(struct app *app);

// At shutdown; there is nothing to release.
void diskbrowser_release(struct app *app);

// An empty store; the caller owns the reference.
[[nodiscard]] GtkTreeStore *disk_create_model();
void disk_add_column(GtkTreeView *view);

// --- Rows and the saved template ---

// Adds the rows of every disk, marks what the saved template lists and collects in `sector_template` the
// records that mark no row, and whether there is a template that cannot be read. Always 1.
int fill_tree(struct app *app, GtkTreeStore *store);

// The records of the saved sector template; null, with a count of 0, when it cannot be read.
[[nodiscard]] std::unique_ptr<sector_record[]> load_template(const struct app *app, std::uint32_t &count);

// Index of the first record of this drive (its low byte counts) and sector, -1 when there is none.
[[nodiscard]] std::int64_t find_sector_record(std::span<const sector_record> records,
                                              std::uint32_t drive_number, std::uint32_t sector);

// --- Marks and totals ---

// Sets the mark of one row to 0 or 1. A sector row also brings the counts, marks and images of the rows above
// it, the totals in `app` and their labels up to date. Always 1.
int disk_mark_iter(struct app *app, GtkTreeStore *store, GtkTreeIter *iter, int value);

// Flips a sector row; clears a group with marks below it, and marks every sector of one without.
void disk_toggle_iter(struct app *app, GtkTreeStore *store, GtkTreeIter *iter);

// Sets every sector row below a group.
void disk_mark_recursive(struct app *app, GtkTreeStore *store, GtkTreeIter *group, int value);

// Marks the row, the siblings after it and everything below them.
void disk_mark_all(struct app *app, GtkTreeStore *store, const GtkTreeIter *first);

// Right button: flips the row under the pointer.
gboolean on_diskbrowser_button_press(GtkWidget *view, GdkEventButton *event, struct app *app);
