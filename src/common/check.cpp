#include "common/check.h"

#include "common/boot_sector.h"
#include "common/disk_notes.h"
#include "common/environment.h"
#include "common/filesystem.h"
#include "common/mount_table.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

namespace {

bool is_later(const timespec &one, const timespec &other)
{
    return one.tv_sec != other.tv_sec ? one.tv_sec > other.tv_sec : one.tv_nsec > other.tv_nsec;
}

// Whatever file system it has.
const part *find_lettered(const std::list<disk> &disks, char letter)
{
    for (const disk &d : disks) {
        const auto found = std::ranges::find(d.parts, letter, &part::letter);
        if (letter && found != d.parts.end())
            return &*found;
    }
    return nullptr;
}

// What a failed look at a name says. A link on the way is no directory for the board.
entry_state state_of_failure(int error)
{
    const bool nothing_there = error == ENOENT || error == ENOTDIR || error == ELOOP || error == ENAMETOOLONG;
    return nothing_there ? entry_state::gone : entry_state::unknown;
}

// The first component of a path, which loses it and what separates it from the next.
std::string_view take_component(std::string_view &path)
{
    path.remove_prefix(std::min(path.find_first_not_of('/'), path.size()));
    const std::string_view component = path.substr(0, path.find('/'));
    path.remove_prefix(component.size());
    return component;
}

// A way up and down again is none that the board takes, nor one that a template of ours holds.
bool is_dots(std::string_view name)
{
    return name == "." || name == "..";
}

} // namespace

entry_state check_sector(environment &env, const sector_record &record)
{
    if (is_boot_sector(env.disks, record))
        return entry_state::unchanged;
    return notes_warn(env.disk_notes) ? entry_state::unknown : entry_state::gone;
}

save_time::save_time(const std::string &directory, list_kind kind)
{
    clock_gettime(CLOCK_REALTIME, &now_);
    struct stat status;
    if (stat((directory + "/" + layout_of(kind).name_file).c_str(), &status) == 0 &&
        !is_later(status.st_mtim, now_))
        saved_ = status.st_mtim;
}

// Anybody may set mtime; one that lies ahead says nothing.
bool save_time::is_before(const struct stat &status) const
{
    return saved_ && (is_later(status.st_ctim, *saved_) ||
                      (is_later(status.st_mtim, *saved_) && !is_later(status.st_mtim, now_)));
}

file_check::file_check(environment &env) : env_(env), saved_(env.pelva_db_path, list_kind::files) {}

// While a disk cannot be read, letters and numbers of others may be wrong, and files not where they seem.
entry_state file_check::missing() const
{
    return notes_warn(env_.disk_notes) ? entry_state::unknown : entry_state::gone;
}

entry_state file_check::state_of(board_names &names, const std::string &record)
{
    const part *partition = find_lettered(env_.disks, record.empty() ? '\0' : record[0]);
    if (!partition)
        return missing();
    // One with another use holds none of the board's files any more; of another nobody can tell.
    if (!is_supported_fs(*partition))
        return partition->fs_type || partition->swap || partition->lvm ? missing() : entry_state::unknown;
    if (!partition->mount_point)
        return entry_state::unknown;
    const std::optional<std::string> path = names.shown_path(*partition, record);
    if (!path)
        return names.can_read(*partition) ? missing() : entry_state::unknown;
    const entry_state state = look_up(*partition, *path);
    if (state != entry_state::gone)
        return state;
    // On FAT it was found on the disk: the mount shows it by another name.
    return is_fat_fs(*partition) ? entry_state::unknown : missing();
}

entry_state file_check::look_up(const part &partition, std::string_view path)
{
    const std::size_t name = path.rfind('/') + 1; // 0 when there is no slash
    const entry_state way = go_to(partition, path.substr(0, name));
    return way == entry_state::unchanged ? judge(std::string(path.substr(name))) : way;
}

entry_state file_check::go_to_root(const part &partition)
{
    if (partition_ == &partition)
        return entry_state::unchanged;
    partition_ = nullptr;
    way_.clear();
    const std::string root = partition.mount_point.value_or("");
    owned_fd file(open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    struct stat status;
    if (!file || fstat(file.get(), &status) != 0 || (partition.dev && partition.dev != status.st_dev))
        return entry_state::unknown;
    dev_ = status.st_dev;
    way_.push_back({root == "/" ? "" : root, std::move(file), names_mounted_on(root)});
    partition_ = &partition;
    return entry_state::unchanged;
}

// Unchanged when the way leads there; then it ends with the directory.
entry_state file_check::go_to(const part &partition, std::string_view directory)
{
    if (const entry_state root = go_to_root(partition); root != entry_state::unchanged)
        return root;
    std::size_t depth = 1;
    for (std::string_view name; !(name = take_component(directory)).empty(); ++depth) {
        const std::string path = way_[depth - 1].path + "/" + std::string(name);
        if (depth < way_.size() && way_[depth].path == path)
            continue;
        way_.erase(way_.begin() + static_cast<std::ptrdiff_t>(depth), way_.end());
        if (is_dots(name) || way_.back().mounted.contains(name))
            return entry_state::unknown;
        owned_fd file(openat(way_.back().file.get(), std::string(name).c_str(),
                             O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!file)
            return state_of_failure(errno);
        way_.push_back({path, std::move(file), names_mounted_on(path)});
    }
    way_.erase(way_.begin() + static_cast<std::ptrdiff_t>(depth), way_.end());
    return entry_state::unchanged;
}

// A file of the directory at which the way ends.
entry_state file_check::judge(const std::string &name) const
{
    struct stat status;
    if (name.empty())
        return entry_state::gone; // a directory
    if (is_dots(name) || way_.back().mounted.contains(name))
        return entry_state::unknown;
    if (fstatat(way_.back().file.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT) != 0)
        return state_of_failure(errno);
    if (!S_ISREG(status.st_mode))
        return entry_state::gone;
    if (!knows_time() || status.st_dev != dev_)
        return entry_state::unknown;
    return saved_.is_before(status) ? entry_state::changed : entry_state::unchanged;
}
