#include "common/mount_table.h"

#include "common/filesystem.h"
#include "common/host.h"
#include "common/owned.h"
#include "trace_log.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <linux/magic.h>
#include <map>
#include <poll.h>
#include <sys/stat.h>
#include <sys/statfs.h>

namespace {

constexpr std::string_view blanks = " \t";

// Takes the next field off the front of the line; empty when there is none.
std::string_view take_field(std::string_view &line)
{
    line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
    const std::string_view field = line.substr(0, line.find_first_of(blanks));
    line.remove_prefix(field.size());
    return field;
}

// What "%1d" reads: one digit, blanks before it skipped.
bool take_digit(std::string_view &line)
{
    line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
    if (line.empty() || line.front() < '0' || line.front() > '9')
        return false;
    line.remove_prefix(1);
    return true;
}

bool is_octal(char c)
{
    return c >= '0' && c <= '7';
}

// The kernel writes blank, tab, newline and back-slash as a back-slash and three octal digits.
std::string decode_octal(std::string_view field)
{
    std::string decoded;
    for (std::size_t i = 0; i < field.size(); i++) {
        if (field[i] == '\\' && i + 3 < field.size() && is_octal(field[i + 1]) && is_octal(field[i + 2]) &&
            is_octal(field[i + 3])) {
            const int code = (field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 + (field[i + 3] - '0');
            if (code > 0 && code < 256) {
                decoded += static_cast<char>(code);
                i += 3;
                continue;
            }
        }
        decoded += field[i];
    }
    return decoded;
}

bool fits(std::string_view field, std::size_t longest)
{
    return !field.empty() && field.size() <= longest;
}

// Returns whether the line yields all six fields of the fixed format.
bool parse_line(std::string_view line, mount_data &mount)
{
    const std::string_view device = take_field(line);
    const std::string_view directory = take_field(line);
    const std::string_view type = take_field(line);
    const std::string_view options = take_field(line);
    mount = {decode_octal(device), decode_octal(directory), decode_octal(type), decode_octal(options)};
    return fits(device, 255) && fits(directory, 255) && fits(type, 15) && fits(options, 255) &&
           take_digit(line) && take_digit(line);
}

// An open /proc/mounts and what was read from it.
struct open_table {
    std::string path;
    owned_fd file;
    mount_table table;
    // Directories by st_dev, as found in this reading of the table: some machines have hundreds of mounts,
    // and a directory gets another device only with a change of the table.
    std::map<std::uint64_t, std::string> known_devices;
};

open_table opened;

// Whether the table has changed since it was opened or last asked for: the kernel tells each descriptor once
// per change, see proc(5).
bool has_changed(int file)
{
    pollfd watched = {file, POLLPRI, 0};
    return poll(&watched, 1, 0) != 0;
}

bool read_whole(int file, std::string &text)
{
    text.clear();
    if (lseek(file, 0, SEEK_SET) != 0)
        return false;
    std::array<char, 16384> block;
    for (;;) {
        const ssize_t got = read(file, block.data(), block.size());
        if (got == 0)
            return true;
        if (got > 0)
            text.append(block.data(), static_cast<std::size_t>(got));
        else if (errno != EINTR)
            return false;
    }
}

// Only the kernel's own file signals changes.
bool signals_changes(int file)
{
    struct statfs status;
    return fstatfs(file, &status) == 0 && status.f_type == PROC_SUPER_MAGIC;
}

const mount_table *read_table()
{
    opened.known_devices.clear();
    std::string text;
    bool settled = false;
    // A change during the reading can tear the text, so it is read again.
    for (int round = 0; round < 4 && !settled; round++) {
        if (!read_whole(opened.file.get(), text)) {
            const int reason = errno;
            opened.file.reset();
            errno = reason;
            return nullptr;
        }
        settled = !has_changed(opened.file.get());
    }
    opened.table = parse_mount_table(text);
    if (!settled || !signals_changes(opened.file.get()))
        opened.file.reset(); // the next call opens and reads it again
    return &opened.table;
}

} // namespace

mount_table parse_mount_table(std::string_view text)
{
    mount_table table;
    bool scanning = true;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        scanning = parse_line(line, table.lines.emplace_back()) && scanning;
        if (scanning)
            table.scanned++;
    }
    return table;
}

const mount_table *current_mount_table()
{
    const std::string path = host_path("/proc/mounts");
    if (opened.file && opened.path == path) {
        if (!has_changed(opened.file.get()))
            return &opened.table;
        return read_table();
    }
    opened.path = path;
    opened.file = owned_fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    return opened.file ? read_table() : nullptr;
}

std::optional<mount_data> mount_data_find(const std::string &path)
{
    const mount_table *table = current_mount_table();
    if (!table) {
        trace_log("Cannot open /proc/mounts");
        return std::nullopt;
    }
    const mount_data *found = nullptr;
    for (std::size_t i = 0; i < table->scanned; i++) {
        const mount_data &mount = table->lines[i];
        if (has_prefix(path, mount.directory) && (!found || mount.directory.size() > found->directory.size()))
            found = &mount;
    }
    return found ? std::optional(*found) : std::nullopt;
}

std::optional<std::string> find_mountpoint_for_device(std::uint64_t dev)
{
    trace_log("Find mount point for device with rdev = %d", static_cast<int>(dev));
    const mount_table *table = current_mount_table();
    if (!table) {
        trace_log("Cannot open /proc/mounts");
        return std::nullopt;
    }
    if (const auto known = opened.known_devices.find(dev); known != opened.known_devices.end())
        return known->second;
    for (std::size_t i = 0; i < table->scanned; i++) {
        struct stat status;
        const std::string &directory = table->lines[i].directory;
        if (stat(directory.c_str(), &status) == 0 && status.st_dev == dev) {
            opened.known_devices[dev] = directory;
            return directory;
        }
    }
    return std::nullopt;
}
