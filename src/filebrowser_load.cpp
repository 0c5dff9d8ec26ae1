// Rows of the file tree and how they are read from disk.
#include "filebrowser.h"

#include "common/background.h"
#include "common/disk.h"
#include "common/filesystem.h"
#include "common/host.h"
#include "common/mount_table.h"
#include "common/owned.h"
#include "common/process.h"
#include "i18n.h"
#include "progress.h"
#include "trace_log.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <set>
#include <sys/stat.h>
#include <vector>

namespace {

// The board's limit for the path of a file below its mount directory.
constexpr std::size_t longest_relative_path = 253;

// So many entries take longer than it takes to begin a thread, and so many of them hold nobody up.
constexpr std::size_t worth_a_helper = 500, looked_at_once = 16;

// An entry of a directory, with what sorts it.
struct listed_entry {
    std::string name;
    owned_gchar key; // null where the names themselves sort

    const char *sorted_by() const { return key ? key.get() : name.c_str(); }
};

// Whether the C library collates names by their bytes, as it does in the locale "C".
bool collates_by_bytes()
{
    return strxfrm(nullptr, "aB", 0) == 2;
}

// Two names compare as their keys do, byte by byte. A key costs as much as a handful of comparisons.
owned_gchar collation_key(const char *name, std::vector<char> &buffer)
{
    const std::size_t length = strxfrm(buffer.data(), name, buffer.size());
    if (length >= buffer.size()) {
        buffer.resize(length + 1);
        strxfrm(buffer.data(), name, buffer.size());
    }
    return owned_gchar(g_strdup(buffer.data()));
}

bool is_dot_entry(const dirent &entry)
{
    return std::strcmp(entry.d_name, ".") == 0 || std::strcmp(entry.d_name, "..") == 0;
}

// The entries of a directory in `alphasort` order. `complete` becomes false when they cannot all be read.
// Reading and sorting a large directory take long by themselves, so the main loop gets its turns in between.
std::vector<listed_entry> list_directory(struct app *app, const owned_fd &directory, bool &complete)
{
    owned_fd file(openat(directory.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const owned_directory stream(file ? fdopendir(file.get()) : nullptr);
    std::vector<listed_entry> listed;
    const bool by_bytes = collates_by_bytes();
    std::vector<char> buffer(NAME_MAX);
    if (stream)
        static_cast<void>(file.release());
    while (stream && !ending()) {
        errno = 0;
        const dirent *entry = readdir(stream.get());
        if (!entry)
            break;
        progress_run_main_loop(app);
        if (!is_dot_entry(*entry))
            listed.push_back({entry->d_name, by_bytes ? nullptr : collation_key(entry->d_name, buffer)});
        errno = 0;
    }
    complete = errno == 0;
    if (!complete) {
        const int reason = errno;
        trace_log("scandir() failed");
        errno = reason;
        std::perror("scandir");
    }
    std::ranges::stable_sort(listed, [app](const listed_entry &one, const listed_entry &other) {
        progress_run_main_loop(app);
        return std::strcmp(one.sorted_by(), other.sorted_by()) < 0;
    });
    return listed;
}

// A directory being read. All its entries that are shown lie on its own mount, so what is asked of a mount is
// asked once.
struct directory_source {
    std::string path;
    std::string device; // node of the partition that it belongs to
    owned_fd file;
    dev_t dev = 0;
    std::set<std::string, std::less<>> mounted; // entries that hold something else
    bool other_device = false;                  // the directory itself is not on the partition
    bool known_fs = false;
    bool examined = false;         // false: nothing of all this could be learned
    std::size_t prefix_length = 0; // of what precedes a name in a path from the mount directory on
};

bool is_below(const std::string &path, const std::string &directory)
{
    return path.starts_with(build_path(directory, ""));
}

// Length of the directory of the mount that holds the path; 0 for the root.
std::size_t mount_length(const std::string &path)
{
    const std::optional<mount_data> mount = mount_data_find(path);
    return mount && mount->directory != "/" ? mount->directory.size() : 0;
}

directory_source open_for_rows(const file_node &row)
{
    directory_source directory;
    directory.path = full_path(row);
    if (row.mount && row.mount->partition)
        directory.device = "/dev/" + partition_name(*row.mount->partition);
    directory.file = owned_fd(open(directory.path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    struct stat status;
    if (!directory.file || fstat(directory.file.get(), &status) != 0)
        return directory;
    directory.dev = status.st_dev;
    directory.mounted = names_mounted_on(directory.path);
    directory.other_device = (row.mount && row.mount->dev != 0 && row.mount->dev != status.st_dev) ||
                             check_dir_mount(directory.path, directory.device);
    errno = 0;
    directory.known_fs = check_fs_type(directory.path) != 0;
    directory.examined = directory.known_fs || errno == 0;
    directory.prefix_length = build_path(directory.path, "").size() - mount_length(directory.path);
    return directory;
}

// What an entry is to the tree. What is left out is no part of the partition, or nothing that the board
// checks.
enum class entry_kind : std::uint8_t { left_out, directory, file, too_long, unread };

// Links are not followed. The status is filled for a file.
entry_kind look_at(const directory_source &directory, const std::string &name, struct stat &status)
{
    trace_log("Directory: %s", build_path(directory.path, name).c_str());
    trace_log("cur_dev = %s", directory.device.c_str());
    if (directory.other_device || !directory.known_fs || directory.mounted.contains(name))
        return entry_kind::left_out;
    if (fstatat(directory.file.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        return errno == ENOENT ? entry_kind::left_out : entry_kind::unread;
    // The system refuses longer paths.
    const bool can_be_opened = directory.path.size() + 1 + name.size() < PATH_MAX;
    if (status.st_dev != directory.dev)
        return entry_kind::left_out;
    if (S_ISDIR(status.st_mode))
        return can_be_opened ? entry_kind::directory : entry_kind::unread;
    if (!S_ISREG(status.st_mode))
        return entry_kind::left_out;
    const std::size_t length = directory.prefix_length + name.size();
    trace_log("Template file name lenght: %d", static_cast<int>(length));
    return can_be_opened && length <= longest_relative_path ? entry_kind::file : entry_kind::too_long;
}

// A row to be. The rows of a directory are made when all are known, so that nobody sees some of them move
// away from under the pointer.
struct found_entry {
    std::string name;
    std::uint64_t size = 0; // bytes; of a file
    bool is_newer = false;  // than the saved template
};

struct directory_content {
    std::vector<found_entry> directories, files;
    directory_gaps gaps;
};

// Asks for the status of every entry, which alone tells what it is: not every file system gives a type with
// the name. In a large directory two threads share that.
directory_content look_at_all(struct app *app, const directory_source &directory,
                              std::vector<listed_entry> listed)
{
    trace_log("Loading file list...");
    std::vector<std::pair<entry_kind, found_entry>> seen(listed.size()); // without their names
    const save_time &saved = app->file_template.saved;
    std::atomic<std::size_t> next = 0;
    const auto look = [&](struct app *turns) {
        for (std::size_t first; (first = next.fetch_add(looked_at_once)) < listed.size();) {
            const std::size_t last = std::min(first + looked_at_once, listed.size());
            for (std::size_t i = first; i < last && !ending(); i++) {
                struct stat status = {};
                seen[i].first = look_at(directory, listed[i].name, status);
                seen[i].second = {{}, static_cast<std::uint64_t>(status.st_size), saved.is_before(status)};
                if (turns)
                    progress_run_main_loop(turns);
            }
        }
    };
    std::optional<background> helper;
    if (listed.size() >= worth_a_helper)
        helper.emplace([&look] { look(nullptr); });
    look(app);
    if (helper)
        helper->finish();
    directory_content content;
    for (std::size_t i = 0; i < listed.size(); i++) {
        const auto &[kind, entry] = seen[i];
        if (kind == entry_kind::directory)
            content.directories.push_back({std::move(listed[i].name)});
        else if (kind == entry_kind::file)
            content.files.push_back({std::move(listed[i].name), entry.size, entry.is_newer});
        else if (kind == entry_kind::too_long)
            content.gaps.too_long.push_back(std::move(listed[i].name));
        else if (kind == entry_kind::unread)
            content.gaps.unread = true;
    }
    return content;
}

directory_content read_content(struct app *app, const file_node &row)
{
    const directory_source directory = open_for_rows(row);
    trace_log("Loading directory list...");
    bool complete = false;
    std::vector<listed_entry> listed = list_directory(app, directory.file, complete);
    directory_content content = look_at_all(app, directory, std::move(listed));
    content.gaps.unread = content.gaps.unread || !complete || !directory.examined;
    return content;
}

// Device number of a device node; 0 when there is no such node. A mount may name a link to it, such as
// /dev/disk/by-uuid/...
dev_t node_number(const std::string &device)
{
    struct stat status;
    return stat(host_path(device).c_str(), &status) == 0 ? status.st_rdev : 0;
}

// The mount of a device that holds the directory: the deepest, and of several on one directory the last,
// which hides the others. The root mount does not count.
const mount_data *find_device_mount(const mount_table &table, const std::string &directory)
{
    const mount_data *found = nullptr;
    for (const mount_data &mount : table.lines) {
        if (mount.directory.size() >= 2 && has_prefix(mount.device, "/dev/") &&
            (mount.directory == directory || is_below(directory, mount.directory)) &&
            (!found || mount.directory.size() >= found->directory.size()))
            found = &mount;
    }
    return found;
}

std::unique_ptr<file_node> make_row(file_kind kind, std::string name, mount_entry *mount)
{
    auto row = std::make_unique<file_node>();
    row->kind = kind;
    row->name = std::move(name);
    row->mount = mount;
    return row;
}

void add_placeholder(file_store *store, file_node *directory, const char *text)
{
    auto placeholder = make_row(file_kind::placeholder, text, nullptr);
    placeholder->not_loaded = true;
    file_store_append(store, directory, std::move(placeholder));
}

bool ends_with_placeholder(const file_node &row)
{
    return !row.children.empty() && row.children.back()->kind == file_kind::placeholder;
}

// Adds the rows that are not there yet. At the first time none is; when a directory that could not be read in
// full was read again, most are, and keep their places and marks.
void add_rows(struct app *app, file_store *store, file_node *row, directory_content &content)
{
    const auto &children = row->children;
    std::set<std::string_view> known;
    for (const auto &child : children)
        if (child->kind != file_kind::placeholder)
            known.insert(child->name);
    std::size_t at = 0;
    const auto add = [&](std::vector<found_entry> &found, bool are_files, const auto &append) {
        for (found_entry &entry : found) {
            progress_run_main_loop(app);
            if (!known.empty() && known.contains(entry.name))
                continue;
            const auto precedes = [&](const file_node &child) {
                return child.kind != file_kind::placeholder &&
                       (child.is_dir() == are_files
                            ? are_files
                            : std::strcoll(child.name.c_str(), entry.name.c_str()) < 0);
            };
            while (!known.empty() && at < children.size() && precedes(*children[at]))
                at++;
            append(entry, known.empty() ? children.size() : at);
        }
    };
    add(content.directories, false, [&](found_entry &entry, std::size_t position) {
        append_dir(store, row, std::move(entry.name), row->mount, position);
    });
    add(content.files, true, [&](found_entry &entry, std::size_t position) {
        append_file(store, row, std::move(entry.name), entry.size, position)->is_newer = entry.is_newer;
    });
}

// Reads the directory of a row, which may have been read before, though not in full.
void read_rows(struct app *app, file_store *store, file_node *row)
{
    row->not_loaded = false;
    file_store_changed(store, row);
    directory_content content = read_content(app, *row);
    row->children.reserve(1 + content.directories.size() + content.files.size());
    add_rows(app, store, row, content);
    if (!content.gaps.unread && ends_with_placeholder(*row))
        file_store_remove(store, row->children.back().get());
    else if (content.gaps.unread && (!ends_with_placeholder(*row) || row->children.size() == 1))
        add_placeholder(store, row, _("Not everything here could be read"));
    note_gaps(app, row, std::move(content.gaps));
}

} // namespace

file_store *create_model(struct app *app)
{
    file_store *store = file_store_new({app->folder_normal, app->folder_marked, app->file_normal,
                                        app->file_marked, app->disk_normal, app->disk_marked});
    trace_log("* 8");
    for (mount_entry &mount : app->mounts) {
        if (!is_supported_fs(*mount.partition))
            continue;
        trace_log("* 9");
        append_dir(store, file_store_top(store), "/dev/" + partition_name(*mount.partition), &mount);
    }
    return store;
}

file_node *append_dir(file_store *store, file_node *parent, std::string name, mount_entry *mount,
                      std::size_t position)
{
    const file_kind kind = parent->kind == file_kind::top ? file_kind::root : file_kind::directory;
    auto row = make_row(kind, std::move(name), mount);
    row->not_loaded = true;
    file_node *added = file_store_insert(store, parent, position, std::move(row));
    add_placeholder(store, added, _("Loading, please wait..."));
    return added;
}

file_node *append_file(file_store *store, file_node *parent, std::string name, std::uint64_t size,
                       std::size_t position)
{
    auto row = make_row(file_kind::file, std::move(name), parent->mount);
    row->size = size;
    return file_store_insert(store, parent, position, std::move(row));
}

void load_iter(struct app *app, file_store *store, file_node *row)
{
    trace_log("* Enter");
    if (is_partly_unread(*app, *row))
        read_rows(app, store, row); // again
    else
        load_directory_content(app, store, row);
    count_gaps(app, *row);
    trace_log("* Success");
}

int load_directory_content(struct app *app, file_store *store, file_node *row)
{
    trace_log("* Enter");
    trace_log("Loading directory content: %s", full_path(*row).c_str());
    if (row->not_loaded && row->is_dir())
        read_rows(app, store, row);
    return 0;
}

bool check_dir_mount(const std::string &directory, const std::string &device)
{
    trace_log("* Enter");
    trace_log("current directory = %s len = %d current device = %s len %d", directory.c_str(),
              static_cast<int>(directory.size()), device.c_str(), static_cast<int>(device.size()));
    const dev_t own = node_number(device);
    trace_log("bg_dev.st_rdev = %d", static_cast<int>(own));
    const mount_table *table = current_mount_table();
    if (!table) {
        // Nothing is known of mounts then; hiding every directory would help nobody.
        std::printf("Unable to open /proc/mounts: %s\n", std::strerror(errno));
        return false;
    }
    const mount_data *mount = find_device_mount(*table, directory);
    if (!mount) {
        trace_log("* Exit");
        return false;
    }
    const dev_t mounted = node_number(mount->device);
    trace_log("bg_dev_m.st_rdev = %d", static_cast<int>(mounted));
    trace_log("Find mount point: dev = %s mount_point = %s", mount->device.c_str(), mount->directory.c_str());
    return mounted != own;
}
