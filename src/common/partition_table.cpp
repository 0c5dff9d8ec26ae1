#include "common/partition_table.h"

#include "common/host.h"
#include "common/owned.h"
#include "common/table_reader.h"
#include "trace_log.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <span>
#include <sys/wait.h>

namespace {

using steady = std::chrono::steady_clock;

// A child that says more than this has lost its way.
constexpr int max_records = 10000;

std::string text_of(std::span<const char> field)
{
    return {field.begin(), std::ranges::find(field, '\0')};
}

// A device name that may stand in a path or a shell command.
bool is_plain_name(const std::string &name)
{
    return !name.empty() && std::ranges::all_of(name, [](char c) {
        return g_ascii_isalnum(c) || c == '_' || c == '-' || c == '.';
    });
}

// Adds a record to the table. False when no sane child would have sent it.
bool take_device(const table_record &r, partition_table &table)
{
    std::string path = text_of(r.text);
    if (const std::string root = host_path(""); path.starts_with(root))
        path.erase(0, root.size());
    if (!is_plain_name(path.substr(path.rfind('/') + 1)) || r.sector_size <= 0 || r.device_length < 0)
        return false;
    table.path = std::move(path);
    table.model = text_of(r.model);
    table.sector_size = r.sector_size;
    table.length = static_cast<std::uint64_t>(r.device_length);
    table.cylinders = r.cylinders;
    table.heads = r.heads;
    table.sectors = r.sectors;
    return true;
}

bool take_record(const table_record &r, partition_table &table)
{
    switch (r.kind) {
    case record_kind::device:
        return take_device(r, table);
    case record_kind::table:
        table.type = text_of(r.text);
        return true;
    case record_kind::entry: {
        table_entry entry{r.number, r.type, r.start, r.length, r.boot != 0, r.lvm != 0, r.swap != 0, {}};
        if (r.has_fs)
            entry.fs_name = text_of(r.text);
        table.entries.push_back(std::move(entry));
        return r.number >= 0;
    }
    case record_kind::message:
        trace_log("libparted on %s: %s", table.path.c_str(), text_of(r.text).c_str());
        return true;
    default:
        return false;
    }
}

enum class reading { complete, closed, timed_out, senseless };

reading read_record(int pipe, steady::time_point deadline, table_record &r)
{
    std::array<char, sizeof(table_record)> bytes;
    std::size_t filled = 0;
    while (filled < bytes.size()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - steady::now()).count();
        pollfd waiting{pipe, POLLIN, 0};
        const int ready = poll(&waiting, 1, static_cast<int>(std::max<long>(left, 0)));
        if (ready == 0)
            return reading::timed_out;
        const ssize_t got = ready < 0 ? -1 : read(pipe, &bytes[filled], bytes.size() - filled);
        if (got == 0 || (got < 0 && errno != EINTR))
            return reading::closed;
        filled += got > 0 ? static_cast<std::size_t>(got) : 0;
    }
    std::memcpy(&r, bytes.data(), sizeof(r));
    return reading::complete;
}

reading read_records(int pipe, steady::time_point deadline, partition_table &table)
{
    for (int count = 0; count < max_records; count++) {
        table_record r;
        if (const reading state = read_record(pipe, deadline, r); state != reading::complete)
            return state;
        table.openable = r.kind != record_kind::no_device;
        if (r.kind == record_kind::end || r.kind == record_kind::no_device)
            return reading::complete;
        if (!take_record(r, table))
            return reading::senseless;
    }
    return reading::senseless;
}

// Ends the child and returns its wait status; nothing when it cannot be had. A child that is stuck in the
// kernel on a dying disk cannot be ended: it is given a second, then left to itself.
std::optional<int> end_child(pid_t child, bool has_ended)
{
    if (!has_ended)
        kill(child, SIGKILL);
    for (int milliseconds = 0; milliseconds < 1000; milliseconds++) {
        int status = 0;
        const pid_t ended = waitpid(child, &status, WNOHANG);
        if (ended == child)
            return status;
        if (ended < 0 && errno != EINTR)
            return std::nullopt;
        if (milliseconds == 500)
            kill(child, SIGKILL);
        usleep(1000);
    }
    return std::nullopt;
}

std::string describe_end(reading state, std::optional<int> status, std::chrono::milliseconds time)
{
    if (state == reading::timed_out)
        return "the reader did not finish within " + std::to_string(time.count()) + " ms";
    if (state == reading::senseless)
        return "the reader sent senseless data";
    if (status && WIFSIGNALED(*status))
        return std::string("the reader was ended by a signal: ") + strsignal(WTERMSIG(*status));
    return "the reader ended before it had finished";
}

// Drops what a reader that failed had reported about the table; what it said about the device stands.
void drop_table(partition_table &table, std::string reason)
{
    table.type.clear();
    table.entries.clear();
    table.failure = std::move(reason);
}

// Whether the first two sectors look like a master boot record with entries, or like a GPT header, as those
// of a disk without a table do not. A boot record's signature alone also stands on disks that hold nothing
// but a file system; what is code there has no valid status bytes. True when the sectors cannot be read.
bool shows_table(const partition_table &table)
{
    constexpr std::size_t entries = 446, entry_size = 16, entry_end = 510, type_offset = 4;
    const auto sector_size = static_cast<std::size_t>(table.sector_size);
    std::vector<std::uint8_t> sectors(std::clamp<std::size_t>(sector_size, 512, 1U << 16) * 2);
    const owned_fd device(open(host_path(table.path).c_str(), O_RDONLY | O_CLOEXEC));
    if (!device ||
        pread(device.get(), sectors.data(), sectors.size(), 0) != static_cast<ssize_t>(sectors.size()))
        return true;
    if (std::ranges::equal(std::span(sectors).subspan(sectors.size() / 2, 8), std::string_view("EFI PART")))
        return true;
    bool used = false;
    for (std::size_t at = entries; at < entry_end; at += entry_size) {
        if ((sectors[at] & 0x7FU) != 0)
            return false;
        used = used || sectors[at + type_offset] != 0;
    }
    return used && sectors[entry_end] == 0x55 && sectors[entry_end + 1] == 0xAA;
}

} // namespace

table_reading start_reading(const std::string &device, table_depth depth)
{
    table_reading started{device, depth, owned_fd(), -1, ""};
    std::array<int, 2> ends;
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        started.failure = std::string("cannot make a pipe: ") + std::strerror(errno);
        return started;
    }
    started.from_child = owned_fd(ends[0]);
    const owned_fd to_parent(ends[1]);
    const pid_t parent = getpid();
    started.child = fork();
    if (started.child < 0)
        started.failure = std::string("cannot start the reader: ") + std::strerror(errno);
    if (started.child == 0)
        run_table_reader(to_parent.get(), parent, host_path(device), depth);
    return started;
}

partition_table finish_reading(const table_reading &started, std::chrono::milliseconds time)
{
    partition_table table;
    table.path = started.device;
    if (started.child < 0) {
        drop_table(table, started.failure);
        table.unreadable = true;
        return table;
    }
    const reading state = read_records(started.from_child.get(), steady::now() + time, table);
    const std::optional<int> status = end_child(started.child, state == reading::closed);
    if (state != reading::complete) {
        drop_table(table, describe_end(state, status, time));
        table.unreadable = true;
    } else if (table.openable && started.depth == table_depth::whole_table && table.type.empty()) {
        drop_table(table, "libparted found none that it could read");
        table.unreadable = shows_table(table);
    }
    return table;
}

partition_table read_partition_table(const std::string &device, table_depth depth,
                                     std::chrono::milliseconds time)
{
    return finish_reading(start_reading(device, depth), time);
}
