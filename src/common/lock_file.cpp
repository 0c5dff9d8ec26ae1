#include "common/lock_file.h"

#include "trace_log.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

namespace {

bool is_own_file(const struct stat &status)
{
    return S_ISREG(status.st_mode) && status.st_uid == geteuid() &&
           (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

// A link is not followed, and what is no file does not make us wait.
owned_fd open_own(const std::string &path)
{
    const mode_t before = umask(077);
    owned_fd file(open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0666));
    umask(before);
    if (!file)
        return file;
    struct stat status = {};
    if (fstat(file.get(), &status) != 0)
        return owned_fd();
    if (!is_own_file(status)) {
        errno = EPERM;
        return owned_fd();
    }
    if ((status.st_mode & 077) != 0 &&
        fchmod(file.get(), 0600) != 0) // of an older version: who reads it may lock it
        return owned_fd();
    return file;
}

} // namespace

owned_fd open_lock_file(const std::string &path)
{
    owned_fd file = open_own(path);
    if (file)
        return file;
    // Another start may have put it right meanwhile. A directory stays, and is what the failure tells.
    trace_log("%s is no lock file of this program: %s", path.c_str(), std::strerror(errno));
    struct stat status = {};
    const bool put_right = lstat(path.c_str(), &status) == 0 && is_own_file(status);
    if (!put_right && unlink(path.c_str()) != 0 && errno != ENOENT)
        return file;
    return open_own(path);
}
