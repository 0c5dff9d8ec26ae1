// Putting right what an interrupted save has left. The head of template_pair.cpp has the table of what is
// found and what is done.
#include "common/template_pair_recovery.h"

#include "common/template_pair.h"
#include "trace_log.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <optional>

using namespace template_files; // NOLINT: this is a part of that

namespace {

// `error` becomes the errno of a call that failed although something may be there: then it
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

} // namespace

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

namespace {

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

} // namespace

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
