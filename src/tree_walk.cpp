#include "tree_walk.h"

#include "common/owned.h"
#include "common/process.h"
#include "diskbrowser.h"

#include <cstring>
#include <string_view>

namespace {

// Appends a level to the path. False when it does not fit.
bool push_name(struct app *app, char separator, std::string_view name)
{
    const auto used = static_cast<std::size_t>(app->path_end - app->path_buf);
    if (name.size() + used + 2 > path_buf_size)
        return false;
    *app->path_end++ = separator;
    app->path_end += name.copy(app->path_end, name.size());
    *app->path_end = '\0';
    return true;
}

void pop_to(struct app *app, char *end)
{
    app->path_end = end;
    *end = '\0';
}

} // namespace

void begin_path(struct app *app, const std::string &text)
{
    const std::size_t length = text.copy(app->path_buf, path_buf_size - 1);
    pop_to(app, app->path_buf + length);
}

void walk_file_rows(struct app *app, file_store *store, const file_node &above, const file_visitor &visit,
                    char separator)
{
    for (const auto &row : above.children) {
        if (ending())
            return;
        if (row->not_loaded)
            continue;
        char *const end = app->path_end;
        if (!push_name(app, separator, row->name))
            return;
        if (row->is_dir())
            walk_file_rows(app, store, *row, visit, separator);
        else if (row->marked)
            visit(app, store, row.get());
        pop_to(app, end);
    }
}

void walk_sector_rows(struct app *app, GtkTreeModel *model, const GtkTreeIter *first,
                      const sector_visitor &visit)
{
    GtkTreeIter row = *first;
    do {
        gchar *name = nullptr;
        gboolean is_group = FALSE, marked = FALSE;
        guint sector = 0;
        disk *disk = nullptr;
        gtk_tree_model_get(model, &row, disk_column_name, &name, disk_column_is_group, &is_group,
                           disk_column_marked, &marked, disk_column_sector, &sector, disk_column_disk, &disk,
                           -1);
        const owned_gchar owned_name(name);
        char *const end = app->path_end;
        if (!push_name(app, '/', name))
            return;
        GtkTreeIter child;
        if (!is_group && marked)
            visit(app, sector, disk, &row);
        else if (is_group && gtk_tree_model_iter_children(model, &child, &row))
            walk_sector_rows(app, model, &child, visit);
        pop_to(app, end);
    } while (gtk_tree_model_iter_next(model, &row));
}
