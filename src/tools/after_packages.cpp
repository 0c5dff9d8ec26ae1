// after-packages: says what a run of the package system has changed of what the board checks, in the user's
// language. Its status is 0 whatever comes of it, and it says nothing when nothing could be found out.
#include "common/owned.h"
#include "common/process.h"
#include "i18n.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <clocale>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <vector>

namespace {

using steady = std::chrono::steady_clock;

// The whole run takes at most 20 s: a failing disk can hold up whoever looks at it.
constexpr std::chrono::seconds patience(19);
constexpr std::size_t most_names = 10, most_sectors_before_files = 3;

struct listing {
    owned_fd output;
    pid_t child = -1;
};

// In a session of its own, so that it goes with all that it has started.
listing start_listing()
{
    listing started;
    std::array<int, 2> ends;
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        return started;
    started.output = owned_fd(ends[0]);
    const owned_fd to_us(ends[1]);
    posix_spawn_file_actions_t files;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&files);
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    posix_spawn_file_actions_adddup2(&files, to_us.get(), STDOUT_FILENO);
    for (const int other : {STDIN_FILENO, STDERR_FILENO})
        posix_spawn_file_actions_addopen(&files, other, "/dev/null", O_RDWR, 0);
    std::string program = "/usr/bin/tarnel-list", option = "--check";
    char *const words[] = {program.data(), option.data(), nullptr};
    if (posix_spawn(&started.child, program.c_str(), &files, &attributes, words, environ) != 0)
        started.child = -1;
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    return started;
}

// All that it prints; false when it does not come to an end within the time. Then it is not waited for: what
// is stuck in the kernel cannot be ended.
bool read_listing(const listing &started, std::string &text)
{
    const steady::time_point deadline = steady::now() + patience;
    std::array<char, 4096> block;
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - steady::now()).count();
        pollfd waiting{started.output.get(), POLLIN, 0};
        const int ready = left > 0 ? poll(&waiting, 1, static_cast<int>(left)) : 0;
        if (ready == 0) {
            kill(-started.child, SIGKILL);
            return false;
        }
        const ssize_t got = ready < 0 ? -1 : read(started.output.get(), block.data(), block.size());
        if (got == 0)
            return true;
        if (got > 0)
            text.append(block.data(), static_cast<std::size_t>(got));
        else if (errno != EINTR)
            return false;
    }
}

struct findings {
    unsigned files = 0, sectors = 0;
    std::vector<std::string> file_names, sector_names; // of the first ones
};

// A line is a state, two blanks and the entry: "gone  C:/boot/vmlinuz". Of sectors it is "0x80 2048".
void take_line(std::string_view line, findings &found)
{
    const std::size_t blanks = line.find("  ");
    const std::string_view state = line.substr(0, blanks);
    if (blanks == line.npos || (state != "gone" && state != "changed"))
        return;
    std::string name(line.substr(blanks + 2));
    const bool is_sector = name.starts_with("0x");
    ++(is_sector ? found.sectors : found.files);
    std::vector<std::string> &names = is_sector ? found.sector_names : found.file_names;
    if (names.size() == most_names)
        return;
    if (!is_sector && state == "gone") {
        const owned_gchar text(g_strdup_printf(_("%s (gone)"), name.c_str()));
        name = text.get();
    }
    names.push_back(std::move(name));
}

void print_part(const char *heading, unsigned count, const std::vector<std::string> &names)
{
    if (!count)
        return;
    std::fprintf(stderr, heading, count); // NOLINT: the catalogue's form of a text of ours
    std::fputc('\n', stderr);
    for (const std::string &name : names)
        std::fprintf(stderr, "  %s\n", name.c_str());
    if (const auto more = count - static_cast<unsigned>(names.size())) {
        std::fputs("  ", stderr);
        std::fprintf(stderr, P_("and %u more", "and %u more", more), more);
        std::fputc('\n', stderr);
    }
}

void print(findings &found)
{
    const std::size_t for_files = most_names - std::min(found.sector_names.size(), most_sectors_before_files);
    found.file_names.resize(std::min(found.file_names.size(), for_files));
    found.sector_names.resize(std::min(found.sector_names.size(), most_names - found.file_names.size()));
    print_part(P_("%u file that the trusted-boot board checks has changed since the template was saved:",
                  "%u files that the trusted-boot board checks have changed since the template was saved:",
                  found.files),
               found.files, found.file_names);
    print_part(P_("%u sector that the trusted-boot board checks no longer begins a disk or partition:",
                  "%u sectors that the trusted-boot board checks no longer begin a disk or partition:",
                  found.sectors),
               found.sectors, found.sector_names);
    if (found.files || found.sectors)
        std::fprintf(stderr, "%s\n",
                     _("The board may stop the next start. See that the changes are yours, then save the "
                       "template anew."));
}

} // namespace

int main()
{
    settle_process();
    std::setlocale(LC_ALL, "");
    bindtextdomain(TEXT_DOMAIN, "/usr/share/locale/");
    const listing started = start_listing();
    std::string text;
    if (started.child < 0 || !read_listing(started, text))
        return 0;
    findings found;
    std::string_view rest = text;
    for (std::size_t end; (end = rest.find('\n')) != rest.npos; rest.remove_prefix(end + 1))
        take_line(rest.substr(0, end), found);
    print(found);
    return 0;
}
