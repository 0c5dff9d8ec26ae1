#include "common/partition_table.h"

#include "common/host.h"
#include "common/owned.h"
#include "common/part.h"
#include "common/table_record.h"
#include "trace_log.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <span>
#include <spawn.h>
#include <sys/wait.h>

namespace {

using steady = std::chrono::steady_clock;

// A reader that says more than this has lost its way.
constexpr int max_records = 10000;

std::string text_of(std::span<const char> field)
{
    return {field.begin(), std::ranges::find(field, '\0')};
}

// Adds a record to the table. False when no sane child would have sent it: of another device, say, which it
// might name to have its own table taken for that one's.
bool take_device(const table_record &r, partition_table &table)
{
    std::string path = text_of(r.text);
    if (const std::string root = host_path(""); path.starts_with(root))
        path.erase(0, root.size());
    if (path != table.path || !is_device_name(base_name(path)) || r.sector_size <= 0 || r.device_length < 0)
        return false;
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
            entry.fs_type = text_of(r.text);
        table.entries.push_back(std::move(entry));
        return r.number >= 0 && r.start >= 0 && r.length >= 0;
    }
    case record_kind::firmware_table:
        table.supported.emplace();
        return true;
    case record_kind::firmware_entry:
        if (!table.supported || r.number < 0)
            return false;
        trace_log("Supported gpt partition found: %s%d", table.path.c_str(), r.number);
        table.supported->push_back(static_cast<std::uint32_t>(r.number));
        return true;
    case record_kind::table_traces:
        table.unreadable = true;
        return true;
    case record_kind::complaint:
        if (table.complaint.empty())
            table.complaint = text_of(r.text);
        [[fallthrough]];
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
    for (useconds_t pause = 60; pause < 500'000; pause *= 2) { // a second in all
        int status = 0;
        const pid_t ended = waitpid(child, &status, WNOHANG);
        if (ended == child)
            return status;
        if (ended < 0 && errno != EINTR)
            return std::nullopt;
        if (pause > 100'000)
            kill(child, SIGKILL);
        usleep(pause);
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
    if (status && WIFEXITED(*status) && WEXITSTATUS(*status) == reader_unconfined)
        return "the reader could not give up its rights";
    return "the reader ended before it had finished";
}

// Drops what a reader that failed had reported about the table; what it said about the device stands.
void drop_table(partition_table &table, std::string reason)
{
    table.type.clear();
    table.entries.clear();
    table.supported.reset();
    table.failure = std::move(reason);
}

// What the reader finds when it starts: of all descriptors of this process only the end of the pipe, since an
// inherited lock must not outlive its owner.
int set_descriptors(posix_spawn_file_actions_t &files, int to_parent)
{
    int error = posix_spawn_file_actions_adddup2(&files, to_parent, record_fd);
    for (int standard = 0; standard < record_fd && !error; standard++)
        error = posix_spawn_file_actions_addopen(&files, standard, "/dev/null", O_RDWR, 0);
    return error ? error : posix_spawn_file_actions_addclosefrom_np(&files, record_fd + 1);
}

// Signals that end this process, such as the terminal's interrupt, do not end the reader: this process does.
void block_ending_signals(posix_spawnattr_t &attributes)
{
    sigset_t ending;
    sigemptyset(&ending);
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&ending, number);
    posix_spawnattr_setsigmask(&attributes, &ending);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
}

// 0, or the error number. The environment is the reader's own: there is no PATH in which somebody's program
// might be found, and the variable keeps libparted, while it is loaded, from calling dmidecode in a shell.
int spawn_reader(const std::string &device, table_depth depth, int to_parent, pid_t &child)
{
    std::string program = host_path(table_reader_program), path = host_path(device);
    std::string wanted = depth == table_depth::whole_table ? read_whole_table : read_device_only;
    std::string language = "LC_ALL=C", no_shell = "PARTED_GPT_APPLE=0";
    const std::array<char *, 4> arguments = {program.data(), path.data(), wanted.data(), nullptr};
    const std::array<char *, 3> environment = {language.data(), no_shell.data(), nullptr};
    posix_spawn_file_actions_t files;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&files);
    posix_spawnattr_init(&attributes);
    block_ending_signals(attributes);
    int error = set_descriptors(files, to_parent);
    if (!error)
        error =
            posix_spawn(&child, program.c_str(), &files, &attributes, arguments.data(), environment.data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    return error;
}

// A child process that is reading.
struct table_reading {
    owned_fd from_child;
    pid_t child = -1;
    std::string failure; // why there is no child
};

table_reading start_reading(const std::string &device, table_depth depth)
{
    table_reading started;
    std::array<int, 2> ends;
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        started.failure = std::string("cannot make a pipe: ") + std::strerror(errno);
        return started;
    }
    started.from_child = owned_fd(ends[0]);
    const owned_fd to_parent(ends[1]);
    if (const int error = spawn_reader(device, depth, to_parent.get(), started.child)) {
        started.child = -1;
        started.failure = std::string("cannot start the reader: ") + std::strerror(error);
    }
    return started;
}

} // namespace

partition_table read_partition_table(const std::string &device, table_depth depth,
                                     std::chrono::milliseconds time)
{
    const steady::time_point deadline = steady::now() + time;
    const table_reading started = start_reading(device, depth);
    partition_table table;
    table.path = device;
    if (started.child < 0) {
        drop_table(table, started.failure);
        table.unreadable = true;
        return table;
    }
    const reading state = read_records(started.from_child.get(), deadline, table);
    const std::optional<int> status = end_child(started.child, state == reading::closed);
    if (state != reading::complete) {
        drop_table(table, describe_end(state, status, time));
        table.unreadable = true;
    } else if (table.openable && depth == table_depth::whole_table && table.type.empty()) {
        drop_table(table, "libparted found none that it could read");
    } else if (table.type == "loop") {
        drop_table(table, "a file system takes the whole disk");
    }
    return table;
}
