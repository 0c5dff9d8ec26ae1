#include "callbacks.h"

#include "app.h"
#include "common/defaults.h"
#include "common/process.h"
#include "dialogs.h"
#include "diskbrowser.h"
#include "display_text.h"
#include "filebrowser.h"
#include "gtk_owned.h"
#include "i18n.h"
#include "progress.h"
#include "template_save.h"
#include "trace_log.h"

namespace {

bool confirmed(struct app *app, const char *question)
{
    return dialog_yes_no(app->window, _("Confirm"), "%s", question) == GTK_RESPONSE_YES;
}

GtkTreeStore *disk_store(const struct app *app)
{
    return GTK_TREE_STORE(gtk_tree_view_get_model(GTK_TREE_VIEW(app->diskbrowser)));
}

// Unmarks every row below, as far as the directories were read.
void clear_files_below(struct app *app, file_store *store, const file_node &above)
{
    progress_run_main_loop(app);
    for (const auto &row : above.children) {
        if (ending())
            return;
        mark_iter(app, store, row.get(), 0);
        if (row->is_dir() && !row->not_loaded)
            clear_files_below(app, store, *row);
    }
}

void clear_file_marks(struct app *app)
{
    file_store *store = filebrowser_store(app);
    // The main loop runs in between; whatever it does, the rows stay.
    const owned_object<file_store> held(static_cast<file_store *>(g_object_ref(store)));
    const progress_scope progress(app);
    clear_files_below(app, store, *file_store_top(store));
}

// Unmarks a row, the siblings after it and everything below them.
void clear_sectors_from(struct app *app, GtkTreeStore *store, GtkTreeIter row)
{
    GtkTreeModel *model = GTK_TREE_MODEL(store);
    do {
        disk_mark_iter(app, store, &row, 0);
        GtkTreeIter child;
        if (gtk_tree_model_iter_children(model, &child, &row))
            clear_sectors_from(app, store, child);
    } while (gtk_tree_model_iter_next(model, &row));
}

void clear_sector_marks(struct app *app)
{
    GtkTreeStore *store = disk_store(app);
    GtkTreeIter first;
    if (gtk_tree_model_get_iter_first(GTK_TREE_MODEL(store), &first))
        clear_sectors_from(app, store, first);
}

// Nothing that the tree does not show is dropped from a template without having been named.
bool may_overwrite(struct app *app, list_kind kind, bool ask)
{
    const char *question = _("Do you really want to overwrite existing template?");
    const std::string list = list_unmarked(template_of(*app, kind).unmarked);
    if (list.empty())
        return !ask || confirmed(app, question);
    const std::string text = question + std::string("\n\n") +
                             _("These entries of the saved template are not marked and will be gone:");
    return dialog_yes_no_list(app->window, _("Confirm"), text.c_str(), "%s", list.c_str()) ==
           GTK_RESPONSE_YES;
}

} // namespace

std::string list_unmarked(const std::list<unmarked_entry> &unmarked)
{
    std::string lines;
    for (const unmarked_entry &entry : unmarked)
        lines += display_text(entry.text) + "\n";
    return lines;
}

bool save_template(struct app *app, list_kind kind, bool ask)
{
    if (!may_overwrite(app, kind, ask))
        return false;
    return kind == list_kind::files ? save_file_template(app, filebrowser_store(app))
                                    : save_sector_template(app, GTK_TREE_MODEL(disk_store(app)));
}

void on_files_save_clicked(GtkWidget *widget, struct app *app)
{
    save_template(app, list_kind::files, widget != nullptr);
}

void on_sectors_save_clicked(GtkWidget *widget, struct app *app)
{
    save_template(app, list_kind::sectors, widget != nullptr);
}

void on_files_clear_clicked(GtkWidget *, struct app *app)
{
    if (!confirmed(app, _("Do you really want to clear files selection?")))
        return;
    clear_file_marks(app);
    files_changed = 1;
}

void on_sectors_clear_clicked(GtkWidget *, struct app *app)
{
    if (!confirmed(app, _("Do you really want to clear sectors selection?")))
        return;
    clear_sector_marks(app);
    sectors_changed = 1;
}

void on_files_default_clicked(GtkWidget *, struct app *app)
{
    if (!confirmed(app, _("Do you really want to set default selection?")))
        return;
    file_store *store = filebrowser_store(app);
    const owned_object<file_store> held(static_cast<file_store *>(g_object_ref(store)));
    const progress_scope progress(app);
    clear_file_marks(app);
    for (const std::string &path : generate_defaults()) {
        if (ending())
            return;
        trace_log("File: %s", path.c_str());
        file_node *row = nullptr;
        // A directory has no mark of its own, and the list does not mean all that happens to lie in it.
        if (find_iter_for_file(app, store, path, &row) == 0 && row->kind == file_kind::file) {
            trace_log("Mark file %s", path.c_str());
            mark_iter(app, store, row, 1);
        }
        progress_run_main_loop(app);
    }
    files_changed = 1;
}

void on_sectors_default_clicked(GtkWidget *, struct app *app)
{
    if (!confirmed(app, _("Do you really want to set default selection?")))
        return;
    clear_sector_marks(app);
    GtkTreeStore *store = disk_store(app);
    GtkTreeModel *model = GTK_TREE_MODEL(store);
    GtkTreeIter top;
    for (gboolean more = gtk_tree_model_get_iter_first(model, &top); more;
         more = gtk_tree_model_iter_next(model, &top)) {
        GtkTreeIter first;
        if (gtk_tree_model_iter_children(model, &first, &top))
            disk_mark_all(app, store, &first);
    }
    sectors_changed = 1;
}
