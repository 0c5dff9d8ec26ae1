// Saving the marks of the two trees as templates. The pair in use is replaced only by a complete new one
// (common/template_pair.h). When anything fails it stays, the change flag stays set, and once the first
// header was begun the user is told in a dialog. The page itself says why a template was not saved, and which
// marked files are not in it (notice_bar.h).
#pragma once

#include "app.h"
#include "file_store.h"

// Begin a pair with room for the marked files or sectors; `fsnon` and `fsncv` are open then. False,
// traced, when the files cannot be created, the headers not written, or the name path is too long (which
// the user is told).
[[nodiscard]] bool file_save_init(struct app *app);
[[nodiscard]] bool sector_save_init(struct app *app);

// Write one record for the row that a tree walk visits. A file that the firmware could not name is left out.
void save_file(struct app *app, file_store *store, file_node *row);
void save_sector(struct app *app, std::uint32_t sector, disk *disk, GtkTreeIter *row);

// Completes the pair that was begun and puts it in place. False when the pair in use is still the old one.
[[nodiscard]] bool save_done(struct app *app);

// The whole of one save, and whether it succeeded: then the change flag is clear, and the saved template is
// what the tree shows.
bool save_file_template(struct app *app, file_store *store);
bool save_sector_template(struct app *app, GtkTreeModel *disks);

// Lets the page say which files an interrupted save has left that could not be put right, if there are any.
void tell_interrupted_save(struct app *app, list_kind kind);
