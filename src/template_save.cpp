#include "template_save.h"

#include "common/board_path.h"
#include "common/bytes.h"
#include "common/filesystem.h"
#include "common/process.h"
#include "common/template_pair.h"
#include "dialogs.h"
#include "display_text.h"
#include "filebrowser.h"
#include "gtk_owned.h"
#include "i18n.h"
#include "notice_bar.h"
#include "progress.h"
#include "trace_log.h"
#include "tree_walk.h"

#include <algorithm>
#include <array>
#include <list>
#include <optional>
#include <vector>

// A save that is going on.
struct template_save {
    explicit template_save(struct app *app) : names([app](const auto &work) { progress_wait(app, work); }) {}

    std::unique_ptr<template_pair> pair;
    board_names names;
    std::vector<const file_node *> recorded; // the rows that got a record, in the order of the tree
};

namespace {

// What was written and has not taken its place is removed.
void drop(struct app *app)
{
    progress_wait(app, [app] { app->saving->pair.reset(); });
    app->saving.reset();
}

// Ends the save that was begun, and lets the page say why. What was written is removed.
void give_up(struct app *app)
{
    const template_pair &pair = *app->saving->pair;
    const list_kind kind = pair.kind;
    const owned_gchar text(g_strdup_printf(_("The template was not saved: cannot write in %s: %s."),
                                           display_text(app->pelva_db_path).c_str(), g_strerror(pair.error)));
    const bool interrupted = pair.interrupted;
    drop(app);
    set_notice(app, kind, notice_subject::not_saved, text.get());
    if (interrupted)
        tell_interrupted_save(app, kind);
}

void tell_failure(struct app *app, list_kind kind)
{
    progress_stop(app);
    dialog_ok(app->window, _("Error"), "%s",
              kind == list_kind::files
                  ? _("Cannot write the file template. The previous template stays in use.")
                  : _("Cannot write the sector template. The previous template stays in use."));
}

// Where the user finds a file: not by where this run happens to have mounted its partition.
std::string place_of(const struct app &app, const file_node &file)
{
    const std::string path = full_path(file);
    const std::string &mountpoint = file.mount->mountpoint;
    if (app.tmpdir.empty() || !mountpoint.starts_with(app.tmpdir))
        return path;
    return partition_name(*file.mount->partition) + ":" + path.substr(mountpoint.size());
}

// Adds the marked files below a row that got no record, whatever the reason. `recorded` are the rows with
// one, in their order; `next` is the first of them that may still come.
void find_left_out(const struct app &app, const file_node &above,
                   const std::vector<const file_node *> &recorded, std::size_t &next,
                   std::list<std::string> &names)
{
    for (const auto &row : above.children) {
        if (row->is_dir())
            find_left_out(app, *row, recorded, next, names);
        else if (row->marked && next < recorded.size() && recorded[next] == row.get())
            ++next;
        else if (row->marked)
            names.push_back(place_of(app, *row));
    }
}

// The pair is in place: the page says what is not in it, or nothing any more.
void note_saved(struct app *app, list_kind kind, std::list<std::string> left_out)
{
    changes_of(kind) = 0;
    template_of(*app, kind).unmarked.clear();
    clear_notices(app, kind);
    if (left_out.empty())
        return;
    const std::string text =
        with_count(P_("%u marked file has no name that the board can read. It is not in the template.",
                      "%u marked files have no name that the board can read. They are not in the template.",
                      left_out.size()),
                   left_out.size());
    set_notice(app, kind, notice_subject::left_out, text, std::move(left_out));
}

// The template directory as the headers name it, with a separator at its end. Nothing when the user was told
// that the board could not find it.
std::optional<std::string> directory_in_headers(struct app *app, list_kind kind)
{
    const char *reason = _("The partition of the template directory has no drive letter for the board.");
    std::optional<std::string> directory;
    if (app->pelva_db_mt->letter) {
        reason = _("The path of the template directory has no name that the board can read.");
        directory = app->saving->names.of_template_directory(*app);
    }
    if (directory) {
        reason = _("The path of the template directory is too long for the board.");
        if (template_name_path(*directory += app->separator, kind))
            return directory;
    }
    trace_log("* Failed");
    app->saving.reset();
    progress_stop(app);
    dialog_ok(app->window, _("Error"), "%s", reason);
    return std::nullopt;
}

bool begin_pair(struct app *app, list_kind kind, std::uint32_t count)
{
    trace_log("Enter");
    app->saving = std::make_shared<template_save>(app);
    const std::optional<std::string> directory = directory_in_headers(app, kind);
    if (!directory)
        return false;
    progress_wait(app, [&] { app->saving->pair = open_template_pair(app->pelva_db_path, kind); });
    template_pair &pair = *app->saving->pair;
    if (pair.error) {
        trace_log("* Failed");
        give_up(app);
        return false;
    }
    trace_log("%s check templates location: %.*s", kind == list_kind::files ? "File" : "Sector",
              static_cast<int>(directory->size()) - 1, directory->c_str());
    if (!write_template_headers(pair, *directory, count)) {
        trace_log("Cannot write file headers");
        trace_log("Failed");
        give_up(app);
        tell_failure(app, kind);
        return false;
    }
    app->fsnon = pair.nam.get();
    app->fsncv = pair.chk.get();
    trace_log("* Success");
    return true;
}

bool write_to_pair(const struct app *app, byte_span record)
{
    if (write_template_record(*app->saving->pair, record)) {
        trace_log("* Success");
        return true;
    }
    trace_log("Write failed");
    trace_log("* Failed");
    return false;
}

// Whether the board would take a name on the way to the file for two.
bool is_ambiguous(const file_node &row)
{
    const file_node *at = &row;
    while (!at->is_root() && !holds_separator(*row.mount->partition, at->name))
        at = at->parent;
    return !at->is_root();
}

// The file at `path_buf` as the firmware names it on its kind of file system.
std::optional<std::string> record_text(const struct app *app, const file_node &row)
{
    if (!is_ambiguous(row))
        return app->saving->names.of_file(*row.mount->partition, app->path_buf);
    trace_log("The board would read two names in one: %s", app->path_buf);
    return std::nullopt;
}

void refuse_long_name(struct app *app, file_store *store, file_node *row)
{
    progress_stop(app);
    dialog_ok(app->window, _("Warning"), "%s", _("File name is too long."));
    progress_start(app);
    mark_iter(app, store, row, 0);
    trace_log("File name is too long (max length is %zu)", file_record_size);
    trace_log("* Failed");
    trace_log("app->total_files_selected = %u", app->total_files_selected);
}

} // namespace

void tell_interrupted_save(struct app *app, list_kind kind)
{
    std::string files;
    for (const std::string &name : interrupted_save(app->pelva_db_path, kind))
        files += (files.empty() ? "" : ", ") + name;
    if (files.empty())
        return;
    const owned_gchar text(
        g_strdup_printf(_("A save was interrupted, and what it left cannot be put right. Nothing is saved "
                          "while these files lie "
                          "in %s: %s. Move them to another place; they may hold the last whole template."),
                        display_text(app->pelva_db_path).c_str(), files.c_str()));
    set_notice(app, kind, notice_subject::not_saved, text.get());
}

bool file_save_init(struct app *app)
{
    return begin_pair(app, list_kind::files, app->total_files_selected);
}

bool sector_save_init(struct app *app)
{
    return begin_pair(app, list_kind::sectors, app->total_sectors_selected);
}

void save_file(struct app *app, file_store *store, file_node *row)
{
    progress_run_main_loop(app);
    trace_log("* Enter");
    trace_log("Saving file: %s", app->path_buf);
    const part &p = *row->mount->partition;
    trace_log("fs_path = %s, mount_point = %s fs = %s", full_path(*row).c_str(),
              row->mount->mountpoint.c_str(), p.fs_type->c_str());
    const std::optional<std::string> text = record_text(app, *row);
    if (!text)
        return;
    trace_log("filename = %s len = %zu", text->c_str(), text->size());
    if (text->size() >= file_record_size) {
        refuse_long_name(app, store, row);
        return;
    }
    std::array<std::uint8_t, file_record_size> record{};
    std::ranges::copy(*text, record.begin());
    // Spelled so, like every trace text that looks wrong: whoever searches traces looks for it as it stands.
    trace_log("Write file %s in themplates", text->c_str());
    if (write_to_pair(app, record))
        app->saving->recorded.push_back(row);
}

void save_sector(struct app *app, std::uint32_t sector, disk *disk, GtkTreeIter *)
{
    progress_run_main_loop(app);
    trace_log("* Enter");
    trace_log("Saving sector: %u", sector);
    trace_log("Sector path: %s", app->path_buf);
    const sector_record record = make_sector_record(disk->drive_number, sector);
    std::array<std::uint8_t, sizeof(record)> bytes{record.drive_number};
    std::ranges::copy(record.little_endian, bytes.begin() + 1);
    (void)write_to_pair(app, bytes);
}

bool save_done(struct app *app)
{
    // Spelled so for the text of the message.
    g_assert(app->fsnon != ((void *)0)); // NOLINT
    g_assert(app->fsncv != ((void *)0)); // NOLINT
    app->fsnon = app->fsncv = nullptr;
    bool replaced = false;
    // The walk that wrote it may have been left early.
    if (!ending())
        progress_wait(app, [&] { replaced = replace_template(*app->saving->pair); });
    if (replaced || ending())
        drop(app);
    else
        give_up(app);
    return replaced;
}

bool save_file_template(struct app *app, file_store *store)
{
    // The main loop runs in between; whatever it does, the rows stay.
    const owned_object<file_store> held(static_cast<file_store *>(g_object_ref(store)));
    const progress_scope progress(app);
    if (!file_save_init(app))
        return false;
    for (const auto &top : file_store_top(store)->children) {
        if (!top->mount || top->not_loaded)
            continue;
        if (!top->mount->letter) {
            trace_log("The firmware has no letter for %s", top->name.c_str());
            continue;
        }
        begin_path(app, {top->mount->letter, ':'});
        walk_file_rows(app, store, *top, save_file, file_system_of(*top->mount->partition).separator);
    }
    const std::shared_ptr<template_save> saved = app->saving;
    if (!save_done(app)) {
        tell_failure(app, list_kind::files);
        return false;
    }
    std::list<std::string> left_out;
    std::size_t next = 0;
    find_left_out(*app, *file_store_top(store), saved->recorded, next, left_out);
    note_saved(app, list_kind::files, std::move(left_out));
    return true;
}

bool save_sector_template(struct app *app, GtkTreeModel *disks)
{
    const progress_scope progress(app);
    if (!sector_save_init(app))
        return false;
    GtkTreeIter top;
    for (gboolean more = gtk_tree_model_get_iter_first(disks, &top); more;
         more = gtk_tree_model_iter_next(disks, &top)) {
        GtkTreeIter first;
        if (!gtk_tree_model_iter_children(disks, &first, &top))
            continue;
        begin_path(app, "");
        walk_sector_rows(app, disks, &first, save_sector);
    }
    if (!save_done(app)) {
        tell_failure(app, list_kind::sectors);
        return false;
    }
    note_saved(app, list_kind::sectors, {});
    return true;
}
