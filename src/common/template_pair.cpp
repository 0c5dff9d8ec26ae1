#include "common/template_pair.h"

#include "common/template_pair_recovery.h"
#include "trace_log.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <utility>

// clang-format off
// What holds at every moment, on the disk as well as in memory. A pair is whole when both files are there,
// agree with each other and hold exactly the records that they claim. "The pair" is the one in use, under the
// names that the firmware reads.
//
//  1. What is to become the pair is whole, and on the disk, before anything of the pair is touched.
//  2. A whole pair is replaced by two renames, the name file's first. Before the first of them both .old are on
//     the disk: second names (on FAT copies) of that pair. They go when the new pair is on the disk, and a
//     save is reported when that is on the disk, too: beside a whole .old pair, the old one may always come
//     back.
//  3. A pair that is absent or not whole has no .old. It gets second names (on FAT copies) of its successor's
//     files, and these go when the new pair is on the disk.
//  4. No step removes the last whole pair. While nothing is whole nothing is removed: a save then writes under
//     the names .next, and what lies there goes when the new pair is on the disk.
//  5. When anything fails, the pair is again what it was before the save, and the files of the save are removed.
//     Where that fails, too, they stay for the recovery.
//  6. On FAT no two entries have clusters in common, and no entry has clusters that are free; removing the one
//     file would free what the other is made of, and the kernel makes a volume read-only on which it meets a
//     free cluster. Hence
//     a. contents come to the disk by syncfs behind a sync of the parent directory, which writes the allocation
//        tables; syncfs alone may write a file's entry before them, and the fsync of a file always does;
//     b. after a rename the entry of the target is changed in memory only, until the file's own inode is
//        written; the directory is synced first, which removes the entry of the source, then comes syncfs;
//     c. what is removed or replaced is held open until the directory is on the disk without it: its clusters
//        are freed when it is closed. A cut before that costs these clusters, until the volume is checked.
//
// What the recovery finds, and what it does. The first line that fits decides; then everything of ours beside
// the pair is removed, but for the last line.
//
//   the pair whole; both .old whole, and one half of the       both .old come back: between the renames of a
//     pair equal to that of .old, the other not                  save that was not reported
//   the pair whole                                             it stands
//   both .old whole                                            they come back
//   both .new whole                                            they become the pair
//   both .next whole                                           they become the pair
//   a file of the pair and the other one's .new, or .old,      they become the pair: other programs' work, as
//     whole                                                      that of one that checks file systems
//   nothing whole                                              all stays
//
// A file that comes back or becomes part of the pair gets there as in 3, so a recovery that is cut short
// finds the same line again. A file that cannot be read, or a step that fails, ends it: all stays for the
// next start.
// clang-format on

using namespace template_files; // NOLINT: this is a part of that

namespace {

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
