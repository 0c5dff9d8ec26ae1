#include "common/mktmpdir.h"

#include "trace_log.h"

#include <cstdlib>
#include <ctime>
#include <sys/stat.h>
#include <unistd.h>

std::string tmpdir_name()
{
    return "/tmp/tarnel" + std::to_string(std::rand());
}

std::optional<std::string> mktmpdir()
{
    std::srand(static_cast<unsigned>(std::time(nullptr)));
    for (int attempt = 0; attempt < 10; attempt++) {
        const std::string candidate = tmpdir_name();
        struct stat status;
        // The names can be guessed. It is mkdir that keeps us off a prepared directory or link: it never
        // follows and never takes what exists.
        if (lstat(candidate.c_str(), &status) != 0 && mkdir(candidate.c_str(), 0700) == 0 &&
            is_own_directory(candidate, 077)) {
            trace_log("Directory %s was created", candidate.c_str());
            return candidate;
        }
    }
    return std::nullopt;
}

bool is_own_directory(const std::string &path, mode_t denied)
{
    struct stat status;
    return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid() &&
           (status.st_mode & denied) == 0;
}
