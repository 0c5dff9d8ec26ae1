#include "common/mount_table.h"

#include "common/host.h"
#include "common/owned.h"
#include "trace_log.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <linux/magic.h>
#include <map>
#include <poll.h>
#include <sys/stat.h>
#include <sys/statfs.h>

namespace {

// The tables that the kernel offers, the better one first.
struct table_source {
    const char *path;
    mount_table (*parse)(std::string_view text);
};
constexpr std::array<table_source, 2> sources = {{
    {"/proc/self/mountinfo", parse_mountinfo},
    {"/proc/mounts", parse_mounts},
}};

// An open table and what was read from it.
struct open_table {
    std::string root; // where it was opened below
    owned_fd file;
    mount_table table;
    // Directories by st_dev, as found in this reading of the table: some machines have hundreds of mounts,
    // and a directory gets another device only with a change of the table.
    std::map<std::uint64_t, std::string> known_devices;
};

open_table opened;

// Whether the table has changed since it was opened or last asked for: the kernel tells each descriptor once
// per change, see proc(5).
bool has_changed(int file)
{
    pollfd watched = {file, POLLPRI, 0};
    return poll(&watched, 1, 0) != 0;
}

bool read_whole(int file, std::string &text)
{
    text.clear();
    if (lseek(file, 0, SEEK_SET) != 0)
        return false;
    std::array<char, 16384> block;
    for (;;) {
        const ssize_t got = read(file, block.data(), block.size());
        if (got == 0)
            return true;
        if (got > 0)
            text.append(block.data(), static_cast<std::size_t>(got));
        else if (errno != EINTR)
            return false;
    }
}

// Only the kernel's own file signals changes.
bool signals_changes(int file)
{
    struct statfs status;
    return fstatfs(file, &status) == 0 && status.f_type == PROC_SUPER_MAGIC;
}

const mount_table *read_table(const table_source &source)
{
    opened.known_devices.clear();
    std::string text;
    bool settled = false;
    // A change during the reading can tear the text, so it is read again.
    for (int round = 0; round < 4 && !settled; round++) {
        if (!read_whole(opened.file.get(), text)) {
            const int reason = errno;
            opened.file.reset();
            errno = reason;
            return nullptr;
        }
        settled = !has_changed(opened.file.get());
    }
    opened.table = source.parse(text);
    if (!settled || !signals_changes(opened.file.get()))
        opened.file.reset(); // the next call opens and reads it again
    return &opened.table;
}

// Whether the directory is the path, or one above it.
bool holds(const std::string &directory, const std::string &path)
{
    return path.starts_with(directory) &&
           (directory.ends_with('/') || path.size() == directory.size() || path[directory.size()] == '/');
}

// Whether all of the device's file system may be seen under the mount's directory, as far as the table tells.
bool shows_all(const mount_data &mount, std::uint64_t dev)
{
    return mount.complete && (mount.dev == 0 || mount.dev == dev) &&
           (mount.root.empty() || mount.root == "/");
}

} // namespace

const mount_table *current_mount_table()
{
    const std::string root = host_path("/");
    if (opened.file && opened.root == root && !has_changed(opened.file.get()))
        return &opened.table;
    opened.root = root;
    for (const table_source &source : sources) {
        opened.file = owned_fd(open(host_path(source.path).c_str(), O_RDONLY | O_CLOEXEC));
        if (!opened.file)
            continue;
        if (const mount_table *table = read_table(source))
            return table;
    }
    return nullptr;
}

std::optional<mount_data> mount_data_find(const std::string &path)
{
    const mount_table *table = current_mount_table();
    if (!table) {
        trace_log("Cannot open /proc/mounts");
        return std::nullopt;
    }
    const mount_data *found = nullptr;
    for (const mount_data &mount : table->lines) {
        if (mount.complete && holds(mount.directory, path) &&
            (!found || mount.directory.size() > found->directory.size()))
            found = &mount;
    }
    return found ? std::optional(*found) : std::nullopt;
}

std::optional<std::string> find_mountpoint_for_device(std::uint64_t dev)
{
    trace_log("Find mount point for device with rdev = %d", static_cast<int>(dev));
    const mount_table *table = current_mount_table();
    if (!table) {
        trace_log("Cannot open /proc/mounts");
        return std::nullopt;
    }
    if (const auto known = opened.known_devices.find(dev); known != opened.known_devices.end())
        return known->second;
    for (const mount_data &mount : table->lines) {
        struct stat status;
        // A server that is gone can hold up whoever asks for its directories, so others are not asked.
        if (shows_all(mount, dev) && stat(mount.directory.c_str(), &status) == 0 && status.st_dev == dev) {
            opened.known_devices[dev] = mount.directory;
            return mount.directory;
        }
    }
    return std::nullopt;
}

std::set<std::string, std::less<>> names_mounted_on(const std::string &directory)
{
    std::set<std::string, std::less<>> names;
    const mount_table *table = current_mount_table();
    if (!table)
        return names;
    const std::string above = directory.ends_with('/') ? directory : directory + '/';
    for (auto below = std::ranges::lower_bound(table->directories, above);
         below != table->directories.end() && below->starts_with(above); ++below) {
        if (below->size() > above.size() && below->find('/', above.size()) == std::string::npos)
            names.insert(below->substr(above.size()));
    }
    return names;
}
