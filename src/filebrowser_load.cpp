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
    owned_dirent entry;
    owned_gchar key; // null where the names themselves sort

    const char *sorted_by() const { return key ? key.get() : entry->d_name; }
};

// scandir hands its helpers nothing of ours. During an operation no other one begins.
struct app *reading_for = nullptr;

int choose_entry(const dirent *entry)
{
    progress_run_main_loop(reading_for);
    return !ending() && (dir_filter(entry) || file_filter(entry));
}

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

// The entries that the filters choose, in `alphasort` order. None when the directory cannot be read. Reading
// and sorting a large directory take long by themselves, so the main loop gets its turns in between.
std::vector<listed_entry> list_directory(struct app *app, const std::string &directory)
{
    dirent **entries = nullptr;
    reading_for = app;
    const int count = scandir(directory.c_str(), &entries, choose_entry, nullptr);
    if (count < 0) {
        const int reason = errno;
        trace_log("scandir() failed");
        errno = reason;
        std::perror("scandir");
    }
    std::vector<listed_entry> listed;
    listed.reserve(static_cast<std::size_t>(std::max(count, 0)));
    const bool by_bytes = collates_by_bytes();
    std::vector<char> buffer(NAME_MAX);
    for (int i = 0; i < count; i++) {
        progress_run_main_loop(app);
        const dirent *entry = entries[i];
        listed.push_back(
            {owned_dirent(entries[i]), by_bytes ? nullptr : collation_key(entry->d_name, buffer)});
    }
    std::free(entries); // NOLINT: scandir allocates with malloc
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
    directory.known_fs = check_fs_type(directory.path) != 0;
    directory.prefix_length = build_path(directory.path, "").size() - mount_length(directory.path);
    return directory;
}

// Whether the entry belongs to the partition; its status then. Links are not followed. An entry whose whole
// path the system would refuse is no entry.
bool get_status(const directory_source &directory, const char *name, struct stat &status)
{
    return !directory.other_device && directory.known_fs &&
           (directory.mounted.empty() || !directory.mounted.contains(name)) &&
           directory.path.size() + 1 + std::strlen(name) < PATH_MAX &&
           fstatat(directory.file.get(), name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           status.st_dev == directory.dev;
}

bool shows_directory(const directory_source &directory, const char *name)
{
    struct stat status;
    trace_log("Directory: %s", build_path(directory.path, name).c_str());
    trace_log("cur_dev = %s", directory.device.c_str());
    return get_status(directory, name, status) && S_ISDIR(status.st_mode);
}

bool shows_file(const directory_source &directory, const char *name, struct stat &status)
{
    if (!get_status(directory, name, status))
        return false;
    const std::size_t length = directory.prefix_length + std::strlen(name);
    trace_log("Template file name lenght: %d", static_cast<int>(length));
    return length <= longest_relative_path && S_ISREG(status.st_mode);
}

// A row to be. The rows of a directory are made when all are known, so that nobody sees some of them move
// away from under the pointer.
struct found_entry {
    std::string name;
    std::uint64_t size = 0; // bytes; of a file
};

std::vector<found_entry> find_directories(struct app *app, const directory_source &directory,
                                          const std::vector<listed_entry> &listed)
{
    std::vector<found_entry> found;
    for (const listed_entry &listing : listed) {
        if (ending())
            break;
        const dirent &entry = *listing.entry;
        if (entry.d_type == DT_DIR && shows_directory(directory, entry.d_name))
            found.push_back({entry.d_name});
        progress_run_main_loop(app);
    }
    return found;
}

// Asks for the status of every entry; in a large directory two threads share that.
std::vector<found_entry> find_files(struct app *app, const directory_source &directory,
                                    const std::vector<listed_entry> &listed)
{
    trace_log("Loading file list...");
    std::vector<std::optional<std::uint64_t>> sizes(listed.size()); // of those that are shown
    std::atomic<std::size_t> next = 0;
    const auto look = [&](struct app *turns) {
        for (std::size_t first; (first = next.fetch_add(looked_at_once)) < listed.size();) {
            const std::size_t last = std::min(first + looked_at_once, listed.size());
            for (std::size_t i = first; i < last && !ending(); i++) {
                struct stat status;
                const dirent &entry = *listed[i].entry;
                if (entry.d_type != DT_DIR && shows_file(directory, entry.d_name, status))
                    sizes[i] = static_cast<std::uint64_t>(status.st_size);
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
    std::vector<found_entry> found;
    for (std::size_t i = 0; i < listed.size(); i++) {
        if (const auto &size = sizes[i])
            found.push_back({listed[i].entry->d_name, *size});
    }
    return found;
}

bool is_dot_entry(const dirent *entry)
{
    return std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0;
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

file_node *append_dir(file_store *store, file_node *parent, std::string name, mount_entry *mount)
{
    const file_kind kind = parent->kind == file_kind::top ? file_kind::root : file_kind::directory;
    auto row = make_row(kind, std::move(name), mount);
    row->not_loaded = true;
    file_node *added = file_store_append(store, parent, std::move(row));
    auto placeholder = make_row(file_kind::placeholder, _("Loading, please wait..."), nullptr);
    placeholder->not_loaded = true;
    file_store_append(store, added, std::move(placeholder));
    return added;
}

file_node *append_file(file_store *store, file_node *parent, std::string name, std::uint64_t size)
{
    auto row = make_row(file_kind::file, std::move(name), parent->mount);
    row->size = size;
    return file_store_append(store, parent, std::move(row));
}

int dir_filter(const dirent *entry)
{
    trace_log("dir_filter: %s", entry->d_name);
    return !is_dot_entry(entry) && entry->d_type == DT_DIR;
}

int file_filter(const dirent *entry)
{
    return !is_dot_entry(entry) && entry->d_type != DT_DIR;
}

void load_iter(struct app *app, file_store *store, file_node *row)
{
    trace_log("* Enter");
    load_directory_content(app, store, row);
    trace_log("* Success");
}

int load_directory_content(struct app *app, file_store *store, file_node *row)
{
    trace_log("* Enter");
    trace_log("Loading directory content: %s", full_path(*row).c_str());
    if (!row->not_loaded || !row->is_dir())
        return 0;
    row->not_loaded = false; // before reading: a directory that fails is not tried again
    file_store_changed(store, row);
    const directory_source directory = open_for_rows(*row);
    trace_log("Loading directory list...");
    const std::vector<listed_entry> listed = list_directory(app, directory.path);
    std::vector<found_entry> directories = find_directories(app, directory, listed);
    std::vector<found_entry> files = find_files(app, directory, listed);
    row->children.reserve(1 + directories.size() + files.size());
    for (found_entry &found : directories) {
        append_dir(store, row, std::move(found.name), row->mount);
        progress_run_main_loop(app);
    }
    for (found_entry &found : files) {
        append_file(store, row, std::move(found.name), found.size);
        progress_run_main_loop(app);
    }
    if (directories.empty() && files.empty() && !row->children.empty())
        file_store_remove(store, row->children.front().get()); // the placeholder
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
