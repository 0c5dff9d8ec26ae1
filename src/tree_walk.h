// Walks over the marked rows of the two trees, for saving and for the report. While a walk visits a row,
// `path_buf` in `app` holds its path, which begins with what the caller put there (`path_end` behind it) and
// goes on with a separator and a name for every level. A path that would not fit into the buffer ends the
// walk of its level; the levels above go on.
#pragma once

#include "app.h"
#include "file_store.h"

#include <functional>

// Begins a path with a text such as "C:" or "sda1:".
void begin_path(struct app *app, const std::string &text);

// Visits the marked files below a row that were read from disk, in the order of the tree. Directories are
// walked whether they are marked or not. The visitor may change marks.
using file_visitor = std::function<void(struct app *app, file_store *store, file_node *row)>;
void walk_file_rows(struct app *app, file_store *store, const file_node &above, const file_visitor &visit,
                    char separator);

// Visits the marked sectors among the row `first`, the siblings after it and all rows below them.
using sector_visitor =
    std::function<void(struct app *app, std::uint32_t sector, disk *disk, GtkTreeIter *row)>;
void walk_sector_rows(struct app *app, GtkTreeModel *model, const GtkTreeIter *first,
                      const sector_visitor &visit);
