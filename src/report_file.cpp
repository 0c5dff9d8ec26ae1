#include "report_file.h"

#include "common/filesystem.h"
#include "trace_log.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>

namespace {

// As many links as the kernel follows.
constexpr int most_links = 40;

bool fail(int error)
{
    errno = error;
    return false;
}

// Opens the directory of the path, relative to the one held so far, and takes what has the name there.
bool take_step(report_place &place, const std::string &path)
{
    const std::size_t name = path.rfind('/') + 1; // 0 without a slash
    const std::string directory = name ? path.substr(0, name) : ".";
    const int from = place.directory ? place.directory.get() : AT_FDCWD;
    owned_fd next(openat(from, directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!next)
        return false;
    place.directory = std::move(next);
    place.name = path.substr(name);
    place.old_file =
        owned_fd(openat(place.directory.get(), place.name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    return place.old_file || errno == ENOENT;
}

bool is_same_file(const struct stat &one, const struct stat &other)
{
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

// Whether the name is that of the file that was judged.
bool names_old_file(const report_place &place, const std::string &name)
{
    struct stat judged = {}, named = {};
    return fstat(place.old_file.get(), &judged) == 0 &&
           fstatat(place.directory.get(), name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
           is_same_file(judged, named);
}

// What is left of it is no reason to call a report that has its name a failure.
bool remove_beside(const report_file &file)
{
    if (unlinkat(file.place.directory.get(), file.temporary.c_str(), 0) != 0)
        trace_log("Cannot remove %s: %s", file.temporary.c_str(), std::strerror(errno));
    return true;
}

// Gives a new file its name. Some file systems know neither way of doing so in one step; there somebody who
// may write to the directory can have an entry of it replaced, and nothing else.
bool name_new_file(const report_file &file)
{
    const int directory = file.place.directory.get();
    const char *from = file.temporary.c_str(), *to = file.place.name.c_str();
    if (renameat2(directory, from, directory, to, RENAME_NOREPLACE) == 0)
        return true;
    if (errno != EINVAL && errno != ENOSYS)
        return false;
    if (linkat(directory, from, directory, to, 0) == 0)
        return remove_beside(file);
    struct stat status = {};
    if (errno == EEXIST || fstatat(directory, to, &status, AT_SYMLINK_NOFOLLOW) == 0)
        return fail(EEXIST);
    return renameat(directory, from, directory, to) == 0;
}

// Changes places with the old file, so that it can be looked at before it goes.
bool replace_old_file(const report_file &file)
{
    const int directory = file.place.directory.get();
    const char *from = file.temporary.c_str(), *to = file.place.name.c_str();
    const auto exchange = [&] { return renameat2(directory, from, directory, to, RENAME_EXCHANGE) == 0; };
    if (exchange()) {
        if (names_old_file(file.place, file.temporary))
            return remove_beside(file);
        (void)!exchange();
        return fail(EEXIST);
    }
    if (errno == ENOENT)
        return name_new_file(file); // somebody has removed it
    if (errno != EINVAL && errno != ENOSYS)
        return false;
    return names_old_file(file.place, file.place.name) ? renameat(directory, from, directory, to) == 0
                                                       : fail(EEXIST);
}

} // namespace

bool find_report_place(report_place &place, const std::string &path, bool &is_link)
{
    is_link = false;
    if (!take_step(place, path))
        return false;
    for (int links = 0; place.old_file; links++) {
        struct stat status = {};
        if (fstat(place.old_file.get(), &status) != 0)
            return false;
        if (!S_ISLNK(status.st_mode))
            return true;
        is_link = true;
        std::array<char, PATH_MAX> target;
        const ssize_t length = readlinkat(place.old_file.get(), "", target.data(), target.size());
        if (length < 0)
            return false;
        if (status.st_uid != geteuid() || links == most_links)
            return fail(links == most_links ? ELOOP : EACCES);
        if (!take_step(place, std::string(target.data(), static_cast<std::size_t>(length))))
            return false;
    }
    return !is_link || fail(ENOENT);
}

bool holds_rtf(const report_place &place)
{
    struct stat status = {};
    // By its descriptor, which is of that very file, whatever has its name by now.
    return fstat(place.old_file.get(), &status) == 0 && S_ISREG(status.st_mode) &&
           check_mime_type("/proc/self/fd/" + std::to_string(place.old_file.get()), "text/rtf");
}

report_file::~report_file()
{
    if (stream)
        unlinkat(place.directory.get(), temporary.c_str(), 0);
}

bool open_report_file(report_file &file, report_place place)
{
    constexpr int attempts = 100;
    if (!place.directory)
        return fail(ENOENT);
    const mode_t mode = place.old_file ? 0600 : 0644;
    owned_fd fd;
    for (int attempt = 0; !fd && attempt < attempts && (attempt == 0 || errno == EEXIST); attempt++) {
        file.temporary = ".gtk-tarnel-report-" + std::to_string(g_random_int());
        fd = owned_fd(openat(place.directory.get(), file.temporary.c_str(),
                             O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
    }
    if (!fd)
        return false;
    file.place = std::move(place);
    struct stat old = {};
    if (file.place.old_file && fstat(file.place.old_file.get(), &old) == 0 &&
        (fchown(fd.get(), old.st_uid, old.st_gid) != 0 || fchmod(fd.get(), old.st_mode & 0777) != 0))
        trace_log("Cannot keep owner and permissions of %s", file.place.name.c_str());
    file.stream.reset(fdopen(fd.get(), "wb"));
    if (!file.stream) {
        const int error = errno;
        unlinkat(file.place.directory.get(), file.temporary.c_str(), 0);
        return fail(error);
    }
    fd.release();
    return true;
}

bool put_in_place(report_file &file)
{
    errno = 0;
    std::FILE *stream = file.stream.get();
    if (std::fflush(stream) == 0 && !std::ferror(stream) && fsync(fileno(stream)) == 0 &&
        (file.place.old_file ? replace_old_file(file) : name_new_file(file))) {
        file.stream.reset();
        if (fsync(file.place.directory.get()) != 0)
            trace_log("Cannot sync the directory of the report: %s", std::strerror(errno));
        return true;
    }
    if (errno == 0) // an earlier write failed, for a reason that is gone
        errno = EIO;
    return false;
}
