// The saved file template's way back into the tree.
#include "filebrowser.h"

#include "common/board_path.h"
#include "common/file_format.h"
#include "common/filesystem.h"
#include "common/owned.h"
#include "common/process.h"
#include "filebrowser_names.h"
#include "i18n.h"
#include "progress.h"
#include "trace_log.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <sys/stat.h>

namespace {

// What the records of one template share. Most lie in the same directory as the one before.
struct lookups {
    board_names names;
    row_names rows = {};
    const file_node *root = nullptr; // of the last directory: its partition,
    std::string path = {};           // its path below that,
    file_node *directory = nullptr;  // and its row, null when there is none
};

// The last one found stands first where they are listed.
void note_unmarked(struct app *app, unmarked_reason reason, const std::string &text)
{
    app->file_template.unmarked.push_front({reason, text});
}

mount_entry *find_mount(struct app *app, char letter)
{
    for (mount_entry &mount : app->mounts) {
        if (letter && mount.letter == letter)
            return &mount;
    }
    return nullptr;
}

// The row of a directory by its path below the partition, reading what was not read yet; null when there is
// none. The path's first character separates its pieces.
file_node *find_directory(struct app *app, file_store *store, lookups &shared, const std::string &path,
                          file_node *root)
{
    if (shared.root == root && shared.path == path)
        return shared.directory;
    load_directory_content(app, store, root);
    file_node *row = root;
    for (std::size_t at = 0; row && at < path.size();) {
        const std::size_t end = std::min(path.find(path[0], at + 1), path.size());
        row = shared.rows.find(*row, path.substr(at + 1, end - at - 1));
        if (row)
            load_directory_content(app, store, row);
        at = end;
    }
    shared.root = root;
    shared.path = path;
    shared.directory = row;
    return row;
}

// Marks the file whose path follows its partition's mount directory. Its row; null when a piece of it has
// none.
file_node *load_and_mark(struct app *app, file_store *store, lookups &shared, const std::string &path,
                         std::size_t start, file_node *root)
{
    trace_log("Enter *");
    const std::string relative = path.substr(std::min(start, path.size()));
    trace_log("%s, %s", path.c_str(), relative.c_str());
    const std::size_t name = relative.empty() ? 0 : relative.rfind(relative[0]);
    file_node *row = find_directory(app, store, shared, relative.substr(0, name), root);
    if (row && !relative.empty())
        row = shared.rows.find(*row, relative.substr(name + 1));
    // Directories carry no mark of their own.
    if (!row || row->kind != file_kind::file) {
        trace_log("Failed");
        return nullptr;
    }
    mark_iter(app, store, row, 1);
    trace_log("Success *");
    return row;
}

// Marks the file of one board path, in UTF-8 and with long names. 0; -1: no partition with the letter, -2: no
// such file, -3: it exists but the tree does not show it.
int mark_file(struct app *app, file_store *store, const std::string &board_path, lookups &shared)
{
    const char letter = board_path.empty() ? '\0' : board_path[0];
    mount_entry *mount = find_mount(app, letter);
    if (!mount) {
        note_unmarked(app, unmarked_reason::missing, board_path);
        trace_log("It is no partition with letter '%c' assigned", letter);
        return -1;
    }
    const auto &roots = file_store_top(store)->children;
    const auto root = std::ranges::find(roots, mount, [](const auto &row) { return row->mount; });
    const std::string tail = board_path.size() > 2 ? board_path.substr(2) : "";
    if (tail.starts_with('/') && file_system_of(*mount->partition).separator != '/')
        trace_log("WARNING: wrong path separator");
    const std::string path = local_path(*mount->partition, mount->mountpoint, tail);
    // A file that has a row was there when its directory was read. On FAT a row is found without regard to
    // case, which stat() does for Latin letters only.
    const file_node *row =
        root != roots.end() ? load_and_mark(app, store, shared, path, mount->mountpoint.size(), root->get())
                            : nullptr;
    if (row && !row->is_newer)
        return 0;
    // Nobody knows a file by where this run happens to have mounted its partition. Below the mount "/" a path
    // begins with two slashes; the user is shown one.
    const bool mounted_here = path.find("/tmp/tarnel") != std::string::npos;
    const std::string shown = mounted_here ? board_path : path.starts_with("//") ? path.substr(1) : path;
    if (row) {
        app->file_template.changed.push_back(shown);
        return 0;
    }
    trace_log("stat(%s)", path.c_str());
    struct stat status;
    if (stat(path.c_str(), &status) != 0) {
        trace_log("cannot stat() on %s: %s", path.c_str(), std::strerror(errno));
        note_unmarked(app, unmarked_reason::missing, shown);
        return -2;
    }
    note_unmarked(app, unmarked_reason::hidden, shown);
    return -3;
}

// A start's way through the records, whose numbers begin at 0.
struct premarking {
    struct app *app;
    file_store *store;
    std::uint32_t count = 0, next = 0;
    bool unconvertible = false; // a name could not be converted; nothing behind it was looked at
    lookups shared;
};

void note_unread(std::uint32_t first, std::uint32_t last, void *user)
{
    auto &marking = *static_cast<premarking *>(user);
    marking.next = last + 1;
    const owned_gchar text(first == last
                               ? g_strdup_printf(_("Record %u cannot be read"), first + 1)
                               : g_strdup_printf(_("Records %u to %u cannot be read"), first + 1, last + 1));
    note_unmarked(marking.app, unmarked_reason::unread, text.get());
}

int mark_record(const char *record, void *user)
{
    auto &marking = *static_cast<premarking *>(user);
    if (ending())
        return 1;
    const std::optional<std::string> name = marking.shared.names.decode(marking.app->disks, record);
    if (!name) {
        marking.unconvertible = true;
        note_unread(marking.next, marking.count - 1, user);
        return 1;
    }
    ++marking.next;
    // It notes itself what it cannot mark.
    static_cast<void>(mark_file(marking.app, marking.store, *name, marking.shared));
    progress_run_main_loop(marking.app);
    return 0;
}

} // namespace

int fill_model(struct app *app, file_store *store)
{
    app->file_template.unmarked.clear();
    app->file_template.changed.clear();
    app->file_template.saved = save_time(app->pelva_db_path, list_kind::files);
    const auto begin = [](std::uint32_t count, void *marking) {
        static_cast<premarking *>(marking)->count = count;
        progress_start(static_cast<premarking *>(marking)->app);
    };
    premarking marking = {.app = app,
                          .store = store,
                          .shared = {board_names([app](const auto &work) { progress_wait(app, work); })}};
    const int result = read_file_list(app->pelva_db_path, begin, mark_record, &marking, note_unread);
    progress_stop(app);
    if (result != 0 && template_exists(app->pelva_db_path, list_kind::files))
        note_unmarked(app, unmarked_reason::unread_template, _("The saved template cannot be read."));
    return marking.unconvertible ? -3 : result;
}
