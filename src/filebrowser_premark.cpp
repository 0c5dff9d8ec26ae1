// The saved file template's way back into the tree.
#include "filebrowser.h"

#include "callbacks.h"
#include "common/disk.h"
#include "common/fat.h"
#include "common/file_format.h"
#include "common/iconvert.h"
#include "common/letters.h"
#include "common/owned.h"
#include "dialogs.h"
#include "display_text.h"
#include "i18n.h"
#include "progress.h"
#include "trace_log.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>

namespace {

constexpr const char *name_file = "bootfile.nam";
constexpr const char *check_file = "bootfile.chk";
// Letter, colon and separator at the start of a board path.
constexpr std::size_t prefix_length = 3;

// What the records of one template share.
struct lookups {
    fat_lookups fat;
    row_names rows;
};

using record_buffer = std::array<char, file_record_size + 1>; // its last byte stays 0

enum class read_result { record, end_of_file };

owned_file open_in(const struct app *app, const char *name)
{
    return open_template_file(AT_FDCWD, app->pelva_db_path + "/" + name);
}

// Opens the name file and reads its headers. 0, or what fill_model returns.
int open_template(const struct app *app, owned_file &nam, std::uint32_t &count)
{
    nam = open_in(app, name_file);
    if (!nam) {
        trace_log("Cannot open %s/%s", app->pelva_db_path.c_str(), name_file);
        return -1;
    }
    const owned_file chk = open_in(app, check_file);
    if (chk)
        trace_log("CHK file seems to be correct");
    else
        trace_log("WARNING: cannot open %s/%s", app->pelva_db_path.c_str(), check_file);
    template_header nam_header, chk_header;
    if (!read_structures(nam.get(), chk.get(), nam_header, chk_header)) {
        trace_log("Error on read_structures");
        return -2;
    }
    count = fields_of(nam_header).count;
    trace_log("%s contains %u file names", name_file, count);
    return 0;
}

read_result read_record(std::FILE *nam, std::uint32_t number, record_buffer &record)
{
    if (std::fread(record.data(), 1, file_record_size, nam) == file_record_size)
        return read_result::record;
    if (std::feof(nam)) {
        trace_log("Unexpected end of file on %d-th record", static_cast<int>(number));
        return read_result::end_of_file;
    }
    trace_log("Read error on %d-th record", static_cast<int>(number));
    return read_result::record;
}

// The name on a FAT partition with its long components; the name itself when there are none.
std::string with_long_names(lookups &shared, const part &partition, const std::string &record,
                            const std::string &name)
{
    const std::string tail = name.size() > prefix_length ? name.substr(prefix_length) : "";
    const std::optional<std::string> path =
        shared.fat.find(partition_name(partition), tail, fat_direction::short_to_long);
    if (path)
        return record.substr(0, prefix_length) + *path;
    trace_log("Cannot convert filename %s to LFN-path", name.c_str());
    trace_log("* Failed");
    return name;
}

// The record's board path in UTF-8 and with long names. Nothing when it cannot be converted.
std::optional<std::string> decode_record(struct app *app, lookups &shared, const std::string &record)
{
    trace_log("Search part for label: %c", record.empty() ? '\0' : record[0]);
    const part *partition = record.empty() ? nullptr : find_part_by_label(app->disks, record[0]);
    if (!partition || is_ext_fs(*partition))
        return record;
    trace_log("Convert %s from CP866 to UTF-8", record.c_str());
    const owned_gchar converted(g_convert(record.c_str(), -1, "UTF-8", "CP866", nullptr, nullptr, nullptr));
    trace_log("Convertation finished!");
    if (!converted) {
        trace_log("Cannot convert filename to codepage 866: %s", record.c_str());
        trace_log("* Failed");
        return std::nullopt;
    }
    trace_log("Converted success: %s", converted.get());
    if (is_fat_fs(*partition))
        return with_long_names(shared, *partition, record, converted.get());
    return converted.get();
}

int mark_records(struct app *app, file_store *store, std::FILE *nam, std::uint32_t count)
{
    // The file bounds what the header claims; one more lets its end be noticed.
    const std::uint64_t bound = std::min<std::uint64_t>(count, body_size(nam) / file_record_size + 1);
    record_buffer buffer{};
    lookups shared;
    for (std::uint32_t number = 0; number < bound; number++) {
        if (read_record(nam, number, buffer) == read_result::end_of_file)
            break;
        const std::string record = buffer.data();
        trace_log("Record #%d: %s", static_cast<int>(number), record.c_str());
        const std::optional<std::string> name = decode_record(app, shared, record);
        if (!name)
            return -3;
        // What is gone is put on `missing_files`.
        static_cast<void>(mark_file(app, store, *name, shared.rows));
        progress_run_main_loop(app);
    }
    return 0;
}

mount_entry *find_mount(struct app *app, char letter)
{
    for (mount_entry &mount : app->mounts) {
        if (letter && mount.letter == letter)
            return &mount;
    }
    return nullptr;
}

bool is_ntfs(const mount_entry &mount)
{
    return mount.partition->fs_type == "ntfs";
}

// `tail` is the board path from its separator on.
std::string convert_path(const std::string &mountpoint, std::string tail)
{
    const char separator = tail.empty() ? '/' : tail[0];
    std::ranges::replace(tail, separator, '/');
    return mountpoint + tail;
}

// Names on NTFS may hold back-slashes themselves: only those become '/' that follow an existing directory.
std::string convert_ntfs_path(std::string mountpoint, const std::string &tail)
{
    replace_symbols(mountpoint, '/', '\\');
    std::string path = mountpoint + tail;
    replace_backslash(path);
    return path;
}

// Walks from a partition down the path that follows its mount directory, reading what was not read yet, and
// marks the file at its end. 0, or -4 when a piece has no row.
int load_and_mark(struct app *app, file_store *store, row_names &rows, const std::string &path,
                  std::size_t start, file_node *row)
{
    trace_log("Enter *");
    load_directory_content(app, store, row);
    const std::string relative = path.substr(std::min(start, path.size()));
    trace_log("%s, %s", path.c_str(), relative.c_str());
    for (std::size_t at = 0; row && at < relative.size();) {
        const std::size_t end = std::min(relative.find(relative[0], at + 1), relative.size());
        row = rows.find(*row, relative.substr(at + 1, end - at - 1));
        if (row && end < relative.size())
            load_directory_content(app, store, row);
        at = end;
    }
    // Directories carry no mark of their own.
    if (!row || row->kind != file_kind::file) {
        trace_log("Failed");
        return -4;
    }
    mark_iter(app, store, row, 1);
    trace_log("Success *");
    return 0;
}

} // namespace

int fill_model(struct app *app, file_store *store)
{
    app->missing_files.clear();
    owned_file nam;
    std::uint32_t count = 0;
    if (const int failure = open_template(app, nam, count))
        return failure;
    progress_start(app);
    const int result = mark_records(app, store, nam.get(), count);
    progress_stop(app);
    if (result == 0 && std::fgetc(nam.get()) != EOF)
        trace_log("WARNING: %s/%s contains unhandled data at end of file", app->pelva_db_path.c_str(),
                  name_file);
    return result;
}

int mark_file(struct app *app, file_store *store, const std::string &board_path, row_names &rows)
{
    const char letter = board_path.empty() ? '\0' : board_path[0];
    mount_entry *mount = find_mount(app, letter);
    if (!mount) {
        app->missing_files.push_front(board_path);
        trace_log("It is no partition with letter '%c' assigned", letter);
        return -1;
    }
    const auto &roots = file_store_top(store)->children;
    if (roots.empty()) {
        trace_log("gtk_tree_model_get_iter_first() failed");
        return -2;
    }
    const auto root = std::ranges::find(roots, mount, [](const auto &row) { return row->mount; });
    const std::string tail = board_path.size() > 2 ? board_path.substr(2) : "";
    if (tail.starts_with('/') && !is_ext_fs(*mount->partition))
        trace_log("WARNING: wrong path separator");
    const std::string path =
        is_ntfs(*mount) ? convert_ntfs_path(mount->mountpoint, tail) : convert_path(mount->mountpoint, tail);
    const auto mark = [&] {
        return root != roots.end() &&
               load_and_mark(app, store, rows, path, mount->mountpoint.size(), root->get()) == 0;
    };
    // On FAT a name is found without regard to case; stat() does that for Latin letters only.
    const bool rows_first = is_fat_fs(*mount->partition);
    if (rows_first && mark())
        return 0;
    trace_log("stat(%s)", path.c_str());
    struct stat status;
    if (stat(path.c_str(), &status) != 0) {
        trace_log("cannot stat() on %s: %s", path.c_str(), std::strerror(errno));
        // Nobody knows a file by where this run happens to have mounted its partition.
        const bool mounted_here = path.find("/tmp/tarnel") != std::string::npos;
        // Below the mount "/" a path begins with two slashes; the user is shown one.
        const std::string shown = path.starts_with("//") ? path.substr(1) : path;
        app->missing_files.push_front(mounted_here ? board_path : shown);
        return -2;
    }
    return !rows_first && mark() ? 0 : -3;
}

void ask_delete_missing_files(struct app *app)
{
    if (app->missing_files.empty())
        return;
    std::string list;
    for (const std::string &name : app->missing_files)
        list += display_text(name) + "\n";
    const int answer = dialog_yes_no_list(
        app->window, _("Confirm"), _("The following files are missing. Delete these files from a template?"),
        _("%s"), list.c_str());
    if (answer == GTK_RESPONSE_YES)
        on_files_save_clicked(nullptr, app);
    app->missing_files.clear();
}
