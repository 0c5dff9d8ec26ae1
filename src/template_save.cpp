#include "template_save.h"

#include "common/background.h"
#include "common/bytes.h"
#include "common/fat.h"
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
#include <atomic>
#include <list>
#include <optional>
#include <vector>

namespace {

// The pair whose streams `fsnon` and `fsncv` are. Only one save runs at a time.
std::unique_ptr<template_pair> current;
// Its lookups on FAT.
std::optional<fat_lookups> names_on_fat;

// The rows that got a record, in the order of the tree.
std::vector<const file_node *> recorded;

// Ends the save that was begun, and lets the page say why. What was written is removed.
void give_up(struct app *app)
{
    const owned_gchar text(g_strdup_printf(_("The template was not saved: cannot write in %s: %s."),
                                           display_text(app->pelva_db_path).c_str(),
                                           g_strerror(current->error)));
    const list_kind kind = current->kind;
    current.reset();
    set_notice(app, kind, notice_subject::not_saved, text.get());
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

// Adds the marked files below a row that got no record, whatever the reason. `next` is the first of
// `recorded` that may still come.
void find_left_out(const struct app &app, const file_node &above, std::size_t &next,
                   std::list<std::string> &names)
{
    for (const auto &row : above.children) {
        if (row->is_dir())
            find_left_out(app, *row, next, names);
        else if (row->marked && next < recorded.size() && recorded[next] == row.get())
            ++next;
        else if (row->marked)
            names.push_back(place_of(app, *row));
    }
}

// The pair is in place: the page says what is not in it, or nothing any more.
void note_saved(struct app *app, file_store *store)
{
    std::list<std::string> names;
    std::size_t next = 0;
    find_left_out(*app, *file_store_top(store), next, names);
    app->hidden_files.clear();
    app->file_template.unreadable = app->file_template.kept = false;
    clear_notices(app, list_kind::files);
    if (names.empty())
        return;
    const owned_gchar text(g_strdup_printf(
        P_("%u marked file has no name that the board can read. It is not in the template.",
           "%u marked files have no name that the board can read. They are not in the template.",
           names.size()),
        static_cast<unsigned>(names.size())));
    set_notice(app, list_kind::files, notice_subject::left_out, text.get(), std::move(names));
}

// The template directory's path on its partition, with the firmware's separator and none at the end.
std::string path_on_partition(const struct app *app)
{
    std::string path = app->short_path;
    path.erase(path.find_last_not_of('/') + 1);
    std::ranges::replace(path, '/', app->separator);
    return path;
}

bool begin_pair(struct app *app, list_kind kind, std::uint32_t count)
{
    trace_log("Enter");
    const char letter = app->pelva_db_mt->letter;
    const std::string path = path_on_partition(app);
    const std::string directory = std::string{letter, ':'} + path + app->separator;
    if (!template_name_path(directory, kind)) {
        trace_log("* Failed");
        dialog_ok(app->window, _("Error"), "%s",
                  _("The path of the template directory is too long for the board."));
        return false;
    }
    current = open_template_pair(app->pelva_db_path, kind);
    if (current->error) {
        trace_log("* Failed");
        give_up(app);
        return false;
    }
    trace_log("%s check templates location: %c:%s", kind == list_kind::files ? "File" : "Sector", letter,
              path.c_str());
    if (!write_template_headers(*current, directory, count)) {
        trace_log("Cannot write file headers");
        trace_log("Failed");
        give_up(app);
        tell_failure(app, kind);
        return false;
    }
    recorded.clear();
    app->fsnon = current->nam.get();
    app->fsncv = current->chk.get();
    names_on_fat.emplace();
    trace_log("* Success");
    return true;
}

bool write_to_pair(byte_span record)
{
    if (write_template_record(*current, record)) {
        trace_log("* Success");
        return true;
    }
    trace_log("Write failed");
    trace_log("* Failed");
    return false;
}

// A back-slash in a name, which only a damaged volume has, would make two components of it.
bool holds_separator(const file_node &row)
{
    const file_node *at = &row;
    while (!at->is_root() && at->name.find('\\') == std::string::npos)
        at = at->parent;
    return !at->is_root();
}

// The file at `path_buf` by its short names: "D:\EFI\BOOT\GRUBX64.EFI".
std::optional<std::string> short_name_text(const struct app *app, const file_node &row)
{
    const part &p = *row.mount->partition;
    constexpr std::size_t drive_prefix = 3; // letter, colon, back-slash
    trace_log("fs = %s, start convert filename to sfn-path:, path_buf = %s", p.fs_type->c_str(),
              app->path_buf);
    const std::string path = app->path_buf;
    std::optional<std::string> names;
    if (!holds_separator(row))
        names =
            names_on_fat->find(partition_name(p), path.substr(drive_prefix), fat_direction::long_to_short);
    if (!names) {
        trace_log("Get sfn-path error!");
        return std::nullopt;
    }
    return path.substr(0, drive_prefix) + *names;
}

std::optional<std::string> code_page_text(const struct app *app)
{
    // Not the letter: behind 'Z' it is a character code and no text.
    const owned_gchar text(g_convert(app->path_buf + 1, -1, "CP866", "UTF-8", nullptr, nullptr, nullptr));
    if (!text) {
        trace_log("Cannot convert filename to codepage 866: %s", app->path_buf);
        trace_log("* Failed");
        return std::nullopt;
    }
    return app->path_buf[0] + std::string(text.get());
}

// The file at `path_buf` as the firmware names it on its kind of file system.
std::optional<std::string> record_text(const struct app *app, const file_node &row)
{
    const part &p = *row.mount->partition;
    if (is_ext_fs(p))
        return app->path_buf;
    return is_fat_fs(p) ? short_name_text(app, row) : code_page_text(app);
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
    if (write_to_pair(record))
        recorded.push_back(row);
}

void save_sector(struct app *app, std::uint32_t sector, disk *disk, GtkTreeIter *)
{
    trace_log("* Enter");
    trace_log("Saving sector: %u", sector);
    trace_log("Sector path: %s", app->path_buf);
    const sector_record record = make_sector_record(disk->drive_number, sector);
    std::array<std::uint8_t, sizeof(record)> bytes{record.drive_number};
    std::ranges::copy(record.little_endian, bytes.begin() + 1);
    (void)write_to_pair(bytes);
}

// Bringing a large template to the disk takes its time.
static bool replace_in_background(struct app *app)
{
    bool replaced = false;
    std::atomic<bool> done = false;
    background work([&] {
        replaced = replace_template(*current);
        done = true;
    });
    while (work.has_begun() && !done) {
        progress_run_main_loop(app);
        g_usleep(1000);
    }
    work.finish();
    return replaced;
}

bool save_done(struct app *app)
{
    // Spelled so for the text of the message.
    g_assert(app->fsnon != ((void *)0)); // NOLINT
    g_assert(app->fsncv != ((void *)0)); // NOLINT
    app->fsnon = app->fsncv = nullptr;
    names_on_fat.reset();
    // The walk that wrote it may have been left early.
    if (ending())
        current.reset();
    else if (replace_in_background(app)) {
        current.reset();
        return true;
    } else
        give_up(app);
    return false;
}

void save_file_template(struct app *app, file_store *store)
{
    if (!file_save_init(app))
        return;
    // The main loop runs in between; whatever it does, the rows stay.
    const owned_object<file_store> held(static_cast<file_store *>(g_object_ref(store)));
    progress_start(app);
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
    const bool saved = save_done(app);
    progress_stop(app);
    if (!saved) {
        tell_failure(app, list_kind::files);
        return;
    }
    files_changed = 0;
    note_saved(app, store);
}

void save_sector_template(struct app *app, GtkTreeModel *disks)
{
    if (!sector_save_init(app))
        return;
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
        return;
    }
    sectors_changed = 0;
    app->sector_template.unreadable = app->sector_template.kept = false;
    clear_notices(app, list_kind::sectors);
}
