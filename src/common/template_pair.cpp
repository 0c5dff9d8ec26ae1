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
#include <utility>

namespace {

// Beside bootfile.nam: its successor while it is being written, and its predecessor for as long as the
// replacement can still be taken back.
std::string new_name(const std::string &name)
{
    return ".gtk-tarnel-" + name + ".new";
}

std::string old_name(const std::string &name)
{
    return ".gtk-tarnel-" + name + ".old";
}

// The name file first: this is the order in which the two files are replaced.
std::array<std::string, 2> names_of(list_kind kind)
{
    const template_layout layout = layout_of(kind);
    return {layout.name_file, layout.check_file};
}

bool traced_failure(const char *action, const std::string &name)
{
    trace_log("Cannot %s %s: %s", action, name.c_str(), std::strerror(errno));
    return false;
}

// A directory that lies there is none of our leftovers.
bool remove_file(int directory, const std::string &name)
{
    return unlinkat(directory, name.c_str(), 0) == 0 || errno == ENOENT || errno == EISDIR ||
           traced_failure("remove", name);
}

bool rename_file(int directory, const std::string &from, const std::string &to)
{
    return renameat(directory, from.c_str(), directory, to.c_str()) == 0 || traced_failure("rename", from);
}

// Our names are such that nobody else uses them; "bootfile.nam.old" may be the administrator's own copy.
//
// The order tells the next start how far a save came: a new check file alone would ask for its renaming to be
// finished, an old check file alone for its return. So nothing goes before what stands in front of it here.
bool remove_beside(int directory, list_kind kind)
{
    const auto [nam, chk] = names_of(kind);
    for (const std::string &name : {new_name(chk), new_name(nam), old_name(chk), old_name(nam)})
        if (!remove_file(directory, name))
            return false;
    return true;
}

bool exists(int directory, const std::string &name, struct stat *status)
{
    return fstatat(directory, name.c_str(), status, AT_SYMLINK_NOFOLLOW) == 0;
}

// A new, empty file that is not reached through anything that lay there before, with the permissions of the
// file that it is to replace.
owned_fd create_beside(int directory, const std::string &name, const std::string &beside)
{
    struct stat status = {};
    mode_t mode = 0644;
    if (exists(directory, name, &status)) {
        if (S_ISDIR(status.st_mode)) {
            errno = EISDIR;
            return owned_fd();
        }
        if (S_ISREG(status.st_mode))
            mode = status.st_mode & 0777;
    }
    if (!remove_file(directory, beside))
        return owned_fd();
    owned_fd fd(openat(directory, beside.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    // A FAT volume knows no permissions and may refuse them.
    if (fd && fchmod(fd.get(), mode) != 0)
        (void)traced_failure("set the permissions of", beside);
    return fd;
}

// Keeps the reason of the first failure. Always false.
bool failed(template_pair &pair)
{
    if (!pair.error)
        pair.error = errno ? errno : EIO;
    return false;
}

owned_file create_stream(template_pair &pair, const std::string &name)
{
    errno = 0;
    owned_fd fd = create_beside(pair.directory.get(), name, new_name(name));
    owned_file stream(fd ? fdopen(fd.get(), "wb+") : nullptr);
    if (stream) {
        fd.release();
        return stream;
    }
    (void)failed(pair);
    trace_log("Cannot open file for writing: %s/%s", pair.path.c_str(), name.c_str());
    return stream;
}

// Brings a finished file to the disk and closes it.
bool complete(owned_file &stream, std::uint32_t claimed, std::uint32_t records)
{
    const bool counted = claimed == records || rewrite_record_count(stream.get(), records);
    if (!counted || std::fflush(stream.get()) != 0 || fsync(fileno(stream.get())) != 0)
        return traced_failure("complete", "the new template");
    return std::fclose(stream.release()) == 0 || traced_failure("close", "the new template");
}

// FAT has no hard links; there the old file is copied.
bool copy_file(int directory, const std::string &from, const std::string &to)
{
    const owned_fd source(openat(directory, from.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    const owned_fd copy = create_beside(directory, from, to);
    struct stat status = {};
    if (!source || !copy || fstat(source.get(), &status) != 0)
        return traced_failure("copy", from);
    for (off_t left = status.st_size; left > 0;) {
        const ssize_t sent = sendfile(copy.get(), source.get(), nullptr, static_cast<std::size_t>(left));
        if (sent <= 0)
            return traced_failure("copy", from);
        left -= sent;
    }
    return fsync(copy.get()) == 0 || traced_failure("copy", from);
}

// Gives the file in use a second name, under which it outlives its replacement. True also without such a
// file.
bool keep_old(int directory, const std::string &name)
{
    struct stat status = {};
    if (!exists(directory, name, &status))
        return errno == ENOENT;
    return linkat(directory, name.c_str(), directory, old_name(name).c_str(), 0) == 0 ||
           copy_file(directory, name, old_name(name));
}

// Undoes a replacement. Without a predecessor there was no such file before.
bool restore_old(int directory, const std::string &name)
{
    struct stat status = {};
    if (exists(directory, old_name(name), &status))
        return rename_file(directory, old_name(name), name);
    return errno == ENOENT && remove_file(directory, name);
}

bool sync_directory(int directory)
{
    // Some file systems have nothing to bring to the disk for a directory and say so with EINVAL.
    return fsync(directory) == 0 || errno == EINVAL || traced_failure("sync", "the template directory");
}

// Both renames or none. Nothing is synced between them: on a journalling file system they then reach the disk
// together, and a power cut finds either none or both done.
bool replace_files(template_pair &pair)
{
    const int directory = pair.directory.get();
    const auto [nam, chk] = names_of(pair.kind);
    if (!keep_old(directory, nam) || !keep_old(directory, chk) || !rename_file(directory, new_name(nam), nam))
        return failed(pair);
    if (!rename_file(directory, new_name(chk), chk)) {
        (void)failed(pair);
        // If even the way back is barred, the complete new check file must stay for the next start.
        pair.leave_to_recovery = !restore_old(directory, nam);
        return false;
    }
    if (sync_directory(directory))
        return true;
    (void)failed(pair);
    pair.leave_to_recovery = !restore_old(directory, nam) || !restore_old(directory, chk);
    return false;
}

// --- The recovery. `error` becomes the errno of a call that failed although something may be there: then it
// is not known what an interrupted save has left, and nothing may be changed.

bool is_regular_file(int directory, const std::string &name, int &error)
{
    struct stat status = {};
    if (exists(directory, name, &status))
        return S_ISREG(status.st_mode);
    if (errno != ENOENT)
        error = errno;
    return false;
}

owned_file open_remains(int directory, const std::string &name, int &error)
{
    if (!is_regular_file(directory, name, error))
        return nullptr;
    owned_file stream = open_template_file(directory, name, O_NOFOLLOW);
    if (!stream)
        error = errno;
    return stream;
}

// Whether both files are there, agree with each other, and hold exactly the records that they claim.
bool is_whole(int directory, list_kind kind, const std::string &nam_name, const std::string &chk_name,
              int &error)
{
    const owned_file nam = open_remains(directory, nam_name, error);
    const owned_file chk = open_remains(directory, chk_name, error);
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

// The rename that completes a replacement of which one rename is done, or that takes it back; two empty names
// when none is missing.
std::pair<std::string, std::string> missing_rename(int directory, list_kind kind, int &error)
{
    const auto [nam, chk] = names_of(kind);
    const bool nam_left = is_regular_file(directory, new_name(nam), error);
    const bool chk_left = is_regular_file(directory, new_name(chk), error);
    if (nam_left && chk_left)
        return {}; // not one rename was done
    // The name file returns first when a replacement is taken back.
    if (is_regular_file(directory, old_name(chk), error) &&
        !is_regular_file(directory, old_name(nam), error) &&
        is_whole(directory, kind, nam, old_name(chk), error))
        return {old_name(chk), chk};
    if (chk_left && is_whole(directory, kind, nam, new_name(chk), error))
        return {new_name(chk), chk};
    // Without a journal the renames may reach the disk in the other order.
    if (nam_left && !is_whole(directory, kind, nam, chk, error) &&
        is_whole(directory, kind, new_name(nam), chk, error))
        return {new_name(nam), nam};
    return {};
}

// Completes or takes back what an interrupted save has begun, then removes what it left. 0, or the reason why
// something still lies there.
int put_right(int directory, list_kind kind)
{
    int error = 0;
    const auto [from, to] = missing_rename(directory, kind, error);
    if (error) {
        trace_log("Cannot tell what was left: %s", std::strerror(error));
        return error;
    }
    const std::string new_chk = new_name(names_of(kind)[1]);
    errno = 0;
    // Once the old check file is back, a new one beside it would look like a rename that is missing.
    const bool forward =
        from.empty() || from == new_chk || (remove_file(directory, new_chk) && sync_directory(directory));
    const bool done = forward &&
                      (from.empty() || (rename_file(directory, from, to) && sync_directory(directory))) &&
                      remove_beside(directory, kind) && sync_directory(directory);
    return done ? 0 : errno ? errno : EIO;
}

int recover(int directory, list_kind kind)
{
    struct stat status = {};
    const auto [nam, chk] = names_of(kind);
    for (const std::string &name : {new_name(nam), new_name(chk), old_name(nam), old_name(chk)}) {
        if (exists(directory, name, &status)) {
            trace_log("A save was interrupted: %s was left", name.c_str());
            return put_right(directory, kind);
        }
        if (errno != ENOENT)
            return errno;
    }
    return 0;
}

owned_fd open_template_directory(const std::string &path)
{
    return owned_fd(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

} // namespace

template_pair::template_pair(std::string directory_path, list_kind list, owned_fd opened)
    : path(std::move(directory_path)), kind(list), directory(std::move(opened))
{
}

template_pair::~template_pair()
{
    if (directory && !leave_to_recovery)
        (void)remove_beside(directory.get(), kind);
}

std::unique_ptr<template_pair> open_template_pair(const std::string &directory, list_kind kind)
{
    auto pair = std::make_unique<template_pair>(directory, kind, open_template_directory(directory));
    const auto [nam, chk] = names_of(kind);
    // A save that could not be taken back may have left half of the pair in use here.
    if (!pair->directory || (pair->error = recover(pair->directory.get(), kind)) != 0) {
        pair->interrupted = pair->error != 0;
        (void)failed(*pair);
        pair->leave_to_recovery = true;
        trace_log("Cannot open file for writing: %s/%s", directory.c_str(), nam.c_str());
        return pair;
    }
    if ((pair->nam = create_stream(*pair, nam)))
        pair->chk = create_stream(*pair, chk);
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
    if (pair.error || !complete(pair.nam, pair.claimed, pair.records) ||
        !complete(pair.chk, pair.claimed, pair.records))
        return failed(pair);
    return replace_files(pair);
}

void recover_templates(const std::string &directory)
{
    const owned_fd opened = open_template_directory(directory);
    if (!opened)
        return;
    for (const list_kind kind : {list_kind::files, list_kind::sectors})
        if (const int error = recover(opened.get(), kind))
            trace_log("The save stays interrupted until the next start: %s", std::strerror(error));
}

std::vector<std::string> interrupted_save(const std::string &directory, list_kind kind)
{
    std::vector<std::string> names;
    const owned_fd opened = open_template_directory(directory);
    struct stat status = {};
    for (const std::string &name : names_of(kind))
        for (const std::string &beside : {new_name(name), old_name(name)})
            if (opened && exists(opened.get(), beside, &status))
                names.push_back(beside);
    std::ranges::sort(names);
    return names;
}
