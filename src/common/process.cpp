#include "common/process.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace {

std::atomic<int> ending_signal = 0;

} // namespace

void settle_process()
{
    // The next descriptor is always the lowest that is free.
    int fd = STDIN_FILENO;
    while (fd >= 0 && fd <= STDERR_FILENO)
        fd = open("/dev/null", O_RDWR); // NOLINT: to be inherited
    if (fd > STDERR_FILENO)
        close(fd);
    setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1);
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGCHLD, SIG_DFL); // ignored, it would leave us without the exit status of a command
}

bool ending()
{
    return ending_signal != 0;
}

int ending_status()
{
    return 128 + ending_signal;
}

void note_ending(int signal)
{
    int none = 0;
    ending_signal.compare_exchange_strong(none, signal);
}
