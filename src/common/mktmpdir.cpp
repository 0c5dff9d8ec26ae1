#include "common/mktmpdir.h"

#include "common/filesystem.h"
#include "trace_log.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::string_view mkdtemp_end = "XXXXXX";

} // namespace

std::string tmpdir_name()
{
    return std::string(tmpdir_prefix) + std::to_string(std::rand());
}

bool is_tmpdir_name(std::string_view path)
{
    constexpr std::string_view characters = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    constexpr std::string_view digits = characters.substr(0, 10);
    if (!has_prefix(path, tmpdir_prefix))
        return false;
    const std::string_view end = path.substr(tmpdir_prefix.size());
    return (!end.empty() && end.find_first_not_of(digits) == end.npos) ||
           (end.size() == mkdtemp_end.size() && end.find_first_not_of(characters) == end.npos);
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
    // Somebody has taken them all, for every second of an hour. This name cannot be guessed; the mode is
    // 0700.
    std::string name = std::string(tmpdir_prefix).append(mkdtemp_end);
    if (!mkdtemp(name.data()) || !is_own_directory(name, 077)) {
        trace_log("Cannot make %s: %s", name.c_str(), std::strerror(errno));
        return std::nullopt;
    }
    trace_log("Directory %s was created", name.c_str());
    return name;
}

bool is_own_directory(const std::string &path, mode_t denied)
{
    struct stat status;
    return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid() &&
           (status.st_mode & denied) == 0;
}
