#include "common/template_pair.h"

#include "trace_log.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

// What holds at every moment, on the disk as well as in memory. A pair is whole when both files are there,
// agree with each other and hold exactly the records that they claim. "The pair" is the one in use, under the
// names that the firmware reads.
//
//  1. What is to become the pair is whole, and on the disk, before anything of the pair is touched.
//  2. A whole pair is replaced by two renames, the name file's first. Before the first of them both .old are
//  on
//     the disk: second names (on FAT copies) of that pair. They go when the new pair is on the disk, and a
//     save is reported when that is on the disk, too: beside a whole .old pair, the old one may always come
//     back.
//  3. A pair that is absent or not whole has no .old. It gets second names (on FAT copies) of its successor's
//     files, and these go when the new pair is on the disk.
//  4. No step removes the last whole pair. While nothing is whole nothing is removed: a save then writes
//  under
//     the names .next, and what lies there goes when the new pair is on the disk.
//  5. When anything fails, the pair is again what it was before the save, and the files of the save are
//  removed.
//     Where that fails, too, they stay for the recovery.
//  6. On FAT no two entries have clusters in common, and no entry has clusters that are free; removing the
//  one
//     file would free what the other is made of, and the kernel makes a volume read-only on which it meets a
//     free cluster. Hence
//     a. contents come to the disk by syncfs, which writes the allocation tables before the directories; the
//        fsync of a file does it the other way round;
//     b. after a rename the entry of the target is changed in memory only, until the file's own inode is
//        written; the directory is synced first, which removes the entry of the source, then comes syncfs;
//     c. what is removed or replaced is held open until the directory is on the disk without it: its clusters
//        are freed when it is closed. A cut before that costs these clusters, until the volume is checked.
//
// What the recovery finds, and what it does. The first line that fits decides; then everything of ours beside
// the pair is removed, but for the last line.
//
//   the pair whole; both .old whole, and one half of the pair       both .old come back: between the renames
//   of a
//     equal to that of .old, the other not                            save that was not reported
//   the pair whole                                                  it stands
//   both .old whole                                                 they come back
//   both .new whole                                                 they become the pair
//   both .next whole                                                they become the pair
//   a file of the pair and the other one's .new, or .old, whole     they become the pair: other programs'
//   work, as
//                                                                     that of one that checks file systems
//   nothing whole                                                   all stays
//
// A file that comes back or becomes part of the pair gets there as in 3, so a recovery that is cut short
// finds the same line again. A file that cannot be read, or a step that fails, ends it: all stays for the
// next start.

namespace {

// Of the name file and the check file; this is the order in which they are replaced.
using file_names = std::array<std::string, 2>;

// The new pair while it is being written, the old one for as long as the replacement can still be taken back,
// and the new one where remains of an earlier save lie under these names.
constexpr const char *suffixes[] = {".new", ".old", ".next"};

file_names names_of(list_kind kind)
{
    const template_layout layout = layout_of(kind);
    return {layout.name_file, layout.check_file};
}

// Nobody else uses these names; "bootfile.nam.old" may be the administrator's own copy.
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

// The template directory, and what was removed or replaced in it since it was last brought to the disk.
struct changes {
    int directory;
    std::vector<owned_fd> held;
};

// True also without such a file.
bool hold(changes &made, const std::string &name)
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

// Until the parent is synced, FAT counts the clusters of a new directory among what belongs to the parent.
bool sync_directory(int directory)
{
    const owned_fd parent = open_directory(directory, "..");
    // Some file systems have nothing to bring to the disk for a directory and say so with EINVAL.
    return (parent && (fsync(parent.get()) == 0 || errno == EINVAL) &&
            (fsync(directory) == 0 || errno == EINVAL)) ||
           traced_failure("sync", "the template directory");
}

// Brings everything to the disk. The directory comes last because syncfs does not empty the disk's own cache
// on every file system.
bool settle(changes &made)
{
    if (syncfs(made.directory) != 0)
        return traced_failure("sync", "the file system of the templates");
    if (!sync_directory(made.directory))
        return false;
    made.held.clear();
    return true;
}

// The same for what was removed or renamed, of which FAT must not keep a file's new entry without losing the
// old one. Elsewhere it takes syncfs: without a journal the directory's own sync may leave entries behind.
bool settle_entries(changes &made)
{
    return sync_directory(made.directory) && settle(made);
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

// A new, empty file that is not reached through anything that lay there before, with the permissions of a
// file beside it.
owned_fd create_file(int directory, const std::string &name, mode_t mode)
{
    owned_fd fd(openat(directory, name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    // A FAT volume knows no permissions and may refuse them.
    if (fd && fchmod(fd.get(), mode & 0777) != 0)
        (void)traced_failure("set the permissions of", name);
    return fd;
}

// Keeps the reason of the first failure. Always false.
bool failed(template_pair &pair)
{
    if (!pair.error)
        pair.error = errno ? errno : EIO;
    return false;
}

const char *own_suffix(const template_pair &pair)
{
    return pair.remains ? ".next" : ".new";
}

// The file that is to replace `name`, with its permissions.
owned_file create_stream(template_pair &pair, const std::string &name, const std::string &new_name)
{
    const int directory = pair.directory.get();
    struct stat status = {};
    errno = 0;
    owned_fd fd;
    if (exists(directory, name, &status) && S_ISDIR(status.st_mode)) {
        errno = EISDIR;
    } else {
        // What lies under this name in spite of the recovery has never been a template.
        changes made{directory, {}};
        if (remove_file(made, new_name) && (made.held.empty() || settle_entries(made)))
            fd = create_file(directory, new_name, S_ISREG(status.st_mode) ? status.st_mode : 0644);
    }
    owned_file stream(fd ? fdopen(fd.get(), "wb+") : nullptr);
    if (stream) {
        fd.release();
        return stream;
    }
    (void)failed(pair);
    trace_log("Cannot open file for writing: %s/%s", pair.path.c_str(), name.c_str());
    return stream;
}

// Hands a finished file over to the system.
bool complete(std::FILE *stream, std::uint32_t claimed, std::uint32_t records)
{
    return ((claimed == records || rewrite_record_count(stream, records)) && std::fflush(stream) == 0) ||
           traced_failure("complete", "the new template");
}

// Only what the disk itself has to say of the file is still missing.
bool close_on_disk(owned_file &stream)
{
    return (fsync(fileno(stream.get())) == 0 && std::fclose(stream.release()) == 0) ||
           traced_failure("complete", "the new template");
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

// Puts a whole pair into the place of one that is not, by second names; a file of which both names are the
// same stands where it belongs.
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

// --- The recovery. `error` becomes the errno of a call that failed although something may be there: then it
// is not known what an interrupted save has left, and nothing may be changed.

owned_file open_remains(int directory, const std::string &name, int &error)
{
    struct stat status = {};
    if (!exists(directory, name, &status)) {
        if (errno != ENOENT)
            error = errno;
        return nullptr;
    }
    owned_file stream = S_ISREG(status.st_mode) ? open_template_file(directory, name, O_NOFOLLOW) : nullptr;
    if (!stream && S_ISREG(status.st_mode))
        error = errno;
    return stream;
}

bool is_whole(int directory, list_kind kind, const file_names &names, int &error)
{
    const owned_file nam = open_remains(directory, names[0], error);
    const owned_file chk = open_remains(directory, names[1], error);
    template_header nam_header{};
    template_header chk_header{};
    if (!nam || !chk)
        return false;
    if (!read_structures(nam.get(), chk.get(), nam_header, chk_header)) {
        if (std::ferror(nam.get()) || std::ferror(chk.get()))
            error = EIO;
        return false;
    }
    const std::optional<bool> whole = is_whole_pair(nam.get(), nam_header, chk.get(), chk_header, kind);
    if (!whole)
        error = EIO;
    return whole.value_or(false);
}

bool same_content(int directory, const std::string &one, const std::string &other, int &error)
{
    const owned_file left = open_remains(directory, one, error),
                     right = open_remains(directory, other, error);
    std::array<char, 4096> left_bytes{}, right_bytes{};
    while (left && right) {
        const std::size_t size = std::fread(left_bytes.data(), 1, left_bytes.size(), left.get());
        const std::size_t same = std::fread(right_bytes.data(), 1, right_bytes.size(), right.get());
        if (std::ferror(left.get()) || std::ferror(right.get()))
            error = EIO;
        if (error || size != same || !std::equal(left_bytes.begin(), left_bytes.end(), right_bytes.begin()))
            return false;
        if (size < left_bytes.size())
            return true;
    }
    return false;
}

// The files that are to be the pair; nothing when no two of them are whole.
std::optional<file_names> find_whole(int directory, list_kind kind, int &error)
{
    const file_names used = names_of(kind), old = beside(kind, ".old"), made = beside(kind, ".new");
    const bool whole = is_whole(directory, kind, used, error);
    if (whole &&
        (!is_whole(directory, kind, old, error) ||
         same_content(directory, used[0], old[0], error) == same_content(directory, used[1], old[1], error)))
        return used;
    for (const file_names &names :
         {old, made, beside(kind, ".next"), file_names{used[0], made[1]}, file_names{made[0], used[1]},
          file_names{used[0], old[1]}, file_names{old[0], used[1]}})
        if (!error && is_whole(directory, kind, names, error))
            return names;
    return std::nullopt;
}

// 0, or the reason why something still lies there. `remains` becomes true when nothing was whole.
int put_right(int directory, list_kind kind, bool &remains)
{
    int error = 0;
    const std::optional<file_names> whole = find_whole(directory, kind, error);
    if (error) {
        trace_log("Cannot tell what was left: %s", std::strerror(error));
        return error;
    }
    remains = !whole;
    if (remains) {
        trace_log("Nothing that was left is whole: it stays");
        return 0;
    }
    errno = 0;
    changes made{directory, {}};
    const bool done = place(made, *whole, names_of(kind)) && remove_all_beside(made, kind);
    return done ? 0 : errno ? errno : EIO;
}

int recover(int directory, list_kind kind, bool &remains)
{
    struct stat status = {};
    for (const char *suffix : suffixes)
        for (const std::string &name : beside(kind, suffix)) {
            if (exists(directory, name, &status)) {
                trace_log("A save was interrupted: %s was left", name.c_str());
                return put_right(directory, kind, remains);
            }
            if (errno != ENOENT)
                return errno;
        }
    return 0;
}

// --- The replacement.

// The file in use before it is replaced.
struct predecessor {
    bool existed = false;
    owned_fd file; // of a regular one
};

bool look_at(int directory, const std::string &name, predecessor &before)
{
    struct stat status = {};
    before.existed = exists(directory, name, &status);
    if (!before.existed)
        return errno == ENOENT || traced_failure("find", name);
    if (S_ISREG(status.st_mode))
        before.file = open_regular_file(directory, name);
    return !S_ISREG(status.st_mode) || before.file || traced_failure("open", name);
}

// Where a whole pair was replaced, .old comes back. It must be whole once more if its removal was what
// failed.
bool bring_back_old(changes &made, list_kind kind, const std::array<predecessor, 2> &before)
{
    const file_names old = beside(kind, ".old");
    struct stat status = {};
    for (std::size_t i = 0; i < old.size(); ++i)
        if (!exists(made.directory, old[i], &status) && !copy_file(made.directory, before[i].file, old[i]))
            return false;
    return settle(made) && place(made, old, names_of(kind));
}

// Where nothing whole was replaced, the new pair still lies beside what comes back here.
bool bring_back_remains(changes &made, list_kind kind, const std::array<predecessor, 2> &before)
{
    const file_names used = names_of(kind);
    for (const std::string &name : used)
        if (!remove_file(made, name))
            return false;
    if (!settle_entries(made))
        return false;
    for (std::size_t i = 0; i < used.size(); ++i)
        if (before[i].existed && !copy_file(made.directory, before[i].file, used[i]))
            return false;
    return settle(made);
}

// Nothing is synced between the renames: on a journalling file system they then reach the disk together, and
// a power cut finds either none or both done. `begun` says whether there is anything to take back.
bool rename_over(changes &made, list_kind kind, const file_names &from, const file_names &used, bool &begun)
{
    begun = rename_file(made, from[0], used[0]);
    return begun && rename_file(made, from[1], used[1]) && settle_entries(made) &&
           remove_all_beside(made, kind);
}

// The files written are closed, and on the disk, when anything of the pair in use is touched.
bool replace_files(template_pair &pair)
{
    const int directory = pair.directory.get();
    const file_names used = names_of(pair.kind), from = beside(pair.kind, own_suffix(pair)),
                     old = beside(pair.kind, ".old");
    changes made{directory, {}};
    std::array<predecessor, 2> before;
    int unreadable = 0;
    const bool whole = !pair.remains && is_whole(directory, pair.kind, used, unreadable);
    for (std::size_t i = 0; i < used.size(); ++i)
        if (!look_at(directory, used[i], before[i]) || (whole && !second_name(directory, used[i], old[i])))
            return failed(pair);
    if (!settle(made) || !close_on_disk(pair.nam) || !close_on_disk(pair.chk))
        return failed(pair);
    bool begun = true;
    if (whole ? rename_over(made, pair.kind, from, used, begun) : place(made, from, used)) {
        // Where nothing was whole before, the new pair does not depend on what still lies there.
        (void)(whole || remove_all_beside(made, pair.kind));
        pair.leave_beside = true;
        return true;
    }
    (void)failed(pair);
    pair.leave_beside = begun && !(whole ? bring_back_old : bring_back_remains)(made, pair.kind, before);
    return false;
}

} // namespace

template_pair::template_pair(std::string directory_path, list_kind list, owned_fd opened)
    : path(std::move(directory_path)), kind(list), directory(std::move(opened))
{
}

template_pair::~template_pair()
{
    if (!directory || leave_beside)
        return;
    changes made{directory.get(), {}};
    if (remove_beside(made, kind, own_suffix(*this)) && (remains || remove_beside(made, kind, ".old")))
        (void)settle_entries(made);
}

std::unique_ptr<template_pair> open_template_pair(const std::string &directory, list_kind kind)
{
    auto pair = std::make_unique<template_pair>(directory, kind, open_directory(AT_FDCWD, directory));
    const auto [nam, chk] = names_of(kind);
    // A save that could not be taken back may have left half of the pair in use here.
    if (!pair->directory || (pair->error = recover(pair->directory.get(), kind, pair->remains)) != 0) {
        pair->interrupted = pair->error != 0;
        (void)failed(*pair);
        pair->leave_beside = true;
        trace_log("Cannot open file for writing: %s/%s", directory.c_str(), nam.c_str());
        return pair;
    }
    const auto [new_nam, new_chk] = beside(kind, own_suffix(*pair));
    if ((pair->nam = create_stream(*pair, nam, new_nam)))
        pair->chk = create_stream(*pair, chk, new_chk);
    return pair;
}

bool write_template_headers(template_pair &pair, const std::string &directory_path, std::uint32_t count)
{
    pair.claimed = count;
    return fill_structures(pair.nam.get(), pair.chk.get(), directory_path, count, pair.kind) || failed(pair);
}

bool write_template_record(template_pair &pair, std::span<const std::uint8_t> record)
{
    constexpr std::array<std::uint8_t, check_value_size> check_value{};
    if (pair.error || std::fwrite(record.data(), 1, record.size(), pair.nam.get()) != record.size() ||
        std::fwrite(check_value.data(), 1, check_value.size(), pair.chk.get()) != check_value.size())
        return failed(pair);
    ++pair.records;
    return true;
}

bool replace_template(template_pair &pair)
{
    if (pair.error || !complete(pair.nam.get(), pair.claimed, pair.records) ||
        !complete(pair.chk.get(), pair.claimed, pair.records))
        return failed(pair);
    return replace_files(pair);
}

void recover_templates(const std::string &directory)
{
    const owned_fd opened = open_directory(AT_FDCWD, directory);
    if (!opened)
        return;
    for (const list_kind kind : {list_kind::files, list_kind::sectors}) {
        bool remains = false;
        if (const int error = recover(opened.get(), kind, remains))
            trace_log("The save stays interrupted until the next start: %s", std::strerror(error));
    }
}

std::vector<std::string> interrupted_save(const std::string &directory, list_kind kind)
{
    std::vector<std::string> names;
    const owned_fd opened = open_directory(AT_FDCWD, directory);
    struct stat status = {};
    int error = 0;
    if (!opened || (!find_whole(opened.get(), kind, error) && !error))
        return names;
    for (const char *suffix : suffixes)
        for (const std::string &name : beside(kind, suffix))
            if (exists(opened.get(), name, &status))
                names.push_back(name);
    std::ranges::sort(names);
    return names;
}
