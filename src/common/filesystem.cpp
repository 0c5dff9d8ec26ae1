#include "common/filesystem.h"

#include "common/owned.h"
#include "trace_log.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace {

// What the tool recognises. The last row stands for everything else.
constexpr std::array<file_system, 5> file_systems = {{
    {.names = {"ext2", "ext3", "ext4"},
     .magics =
         {{{0x137D, "File system: ext"}, {0xEF51, "File system: ext2"}, {0xEF53, "File system: ext2/ext3"}}},
     .names_in_records = record_names::as_they_are,
     .separator = '/',
     // Whatever the volume says: it may want the machine to stop.
     .mount_options = ",errors=remount-ro"},
    {.names = {"fat16", "fat32"},
     .magics = {{{0x4006, "File system: fat"}, {0x4D44, "File system: msdos"}}},
     .names_in_records = record_names::short_names,
     .mount_type = "vfat",
     .mount_options = ",codepage=866,utf8"},
    {.names = {"ntfs"},
     .magics = {{{0x5346544E, "File system: ntfs"},
                 {0x7366746E, "File system: ntfs"},   // the kernel's ntfs3
                 {0x65735546, "File system: ntfs"}}}, // FUSE: mounted through ntfs-3g
     .mount_type = "ntfs-3g",
     .mount_package = "ntfs-3g"},
    {.magics = {{{0x00011954, "File system: ufs"}, {0x54190100, "File system: ufs"}}}}, // also byte-swapped
    {},
}};

} // namespace

const file_system &find_file_system(const std::optional<std::string> &name)
{
    return *std::find_if(file_systems.begin(), std::prev(file_systems.end()), [&](const file_system &kind) {
        return name && !name->empty() && std::ranges::find(kind.names, *name) != kind.names.end();
    });
}

std::uint32_t check_fs_type(const std::string &path)
{
    struct statfs status;
    if (statfs(path.c_str(), &status) != 0)
        return 0;
    const auto magic = static_cast<std::uint32_t>(status.f_type);
    trace_log("File %s has FS type: 0x%x", path.c_str(), magic);
    for (const file_system &kind : file_systems) {
        for (const auto &[f_type, trace_text] : kind.magics) {
            if (trace_text && f_type == magic) {
                trace_log("%s", trace_text);
                return magic;
            }
        }
    }
    return 0;
}

void sync_file_system(const std::string &directory)
{
    const owned_fd fd(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd || syncfs(fd.get()) != 0)
        trace_log("Cannot sync the file system of %s: %s", directory.c_str(), std::strerror(errno));
}

bool check_symlink(const std::string &path)
{
    for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
        const std::string directory = path.substr(0, slash);
        trace_log("Check directory:  %s", directory.c_str());
        std::array<char, 256> target;
        if (readlink(directory.c_str(), target.data(), target.size()) >= 0) {
            trace_log("Find symlink:  %s", directory.c_str());
            trace_log("* Exit");
            return false;
        }
    }
    return true;
}

// What the three probes answer.
static int traced_kind(const std::string &path, bool holds, const char *kind)
{
    trace_log("File %s is %s%s", path.c_str(), holds ? "" : "not ", kind);
    return holds ? 0 : 1;
}

int is_symlink(const std::string &path, mode_t mode)
{
    return traced_kind(path, S_ISLNK(mode), "symbol link");
}

int is_directory(const std::string &path, mode_t mode)
{
    return traced_kind(path, S_ISDIR(mode), "directory");
}

int is_regular(const std::string &path, mode_t mode)
{
    return traced_kind(path, S_ISREG(mode), "regular file");
}

const char *static_sprintf(const char *format, ...)
{
    static std::array<char, 1024> buffer;
    buffer.fill('\0');
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(buffer.data(), buffer.size(), format, arguments);
    va_end(arguments);
    return buffer.data();
}

bool has_prefix(std::string_view text, std::string_view prefix)
{
    return text.starts_with(prefix);
}
