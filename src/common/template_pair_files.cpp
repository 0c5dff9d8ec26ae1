#include "common/template_pair_files.h"

#include "trace_log.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/sendfile.h>
#include <unistd.h>
#include <utility>

namespace template_files {

file_names names_of(list_kind kind)
{
    const template_layout layout = layout_of(kind);
    return {layout.name_file, layout.check_file};
}

file_names beside(list_kind kind, const std::string &suffix)
{
    const auto [nam, chk] = names_of(kind);
    return {".gtk-tarnel-" + nam + suffix, ".gtk-tarnel-" + chk + suffix};
}

bool traced_failure(const char *action, const std::string &name)
{
    trace_log("Cannot %s %s: %s", action, name.c_str(), std::strerror(errno));
    return false;
}

bool exists(int directory, const std::string &name, struct stat *status)
{
    return fstatat(directory, name.c_str(), status, AT_SYMLINK_NOFOLLOW) == 0;
}

// True also without such a file.
static bool hold(changes &made, const std::string &name)
{
    owned_fd file(openat(made.directory, name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!file)
        return errno == ENOENT || traced_failure("open", name);
    made.held.push_back(std::move(file));
    return true;
}

bool remove_file(changes &made, const std::string &name)
{
    return hold(made, name) && (unlinkat(made.directory, name.c_str(), 0) == 0 || errno == ENOENT ||
                                traced_failure("remove", name));
}

bool rename_file(changes &made, const std::string &from, const std::string &to)
{
    return hold(made, to) && (renameat(made.directory, from.c_str(), made.directory, to.c_str()) == 0 ||
                              traced_failure("rename", from));
}

owned_fd open_directory(int beside, const std::string &path)
{
    return owned_fd(openat(beside, path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

// Some file systems have nothing to bring to the disk for a directory and say so with EINVAL.
static bool sync(int directory)
{
    return fsync(directory) == 0 || errno == EINVAL || traced_failure("sync", "the template directory");
}

// On FAT the sync of any directory writes the allocation tables. And until the parent is synced, the clusters
// of a new directory count among what belongs to the parent.
static bool sync_parent(int directory)
{
    const owned_fd parent = open_directory(directory, "..");
    return parent ? sync(parent.get()) : traced_failure("open", "the parent of the template directory");
}

// The parent comes first because syncfs may write the entry of a file on FAT before the tables when the
// kernel writes back by itself meanwhile; the directory last because syncfs does not empty the disk's own
// cache on every file system.
bool settle(changes &made)
{
    if (!sync_parent(made.directory))
        return false;
    if (syncfs(made.directory) != 0)
        return traced_failure("sync", "the file system of the templates");
    if (!sync(made.directory))
        return false;
    made.held.clear();
    return true;
}

bool settle_entries(changes &made)
{
    return sync_parent(made.directory) && sync(made.directory) && settle(made);
}

// The check file first: a name file alone is no template.
bool remove_beside(changes &made, list_kind kind, const char *suffix)
{
    const auto [nam, chk] = beside(kind, suffix);
    return remove_file(made, chk) && remove_file(made, nam);
}

bool remove_all_beside(changes &made, list_kind kind)
{
    return std::ranges::all_of(suffixes, [&](auto suffix) { return remove_beside(made, kind, suffix); }) &&
           settle_entries(made);
}

owned_fd create_file(int directory, const std::string &name, mode_t mode)
{
    owned_fd fd(openat(directory, name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    // A FAT volume knows no permissions and may refuse them.
    if (fd && fchmod(fd.get(), mode & 0777) != 0)
        (void)traced_failure("set the permissions of", name);
    return fd;
}

bool copy_file(int directory, const owned_fd &source, const std::string &to)
{
    struct stat status = {};
    if (!source || fstat(source.get(), &status) != 0)
        return traced_failure("copy to", to);
    const owned_fd copy = create_file(directory, to, status.st_mode);
    off_t from = 0;
    while (copy && from < status.st_size)
        if (sendfile(copy.get(), source.get(), &from, static_cast<std::size_t>(status.st_size - from)) <= 0)
            return traced_failure("copy to", to);
    return copy || traced_failure("copy to", to);
}

owned_fd open_regular_file(int directory, const std::string &name)
{
    return owned_fd(openat(directory, name.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
}

// FAT has no hard links; there the file is copied.
bool second_name(int directory, const std::string &from, const std::string &to)
{
    return linkat(directory, from.c_str(), directory, to.c_str(), 0) == 0 ||
           copy_file(directory, open_regular_file(directory, from), to);
}

bool place(changes &made, const file_names &from, const file_names &to)
{
    for (std::size_t i = 0; i < to.size(); ++i)
        if (from[i] != to[i] && !remove_file(made, to[i]))
            return false;
    if (!settle_entries(made))
        return false;
    for (std::size_t i = 0; i < to.size(); ++i)
        if (from[i] != to[i] && !second_name(made.directory, from[i], to[i]))
            return false;
    return settle(made);
}

} // namespace template_files
